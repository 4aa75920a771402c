// What the two CAN components share of their properties: the bit-rate enums,
// their decoding, the clamp to 1 MBd without CAN FD, and the warning about a
// virtual channel.
#ifndef VELD_CAN_SETTINGS_H
#define VELD_CAN_SETTINGS_H

#include <cstdint>
#include <string>

#include "veld_module.h"

namespace VeldCan {

// The items of arbitration_baudrate and data_baudrate, in kilobaud.
extern const char* const kBaudrateItems;
// Index 3: 1000 kBd, the default and the classic CAN maximum.
const int kOneMegabaudIndex = 3;

// The selected index of the enum `name` of `module` in bit/s; an index
// outside the table is an Error "Unknown baudrate configuration.".
std::uint32_t DecodeBaudrate(VELDModule& module, const char* name);

// Without CAN FD no rate may exceed 1 MBd: each bit-rate enum that selects
// more is set back to 1 MBd, with a warning.
void ClampToClassicRates(VELDModule& module);

// Warns "Selected channel [<description>] is virtual. <limits>" when the
// channel's description says Virtual.
void WarnIfVirtual(VELDModule& module, const char* limits);

// A data_baudrate write that bypasses the bus component's rules: true when
// it was taken here. An enum value, or a text of the whole-enum form, is
// stored by its selected index.
bool SetDataBaudrate(VELDModule& module, VELDProperty& property, const VELDEnumStruct& value);
bool SetDataBaudrate(VELDModule& module, VELDProperty& property, const VELDString& value);

}  // namespace VeldCan

#endif
