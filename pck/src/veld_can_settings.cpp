#include "veld_can_settings.h"

#include <cstring>

#include "veld_property.h"

namespace VeldCan {

const char* const kBaudrateItems = "8000|4000|2000|1000|500|250|125|100|50|20|10";

namespace {

const std::uint32_t kBitRates[] = {8000000, 4000000, 2000000, 1000000, 500000, 250000,
                                   125000,  100000,  50000,   20000,   10000};
const int kNbBitRates = sizeof kBitRates / sizeof kBitRates[0];

void Clamp(VELDModule& module, const char* name)
{
    VELDProperty& property = module.Property(name);
    if (property.IntegerValue() >= kOneMegabaudIndex) return;
    std::string text = std::string("[") + name +
                       "] can't be greater than 1MBds in CAN (non FD) mode. Using 1MBds instead.";
    module.ReportWarning(text.c_str(), 0);
    module.DirectSet(property, VELDInt64(kOneMegabaudIndex));
}

bool IsDataBaudrate(VELDModule& module, VELDProperty& property)
{
    return module.HasProperty("data_baudrate") && &property == &module.Property("data_baudrate");
}

}  // namespace

std::uint32_t DecodeBaudrate(VELDModule& module, const char* name)
{
    const VELDInt64 index = module.GetIntegerProperty(name);
    if (index < 0 || index >= kNbBitRates) {
        module.Error("Unknown baudrate configuration.", 1, VELDModule::ErrorGeneric);
        return 0;
    }
    return kBitRates[index];
}

void ClampToClassicRates(VELDModule& module)
{
    Clamp(module, "arbitration_baudrate");
    Clamp(module, "data_baudrate");
}

void WarnIfVirtual(VELDModule& module, const char* limits)
{
    const VELDString description = module.GetStringProperty("channel_description");
    if (description.Length() == 0 || !std::strstr(description.Beginning(), "Virtual")) return;
    std::string text = std::string("Selected channel [") + description.Beginning() + "] is virtual. " + limits;
    module.ReportWarning(text.c_str(), 0);
}

bool SetDataBaudrate(VELDModule& module, VELDProperty& property, const VELDEnumStruct& value)
{
    if (!IsDataBaudrate(module, property)) return false;
    module.VELDModule::Set(property, VELDInt64(value.GetSelected()));
    return true;
}

bool SetDataBaudrate(VELDModule& module, VELDProperty& property, const VELDString& value)
{
    if (!IsDataBaudrate(module, property) || !VELDEnumStruct::IsEnumString(value)) return false;
    VELDEnumStruct parsed;
    parsed.FromString(value, false);
    module.VELDModule::Set(property, VELDInt64(parsed.GetSelected()));
    return true;
}

}  // namespace VeldCan
