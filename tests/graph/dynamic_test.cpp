// A Set runs the component's Dynamic again: what it declares again stays the
// same object with its connection, what it no longer declares goes, with
// its names and connections.
#include "graph_support.h"

#include "veld.h"
#include "veld_component.h"
#include "veld_input.h"
#include "veld_output.h"

namespace {

VELDInput* InputNamed(veldor::Engine& engine, const char* name)
{
    VELDSymbol* symbol = engine.FindSymbol(name);
    return symbol && symbol->kind == VELDSymbol::InputSymbol ? static_cast<VELDInput*>(symbol->object) : nullptr;
}

}  // namespace

TEST_F(GraphTest, DynamicKeepsWhatItDeclaresAgainAndDropsTheRest)
{
    Make("Generator", "one");
    Make("Generator", "two");
    Make("Merger", "merge");
    Set("merge.inputs", "3");
    Connect("one.oValue", "merge.i0");
    Connect("two.oValue", "merge.i2");
    Set("merge.i0.subsampling", "2");
    VELDInput* i0 = InputNamed(engine, "merge.i0");
    VELDInput* i1 = InputNamed(engine, "merge.i1");
    ASSERT_NE(i0, nullptr);
    ASSERT_NE(InputNamed(engine, "merge.i2"), nullptr);
    ASSERT_EQ(engine.Links().NbConnections(), 2);

    Set("merge.inputs", "2");
    EXPECT_EQ(InputNamed(engine, "merge.i0"), i0);
    EXPECT_EQ(InputNamed(engine, "merge.i1"), i1);
    ASSERT_NE(i0->ConnectedOutput(), nullptr);
    EXPECT_STREQ(i0->ConnectedOutput()->Name(), "one.oValue");
    EXPECT_EQ(Figure("merge.i0.subsampling"), 2);
    // What goes with an element: runtime/module_test. The engine's links follow.
    ASSERT_EQ(engine.Links().NbConnections(), 1);
    EXPECT_EQ(engine.Links().List()[0].input, "merge.i0");
    // A new declaration is a new, unconnected input.
    Set("merge.inputs", "3");
    ASSERT_NE(InputNamed(engine, "merge.i2"), nullptr);
    EXPECT_FALSE(InputNamed(engine, "merge.i2")->IsConnected());
    EXPECT_NE(VELD::Property("merge.i2.readerType"), nullptr);
    // The kept connection carries data.
    Run();
    EXPECT_TRUE(Eventually([&] { return Figure("merge.received") > 0; }));
}

// A property that picks another definition record for an element makes a
// new element of the same name: here the counter's reader type.
TEST_F(GraphTest, ANewDefinitionOfAnElementIsANewObject)
{
    Make("Generator", "gen");
    Make("Counter", "sink");
    Connect("gen.oValue", "sink.iValue");
    VELDInput* fifo = InputNamed(engine, "sink.iValue");
    Set("sink.reader", "SamplingReader");
    VELDInput* sampling = InputNamed(engine, "sink.iValue");
    ASSERT_NE(sampling, nullptr);
    EXPECT_NE(sampling, fifo);
    EXPECT_FALSE(sampling->IsConnected());
    EXPECT_EQ(engine.Links().NbConnections(), 0);
    EXPECT_EQ(Figure("sink.iValue.readerType"), VELD::SamplingReader);
}
