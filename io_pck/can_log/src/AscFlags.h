// The fields of an ASC CANFD line after its data bytes, and the bits of its
// flags field that this library reads and writes.
#ifndef VELDOR_CAN_LOG_ASC_FLAGS_H
#define VELDOR_CAN_LOG_ASC_FLAGS_H

#include <cstddef>
#include <cstdint>

namespace veldor::canlog {

// Message duration, bit count, flags, CRC and four bit timing settings.
constexpr std::size_t kAscFdTrailingFields = 8;
// Where the flags stand among them.
constexpr std::size_t kAscFlagsField = 2;

constexpr std::uint32_t kAscFlagRemote = 0x0010;
constexpr std::uint32_t kAscFlagEdl = 0x1000;  // an FD frame
constexpr std::uint32_t kAscFlagBrs = 0x2000;
constexpr std::uint32_t kAscFlagEsi = 0x4000;

}  // namespace veldor::canlog

#endif
