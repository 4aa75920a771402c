// The static records that declare a component model: tables of inputs,
// outputs, properties and actions, and the one VELDComponentDefinition that
// points at them. The engine and the component constructor read them.
#ifndef VELD_DEFINITIONS_H
#define VELD_DEFINITIONS_H

#include "veld_types.h"

class VELDComponent;
struct VELDInputDefinition;
struct VELDOutputDefinition;
struct VELDPropertyDefinition;
struct VELDActionDefinition;

// A count says how many of a table's first entries exist from the start; the
// rest are for Dynamic(). A count of -1 (all ones) means the whole table, which
// ends in a record with a null name.
struct VELDComponentDefinition {
    typedef VELDComponent* (*InstantiationFunction)(const char* name, VELDComponentDefinition& definition);

    const char* name;     // the model name
    const char* version;
    InstantiationFunction instFunct;
    void (*regFunct)();
    void (*unregFunct)();
    // 0: no limit. Otherwise the instances that may still be made; a
    // component's destructor gives one back.
    VELDUInt32 maxNumberOfInstances;
    VELDUInt32 nbInputs;
    VELDInputDefinition* inputs;
    VELDUInt32 nbOutputs;
    VELDOutputDefinition* outputs;
    VELDUInt32 nbProperties;
    VELDPropertyDefinition* properties;
    VELDUInt32 nbActions;
    VELDActionDefinition* actions;
    VELDUInt16 priority;   // default of the "priority" property
    VELDUInt32 kind;       // mask of VELD::Threaded and VELD::Sequential
    bool threaded;         // default of the "threaded" property
    VELDInt32 reserved;
};

#endif
