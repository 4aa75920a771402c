// Renaming a component after the output connected to its first input.
#include <gtest/gtest.h>

#include "runtime_support.h"
#include "veld.h"

namespace {

class RenameAfterUpstream : public ::testing::Test {
protected:
    RenameAfterUpstream() : engine(Quiet())
    {
        camTables.outputs.push_back(IntegerOutput("oImage"));
        camTables.Finish(0, 1, 0, 0);
        viewerTables.inputs.push_back(IntegerInput("iIn"));
        viewerTables.Finish(1, 0, 0, 0);
        bareTables.Finish(0, 0, 0, 0);
    }

    // A viewer fed by the camera `cam`, renamed after it.
    Probe& Renamed(const std::string& cam, const char* viewerName = "viewer")
    {
        Probe& source = engine.Make(cam.c_str(), camTables);
        Probe& viewer = engine.Make(viewerName, viewerTables);
        EXPECT_TRUE(VELD::Attach(source.Output("oImage"), viewer.Input("iIn")));
        VELDComponent::ActionRenameAfterUpstreamComponent(&viewer, 0);
        return viewer;
    }
    bool Reported(const char* text) { return engine.GetConsole().Contains(text); }

    ModelTables camTables, viewerTables, bareTables;
    TestEngine engine;
};

TEST_F(RenameAfterUpstream, TheFirstFreeNameIsTakenAndAfterTwentyOneTakenNamesItGivesUp)
{
    Probe& viewer = Renamed("cam1");
    EXPECT_STREQ(viewer.Name(), "cam1_oImage");
    EXPECT_STREQ(viewer.Input("iIn").Name(), "cam1_oImage.iIn");
    // Once named so, it says so.
    VELDComponent::ActionRenameAfterUpstreamComponent(&viewer, 0);
    EXPECT_TRUE(Reported("Component is already named after its upstream component's output."));

    engine.Make("cam2_oImage", bareTables);
    engine.TakeName("cam2_oImage_1");  // a name used by something else
    EXPECT_STREQ(Renamed("cam2", "viewer2").Name(), "cam2_oImage_2");

    engine.Make("cam3_oImage", bareTables);
    for (int i = 1; i <= 20; ++i) engine.Make(("cam3_oImage_" + std::to_string(i)).c_str(), bareTables);
    EXPECT_STREQ(Renamed("cam3", "viewer3").Name(), "viewer3");
    EXPECT_TRUE(Reported("Could not find an available name for component. You may change the upstream component name "
                         "and try again."));
}

TEST_F(RenameAfterUpstream, RefusalsTellWhy)
{
    VELDComponent::ActionRenameAfterUpstreamComponent(&engine.Make("bare", bareTables), 0);
    EXPECT_TRUE(Reported("component bare: This action scans what is connected to this component's first input, but "
                         "this component does not seem to have any inputs."));
    VELDComponent::ActionRenameAfterUpstreamComponent(&engine.Make("viewer", viewerTables), 0);
    EXPECT_TRUE(Reported("Please connect it in order to rename after upstream component."));
    Renamed("cam1", "macro:viewer");
    EXPECT_TRUE(Reported("Renaming a component inside a Macro-Component *instance* is forbidden."));
}

}  // namespace
