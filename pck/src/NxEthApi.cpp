// Loading of the Ethernet bus access library and the table of its operations.
#include "NxEthApi.h"

#include "NxBusLibraryPaths.h"

#define NXETH_DEFINE_POINTER(name) NXETHAPI_FUNC_PTR_##name pfnEth##name = nullptr;
NXETH_API_OPERATIONS(NXETH_DEFINE_POINTER)
#undef NXETH_DEFINE_POINTER

#define NXETH_SYMBOL_NAME(name) "NXETH_" #name,
const char* const kNxEthApiSymbolNames[kNxEthApiOperationCount] = {NXETH_API_OPERATIONS(NXETH_SYMBOL_NAME)};
#undef NXETH_SYMBOL_NAME

const char* const kNxEthApiLibraryPath = NX_BUSAPI_ETH_LIBRARY_PATH;

namespace {
NxLibraryBinding g_ethLibrary(true);
}  // namespace

std::unique_ptr<NxLibraryObject>& hNxEthApiDll = g_ethLibrary.object;
std::uint32_t& uEthApiWrapperCount = g_ethLibrary.users;

NxLibraryBinding& EthLibrary() { return g_ethLibrary; }

void InitEthFunctionPointers()
{
#define NXETH_CLEAR_POINTER(name) pfnEth##name = nullptr;
    NXETH_API_OPERATIONS(NXETH_CLEAR_POINTER)
#undef NXETH_CLEAR_POINTER
}

int LoadEthLibrary()
{
    std::lock_guard<std::recursive_mutex> lock(g_ethLibrary.lock);
    void* addresses[kNxEthApiOperationCount];
    if (g_ethLibrary.Load(kNxEthApiLibraryPath, true, kNxEthApiSymbolNames, kNxEthApiOperationCount, addresses,
                     UnloadEthLibrary) != 0)
        return 1;
    void** address = addresses;
#define NXETH_BIND_POINTER(name) NxBindOperation(pfnEth##name, *address++);
    NXETH_API_OPERATIONS(NXETH_BIND_POINTER)
#undef NXETH_BIND_POINTER
    return 0;
}

void UnloadEthLibrary()
{
    std::lock_guard<std::recursive_mutex> lock(g_ethLibrary.lock);
    if (g_ethLibrary.IsLoaded()) InitEthFunctionPointers();
}
