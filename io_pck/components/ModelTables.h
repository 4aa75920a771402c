// Short ways to write the tables of this package's models.
#ifndef VELDOR_IO_MODEL_TABLES_H
#define VELDOR_IO_MODEL_TABLES_H

#include "veld.h"
#include "veld_definitions.h"
#include "veld_model.h"

namespace veldor_io {

// A setting the user may change before a run.
inline VELDPropertyDefinition Setting(const char* name, VELDPropertyValue* value, const char* unit = nullptr)
{
    return VELDPropertyDefinition(name, value, unit, false, false, false, false);
}

// A figure the component keeps up to date; read-only, readable while it runs.
inline VELDPropertyDefinition Figure(const char* name, const char* unit = nullptr)
{
    return VELDPropertyDefinition(name, new VELDPropertyValue(VELDInt64(0)), unit, false, true, true, false);
}

// A text the component keeps up to date; read-only.
inline VELDPropertyDefinition Readout(const char* name, VELDPropertyValue* value)
{
    return VELDPropertyDefinition(name, value, nullptr, false, true, true, false);
}

inline VELDInputDefinition CanInput(const char* name)
{
    return VELDInputDefinition{name, 0, &VELD::FilterAnyCANFrame, VELD::NeverSkippingReader, 1};
}

// An output of one 64-bit time in microseconds, such as an injector's time
// inputs take.
inline VELDOutputDefinition TimeOutput(const char* name)
{
    return VELDOutputDefinition{name, 0, VELDTypeInfo(VELD::Integer64, nullptr, "us"), 1, 16, 1, 1};
}

const VELDUInt32 kWholeTable = 0xFFFFFFFFu;

// A threaded model whose tables end with a null name.
template <class Model>
VELDComponentDefinition Define(const char* name, const char* version, VELDInputDefinition* inputs,
                               VELDOutputDefinition* outputs, VELDPropertyDefinition* properties)
{
    return {name, version, &Model::Instantiate, nullptr, nullptr, 0,
            inputs ? kWholeTable : 0, inputs, outputs ? kWholeTable : 0, outputs,
            kWholeTable, properties, 0, nullptr, 128, VELD::Threaded, true, 0};
}

}  // namespace veldor_io

#endif
