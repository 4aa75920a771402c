// The dynamic output models of a component whose Dynamic declares its
// outputs from its properties: what survives a pass, what goes, and what a
// broken expectation reports.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "runtime_support.h"
#include "thrown.h"
#include "veld_dynamic_io_models.h"
#include "veld_object_types.h"
#include "veld_output.h"

namespace {

class DynamicModels : public ::testing::Test {
protected:
    DynamicModels() : engine(Quiet())
    {
        tables.Finish(0, 0, 0, 0);
        component = &engine.Make<DynamicProbe>("c", tables);
        component->dynamic = [this](DynamicProbe& self) {
            models.Reset();
            for (const auto& item : declared) models.NewOutput(self, item.first, item.second, "");
        };
    }
    // One pass of Dynamic declaring these outputs.
    void Pass(std::vector<std::pair<std::string, VELDTypeInfoValue>> outputs)
    {
        declared = std::move(outputs);
        component->CallDynamic();
    }
    std::vector<std::string> Names()
    {
        std::vector<std::string> names;
        for (VELD::DynamicOutputModel* m : models.Models()) names.push_back(m->ShortName());
        return names;
    }

    TestEngine engine;
    ModelTables tables;
    DynamicProbe* component;
    VELD::DynamicOutputModelSet models;
    std::vector<std::pair<std::string, VELDTypeInfoValue>> declared;
};

TEST_F(DynamicModels, SameTypeKeepsTheOutputANewTypeReplacesItsState)
{
    Pass({{"oCAN", VELD::CANFrame}});
    VELDOutput* first = &models.Instance("oCAN");
    EXPECT_EQ(&component->Output("oCAN"), first);
    Pass({{"oCAN", VELD::CANFrame}});
    EXPECT_EQ(&models.Instance("oCAN"), first);
    EXPECT_EQ(models.Size(), 1u);

    Pass({{"oCAN", VELD::CANUniFrame}});
    EXPECT_EQ(models.Size(), 1u);
    EXPECT_EQ(models.Model("oCAN").TypeInfoValue(), VELD::CANUniFrame);
    EXPECT_EQ(component->Output("oCAN").Type().value & VELD::TypeMask, VELD::CANUniFrame);
    EXPECT_EQ(component->NbOutputs(), 1);
    EXPECT_EQ(models.Outputs(), std::vector<VELDOutput*>{&component->Output("oCAN")});
}

TEST_F(DynamicModels, AModelLeftOutTwiceGoesAndNewOnesComeBeforeUnusedOnes)
{
    Pass({{"oA", VELD::CANFrame}, {"oB", VELD::CANFrame}});
    Pass({{"oC", VELD::CANFDFrame}});
    // oA and oB survive this pass, unused, behind the new oC.
    EXPECT_EQ(Names(), (std::vector<std::string>{"oC", "oA", "oB"}));
    EXPECT_EQ(models.usedModelCount(), 1u);
    EXPECT_TRUE(models.Model("oA").isUnused());
    EXPECT_EQ(models.Outputs().size(), 1u);
    EXPECT_FALSE(component->HasOutput("oA"));

    Pass({{"oB", VELD::CANFrame}, {"oC", VELD::CANFDFrame}});
    EXPECT_EQ(Names(), (std::vector<std::string>{"oB", "oC"}));
    models.Reset();
    EXPECT_EQ(models.usedModelCount(), 0u);
    EXPECT_EQ(models.Size(), 2u);
}

TEST_F(DynamicModels, BrokenExpectationsReportWhereAndThrow)
{
    engine.GetConsole().ClearCaptured();
    VELD::DynamicOutputModel empty;
    EXPECT_EQ(Thrown([&] { empty.Output(); }), VELD::ErrorException) << "an empty model gave an output";
    std::vector<veldor::ReportRecord> reports = engine.GetConsole().Captured();
    ASSERT_EQ(reports.size(), 2u);
    EXPECT_EQ(reports[0].level, VELD::Error);
    EXPECT_NE(reports[0].text.find("veld_dynamic_io_models.h:"), std::string::npos) << reports[0].text;
    EXPECT_NE(reports[0].text.find(" : Assertion Failed: IsValid()"), std::string::npos) << reports[0].text;
    EXPECT_NE(reports[1].text.find(": -5"), std::string::npos) << reports[1].text;

    EXPECT_EQ(Thrown([&] { models.Model("oMissing"); }), VELD::ErrorException) << "an unknown name gave a model";
    EXPECT_TRUE(engine.GetConsole().Contains("Assertion Failed: it != m_models.end()"));
}

}  // namespace
