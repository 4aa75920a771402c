// Loading of the replay pre-processing library and the table of its
// operations.
#include "NxDrPreApi.h"

#include <boost/dll/runtime_symbol_info.hpp>

#include "NxBusLibraryPaths.h"

#define NXDRPP_DEFINE_POINTER(name, type, symbol) NXDRPP_FUN_PTR_PREPROCESSING_##type pfnPreprocessing##name = nullptr;
NXDRPP_OPERATIONS(NXDRPP_DEFINE_POINTER)
#undef NXDRPP_DEFINE_POINTER


namespace {
NxLibraryBinding g_drPreLibrary(false);
#define NXDRPP_TABLE_ENTRY(name, type, symbol) \
    {#symbol, [](void* address) { NxBindOperation(pfnPreprocessing##name, address); }},
const NxTableEntry kDrPreTable[] = {NXDRPP_OPERATIONS(NXDRPP_TABLE_ENTRY)};
#undef NXDRPP_TABLE_ENTRY
static_assert(sizeof kDrPreTable / sizeof kDrPreTable[0] == kNxDrPreOperationCount, "one entry per operation");
}  // namespace

std::unique_ptr<NxLibraryObject>& hNxDrPreDll = g_drPreLibrary.object;
std::uint32_t& uDrPreApiWrapperCount = g_drPreLibrary.users;

NxLibraryBinding& DrPreLibrary() { return g_drPreLibrary; }

std::string DrPreLibraryPath()
{
    return boost::dll::this_line_location().parent_path().string() + "/" + NX_DRPP_LIBRARY_RELATIVE_PATH;
}

void InitDrPreFunctionPointers() { NxLibraryBinding::Clear(kDrPreTable); }

int LoadDrPreLibrary() { return g_drPreLibrary.Load(DrPreLibraryPath(), true, kDrPreTable, UnloadDrPreLibrary); }

void UnloadDrPreLibrary()
{
    std::lock_guard<std::recursive_mutex> lock(g_drPreLibrary.lock);
    if (!g_drPreLibrary.IsLoaded()) return;
    InitDrPreFunctionPointers();
    g_drPreLibrary.Unload();
}
