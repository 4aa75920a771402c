// The NxEthInject component model.
#include "veld_definitions.h"
#include "veld_module_definition.h"

class VELDNxEthApi10;

// The model's tables and instantiation function arrive with the component
// itself; until then the host sees its name and version.
VELDComponentDefinition VELDNxEthApi10Definition = {
    "NxEthInject", "2.3.4", nullptr, nullptr, nullptr, 0, 0, nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 128, 1, true, 0};

VELD_DECLARE_COMPONENT(VELDNxEthApi10, "VELDNxEthApi10", VELDNxEthApi10Definition, "NxEthInject", "2.3.4");
