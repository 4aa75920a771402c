// The Ethernet library's tests. Run under tools/with-sim-bus (CTest does
// so), which puts the library at its fixed path and makes the veth pair.
//   busapi_eth_tests [gtest options]
//   busapi_eth_tests hold ID     claims interface ID, says "ready", waits
// With BUSAPI_ETH_DEFAULT_TOPOLOGY set, only the tests of the library
// without a configuration file run, and without one.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "NxBusLibraryPaths.h"
#include "eth_test_support.h"

int main(int argc, char** argv)
{
    // The library reads its configuration at its first call; this process
    // and the ones it starts read the same file.
    const bool defaultTopology = std::getenv("BUSAPI_ETH_DEFAULT_TOPOLOGY") != nullptr;
    if (defaultTopology)
        unsetenv("NXBUSAPI_SIM_CONFIG");
    else
        setenv("NXBUSAPI_SIM_CONFIG", BUSAPI_ETH_TEST_CONFIG, 1);
    const std::string error = access(NX_BUSAPI_ETH_LIBRARY_PATH, R_OK) != 0 || access("/sys/class/net", R_OK) != 0
                                  ? std::string("no Ethernet library at ") + NX_BUSAPI_ETH_LIBRARY_PATH +
                                        "; run the tests through tools/with-sim-bus"
                                  : eth_test::LoadApi(NX_BUSAPI_ETH_LIBRARY_PATH, &eth_test::g_api);
    if (!error.empty()) {
        std::fprintf(stderr, "busapi_eth_tests: %s\n", error.c_str());
        return 1;
    }
    if (argc == 3 && std::strcmp(argv[1], "hold") == 0) {
        NXTEthHandle handle = NXETH_INVALID_HANDLE;
        const NXTEthError rc = eth_test::Register(argv[2], &handle);
        std::printf("%s\n", rc == NXETH_SUCCESS ? "ready" : eth_test::ErrorText(rc).c_str());
        std::fflush(stdout);
        for (;;) pause();
    }
    ::testing::InitGoogleTest(&argc, argv);
    const std::string filter = ::testing::GTEST_FLAG(filter);
    ::testing::GTEST_FLAG(filter) =
        defaultTopology ? "EthDefault*" : filter + (filter.find('-') == std::string::npos ? "-" : ":") + "EthDefault*";
    return RUN_ALL_TESTS();
}
