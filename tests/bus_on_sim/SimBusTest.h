// What the tests of the package's bus access on the simulated libraries
// (at their fixed paths, tools/with-sim-bus) share: an engine that takes
// the package's reports, none of which may be an error.
#ifndef NXBUS_ON_SIM_SIM_BUS_TEST_H
#define NXBUS_ON_SIM_SIM_BUS_TEST_H

#include <gtest/gtest.h>

#include "Engine.h"
#include "veld_constants.h"

namespace nxbus_on_sim {

const char* const kAddress = "127.0.0.1";  // where the simulated bus and link are found

class SimBusTest : public ::testing::Test {
protected:
    // The package reports invalid lengths and DLCs through the kernel; none
    // of the traffic here has any.
    void TearDown() override
    {
        for (const veldor::ReportRecord& report : engine.GetConsole().Captured())
            EXPECT_NE(report.level, VELD::Error) << "reported: " << report.text;
    }

    veldor::Engine engine;  // the kernel of the package code
};

}  // namespace nxbus_on_sim

#endif
