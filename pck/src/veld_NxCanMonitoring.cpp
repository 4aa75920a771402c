// The NxCanMonitoring component model.
#include "veld_definitions.h"
#include "veld_module_definition.h"

class VELDNxCanMonitoring;

// The model's tables and instantiation function arrive with the component
// itself; until then the host sees its name and version.
VELDComponentDefinition VELDNxCanMonitoringDefinition = {
    "NxCanMonitoring", "1.3.2", nullptr, nullptr, nullptr, 0, 0, nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 128, 1, true, 0};

VELD_DECLARE_COMPONENT(VELDNxCanMonitoring, "VELDNxCanMonitoring", VELDNxCanMonitoringDefinition, "NxCanMonitoring", "1.3.2");
