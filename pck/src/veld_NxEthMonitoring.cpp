// The NxEthMonitoring component model.
#include "veld_definitions.h"
#include "veld_module_definition.h"

class VELDNxEthMonitoring;

// The model's tables and instantiation function arrive with the component
// itself; until then the host sees its name and version.
VELDComponentDefinition VELDNxEthMonitoringDefinition = {
    "NxEthMonitoring", "2.1.5", nullptr, nullptr, nullptr, 0, 0, nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 128, 1, true, 0};

VELD_DECLARE_COMPONENT(VELDNxEthMonitoring, "VELDNxEthMonitoring", VELDNxEthMonitoringDefinition, "NxEthMonitoring", "2.1.5");
