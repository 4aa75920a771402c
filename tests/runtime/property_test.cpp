// Properties: the checked write and its refusals, the direct write, enums,
// reads by another module, and the special properties of inputs and outputs.
#include <gtest/gtest.h>

#include "runtime_support.h"
#include "thrown.h"
#include "veld.h"
#include "veld_input_impl.h"
#include "veld_output_impl.h"
#include "veld_property_impl.h"

namespace {

class Properties : public ::testing::Test {
protected:
    Properties() : engine(Quiet())
    {
        tables.inputs.push_back(IntegerInput("iIn"));
        tables.outputs.push_back(IntegerOutput("oOut"));
        tables.properties.push_back(IntegerProperty("count", 5));
        tables.properties.push_back(
            VELDPropertyDefinition("mode", new VELDPropertyValue("a|b|c", 0), nullptr, false, true, false, false));
        tables.properties.push_back(
            VELDPropertyDefinition("fixedMode", new VELDPropertyValue("x|y", 0), nullptr, false, true, false, true));
        tables.properties.push_back(
            VELDPropertyDefinition("label", new VELDPropertyValue("text"), nullptr, false, true, true, false));
        tables.properties.push_back(VELDPropertyDefinition("noItems", new VELDPropertyValue(VELDEnumStruct()), nullptr,
                                                           false, true, false, false));
        tables.Finish(1, 1, 5, 0);
        component = &engine.Make("c", tables);
    }

    bool Reported(const char* text) { return engine.GetConsole().Contains(text); }
    // The operation ends its caller with an error and reports `text`.
    bool Refused(const std::function<void()>& operation, const char* text)
    {
        return Thrown(operation) == VELD::ErrorException && Reported(text);
    }
    VELDProperty& P(const char* name) { return component->Property(name); }

    TestEngine engine;
    ModelTables& tables = engine.NewTables();
    Probe* component;
};

TEST_F(Properties, RefusalsComeInTheirOrderAndEndTheCaller)
{
    component->m_state |= VELD::LivingState;
    P("mode").SetMutable(false);
    const struct {
        std::function<void()> set;
        const char* report;
    } cases[] = {
        // Not modifiable after start wins over read-only.
        {[&] { component->Set(P("componentModelVersion"), VELDString("2")); },
         "Failure while trying to set value of property c.componentModelVersion. This property can't be modified "
         "after start."},
        {[&] { component->Set(P("label"), VELDString("x")); },
         "Failure while trying to set value of property c.label. This property is read only."},
        {[&] { component->Set(P("mode"), VELDInt64(1)); },
         "Failure while trying to set value of property c.mode. This property is not mutable."},
        {[&] { component->Set(P("autoStart"), VELDInt64(1)); }, "Can't set integer value for property c.autoStart"},
        {[&] { component->Set(P("priority"), true); }, "Can't set boolean value for property c.priority"},
        {[&] { component->Set(P("priority"), VELDFloat64(1)); }, "Can't set float value for property c.priority"},
        {[&] { component->Set(P("priority"), VELDString("1")); }, "Can't set string value for property c.priority"},
        {[&] { component->Set(P("priority"), VELDEnumStruct()); }, "Can't set enum values for property c.priority"},
    };
    for (const auto& c : cases) EXPECT_TRUE(Refused(c.set, c.report)) << c.report;
    EXPECT_TRUE(component->State() & VELD::ErrorState);
    component->m_state &= ~VELD::LivingState;
}

// A set clears the need to initialise and signals the change; a direct set
// passes the flags and runs no callback.
TEST_F(Properties, ASetAndADirectSet)
{
    VELDProperty& count = P("count");
    auto needsInit = [](VELDProperty& p) -> bool& {
        return static_cast<VELDPropertyImplementation&>(p).m_definition.needs2BeInitialized;
    };
    needsInit(count) = true;
    count.AcknowledgePropertyChanged();
    EXPECT_FALSE(count.PropertyChanged());
    count.Set(VELDInt64(9));
    EXPECT_TRUE(count.PropertyChanged());
    EXPECT_TRUE(count.PropertyChangedEvent().IsSet());
    EXPECT_FALSE(needsInit(count));

    VELDProperty& label = P("label");
    needsInit(label) = true;
    static int calls;
    calls = 0;
    label.SetSetCallback([](VELDProperty&) { ++calls; });
    component->DirectSet(label, VELDString("new"));
    EXPECT_EQ(label.StringValue(), "new");
    EXPECT_EQ(calls, 0);
    EXPECT_TRUE(needsInit(label));
    EXPECT_TRUE(Refused([&] { component->DirectSet(label, VELDInt64(3)); }, "Can't set integer value for property c.label"));
}

TEST_F(Properties, EnumsSelectByIndexAndByText)
{
    VELDProperty& mode = P("mode");
    mode.Set(VELDInt64(2));
    EXPECT_EQ(mode.StringValue(), "c");
    mode.Set(VELDInt64(5));
    EXPECT_TRUE(Reported("Index 5 not among possible values for enum property c.mode [0..2]"));
    EXPECT_EQ(mode.IntegerValue(), 2);
    mode.Set(VELDString("b"));
    EXPECT_EQ(mode.IntegerValue(), 1);
    mode.Set(VELDString("zz"));
    EXPECT_TRUE(Reported("zz does not match any of the possible values for property c.mode"));
    EXPECT_EQ(mode.IntegerValue(), -1);
    component->DirectSet(mode, VELDString("a"));
    component->DirectSet(mode, VELDString("zz"));
    EXPECT_TRUE(Reported("\"zz\" not among possible values for enum property c.mode"));
    EXPECT_EQ(mode.IntegerValue(), 0);

    VELDProperty& none = P("noItems");
    none.Set(VELDString("q"));
    EXPECT_TRUE(Reported("No possible value for property c.noItems"));
    component->DirectSet(none, VELDString("q"));
    EXPECT_TRUE(Reported("No possible value for enum property c.noItems"));
    none.Set(VELDInt64(-1));
    EXPECT_EQ(none.IntegerValue(), -1);
    none.Set(VELDInt64(4));
    EXPECT_TRUE(Reported("Index 4 not among possible values for enum property c.noItems [-1]"));
}

TEST_F(Properties, ALockedEnumTakesOnlyTheSelectionUnlessWrittenDirectly)
{
    VELDProperty& fixed = P("fixedMode");
    fixed.Set(VELDString("3|1|p|q|r"));
    EXPECT_EQ(fixed.EnumValues()->Count(), 2);
    EXPECT_EQ(fixed.StringValue(), "y");
    component->DirectSet(fixed, VELDString("3|2|p|q|r"));
    EXPECT_EQ(fixed.EnumValues()->Count(), 3);
    EXPECT_EQ(fixed.StringValue(), "r");
    VELDEnumStruct copy;
    fixed.Get(copy);
    EXPECT_EQ(copy.ToString(), "3|2|p|q|r");
}

TEST_F(Properties, ReadsTestTheTypeAndRunTheGetCallback)
{
    VELDProperty& count = P("count");
    bool b;
    EXPECT_TRUE(Refused([&] { count.Get(b); }, "Can't get boolean value from property c.count"));
    count.SetGetCallback([](VELDProperty&, void* value) { *static_cast<VELDInt64*>(value) += 100; });
    VELDInt64 value = 0;
    VELDModule::Get(*component, count, value);
    EXPECT_EQ(value, 105);
    VELDString text;
    P("mode").Get(text);
    EXPECT_EQ(text, "a");
}

TEST_F(Properties, GlobalLookUpsByFullName)
{
    bool ok = false;
    EXPECT_EQ(VELD::GetStringProperty("c.label", &ok), "text");
    EXPECT_TRUE(ok);
    EXPECT_EQ(VELD::GetStringProperty("c.mode", &ok), "a");
    VELD::GetEnumsProperty("c.label", &ok);
    EXPECT_FALSE(ok);
    VELD::GetStringProperty("c.nothing", &ok);
    EXPECT_FALSE(ok);
    VELD::GetStringProperty("c.nothing", nullptr);
    EXPECT_TRUE(Reported("Can't get value of property c.nothing. The symbol is undefined."));
    VELD::GetStringProperty("c.count", nullptr);
    EXPECT_TRUE(Reported("Can't get string value of property c.count. It is not a string or an enum."));
    EXPECT_EQ(VELD::GetStringProperty("Engine.version", &ok), "4.10.0");
}

// An input's reader type moves only between the FIFO types; an output's
// properties reach its FIFO, its size only while it stands.
TEST_F(Properties, InputAndOutputPropertiesReachTheirFifos)
{
    VELDProperty& readerType = P("iIn.readerType");
    readerType.Set(VELDInt64(VELD::LastOrNextReader));
    auto& input = static_cast<VELDInputImplementation&>(component->Input("iIn"));
    EXPECT_EQ(input.ReaderType(), VELD::LastOrNextReader);
    readerType.Set(VELDInt64(VELD::SamplingReader));
    EXPECT_EQ(readerType.IntegerValue(), VELD::LastOrNextReader);
    EXPECT_EQ(input.ReaderType(), VELD::LastOrNextReader);
    EXPECT_TRUE(Reported("Bad parameter: The input c.iIn cannot be switched to SamplingReader or Wait4NextReader."));

    auto& output = static_cast<VELDOutputImplementation&>(component->Output("oOut"));
    P("oOut.fifosize").Set(VELDInt64(4));
    EXPECT_EQ(output.monitor->ring.Length(), 4);
    P("oOut.subsampling").Set(VELDInt64(3));
    EXPECT_EQ(output.monitor->subsamplingPeriod, 3);
    P("oOut.periodic").Set(true);
    EXPECT_TRUE(output.periodic);
    component->m_state |= VELD::LivingState;
    P("oOut.fifosize").Set(VELDInt64(8));
    EXPECT_TRUE(Reported("Cannot change the output fifo sizes while module is running."));
    EXPECT_EQ(P("oOut.fifosize").IntegerValue(), 4);
    EXPECT_EQ(output.monitor->ring.Length(), 4);
    component->m_state &= ~VELD::LivingState;
}

TEST_F(Properties, PriorityOutsideTheRangeFallsBack)
{
    EXPECT_TRUE(Refused([&] { P("priority").Set(VELDInt64(300)); },
                        "Invalid priority value. Component's priority should be set between 0 and 255."));
    EXPECT_EQ(P("priority").IntegerValue(), 128);
    EXPECT_EQ(Thrown([&] { P("priority").Set(VELDInt64(-1)); }), VELD::ErrorException);
    P("priority").Set(VELDInt64(200));
    EXPECT_EQ(P("priority").IntegerValue(), 200);
}

TEST_F(Properties, PeriodsAreMeasuredOverTheRing)
{
    component->Set(P("nbPeriods"), VELDInt64(1));
    for (int i = 0; i < 4; ++i) {
        component->PerformanceMonitoring();
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    EXPECT_EQ(component->counter->IntegerValue(), 4);
    // One entry: the average, the minimum and the maximum are the last period.
    EXPECT_EQ(component->averagePeriod->IntegerValue(), component->minPeriod->IntegerValue());
    EXPECT_EQ(component->maxPeriod->IntegerValue(), component->minPeriod->IntegerValue());
    EXPECT_GE(component->averagePeriod->IntegerValue(), 1000);
}

}  // namespace
