// Loads libNXBusApiCan.so the way the package does (dlopen of a path, then
// the 28 symbols) and lists its channels. Exit 0 and "ok" if all went well.
//   nxsim_load_probe <path of the library>
#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "NXBusApiCan.h"
#include "operation_names.h"

namespace {

int Fail(const std::string& why)
{
    std::fprintf(stderr, "nxsim_load_probe: %s\n", why.c_str());
    return 1;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) return Fail("usage: nxsim_load_probe <library>");
    const std::string nameSpace = "probe-" + std::to_string(getpid());
    setenv("NXBUSAPI_SIM_NAMESPACE", nameSpace.c_str(), 0);
    void* lib = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    if (lib == nullptr) return Fail(dlerror());
    for (const char* name : nxsim::kCanOperationNames)
        if (dlsym(lib, name) == nullptr) return Fail(std::string("missing symbol ") + name);
    if (dlsym(lib, "_ZN5nxsim9Simulator8InstanceEv") != nullptr) return Fail("internal symbols are exported");

    // The library works: it finds the default topology.
    auto count = reinterpret_cast<decltype(&NXCAN_GetAvailableChannelsCount)>(dlsym(lib, "NXCAN_GetAvailableChannelsCount"));
    NXSCanChannelsSearchAttribute attribute{NXCAN_SEARCH_ARRTIBUTE_TYPE_IP_V4_ADDRESS, "127.0.0.1"};
    uint32_t n = 0;
    if (count(&n, 1, &attribute) != NXCAN_SUCCESS || n < 5)
        return Fail("expected the default channels at 127.0.0.1, found " + std::to_string(n));
    std::printf("ok\n");
    return 0;
}
