// The bus components through the engine, on the simulated bus. Meant to run
// under tools/with-sim-bus (CTest does so), which puts the simulator at the
// fixed path from which the package loads it. NXBUSAPI_SIM_CONFIG, when set,
// names the simulator's configuration of this run.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>

#include "NxCanApi.h"

int main(int argc, char** argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    if (access(kNxCanApiLibraryPath, R_OK) != 0) {
        std::fprintf(stderr,
                     "bus_component_tests: no CAN library at %s; run the tests through tools/with-sim-bus, "
                     "which puts the simulator there\n",
                     kNxCanApiLibraryPath);
        return 1;
    }
    return RUN_ALL_TESTS();
}
