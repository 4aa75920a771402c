// The NxCanInject component model.
#include "veld_definitions.h"
#include "veld_module_definition.h"

class VELDNxCanApi20;

// The model's tables and instantiation function arrive with the component
// itself; until then the host sees its name and version.
VELDComponentDefinition VELDNxCanApi20Definition = {
    "NxCanInject", "1.2.5", nullptr, nullptr, nullptr, 0, 0, nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 128, 1, true, 0};

VELD_DECLARE_COMPONENT(VELDNxCanApi20, "VELDNxCanApi20", VELDNxCanApi20Definition, "NxCanInject", "1.2.5");
