// The static records that declare a component model: tables of inputs,
// outputs, properties and actions, and the one VELDComponentDefinition that
// points at them. The engine and the component constructor read them.
#ifndef VELD_DEFINITIONS_H
#define VELD_DEFINITIONS_H

#include "veld_object_types.h"
#include "veld_property_value.h"
#include "veld_types.h"

class VELDComponent;
class VELDModule;

struct VELDInputDefinition {
    const char* name;
    int reserved;
    const VELDTypeFilterBase* typeFilter;
    int readerType;  // VELD::FifoReader ... VELD::SamplingReader
    int subsampling;
};

// size is in elements for number types and in bytes for a Structure.
// Assignment copies the type deeply.
struct VELDOutputDefinition {
    const char* name;
    int reserved;
    VELDTypeInfo type;
    int size;
    int fifoSize;  // 16 by default
    int subsampling;
    int shareable;
};

// Owns its value; copies are deep.
struct VELDPropertyDefinition {
    VELDPropertyDefinition(const char* n = nullptr, VELDPropertyValue* v = nullptr, const char* u = nullptr,
                           bool needsInit = false, bool modifiableAfterStart = false, bool isReadOnly = false,
                           bool isLocked = false, int sub = 0)
        : name(n), value(v), unit(u), needs2BeInitialized(needsInit), canBeModifiedAfterStart(modifiableAfterStart),
          readOnly(isReadOnly), locked(isLocked), subtype(sub)
    {
    }
    VELDPropertyDefinition(const VELDPropertyDefinition& other);
    VELDPropertyDefinition& operator=(const VELDPropertyDefinition& other);
    ~VELDPropertyDefinition();

    const char* name;
    VELDPropertyValue* value;
    const char* unit;
    bool needs2BeInitialized;      // the component can't start until set
    bool canBeModifiedAfterStart;
    bool readOnly;
    bool locked;
    int subtype;                   // mask of VELD::PropertySubType...
};

// One of two forms of the function that runs an action.
class VELDActionFunction {
public:
    typedef void (*Action)(VELDModule* module, int index);
    typedef void (*ActionWithArgument)(VELDModule* module, int index, const char* argument);

    explicit VELDActionFunction(Action f) : action(f), action_arg(nullptr) {}
    explicit VELDActionFunction(ActionWithArgument f) : action(nullptr), action_arg(f) {}

    void Run(VELDModule* module, int index, const char* argument) const;

    Action action;
    ActionWithArgument action_arg;
};

// Owns its function; copies are deep.
struct VELDActionDefinition {
    VELDActionDefinition(const char* n = nullptr, VELDActionFunction* f = nullptr, bool whenDead = false)
        : name(n), action(f), allowedWhenComponentDead(whenDead), reserved{0, 0, 0}
    {
    }
    VELDActionDefinition(const VELDActionDefinition& other);
    VELDActionDefinition& operator=(const VELDActionDefinition& other);
    ~VELDActionDefinition();

    bool NeedArgument() const { return action && action->action_arg; }

    const char* name;
    VELDActionFunction* action;
    bool allowedWhenComponentDead;
    char reserved[3];
};

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
