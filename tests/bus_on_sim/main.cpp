// The package's CAN access against the simulated library. Meant to run under
// tools/with-sim-bus (CTest does so), which puts the simulator at the fixed
// path from which the package loads the library, on a bus of its own.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "NxCanApi.h"

int main(int argc, char** argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    if (access(kNxCanApiLibraryPath, R_OK) != 0) {
        std::fprintf(stderr,
                     "bus_on_sim_tests: no CAN library at %s; run the tests through tools/with-sim-bus, "
                     "which puts the simulator there\n",
                     kNxCanApiLibraryPath);
        return 1;
    }
    // The library reads its configuration at its first call; this process and
    // the helper processes it starts read the same file.
    setenv("NXBUSAPI_SIM_CONFIG", NXBUS_SIM_CONFIG, 1);
    return RUN_ALL_TESTS();
}
