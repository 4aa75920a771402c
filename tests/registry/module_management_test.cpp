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

int g_registrations = 0;
int g_unregistrations = 0;
void CountRegistration(void*) { ++g_registrations; }
void CountUnregistration(void*) { ++g_unregistrations; }

class Probe : public VELDModuleBase {
public:
    explicit Probe(const char* n) : VELDModuleBase(n) {}
};
VELDModuleBase* MakeProbe(const char* name, void*) { return new Probe(name); }

}  // namespace

TEST_F(Registry, CountingBeforeAnyDefinitionGivesZeroAndMakesTheList)
{
    EXPECT_EQ(VELDGetModulesDefStruct(nullptr, nullptr, 0), 0u);
    EXPECT_EQ(VELDModuleManagement::NumberOfReferencedGroups(nullptr), 0);
}

TEST_F(Registry, TheTableReceivesEachDefinitionsArgumentUpToMaxCount)
{
    int a = 1, b = 2, c = 3;
    Define("A", "G", &a);
    Define("B", "G", &b);
    Define("C", "G", &c);
    void* table[3] = {};
    ASSERT_EQ(VELDGetModulesDefStruct("G", table, 3), 3u);
    EXPECT_EQ(table[0], &a);
    EXPECT_EQ(table[1], &b);
    EXPECT_EQ(table[2], &c);
    void* two[2] = {};
    EXPECT_EQ(VELDGetModulesDefStruct("G", two, 2), 2u);
    EXPECT_EQ(two[1], &b);
}

TEST_F(Registry, ADuplicateNameInOneGroupThrowsTheFormattedText)
{
    Define("Twice", "G");
    try {
        Define("Twice", "G");
        FAIL() << "the second definition was accepted";
    } catch (const VELDStackedString<40>& text) {
        EXPECT_STREQ(text, "Module Twice already referenced in the category G\n");
    }
    EXPECT_EQ(VELDModuleManagement::NumberOfReferencedModules("G", false), 1);

    // The text is cut to what fits in 100 bytes.
    std::string longName(120, 'n');
    Define(longName.c_str(), "G");
    try {
        Define(longName.c_str(), "G");
        FAIL();
    } catch (const VELDStackedString<40>& text) {
        EXPECT_EQ(text.Length(), 99);
        EXPECT_TRUE(text.StartsWith("Module nnnn"));
    }
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
    n = VELDModuleManagement::EnumerateAvailableGroups(groups, 8, "Parent", true);
    ASSERT_EQ(n, 3);
    EXPECT_STREQ(groups[0]->name, "Parent");
    EXPECT_STREQ(groups[2]->name, "GrandChild");
    EXPECT_EQ(VELDModuleManagement::EnumerateAvailableGroups(groups, 0, "Parent", true), 0);
}

TEST_F(Registry, AGroupDeclaredAfterItsDefinitionsKeepsThem)
{
    VELDModuleDefinition* early = Define("Early", "Late");
    VELDModuleGroupDefinition* placeholder = VELDModuleManagement::FindGroup("Late");
    ASSERT_NE(placeholder, nullptr);
    VELDModuleManagement::ReferenceChildGroup("Root", "Late");

    int inits = 0;
    static int* initCounter;
    initCounter = &inits;
    VELDModuleGroupDefinition* real =
        new VELDModuleGroupDefinition("Late", [] { ++*initCounter; }, nullptr, nullptr);

    EXPECT_EQ(inits, 1);
    EXPECT_EQ(VELDModuleManagement::FindGroup("Late"), real);
    EXPECT_EQ(VELDModuleManagement::FindModule("Early", "Late", false), early);
    EXPECT_EQ(early->groupName, real->name);
    EXPECT_EQ(VELDModuleManagement::NumberOfReferencedModules("Late", false), 1);
    // The parent now refers to the group that took over.
    EXPECT_EQ(VELDModuleManagement::NumberOfReferencedModules("Root", true), 1);
    EXPECT_EQ(VELDModuleManagement::FindModule("Early", "Root", true), early);
}

TEST_F(Registry, AGroupNeedsAName)
{
    try {
        VELDModuleGroupDefinition bad(nullptr, nullptr, nullptr, nullptr);
        FAIL();
    } catch (const char* text) {
        EXPECT_STREQ(text, "VELDModuleGroupDefinition construction : the group name can't be NULL\n");
    }
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
    VELDModuleDefinition* maker = new VELDModuleDefinition("Maker", "G", MakeProbe, nullptr, nullptr, nullptr);
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

TEST_F(Registry, SortIsAnExchangeSortThatAlwaysReturnsOne)
{
    static int calls;
    calls = 0;
    auto precedes = [](VELDModuleDefinition* x, VELDModuleDefinition* y) {
        ++calls;
        return std::string(x->name) < std::string(y->name);
    };
    VELDModuleDefinition* table[3] = {Define("b", "G"), Define("c", "G"), Define("a", "G")};
    EXPECT_EQ(VELDModuleManagement::SortModuleDefinitionTable(table, 1, precedes, true), 1);
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(VELDModuleManagement::SortModuleDefinitionTable(table, 3, precedes, true), 1);
    EXPECT_EQ(Names(table, 3), (std::vector<std::string>{"a", "b", "c"}));
    EXPECT_EQ(VELDModuleManagement::SortModuleDefinitionTable(table, 3, precedes, false), 1);
    EXPECT_EQ(Names(table, 3), (std::vector<std::string>{"c", "b", "a"}));
}

TEST(ModuleBase, RenameReplacesAnEqualNameOrKeepsTheTailOfAMatchingOne)
{
    VELDModuleBase exact("old");
    exact.Rename("old", "new");
    EXPECT_STREQ(exact.Name(), "new");

    // The test is against the new name, not the old one.
    VELDModuleBase prefixed("can.oCAN");
    prefixed.Rename("something", "can");
    EXPECT_STREQ(prefixed.Name(), "can.oCAN");
    VELDModuleBase longer("can2.oCAN");
    longer.Rename("x", "can");
    EXPECT_STREQ(longer.Name(), "can.oCAN");
    VELDModuleBase other("bus.oCAN");
    other.Rename("bus", "can");
    EXPECT_STREQ(other.Name(), "bus.oCAN");

    VELDModuleBase unrelated("eth.oEth");
    unrelated.Rename("x", "can");
    EXPECT_STREQ(unrelated.Name(), "eth.oEth");

    VELDModuleBase unnamed(nullptr);
    EXPECT_EQ(unnamed.Name(), nullptr);
    unnamed.Rename(nullptr, "named");
    EXPECT_STREQ(unnamed.Name(), "named");
}
