#include "veld_definitions.h"

VELDPropertyDefinition::VELDPropertyDefinition(const VELDPropertyDefinition& other)
    : name(other.name), value(other.value ? new VELDPropertyValue(*other.value) : nullptr), unit(other.unit),
      needs2BeInitialized(other.needs2BeInitialized), canBeModifiedAfterStart(other.canBeModifiedAfterStart),
      readOnly(other.readOnly), locked(other.locked), subtype(other.subtype)
{
}

VELDPropertyDefinition& VELDPropertyDefinition::operator=(const VELDPropertyDefinition& other)
{
    if (this == &other) return *this;
    VELDPropertyValue* copy = other.value ? new VELDPropertyValue(*other.value) : nullptr;
    delete value;
    value = copy;
    name = other.name;
    unit = other.unit;
    needs2BeInitialized = other.needs2BeInitialized;
    canBeModifiedAfterStart = other.canBeModifiedAfterStart;
    readOnly = other.readOnly;
    locked = other.locked;
    subtype = other.subtype;
    return *this;
}

VELDPropertyDefinition::~VELDPropertyDefinition() { delete value; }

void VELDActionFunction::Run(VELDModule* module, int index, const char* argument) const
{
    if (action)
        action(module, index);
    else if (action_arg)
        action_arg(module, index, argument);
}

VELDActionDefinition::VELDActionDefinition(const VELDActionDefinition& other)
    : name(other.name), action(other.action ? new VELDActionFunction(*other.action) : nullptr),
      allowedWhenComponentDead(other.allowedWhenComponentDead), reserved{0, 0, 0}
{
}

VELDActionDefinition& VELDActionDefinition::operator=(const VELDActionDefinition& other)
{
    if (this == &other) return *this;
    VELDActionFunction* copy = other.action ? new VELDActionFunction(*other.action) : nullptr;
    delete action;
    action = copy;
    name = other.name;
    allowedWhenComponentDead = other.allowedWhenComponentDead;
    return *this;
}

VELDActionDefinition::~VELDActionDefinition() { delete action; }
