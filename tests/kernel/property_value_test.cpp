// Enum values in their text form, and property values and definitions.
#include <gtest/gtest.h>

#include <tuple>

#include "Engine.h"
#include "quiet_engine.h"
#include "veld_definitions.h"
#include "veld_property_value.h"

namespace {

class EnumStruct : public ::testing::Test {
protected:
    EnumStruct() : engine(Quiet()) {}
    size_t Reports() { return engine.GetConsole().Captured().size(); }
    bool Reported(const char* text) { return engine.GetConsole().Contains(text, VELD::Error); }

    veldor::Engine engine;
};

std::string Items(const VELDEnumStruct& e)
{
    std::string out;
    for (int i = 0; i < e.Count(); ++i) out += std::string(i ? "|" : "") + e.Item(i).Beginning();
    return out;
}

}  // namespace

TEST_F(EnumStruct, FromStringTakesOrRefusesTheText)
{
    const struct {
        const char* before;  // items of the enum, selection 1 (0 when there is only one)
        const char* text;
        bool selectionOnly;
        const char* items;
        int selected;
        const char* report;  // the error, or null for none
    } cases[] = {
        {"a|b", "2|1|a|b", false, "a|b", 1, nullptr},
        {"a|b", "3|2|x||z", false, "x||z", 2, nullptr},
        {"a|b", "2|5|a|b", false, "a|b", 0,
         "External : VELDEnumStruct::FromString: Selected value incompatible with enum values for property. Selected "
         "property is set to 0."},
        {"keep|these", "3|0|a|b", false, "", -1,
         "VELDEnumStruct::FromString: Declared size of enum struct does not match the number of given elements."},
        {"a|b", "x", false, "a|b", 1,
         "VELDEnumStruct::FromString: Ill-formed enum string [expected:nbVal|selected|val0|val1|val2...] [received:x]"},
        {"a|b", "0|-1", false, "", -1, nullptr},
        // Selection only keeps the items; a negative selection passes as it stands.
        {"x|y|z", "3|1|p|q|r", true, "x|y|z", 1, nullptr},
        {"x|y|z", "1|7|p", true, "x|y|z", 0, "Selected value incompatible"},
        {"x|y|z", "1|-2|p", true, "x|y|z", -2, nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        engine.GetConsole().ClearCaptured();
        VELDEnumStruct e(c.before, 1);
        e.FromString(c.text, c.selectionOnly);
        EXPECT_EQ(Items(e), c.items);
        EXPECT_EQ(e.GetSelected(), c.selected);
        EXPECT_EQ(Reports(), c.report ? 1u : 0u);
        EXPECT_TRUE(!c.report || Reported(c.report));
    }
    EXPECT_STREQ(VELDEnumStruct("a|b", 1).ToString(), "2|1|a|b");
    EXPECT_STREQ(VELDEnumStruct("x||z", 2).ToString(), "3|2|x||z");
    EXPECT_STREQ(VELDEnumStruct().ToString(), "0|-1");
}

TEST_F(EnumStruct, SelectByTextAndConstruction)
{
    VELDEnumStruct e("Polling|EventBased", 0);
    EXPECT_TRUE(e.Select("EventBased"));
    EXPECT_EQ(std::make_tuple(e.GetSelected(), std::string(e.SelectedText())), std::make_tuple(1, "EventBased"));
    EXPECT_FALSE(e.Select("Event"));
    EXPECT_EQ(std::make_tuple(e.GetSelected(), std::string(e.SelectedText())), std::make_tuple(-1, ""));
    VELDEnumStruct none(nullptr, 3);
    EXPECT_EQ(std::make_tuple(none.Count(), none.GetSelected(), Reports()), std::make_tuple(0, -1, size_t(0)));
    VELDEnumStruct bad("a|b", 2);
    EXPECT_EQ(bad.GetSelected(), 0);
    EXPECT_TRUE(Reported(
        "External : Selected value incompatible with enum values for property. Selected property is set to 0"));

    VELDEnumStruct copy(e);  // owns its items
    copy.Select("Polling");
    EXPECT_EQ(e.GetSelected(), -1);
    EXPECT_EQ(Items(copy), Items(e));
}

TEST_F(EnumStruct, PropertyValuesTakeTheirTypeFromTheirConstructorAndCopiesOwnTheirValues)
{
    const struct {
        VELDPropertyValue value;
        int type;
        const char* text;
    } cases[] = {
        {VELDPropertyValue(), VELD::BoolProperty, "false"},
        {VELDPropertyValue(true), VELD::BoolProperty, "true"},
        {VELDPropertyValue(-3), VELD::IntegerProperty, "-3"},
        {VELDPropertyValue(VELDInt64(1) << 40), VELD::IntegerProperty, "1099511627776"},
        {VELDPropertyValue(0.25), VELD::FloatProperty, "0.25"},
        {VELDPropertyValue("127.0.0.1"), VELD::StringProperty, "127.0.0.1"},
        {VELDPropertyValue("2|1|Unsynchronized|Synchronized"), VELD::EnumProperty, "2|1|Unsynchronized|Synchronized"},
        {VELDPropertyValue("Classic|FD", 1), VELD::EnumProperty, "2|1|Classic|FD"},
        {VELDPropertyValue(static_cast<const char*>(nullptr), 0), VELD::EnumProperty, "0|-1"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        VELDPropertyValue value(c.value);
        EXPECT_EQ(value.Type(), c.type);
        EXPECT_STREQ(value.ToString(), c.text);
    }
    EXPECT_STREQ(*VELDPropertyValue("127.0.0.1").StringValue(), "127.0.0.1");
    EXPECT_EQ(VELDPropertyValue("2|1|a|b").StringValue(), nullptr);
    VELDPropertyValue items("Classic|FD", 1), copied(items);
    copied.EnumValue()->Select("Classic");
    EXPECT_EQ(items.EnumValue()->GetSelected(), 1);
    VELDPropertyDefinition table[] = {
        {"mode", new VELDPropertyValue("Polling|EventBased", 1), nullptr, true, false, false, true},
        {nullptr},
    };
    VELDPropertyDefinition copy = table[0];
    copy.value->EnumValue()->Select("Polling");
    EXPECT_EQ(table[0].value->EnumValue()->GetSelected(), 1);
    EXPECT_TRUE(copy.needs2BeInitialized && copy.locked);
    EXPECT_EQ(std::make_tuple(table[1].name, table[1].value), std::make_tuple(nullptr, nullptr));
}
