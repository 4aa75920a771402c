#include <gtest/gtest.h>

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

std::vector<std::string> Items(const VELDEnumStruct& e)
{
    std::vector<std::string> out;
    for (int i = 0; i < e.Count(); ++i) out.push_back(e.Item(i).Beginning());
    return out;
}

}  // namespace

TEST_F(EnumStruct, TextFormRoundTrips)
{
    VELDEnumStruct e("a|b", 1);
    EXPECT_STREQ(e.ToString(), "2|1|a|b");
    VELDEnumStruct back;
    back.FromString(e.ToString(), false);
    EXPECT_EQ(Items(back), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(back.GetSelected(), 1);
    EXPECT_STREQ(VELDEnumStruct().ToString(), "0|-1");
    EXPECT_EQ(Reports(), 0u);

    VELDEnumStruct withEmpty("x||z", 2);
    EXPECT_STREQ(withEmpty.ToString(), "3|2|x||z");
    back.FromString(withEmpty.ToString(), false);
    EXPECT_EQ(Items(back), (std::vector<std::string>{"x", "", "z"}));
}

TEST_F(EnumStruct, ASelectionOutOfRangeBecomesZeroWithOneReport)
{
    VELDEnumStruct e;
    e.FromString("2|5|a|b", false);
    EXPECT_EQ(Items(e), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(e.GetSelected(), 0);
    EXPECT_EQ(Reports(), 1u);
    EXPECT_TRUE(Reported("External : VELDEnumStruct::FromString: Selected value incompatible with enum values for "
                         "property. Selected property is set to 0."));
}

TEST_F(EnumStruct, ADeclaredSizeThatDoesNotMatchEmptiesTheEnum)
{
    VELDEnumStruct e("keep|these", 0);
    e.FromString("3|0|a|b", false);
    EXPECT_EQ(e.Count(), 0);
    EXPECT_EQ(e.GetSelected(), -1);
    EXPECT_TRUE(Reported("VELDEnumStruct::FromString: Declared size of enum struct does not match the number of "
                         "given elements."));
}

TEST_F(EnumStruct, AnIllFormedTextChangesNothing)
{
    VELDEnumStruct e("a|b", 1);
    e.FromString("x", false);
    EXPECT_EQ(Items(e), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(e.GetSelected(), 1);
    EXPECT_TRUE(Reported("VELDEnumStruct::FromString: Ill-formed enum string "
                         "[expected:nbVal|selected|val0|val1|val2...] [received:x]"));
}

TEST_F(EnumStruct, SelectionOnlyKeepsTheItems)
{
    VELDEnumStruct e("x|y|z", 0);
    e.FromString("3|1|p|q|r", true);
    EXPECT_EQ(Items(e), (std::vector<std::string>{"x", "y", "z"}));
    EXPECT_EQ(e.GetSelected(), 1);
    e.FromString("1|7|p", true);
    EXPECT_EQ(e.GetSelected(), 0);
    EXPECT_EQ(Reports(), 1u);
    e.FromString("1|-2|p", true);  // a negative selection passes as it stands
    EXPECT_EQ(e.GetSelected(), -2);
    e.FromString("0|-1", false);
    EXPECT_EQ(e.Count(), 0);
    EXPECT_EQ(e.GetSelected(), -1);
}

TEST_F(EnumStruct, SelectByTextAndConstruction)
{
    VELDEnumStruct e("Polling|EventBased", 0);
    EXPECT_TRUE(e.Select("EventBased"));
    EXPECT_EQ(e.GetSelected(), 1);
    EXPECT_STREQ(e.SelectedText(), "EventBased");
    EXPECT_FALSE(e.Select("Event"));
    EXPECT_EQ(e.GetSelected(), -1);
    EXPECT_STREQ(e.SelectedText(), "");

    VELDEnumStruct none(nullptr, 3);
    EXPECT_EQ(none.Count(), 0);
    EXPECT_EQ(none.GetSelected(), -1);
    EXPECT_EQ(Reports(), 0u);

    VELDEnumStruct bad("a|b", 2);
    EXPECT_EQ(bad.GetSelected(), 0);
    EXPECT_TRUE(Reported(
        "External : Selected value incompatible with enum values for property. Selected property is set to 0"));

    VELDEnumStruct copy(e);
    copy.Select("Polling");
    EXPECT_EQ(e.GetSelected(), -1);
    EXPECT_EQ(Items(copy), Items(e));
}

TEST_F(EnumStruct, PropertyValuesTakeTheirTypeFromTheirConstructor)
{
    EXPECT_EQ(VELDPropertyValue().Type(), VELD::BoolProperty);
    EXPECT_FALSE(VELDPropertyValue().BoolValue());
    EXPECT_EQ(VELDPropertyValue(true).Type(), VELD::BoolProperty);
    EXPECT_EQ(VELDPropertyValue(7).Type(), VELD::IntegerProperty);
    EXPECT_EQ(VELDPropertyValue(VELDInt64(1) << 40).IntegerValue(), VELDInt64(1) << 40);
    EXPECT_EQ(VELDPropertyValue(2.5).Type(), VELD::FloatProperty);
    EXPECT_EQ(VELDPropertyValue("127.0.0.1").Type(), VELD::StringProperty);
    EXPECT_STREQ(*VELDPropertyValue("127.0.0.1").StringValue(), "127.0.0.1");

    VELDPropertyValue whole("2|1|Unsynchronized|Synchronized");
    ASSERT_EQ(whole.Type(), VELD::EnumProperty);
    EXPECT_EQ(whole.EnumValue()->GetSelected(), 1);
    EXPECT_EQ(whole.StringValue(), nullptr);

    VELDPropertyValue items("Classic|FD", 1);
    ASSERT_EQ(items.Type(), VELD::EnumProperty);
    EXPECT_STREQ(items.ToString(), "2|1|Classic|FD");
    VELDPropertyValue empty(static_cast<const char*>(nullptr), 0);
    EXPECT_EQ(empty.EnumValue()->Count(), 0);

    VELDPropertyValue copy(items);
    copy.EnumValue()->Select("Classic");
    EXPECT_EQ(items.EnumValue()->GetSelected(), 1);

    EXPECT_STREQ(VELDPropertyValue(true).ToString(), "true");
    EXPECT_STREQ(VELDPropertyValue(-3).ToString(), "-3");
    EXPECT_STREQ(VELDPropertyValue(0.25).ToString(), "0.25");
}

TEST_F(EnumStruct, PropertyDefinitionsOwnAndCopyTheirValues)
{
    VELDPropertyDefinition table[] = {
        {"ip", new VELDPropertyValue("127.0.0.1"), nullptr, false, false},
        {"mode", new VELDPropertyValue("Polling|EventBased", 1), nullptr, true, false, false, true},
        {nullptr},
    };
    VELDPropertyDefinition copy = table[1];
    copy.value->EnumValue()->Select("Polling");
    EXPECT_EQ(table[1].value->EnumValue()->GetSelected(), 1);
    EXPECT_TRUE(copy.needs2BeInitialized);
    EXPECT_TRUE(copy.locked);
    EXPECT_EQ(table[2].name, nullptr);
    EXPECT_EQ(table[2].value, nullptr);
}
