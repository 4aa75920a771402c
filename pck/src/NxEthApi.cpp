// Loading of the Ethernet bus access library and the table of its operations.
#include "NxEthApi.h"

#include "NxBusLibraryPaths.h"

#define NXETH_DEFINE_POINTER(name) NXETHAPI_FUNC_PTR_##name pfnEth##name = nullptr;
NXETH_API_OPERATIONS(NXETH_DEFINE_POINTER)
#undef NXETH_DEFINE_POINTER

const char* const kNxEthApiLibraryPath = NX_BUSAPI_ETH_LIBRARY_PATH;

namespace {
NxLibraryBinding g_ethLibrary(true);
#define NXETH_TABLE_ENTRY(name) {"NXETH_" #name, [](void* address) { NxBindOperation(pfnEth##name, address); }},
const NxTableEntry kEthTable[] = {NXETH_API_OPERATIONS(NXETH_TABLE_ENTRY)};
#undef NXETH_TABLE_ENTRY
static_assert(sizeof kEthTable / sizeof kEthTable[0] == kNxEthApiOperationCount, "one entry per operation");
}  // namespace

std::unique_ptr<NxLibraryObject>& hNxEthApiDll = g_ethLibrary.object;
std::uint32_t& uEthApiWrapperCount = g_ethLibrary.users;

NxLibraryBinding& EthLibrary() { return g_ethLibrary; }

void InitEthFunctionPointers() { NxLibraryBinding::Clear(kEthTable); }

int LoadEthLibrary() { return g_ethLibrary.Load(kNxEthApiLibraryPath, true, kEthTable, UnloadEthLibrary); }

void UnloadEthLibrary()
{
    std::lock_guard<std::recursive_mutex> lock(g_ethLibrary.lock);
    if (g_ethLibrary.IsLoaded()) InitEthFunctionPointers();
}
