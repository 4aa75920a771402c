// A package built only for the tests: one model whose instantiation reports
// through the package's kernel, so that a test sees which kernel the package
// holds and how often its registration ran.
#include "veld.h"
#include "veld_definitions.h"
#include "veld_module_definition.h"

namespace {

int g_registrations = 0;

void CountRegistration(void*) { ++g_registrations; }

VELDComponent* ReportAndMakeNothing(const char* name, VELDComponentDefinition&)
{
    VELDStreamedString text("probe ");
    text << name << " registered " << g_registrations;
    VELD::ReportInfo(text, 0);
    return nullptr;
}

VELDComponentDefinition g_probeDefinition = {"Probe", "0.0.1", ReportAndMakeNothing, nullptr, nullptr, 0, 0,
                                             nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 128, 1, true, 0};

class Probe;

}  // namespace

template <>
VELDModuleDefinition* __NewModuleDeclarationClass<Probe>::moduleDefinition =
    new VELDModuleDefinition("Probe", "VELDComponent", nullptr, &g_probeDefinition, CountRegistration, nullptr);
