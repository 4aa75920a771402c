// Loading of the replay pre-processing library and the table of its
// operations.
#include "NxDrPreApi.h"

#include <boost/dll/runtime_symbol_info.hpp>

#include "NxBusLibraryPaths.h"

#define NXDRPP_DEFINE_POINTER(name, type, symbol) NXDRPP_FUN_PTR_PREPROCESSING_##type pfnPreprocessing##name = nullptr;
NXDRPP_OPERATIONS(NXDRPP_DEFINE_POINTER)
#undef NXDRPP_DEFINE_POINTER

#define NXDRPP_SYMBOL_NAME(name, type, symbol) #symbol,
const char* const kNxDrPreSymbolNames[kNxDrPreOperationCount] = {NXDRPP_OPERATIONS(NXDRPP_SYMBOL_NAME)};
#undef NXDRPP_SYMBOL_NAME

namespace {
NxLibraryBinding g_drPreLibrary(false);
}  // namespace

std::unique_ptr<NxLibraryObject>& hNxDrPreDll = g_drPreLibrary.object;
std::uint32_t& uDrPreApiWrapperCount = g_drPreLibrary.users;

NxLibraryBinding& DrPreLibrary() { return g_drPreLibrary; }

std::string DrPreLibraryPath()
{
    return boost::dll::this_line_location().parent_path().string() + "/" + NX_DRPP_LIBRARY_RELATIVE_PATH;
}

void InitDrPreFunctionPointers()
{
#define NXDRPP_CLEAR_POINTER(name, type, symbol) pfnPreprocessing##name = nullptr;
    NXDRPP_OPERATIONS(NXDRPP_CLEAR_POINTER)
#undef NXDRPP_CLEAR_POINTER
}

int LoadDrPreLibrary()
{
    std::lock_guard<std::recursive_mutex> lock(g_drPreLibrary.lock);
    void* addresses[kNxDrPreOperationCount];
    if (g_drPreLibrary.Load(DrPreLibraryPath(), true, kNxDrPreSymbolNames, kNxDrPreOperationCount, addresses,
                            UnloadDrPreLibrary) != 0)
        return 1;
    void** address = addresses;
#define NXDRPP_BIND_POINTER(name, type, symbol) NxBindOperation(pfnPreprocessing##name, *address++);
    NXDRPP_OPERATIONS(NXDRPP_BIND_POINTER)
#undef NXDRPP_BIND_POINTER
    return 0;
}

void UnloadDrPreLibrary()
{
    std::lock_guard<std::recursive_mutex> lock(g_drPreLibrary.lock);
    if (!g_drPreLibrary.IsLoaded()) return;
    InitDrPreFunctionPointers();
    g_drPreLibrary.Unload();
}
