// The built package, loaded as a host loads it.
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

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

    static void* handle;
    static VELDGetModulesDefStructFunction getModules;
};

void* BusPackage::handle = nullptr;
VELDGetModulesDefStructFunction BusPackage::getModules = nullptr;

struct Model {
    const char* name;
    const char* version;
    const char* marker;
};

const Model kModels[] = {
    {"NxCanMonitoring", "1.3.2", "$!VELD_MODULE!VELDComponent!NxCanMonitoring!$!1.3.2!$"},
    {"NxEthMonitoring", "2.1.5", "$!VELD_MODULE!VELDComponent!NxEthMonitoring!$!2.1.5!$"},
    {"NxCanInject", "1.2.5", "$!VELD_MODULE!VELDComponent!NxCanInject!$!1.2.5!$"},
    {"NxEthInject", "2.3.4", "$!VELD_MODULE!VELDComponent!NxEthInject!$!2.3.4!$"},
};

std::set<std::string> ExportedSymbols(const char* path)
{
    std::set<std::string> out;
    std::string command = std::string("nm -D --defined-only ") + path;
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return out;
    char line[512];
    while (std::fgets(line, sizeof line, pipe)) {
        std::string text(line);
        std::string::size_type space = text.find_last_of(' ');
        std::string name = text.substr(space + 1);
        while (!name.empty() && (name.back() == '\n' || name.back() == '\r')) name.pop_back();
        // Version definitions of the linker are not symbols of ours.
        if (text.find(" A ") == std::string::npos) out.insert(name);
    }
    pclose(pipe);
    return out;
}

}  // namespace

TEST_F(BusPackage, OffersItsFourModelsInTheComponentGroup)
{
    EXPECT_EQ(getModules("VELDComponent", nullptr, 0), 4u);
    void* table[8] = {};
    ASSERT_EQ(getModules("VELDComponent", table, 8), 4u);
    std::set<std::string> seen;
    for (int i = 0; i < 4; ++i) {
        const VELDComponentDefinition* definition = static_cast<const VELDComponentDefinition*>(table[i]);
        ASSERT_NE(definition, nullptr);
        bool known = false;
        for (const Model& model : kModels)
            if (std::string(definition->name) == model.name) {
                EXPECT_STREQ(definition->version, model.version) << model.name;
                known = true;
            }
        EXPECT_TRUE(known) << definition->name;
        seen.insert(definition->name);
    }
    EXPECT_EQ(seen.size(), 4u);
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
    std::set<std::string> exported = ExportedSymbols(VELDOR_BUS_PACKAGE);
    ASSERT_FALSE(exported.empty()) << "nm could not read the package";
    for (const std::string& name : exported)
        EXPECT_TRUE(name == "VELDGetModulesDefStruct" || name == "VELDPckInit") << "exported: " << name;
    EXPECT_EQ(exported.count("VELDGetModulesDefStruct"), 1u);
    EXPECT_EQ(dlsym(handle, "_ZN20VELDModuleManagement6groupsE"), nullptr);
}

TEST_F(BusPackage, MarkersStandInTheFile)
{
    std::ifstream file(VELDOR_BUS_PACKAGE, std::ios::binary);
    ASSERT_TRUE(file.good());
    std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    for (const Model& model : kModels)
        EXPECT_NE(bytes.find(std::string(model.marker) + '\0'), std::string::npos) << model.marker;
}
