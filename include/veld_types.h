// Fixed-width numbers, time units and the handful of portability macros that
// every framework header needs.
#ifndef VELD_TYPES_H
#define VELD_TYPES_H

#include <cstddef>
#include <cstdint>

typedef std::int8_t VELDInt8;
typedef std::int16_t VELDInt16;
typedef std::int32_t VELDInt32;
typedef std::int64_t VELDInt64;
typedef std::uint8_t VELDUInt8;
typedef std::uint16_t VELDUInt16;
typedef std::uint32_t VELDUInt32;
typedef std::uint64_t VELDUInt64;
typedef float VELDFloat32;
typedef double VELDFloat64;

// Microseconds, signed. A timestamp is a point on the engine's clock, a delay
// a duration on it.
typedef long VELDTimestamp;
typedef long VELDDelay;

// A type bit in the low 32 bits and flag bits at the top.
typedef VELDUInt64 VELDTypeInfoValue;

// Symbols that a package exports to its host; everything else stays hidden.
#define VELD_EXPORT __attribute__((visibility("default")))
// Data that must stay in the binary although no code reads it.
#define VELD_USED __attribute__((used))

static_assert(sizeof(long) == 8, "the framework targets LP64 systems");

#endif
