// The built package, loaded as a host loads it.
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <cstdio>
#include <set>
#include <string>

#include "scratch.h"
#include "veld_definitions.h"
#include "veld_pck.h"

namespace {

class BusPackage : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        handle = dlopen(VELDOR_BUS_PACKAGE, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(handle, nullptr) << dlerror();
        getModules = reinterpret_cast<VELDGetModulesDefStructFunction>(dlsym(handle, "VELDGetModulesDefStruct"));
        ASSERT_NE(getModules, nullptr) << dlerror();
    }

    static inline void* handle = nullptr;
    static inline VELDGetModulesDefStructFunction getModules = nullptr;
};

const std::set<std::string> kModels = {"NxCanMonitoring 1.3.2", "NxEthMonitoring 2.1.5", "NxCanInject 1.2.5",
                                       "NxEthInject 2.3.4"};

// The names of the dynamic symbols the file defines, but the linker's
// version definitions.
std::set<std::string> ExportedSymbols(const char* path)
{
    std::set<std::string> out;
    FILE* pipe = popen((std::string("nm -D --defined-only ") + path).c_str(), "r");
    char address[64], kind[8], name[256];
    while (pipe && std::fscanf(pipe, "%63s %7s %255s", address, kind, name) == 3)
        if (std::string(kind) != "A") out.insert(name);
    if (pipe) pclose(pipe);
    return out;
}

}  // namespace

TEST_F(BusPackage, OffersItsFourModelsInTheComponentGroup)
{
    EXPECT_EQ(getModules("VELDComponent", nullptr, 0), 4u);
    void* table[8] = {};
    ASSERT_EQ(getModules("VELDComponent", table, 8), 4u);
    std::set<std::string> offered;
    for (int i = 0; i < 4; ++i) {
        const auto* definition = static_cast<const VELDComponentDefinition*>(table[i]);
        ASSERT_NE(definition, nullptr);
        offered.insert(std::string(definition->name) + " " + definition->version);
    }
    EXPECT_EQ(offered, kModels);
    // Each model's marker stands in the file, as a host's scan finds it:
    // "$!VELD_MODULE!VELDComponent!<name>!$!<version>!$", then a zero.
    const std::string bytes = veldtest::ReadText(VELDOR_BUS_PACKAGE);
    ASSERT_FALSE(bytes.empty());
    for (const std::string& model : kModels) {
        const size_t space = model.find(' ');
        const std::string marker = "$!VELD_MODULE!VELDComponent!" + model.substr(0, space) + "!$!" +
                                   model.substr(space + 1) + "!$" + '\0';
        EXPECT_NE(bytes.find(marker), std::string::npos) << marker;
    }
}

TEST_F(BusPackage, AnswersCountsAndTablesAsAHostExpects)
{
    void* table[4] = {};
    EXPECT_EQ(getModules("NoSuchGroup", nullptr, 0), 0xFFFFFFFFu);
    EXPECT_EQ(getModules("NoSuchGroup", table, 4), 0u);
    EXPECT_EQ(getModules("VELDComponent", table, 0), 0u);
    EXPECT_EQ(getModules("VELDComponent", table, -1), 0u);
    EXPECT_EQ(table[0], nullptr);
    EXPECT_EQ(getModules("VELDComponent", table, 2), 2u);
    EXPECT_EQ(getModules(nullptr, nullptr, 0), 4u);
}

TEST_F(BusPackage, ExportsOnlyItsEntryPoints)
{
    const std::set<std::string> exported = ExportedSymbols(VELDOR_BUS_PACKAGE);
    ASSERT_FALSE(exported.empty()) << "nm could not read the package";
    for (const std::string& name : exported)
        EXPECT_TRUE(name == "VELDGetModulesDefStruct" || name == "VELDPckInit") << "exported: " << name;
    EXPECT_EQ(exported.count("VELDGetModulesDefStruct"), 1u);
    EXPECT_EQ(dlsym(handle, "_ZN20VELDModuleManagement6groupsE"), nullptr);
}
