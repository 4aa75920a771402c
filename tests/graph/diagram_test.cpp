// Diagrams of the test package's components through the engine: package
// files, creation, counted overflows, refused starts, renaming, and running
// again after a shutdown. What each reader type gets: data/fifo_test,
// data/fifo_stress_test and runtime/reading_test.
#include "graph_support.h"

#include <tuple>

#include "veld.h"
#include "veld_component.h"
#include "veld_input.h"
#include "veld_output.h"

TEST(Packages, RefusalsAndTheModelsOfAFile)
{
    veldor::Engine engine(Quiet());
    std::string error;
    // A missing file and a package that refuses the engine: script_test and
    // command_test, where a user meets them.
    ASSERT_TRUE(engine.LoadPackage(VELDOR_TEST_PACKAGE, &error)) << error;
    EXPECT_FALSE(engine.LoadPackage(VELDOR_TEST_PACKAGE, &error));
    EXPECT_NE(error.find("is loaded already"), std::string::npos) << error;
    // A second package that offers the same models is refused whole.
    EXPECT_FALSE(engine.LoadPackage(VELDOR_TEST_PACKAGE_COPY, &error));
    EXPECT_NE(error.find("offers the model \"Generator\", which package \"test_models\" offers already"),
              std::string::npos)
        << error;
    EXPECT_EQ(engine.GetPackages().Names(), std::vector<std::string>{"test_models"});
    EXPECT_EQ(engine.GetPackages().Models().size(), 6u);
    // Counts of -1 were resolved up to the closing record.
    VELDComponentDefinition* counter = engine.GetPackages().Find("Counter");
    ASSERT_NE(counter, nullptr);
    EXPECT_EQ(std::make_tuple(counter->nbProperties, counter->nbActions, counter->nbInputs),
              std::make_tuple(5u, 1u, 0u));
    // A package file serves the first engine that loads it.
    veldor::Engine other(Quiet());
    EXPECT_FALSE(other.LoadPackage(VELDOR_TEST_PACKAGE, &error));
    EXPECT_NE(error.find("for another engine"), std::string::npos) << error;
    EXPECT_TRUE(engine.UnregisterPackage("test_models"));
    EXPECT_EQ(engine.GetPackages().Find("Counter"), nullptr);
}

TEST_F(GraphTest, ComponentsByNameThroughTheKernel)
{
    VELDComponent* gen = engine.CreateComponent("Generator", "gen", false);
    ASSERT_NE(gen, nullptr);
    EXPECT_EQ(VELD::Component("gen"), gen);
    EXPECT_STREQ(gen->ModelName(), "Generator");
    EXPECT_EQ(VELD::CoreFunction("gen"), nullptr);

    EXPECT_EQ(engine.Graph().Create("Generator", "gen", &error), nullptr);
    EXPECT_EQ(error, "a component named \"gen\" exists already");  // an unknown model: script_test
    EXPECT_EQ(engine.Graph().Create("Generator", "Engine", &error), nullptr);
    EXPECT_EQ(engine.Graph().Create("Generator", "a.b", &error), nullptr);
    EXPECT_NE(engine.CreateComponent("Counter", "sink", true), nullptr);
    EXPECT_TRUE(engine.States().WaitFor("sink", VELD::LivingState, 5000000));
    EXPECT_TRUE(engine.ShutdownComponent("sink"));
    EXPECT_TRUE(engine.Graph().IsDead("sink"));
    EXPECT_TRUE(engine.KillComponent("sink"));
    EXPECT_EQ(VELD::Component("sink"), nullptr);
    EXPECT_EQ(VELD::Property("sink.received"), nullptr);
    EXPECT_FALSE(engine.KillComponent("sink"));
    EXPECT_EQ(engine.Graph().Names(), std::vector<std::string>{"gen"});
}

// With one plain FIFO reader, the overflows that the engine counts are the
// elements that it missed, one for one, however slow the machine.
TEST_F(GraphTest, TheOverflowsCountedAreTheElementsAFifoReaderMissed)
{
    const long long n = 100;
    Make("Generator", "gen");
    Set("gen.count", std::to_string(n));
    const char* readers[] = {"FifoReader", "NeverSkippingReader"};
    const char* delays[] = {"5000", "0"};
    for (int i = 0; i < 2; ++i) {
        Make("Counter", readers[i]);
        Set(std::string(readers[i]) + ".reader", readers[i]);
        Set(std::string(readers[i]) + ".delay", delays[i]);
        Connect("gen.oValue", std::string(readers[i]) + ".iValue");
    }
    Run();
    ASSERT_TRUE(Eventually(
        [&] { return Figure("NeverSkippingReader.received") == n && Figure("FifoReader.last") == n; }));
    engine.Graph().Shutdown();
    EXPECT_GT(Figure("FifoReader.gaps"), 0);
    EXPECT_EQ(engine.GetNbFifoOverflows(), n - Figure("FifoReader.received"));
}

TEST_F(GraphTest, APropertyThatNeedsSettingBlocksTheRun)
{
    Make("Generator", "gen");
    Make("Labelled", "lab");
    EXPECT_FALSE(engine.Graph().Run(&error));
    EXPECT_EQ(error, "component \"lab\" did not start: Unable to start component lab. Its property label needs to "
                     "be initialized.");
    // What had started is stopped again.
    EXPECT_FALSE(engine.Graph().IsRunning());
    EXPECT_TRUE(engine.Graph().IsDead("gen"));
    EXPECT_EQ(VELD::GetState() & VELD::Running, 0);
    Set("lab.label", "ready");
    Run();
    EXPECT_EQ(VELD::GetState() & VELD::Running, VELD::Running);
    engine.Graph().Shutdown();
    EXPECT_EQ(VELD::GetState(), 0);
}

// The built-in action asks the engine for free names and renames through it;
// the component's full names follow, and so does its connection.
TEST_F(GraphTest, TheRenameActionRenamesThroughTheEngine)
{
    Make("Generator", "gen");
    Make("Counter", "first");
    Make("Counter", "second");
    Connect("gen.oValue", "first.iValue");
    Connect("gen.oValue", "second.iValue");
    ASSERT_TRUE(engine.Graph().Trigger("first.renameAfterUpstream", nullptr, &error)) << error;
    ASSERT_TRUE(engine.Graph().Trigger("second.renameAfterUpstream", nullptr, &error)) << error;
    EXPECT_EQ(engine.Graph().Names(), (std::vector<std::string>{"gen", "gen_oValue", "gen_oValue_1"}));
    EXPECT_EQ(VELD::Property("first.received"), nullptr);
    ASSERT_NE(VELD::Property("gen_oValue_1.received"), nullptr);
    VELDInput* input = static_cast<VELDInput*>(engine.FindSymbol("gen_oValue.iValue")->object);
    ASSERT_NE(input->ConnectedOutput(), nullptr);
    EXPECT_STREQ(input->ConnectedOutput()->Name(), "gen.oValue");
    // A name in use is refused with false.
    EXPECT_FALSE(VELD::RenameComponent("gen_oValue", "gen"));
    EXPECT_FALSE(VELD::RenameComponent("nobody", "somebody"));
    EXPECT_TRUE(VELD::RenameComponent("gen_oValue_1", "renamed"));
    Run();
    EXPECT_TRUE(Eventually([&] { return Figure("gen_oValue.received") > 0 && Figure("renamed.received") > 0; }));
}

// Shutdown leaves no connection behind; the next run makes them again.
TEST_F(GraphTest, ShutdownDetachesAndTheNextRunReattaches)
{
    Make("Generator", "gen");
    Make("Counter", "sink");
    Connect("gen.oValue", "sink.iValue");
    Run();
    ASSERT_TRUE(Eventually([&] { return Figure("sink.received") > 0; }));
    engine.Graph().Shutdown();
    EXPECT_EQ(engine.Links().NbConnections(), 0);
    EXPECT_TRUE(engine.Graph().IsDead("gen"));
    const long long before = Figure("sink.received");
    Run();
    EXPECT_EQ(engine.Links().NbConnections(), 1);
    EXPECT_TRUE(Eventually([&] { return Figure("sink.received") > before; }));
    EXPECT_TRUE(engine.Reset());
    EXPECT_TRUE(engine.Graph().Names().empty());
    EXPECT_EQ(engine.Links().NbConnections(), 0);
}
