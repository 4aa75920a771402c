// A recording of a bus kept busy a given share of the time: classic,
// extended and CAN FD frames in turn, of about the same length on the bus
// (at 500 kbit/s and 2 Mbit/s), each stamped at its start and spaced
// so that no frame would have to wait for the one before it, even when a
// replay starts each frame at its recorded time. Frame k
// carries k in its first four bytes (little-endian), then (k + i) & 0xFF.
#ifndef VELDOR_TOOLS_LOADED_BUS_H
#define VELDOR_TOOLS_LOADED_BUS_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "BusTiming.h"
#include "can_log/CanFrame.h"

namespace veldor::sample {

// How long a frame holds the bus, in nanoseconds: by its actual bits
// (TimeOnBus), or as a bus simulator reckons it.
typedef std::function<std::int64_t(const canlog::CanFrame&)> FrameDuration;
FrameDuration ActualDuration(const BusRates& rates);

// `load` in (0, 1): the time the frames hold the bus over the time they
// span. The first frame starts at `start` (microseconds).
std::vector<canlog::CanFrame> LoadedBus(std::size_t count, double load, const FrameDuration& held,
                                        std::int64_t start);

// The share of the time from the first frame's end to the last one's that
// the frames after the first hold the bus.
double BusLoad(const std::vector<canlog::CanFrame>& frames, const FrameDuration& held);

}  // namespace veldor::sample

#endif
