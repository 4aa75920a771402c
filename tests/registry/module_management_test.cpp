#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "veld_data_structures.h"
#include "veld_module_definition.h"
#include "veld_pck.h"

namespace {

// Each test starts from an empty registry; this binary declares no models.
class Registry : public ::testing::Test {
protected:
    void SetUp() override { VELDModuleManagement::Uninitialize(); }
    void TearDown() override { VELDModuleManagement::Uninitialize(); }

    static VELDModuleDefinition* Define(const char* name, const char* group, void* arg = nullptr)
    {
        return new VELDModuleDefinition(name, group, nullptr, arg, nullptr, nullptr);
    }
};

std::vector<std::string> Names(VELDModuleDefinition** table, int n)
{
    std::vector<std::string> out;
    for (int i = 0; i < n; ++i) out.push_back(table[i]->name);
    return out;
}

// The text that `body` throws as a `Text`; "" when it throws nothing.
template <class Text, class Body>
std::string ThrownText(Body body)
{
    try {
        body();
    } catch (const Text& text) {
        return static_cast<const char*>(text);
    }
    return "";
}

int g_registrations = 0, g_unregistrations = 0;
void CountRegistration(void*) { ++g_registrations; }
void CountUnregistration(void*) { ++g_unregistrations; }

VELDModuleBase* MakeBase(const char* name, void*) { return new VELDModuleBase(name); }

}  // namespace

TEST_F(Registry, TheTableReceivesEachDefinitionsArgumentUpToMaxCount)
{
    EXPECT_EQ(VELDGetModulesDefStruct(nullptr, nullptr, 0), 0u);  // before any definition
    EXPECT_EQ(VELDModuleManagement::NumberOfReferencedGroups(nullptr), 0);
    int a = 1, b = 2, c = 3;
    Define("A", "G", &a);
    Define("B", "G", &b);
    Define("C", "G", &c);
    void* table[3] = {};
    ASSERT_EQ(VELDGetModulesDefStruct("G", table, 3), 3u);
    EXPECT_EQ(std::vector<void*>(table, table + 3), (std::vector<void*>{&a, &b, &c}));
    void* two[3] = {};
    EXPECT_EQ(VELDGetModulesDefStruct("G", two, 2), 2u);
    EXPECT_EQ(std::vector<void*>(two, two + 3), (std::vector<void*>{&a, &b, nullptr}));
}

TEST_F(Registry, ADuplicateNameInOneGroupThrowsTheFormattedTextAndAGroupNeedsAName)
{
    Define("Twice", "G");
    EXPECT_EQ(ThrownText<VELDStackedString<40>>([] { Define("Twice", "G"); }),
              "Module Twice already referenced in the category G\n");
    EXPECT_EQ(VELDModuleManagement::NumberOfReferencedModules("G", false), 1);
    // The text is cut to what fits in 100 bytes.
    const std::string longName(120, 'n');
    Define(longName.c_str(), "G");
    EXPECT_EQ(ThrownText<VELDStackedString<40>>([&] { Define(longName.c_str(), "G"); }),
              "Module " + std::string(92, 'n'));
    EXPECT_EQ(ThrownText<const char*>([] { VELDModuleGroupDefinition bad(nullptr, nullptr, nullptr, nullptr); }),
              "VELDModuleGroupDefinition construction : the group name can't be NULL\n");
}

TEST_F(Registry, TheSameNameInTwoGroupsIsAllowedAndTheEarlierGroupWins)
{
    int first = 1, second = 2;
    Define("M", "G1", &first);
    Define("M", "G2", &second);
    VELDModuleDefinition* found = VELDModuleManagement::FindModule("M", nullptr, false);
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->arg, &first);
    EXPECT_EQ(VELDModuleManagement::GetModuleDefinition("M", "G2"), &second);
    EXPECT_EQ(VELDGetModulesDefStruct(nullptr, nullptr, 0), 2u);
}

TEST_F(Registry, LookUpsGoOneLevelDownWhileCountsGoAllTheWay)
{
    Define("InParent", "Parent");
    Define("InChild", "Child");
    Define("InGrandChild", "GrandChild");
    VELDModuleManagement::ReferenceChildGroup("Parent", "Child");
    VELDModuleManagement::ReferenceChildGroup("Child", "GrandChild");

    EXPECT_NE(VELDModuleManagement::FindModule("InChild", "Parent", true), nullptr);
    EXPECT_EQ(VELDModuleManagement::FindModule("InChild", "Parent", false), nullptr);
    EXPECT_EQ(VELDModuleManagement::FindModule("InGrandChild", "Parent", true), nullptr);
    EXPECT_EQ(VELDModuleManagement::GetModuleDefinition("InGrandChild", "Parent"), nullptr);
    EXPECT_EQ(VELDModuleManagement::NumberOfReferencedModules("Parent", true), 3);
    EXPECT_EQ(VELDModuleManagement::NumberOfReferencedModules("Parent", false), 1);
    EXPECT_EQ(VELDGetModulesDefStruct("Parent", nullptr, 0), 3u);
    // Without a group each group is counted once, children included.
    EXPECT_EQ(VELDGetModulesDefStruct(nullptr, nullptr, 0), 3u);

    VELDModuleDefinition* table[8];
    int n = VELDModuleManagement::EnumerateAvailableModules(table, 8, "Parent", true);
    EXPECT_EQ(Names(table, n), (std::vector<std::string>{"InParent", "InChild", "InGrandChild"}));
    n = VELDModuleManagement::EnumerateAvailableModules(table, 2, "Parent", true);
    EXPECT_EQ(Names(table, n), (std::vector<std::string>{"InParent", "InChild"}));

    EXPECT_EQ(VELDModuleManagement::NumberOfReferencedGroups("Parent"), 3);
    EXPECT_EQ(VELDModuleManagement::NumberOfReferencedGroups(nullptr), 3);
    VELDModuleGroupDefinition* groups[8];
    ASSERT_EQ(VELDModuleManagement::EnumerateAvailableGroups(groups, 8, "Parent", true), 3);
    EXPECT_STREQ(groups[0]->name, "Parent");
    EXPECT_STREQ(groups[2]->name, "GrandChild");
    EXPECT_EQ(VELDModuleManagement::EnumerateAvailableGroups(groups, 0, "Parent", true), 0);
}

TEST_F(Registry, AGroupDeclaredAfterItsDefinitionsKeepsThem)
{
    VELDModuleDefinition* early = Define("Early", "Late");
    ASSERT_NE(VELDModuleManagement::FindGroup("Late"), nullptr);  // a placeholder
    VELDModuleManagement::ReferenceChildGroup("Root", "Late");
    static int inits;
    inits = 0;
    VELDModuleGroupDefinition* real = new VELDModuleGroupDefinition("Late", [] { ++inits; }, nullptr, nullptr);
    EXPECT_EQ(inits, 1);
    EXPECT_EQ(VELDModuleManagement::FindGroup("Late"), real);
    EXPECT_EQ(VELDModuleManagement::FindModule("Early", "Late", false), early);
    EXPECT_EQ(early->groupName, real->name);
    EXPECT_EQ(VELDModuleManagement::NumberOfReferencedModules("Late", false), 1);
    // The parent now refers to the group that took over.
    EXPECT_EQ(VELDModuleManagement::NumberOfReferencedModules("Root", true), 1);
    EXPECT_EQ(VELDModuleManagement::FindModule("Early", "Root", true), early);
}

TEST_F(Registry, RegistrationRunsOnceAtInitializeAndAtOnceAfterIt)
{
    g_registrations = g_unregistrations = 0;
    new VELDModuleDefinition("Static", "G", nullptr, nullptr, CountRegistration, CountUnregistration);
    EXPECT_EQ(g_registrations, 0);
    VELDModuleManagement::Initialize(nullptr);
    EXPECT_EQ(g_registrations, 1);
    VELDModuleDefinition* late =
        new VELDModuleDefinition("Late", "G", nullptr, nullptr, CountRegistration, CountUnregistration);
    EXPECT_EQ(g_registrations, 2);
    delete late;  // unlinks itself and unregisters
    EXPECT_EQ(g_unregistrations, 1);
    EXPECT_EQ(VELDModuleManagement::NumberOfReferencedModules("G", false), 1);
    VELDModuleManagement::Uninitialize();  // destroys the group and what it holds
    EXPECT_EQ(g_unregistrations, 2);
    EXPECT_FALSE(VELDModuleManagement::IsInitialized());
}

TEST_F(Registry, InstantiationSetsTheDefinition)
{
    VELDModuleDefinition* maker = new VELDModuleDefinition("Maker", "G", MakeBase, nullptr, nullptr, nullptr);
    Define("Inert", "G");
    VELDModuleBase* made = VELDModuleManagement::Instantiate("probe1", "Maker", "G");
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(made->definition, maker);
    EXPECT_STREQ(made->Name(), "probe1");
    delete made;
    EXPECT_EQ(VELDModuleManagement::Instantiate("x", "Inert", "G"), nullptr);
    EXPECT_EQ(VELDModuleManagement::Instantiate("x", "Missing", "G"), nullptr);
}

TEST_F(Registry, RemovingGroupsAndDefinitions)
{
    VELDModuleGroupDefinition* g = VELDModuleManagement::CreateNewGroup("G");
    VELDModuleDefinition* a = Define("A", "G");
    Define("B", "G");
    g->RemoveModule("A");  // unlinks, destroys nothing
    EXPECT_EQ(g->FindModule("A", false), nullptr);
    EXPECT_EQ(VELDModuleManagement::NumberOfReferencedModules("G", false), 1);
    delete a;
    VELDModuleManagement::RemoveGroup("G", true);
    EXPECT_EQ(VELDModuleManagement::FindGroup("G"), nullptr);
    EXPECT_EQ(VELDGetModulesDefStruct("G", nullptr, 0), 0xFFFFFFFFu);
}

TEST_F(Registry, SortOrdersBothWaysAndAlwaysReturnsOne)
{
    auto precedes = [](VELDModuleDefinition* x, VELDModuleDefinition* y) {
        return std::string(x->name) < std::string(y->name);
    };
    VELDModuleDefinition* table[3] = {Define("b", "G"), Define("c", "G"), Define("a", "G")};
    EXPECT_EQ(VELDModuleManagement::SortModuleDefinitionTable(table, 1, precedes, true), 1);
    EXPECT_EQ(Names(table, 3), (std::vector<std::string>{"b", "c", "a"}));
    EXPECT_EQ(VELDModuleManagement::SortModuleDefinitionTable(table, 3, precedes, true), 1);
    EXPECT_EQ(Names(table, 3), (std::vector<std::string>{"a", "b", "c"}));
    EXPECT_EQ(VELDModuleManagement::SortModuleDefinitionTable(table, 3, precedes, false), 1);
    EXPECT_EQ(Names(table, 3), (std::vector<std::string>{"c", "b", "a"}));
}

// A new name replaces an equal old one, or the head of a name that starts
// with the new name and a dot (the test is against the new name, not the
// old one); anything else stays.
TEST(ModuleBase, RenameReplacesAnEqualNameOrKeepsTheTailOfAMatchingOne)
{
    const struct {
        const char *name, *from, *to, *after;
    } cases[] = {
        {"old", "old", "new", "new"},           {"can.oCAN", "something", "can", "can.oCAN"},
        {"can2.oCAN", "x", "can", "can.oCAN"},  {"bus.oCAN", "bus", "can", "bus.oCAN"},
        {"eth.oEth", "x", "can", "eth.oEth"},   {nullptr, nullptr, "named", "named"},
    };
    for (const auto& c : cases) {
        VELDModuleBase module(c.name);
        if (!c.name) EXPECT_EQ(module.Name(), nullptr);
        module.Rename(c.from, c.to);
        EXPECT_STREQ(module.Name(), c.after) << (c.name ? c.name : "(null)");
    }
}
