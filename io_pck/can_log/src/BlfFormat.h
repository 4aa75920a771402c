// The layout of BLF, the binary logging format, as far as this library reads
// and writes it. Everything is little-endian.
//
// A file is a header of kFileHeaderSize bytes, then objects. Each object
// starts with a base header ("LOBJ", its header size, header version, object
// size, object type) and is followed by (object size % 4) bytes of padding.
// At the top level stand log containers, which hold a stream of further
// objects, stored or zlib-compressed; an object may begin in one container
// and end in the next. Objects other than containers have, after the base
// header, a version 1 or 2 header with their flags (the time unit: 10 us or
// 1 ns) and their time relative to the start in the file header.
#ifndef VELDOR_CAN_LOG_BLF_FORMAT_H
#define VELDOR_CAN_LOG_BLF_FORMAT_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "can_log/LogOptions.h"

namespace veldor::canlog::blf {

constexpr std::uint8_t kFileSignature[4] = {'L', 'O', 'G', 'G'};
constexpr std::uint8_t kObjectSignature[4] = {'L', 'O', 'B', 'J'};

// The file header: signature, its size, application and format versions,
// file size, uncompressed size, object count, objects read, start and stop
// as a calendar time (eight 16-bit fields), then padding.
constexpr std::size_t kFileHeaderSize = 144;
constexpr std::size_t kFileHeaderFields = 72;
constexpr std::size_t kFileSizeAt = 16;
constexpr std::size_t kUncompressedSizeAt = 24;
constexpr std::size_t kObjectCountAt = 32;
constexpr std::size_t kStartTimeAt = 40;
constexpr std::size_t kStopTimeAt = 56;

constexpr std::size_t kBaseHeaderSize = 16;
constexpr std::size_t kHeaderV1Size = 16;  // flags, client index, object version, time
constexpr std::size_t kHeaderV2Size = 24;  // flags, time status, object version, time, original time
constexpr std::size_t kContainerHeaderSize = 16;  // method, 6 reserved, uncompressed size, 4 reserved

enum ObjectType : std::uint32_t {
    kCanMessage = 1,
    kCanError = 2,
    kLogContainer = 10,
    kCanErrorExt = 73,
    kCanMessage2 = 86,
    kCanFdMessage = 100,
    kCanFdMessage64 = 101,
};

constexpr std::uint16_t kStored = 0;
constexpr std::uint16_t kZlib = 2;

constexpr std::uint32_t kTimeTenMicros = 1;  // the object header's flags
constexpr std::uint32_t kTimeNanos = 2;

constexpr std::uint32_t kExtendedId = 0x80000000;

// CAN message, CAN FD message: the flags byte.
constexpr std::uint8_t kFlagTx = 0x01;
constexpr std::uint8_t kFlagRemote = 0x80;
// CAN FD message: the FD flags byte.
constexpr std::uint8_t kFdEdl = 0x01;
constexpr std::uint8_t kFdBrs = 0x02;
constexpr std::uint8_t kFdEsi = 0x04;
// CAN FD message 64: the 32-bit flags.
constexpr std::uint32_t kFd64Remote = 0x0010;
constexpr std::uint32_t kFd64Edl = 0x1000;
constexpr std::uint32_t kFd64Brs = 0x2000;
constexpr std::uint32_t kFd64Esi = 0x4000;

// The bodies after the object header.
// CAN message: channel u16, flags u8, DLC u8, id u32, data[8]; the newer
// form adds frame length u32, bit count u8 and 3 reserved bytes.
constexpr std::size_t kCanMessageBody = 16;
constexpr std::size_t kCanMessage2Body = 24;
// CAN error: channel u16, length u16.
constexpr std::size_t kCanErrorBody = 4;
// CAN error ext: channel u16, length u16, flags u32, ECC u8, position u8,
// DLC u8, reserved u8, frame length u32, id u32, flags ext u16, reserved
// u16, data[8].
constexpr std::size_t kCanErrorExtBody = 32;
// CAN FD message: channel u16, flags u8, DLC u8, id u32, frame length u32,
// bit count u8, FD flags u8, valid bytes u8, 5 reserved, data[64].
constexpr std::size_t kCanFdMessageBody = 84;
// CAN FD message 64: channel u8, DLC u8, valid bytes u8, tx count u8, id
// u32, frame length u32, flags u32, two bit timings u32, two time offsets
// u32, bit count u16, direction u8, extended data offset u8, CRC u32; then
// the valid bytes of data.
constexpr std::size_t kCanFd64Body = 40;

// Containers hold this much before they are compressed and written.
constexpr std::size_t kContainerSize = 128 * 1024;
// No object or container of a sound file comes near this.
constexpr std::size_t kMaxObjectSize = 64 * 1024 * 1024;

inline std::uint16_t Get16(const std::uint8_t* p) { return static_cast<std::uint16_t>(p[0] | p[1] << 8); }
inline std::uint32_t Get32(const std::uint8_t* p) { return Get16(p) | static_cast<std::uint32_t>(Get16(p + 2)) << 16; }
inline std::uint64_t Get64(const std::uint8_t* p) { return Get32(p) | static_cast<std::uint64_t>(Get32(p + 4)) << 32; }

inline void Put16(std::uint8_t* p, std::uint16_t v)
{
    p[0] = static_cast<std::uint8_t>(v);
    p[1] = static_cast<std::uint8_t>(v >> 8);
}
inline void Put32(std::uint8_t* p, std::uint32_t v)
{
    Put16(p, static_cast<std::uint16_t>(v));
    Put16(p + 2, static_cast<std::uint16_t>(v >> 16));
}
inline void Put64(std::uint8_t* p, std::uint64_t v)
{
    Put32(p, static_cast<std::uint32_t>(v));
    Put32(p + 4, static_cast<std::uint32_t>(v >> 32));
}

// Calendar times before this (1990) are no calendar times: the writer
// leaves the header's times zero and counts the frame times from 0.
constexpr std::int64_t kEarliestCalendarTime = 631152000LL * 1000000;

// The header's calendar time (eight 16-bit fields: year, month, weekday,
// day, hour, minute, second, millisecond) in microseconds since the epoch;
// false for one that is zero or no date.
bool ReadCalendarTime(const std::uint8_t* p, DateZone zone, std::int64_t& micros);
// Writes `micros` to the millisecond; zeros before kEarliestCalendarTime.
void WriteCalendarTime(std::uint8_t* p, std::int64_t micros, DateZone zone);

}  // namespace veldor::canlog::blf

#endif
