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

    void Rename(VELDComponent& component) { VELDComponent::ActionRenameAfterUpstreamComponent(&component, 0); }
    bool Reported(const char* text) { return engine.GetConsole().Contains(text); }

    ModelTables camTables, viewerTables, bareTables;
    TestEngine engine;
};

TEST_F(RenameAfterUpstream, AFreeNameIsTaken)
{
    Probe& cam = engine.Make("cam1", camTables);
    Probe& viewer = engine.Make("viewer", viewerTables);
    ASSERT_TRUE(VELD::Attach(cam.Output("oImage"), viewer.Input("iIn")));
    Rename(viewer);
    EXPECT_STREQ(viewer.Name(), "cam1_oImage");
    EXPECT_STREQ(viewer.Input("iIn").Name(), "cam1_oImage.iIn");
    // Once named so, it says so.
    Rename(viewer);
    EXPECT_TRUE(Reported("Component is already named after its upstream component's output."));
}

TEST_F(RenameAfterUpstream, TakenNamesAreCountedPast)
{
    Probe& cam = engine.Make("cam1", camTables);
    engine.Make("cam1_oImage", bareTables);
    engine.TakeName("cam1_oImage_1");  // a name used by something else
    Probe& viewer = engine.Make("viewer", viewerTables);
    ASSERT_TRUE(VELD::Attach(cam.Output("oImage"), viewer.Input("iIn")));
    Rename(viewer);
    EXPECT_STREQ(viewer.Name(), "cam1_oImage_2");
}

TEST_F(RenameAfterUpstream, AfterTwentyOneTakenNamesItGivesUp)
{
    Probe& cam = engine.Make("cam1", camTables);
    engine.Make("cam1_oImage", bareTables);
    for (int i = 1; i <= 20; ++i) engine.Make(("cam1_oImage_" + std::to_string(i)).c_str(), bareTables);
    Probe& viewer = engine.Make("viewer", viewerTables);
    ASSERT_TRUE(VELD::Attach(cam.Output("oImage"), viewer.Input("iIn")));
    Rename(viewer);
    EXPECT_TRUE(Reported("Could not find an available name for component. You may change the upstream component name "
                         "and try again."));
    EXPECT_STREQ(viewer.Name(), "viewer");
}

TEST_F(RenameAfterUpstream, RefusalsTellWhy)
{
    Probe& bare = engine.Make("bare", bareTables);
    Rename(bare);
    EXPECT_TRUE(Reported("component bare: This action scans what is connected to this component's first input, but "
                         "this component does not seem to have any inputs."));
    Probe& viewer = engine.Make("viewer", viewerTables);
    Rename(viewer);
    EXPECT_TRUE(Reported("Please connect it in order to rename after upstream component."));
    Probe& inside = engine.Make("macro:viewer", viewerTables);
    Probe& cam = engine.Make("cam1", camTables);
    ASSERT_TRUE(VELD::Attach(cam.Output("oImage"), inside.Input("iIn")));
    Rename(inside);
    EXPECT_TRUE(Reported("Renaming a component inside a Macro-Component *instance* is forbidden."));
}

}  // namespace
