// Shutting a diagram down when components do not die as they should, and
// components that fail.
#include "graph_support.h"

#include "veld.h"

// The one test that takes the fixed 10 seconds: the stubborn component is
// reported and the others are shut down all the same.
TEST_F(GraphTest, AComponentThatRefusesToDieIsReportedAndTheShutdownGoesOn)
{
    Make("Stubborn", "mule");
    Set("mule.refusal", "10500000");
    Make("Generator", "gen");
    Make("Counter", "sink");
    Connect("gen.oValue", "sink.iValue");
    Run();
    // The stubborn one must be deaf already: one that the shutdown finds
    // before its Core dies at once.
    ASSERT_TRUE(Eventually([&] { return Figure("sink.received") > 0 && Figure("mule.deaf") == 1; }));

    auto start = std::chrono::steady_clock::now();
    engine.Graph().Shutdown();
    const double took = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    EXPECT_GE(took, 9.9);
    EXPECT_LT(took, 30);
    EXPECT_TRUE(engine.GetConsole().Contains(
        "Component mule refuses to die after 10 seconds. The component model Stubborn must be bugged."));
    EXPECT_TRUE(engine.Graph().IsDead("gen"));
    EXPECT_TRUE(engine.Graph().IsDead("sink"));
    EXPECT_FALSE(engine.Graph().IsRunning());
    // The engine's end waits for the late thread before destroying it.
}

TEST_F(GraphTest, AComponentThatThrowsDiesAloneAndIsReported)
{
    Make("Thrower", "bad");
    Make("Generator", "gen");
    Make("Counter", "sink");
    Connect("gen.oValue", "sink.iValue");
    Run();
    ASSERT_TRUE(Eventually([&] { return engine.Graph().IsDead("bad"); }));
    EXPECT_TRUE(engine.GetConsole().Contains("thrown on purpose in core"));
    const long long seen = Figure("sink.received");
    EXPECT_TRUE(Eventually([&] { return Figure("sink.received") > seen; }));
    EXPECT_TRUE(engine.Graph().IsRunning());
}
