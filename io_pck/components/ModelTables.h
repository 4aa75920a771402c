// Short ways to write the tables of this package's models.
#ifndef VELDOR_IO_MODEL_TABLES_H
#define VELDOR_IO_MODEL_TABLES_H

#include <string>
#include <vector>

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

// The text without the blanks around it.
inline std::string Trimmed(const std::string& text)
{
    const std::size_t first = text.find_first_not_of(' ');
    return first == std::string::npos ? std::string() : text.substr(first, text.find_last_not_of(' ') - first + 1);
}

// The items of a setting that lists them, comma-separated: each trimmed,
// empty ones left out.
inline std::vector<std::string> ListedIn(const std::string& text)
{
    std::vector<std::string> items;
    for (std::size_t at = 0; at <= text.size();) {
        std::size_t comma = text.find(',', at);
        if (comma == std::string::npos) comma = text.size();
        const std::string item = Trimmed(text.substr(at, comma - at));
        if (!item.empty()) items.push_back(item);
        at = comma + 1;
    }
    return items;
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
