// The module core: declaring elements again in Dynamic, look-ups, names,
// actions, instance counts and the shutdown timeout.
#include <gtest/gtest.h>

#include "runtime_support.h"
#include "thrown.h"
#include "veld.h"
#include "veld_input_impl.h"

namespace {

// A component whose Dynamic declares nbInputs inputs i0, i1... and the
// property `extra` when there is one. What it keeps and drops:
// graph/dynamic_test.
class Redefinition : public ::testing::Test {
protected:
    Redefinition() : engine(Quiet())
    {
        tables.properties.push_back(IntegerProperty("nbInputs", 3));
        tables.inputs.push_back(IntegerInput("iDyn"));
        tables.Finish(0, 0, 1, 0);
        component = &engine.Make<DynamicProbe>("c", tables);
        component->dynamic = [this](DynamicProbe& self) {
            for (VELDInt64 i = 0; i < self.Property("nbInputs").IntegerValue(); ++i)
                self.NewInput(0, ("i" + std::to_string(i)).c_str());
            if (extra) self.NewProperty(*extra);
        };
        component->CallDynamic();
    }

    ModelTables tables;
    TestEngine engine;
    DynamicProbe* component;
    VELDPropertyDefinition* extra = nullptr;
};

TEST_F(Redefinition, ADynamicThatThrowsStillCleansUp)
{
    component->dynamic = [](DynamicProbe& self) {
        self.NewInput(0, "i0");
        throw 42;
    };
    component->CallDynamic();
    EXPECT_TRUE(component->State() & VELD::ErrorState);
    EXPECT_EQ(component->NbInputs(), 1);
}

TEST_F(Redefinition, APropertyOfAnotherDefinitionIsANewObjectInThePlace)
{
    // Two records of one name: an element is known by its record's name.
    static const char firstName[] = "gain";
    static const char secondName[] = "gain";
    VELDPropertyDefinition first(firstName, new VELDPropertyValue(VELDInt64(1)));
    VELDPropertyDefinition second(secondName, new VELDPropertyValue(VELDInt64(2)));
    extra = &first;
    component->CallDynamic();
    component->Property("gain").Set(VELDInt64(7));
    EXPECT_EQ(component->Property("gain").IntegerValue(), 7);
    component->CallDynamic();
    EXPECT_EQ(component->Property("gain").IntegerValue(), 7);
    extra = &second;
    component->CallDynamic();
    EXPECT_EQ(component->Property("gain").IntegerValue(), 2);
    EXPECT_NE(engine.FindSymbol("c.gain"), nullptr);
    extra = nullptr;
}

TEST_F(Redefinition, NoDynamicOnALivingComponent)
{
    component->m_state |= VELD::LivingState;
    component->DirectSet(component->Property("nbInputs"), VELDInt64(1));
    component->CallDynamic();
    EXPECT_EQ(component->NbInputs(), 3);
    component->m_state &= ~VELD::LivingState;
}

class Modules : public ::testing::Test {
protected:
    Modules() : engine(Quiet()) {}
    TestEngine engine;
};

TEST_F(Modules, LookUpsNameTheUnknown)
{
    VELDModule module("m", false, false);
    module.NewInput(IntegerInput("iA"));
    EXPECT_EQ(Thrown([&] { module.Input(5); }), VELD::ErrorException);
    EXPECT_TRUE(engine.GetConsole().Contains("Trying to access unknown input #5 of module m"));
    EXPECT_EQ(Thrown([&] { module.Output("oX"); }), VELD::ErrorException);
    EXPECT_TRUE(engine.GetConsole().Contains("module m: Trying to access unknown output oX of module m"));
    EXPECT_FALSE(module.HasAction("a"));
    EXPECT_EQ(&module.Input(0), &module.Input("iA"));
}

TEST_F(Modules, NamesAreCheckedAndUniqueAndADyingModuleDeclaresNothing)
{
    VELDModule module("m", false, false);
    EXPECT_EQ(Thrown([&] { module.NewInput(IntegerInput("iA"), "9bad"); }), VELD::ErrorException);
    EXPECT_TRUE(engine.GetConsole().Contains("Trying to create an input with an invalid name: 9bad"));
    module.NewOutput(IntegerOutput("o"), "sub.o:x");
    EXPECT_TRUE(module.HasOutput("sub.o:x"));
    ModelTables& tables = engine.NewTables();
    tables.Finish(0, 0, 0, 0);
    Probe& component = engine.Make("c", tables);
    EXPECT_EQ(Thrown([&] { component.NewOutput(IntegerOutput("o"), "sub.o"); }), VELD::ErrorException);
    EXPECT_EQ(Thrown([&] { component.NewInput(VELDInputDefinition{nullptr, 0, nullptr, 0, 1}); }),
              VELD::ErrorException);
    EXPECT_TRUE(engine.GetConsole().Contains("Call to NewInput failed. Bad input definition."));
    engine.Symbols().Register("m.taken", VELDSymbol::OtherSymbol, nullptr, nullptr);
    EXPECT_EQ(Thrown([&] { module.NewProperty(IntegerProperty("taken", 1)); }), VELD::ErrorException);
    EXPECT_TRUE(engine.GetConsole().Contains("Can't create property m.taken. The symbol already exists."));
    module.Die();  // a dying module declares nothing
    EXPECT_EQ(Thrown([&] { module.NewProperty(IntegerProperty("p", 1)); }), VELD::ModuleDied);
}

TEST_F(Modules, RenamingRenamesEveryElement)
{
    VELDModule module("old", false, true);
    module.NewInput(IntegerInput("iA"));
    module.Rename("old", "new");
    EXPECT_STREQ(module.Name(), "new");
    EXPECT_STREQ(module.Input("iA").Name(), "new.iA");
    EXPECT_STREQ(module.Property("processor").Name(), "new.processor");
    EXPECT_STREQ(module.Property("iA.readerType").Name(), "new.iA.readerType");
}

// The fallback of a negative timeout: engine/engine_core_test.
TEST_F(Modules, TheShutdownTimeoutBoundsTheWaitForDeath)
{
    engine.Graph().SetProperty("Engine.shutdownTimeout", "20000", false);
    EXPECT_EQ(VELDModule::ShutdownTimeout(), 20000);
    VELDModule module("m", false, false);
    module.OneMoreLife();
    EXPECT_FALSE(module.Wait4Death());
    EXPECT_TRUE(engine.GetConsole().Contains("Some threads are still running after 20000 microsecond(s)."));
    module.LoseOneLife();
    EXPECT_TRUE(module.Wait4Death());
}

TEST_F(Modules, ActionsRunWithTheirIndexAndRespectDeath)
{
    static int lastIndex = -1;
    VELDActionDefinition definitions[2] = {
        VELDActionDefinition("first", new VELDActionFunction([](VELDModule*, int index) { lastIndex = index; })),
        VELDActionDefinition("second", new VELDActionFunction([](VELDModule*, int index) { lastIndex = index; }),
                             true)};
    ModelTables& tables = engine.NewTables();
    tables.actions.push_back(definitions[0]);
    tables.actions.push_back(definitions[1]);
    tables.Finish(0, 0, 0, 2);
    Probe& component = engine.Make("c", tables);
    component.Action("first").DoIt(nullptr);
    EXPECT_EQ(lastIndex, -1);
    EXPECT_TRUE(engine.GetConsole().Contains("This action is not allowed when the component is not running."));
    component.Action("second").DoIt(nullptr);
    EXPECT_EQ(lastIndex, 1);
}

TEST_F(Modules, ALimitedModelCountsItsInstances)
{
    ModelTables& tables = engine.NewTables();
    tables.Finish(0, 0, 0, 0);
    tables.definition.maxNumberOfInstances = 1;
    Probe& first = engine.Make("a", tables);
    EXPECT_EQ(Thrown([&] { engine.Make("b", tables); }), VELD::ErrorException);
    engine.Remove(first);
    EXPECT_EQ(tables.definition.maxNumberOfInstances, 1u);
    engine.Make("b", tables);
}

}  // namespace
