// The 24 operations of the Ethernet library as a binding holds them: loaded
// from a path by dlopen and resolved by name, in the order of resolution.
// Shared by the library's tests and its benchmark.
#pragma once

#include <dlfcn.h>

#include <string>

#include "NXBusApiEthernet.h"
#include "operation_names.h"

namespace eth_test {

struct Api {
#define NXETH_TEST_OPERATION(name) decltype(&::NXETH_##name) name = nullptr;
    NXETH_TEST_OPERATION(GetAvailableInterfacesCount)
    NXETH_TEST_OPERATION(GetAvailableInterfaces)
    NXETH_TEST_OPERATION(RegisterInterface)
    NXETH_TEST_OPERATION(UnregisterInterface)
    NXETH_TEST_OPERATION(GetInterfaceBufferSize)
    NXETH_TEST_OPERATION(IsInterfaceAccessible)
    NXETH_TEST_OPERATION(InitInterface)
    NXETH_TEST_OPERATION(ActivateInterface)
    NXETH_TEST_OPERATION(DeactivateInterface)
    NXETH_TEST_OPERATION(GetTimeResolution)
    NXETH_TEST_OPERATION(GetTime)
    NXETH_TEST_OPERATION(ReadFrames)
    NXETH_TEST_OPERATION(FlushReceiveQueue)
    NXETH_TEST_OPERATION(TransmitFrames)
    NXETH_TEST_OPERATION(FlushTransmitQueue)
    NXETH_TEST_OPERATION(GetErrorText)
    NXETH_TEST_OPERATION(GetLastAccessProviderSpecificError)
    NXETH_TEST_OPERATION(SetFilter)
    NXETH_TEST_OPERATION(SetReplayStartTime)
    NXETH_TEST_OPERATION(SetReplayStopTime)
    NXETH_TEST_OPERATION(ReplayStreamData)
    NXETH_TEST_OPERATION(ReplayInitHeader)
    NXETH_TEST_OPERATION(GetReplayStateInfo)
    NXETH_TEST_OPERATION(RegisterReplayInterface)
#undef NXETH_TEST_OPERATION
};
static_assert(sizeof(Api) == sizeof(void*) * 24, "one pointer per operation");

// Fills `api` from the library at `path`: an empty text, or what went wrong.
inline std::string LoadApi(const char* path, Api* api)
{
    void* lib = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (lib == nullptr)
        return dlerror();
    void** slot = reinterpret_cast<void**>(api);
    for (const char* name : nxsim::kEthOperationNames) {
        *slot = dlsym(lib, name);
        if (*slot++ == nullptr)
            return std::string("missing symbol ") + name;
    }
    if (dlsym(lib, "_ZN5nxsim12EthSimulator8InstanceEv") != nullptr)
        return "internal symbols are exported";
    return {};
}

}  // namespace eth_test
