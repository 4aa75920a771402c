// How long a frame holds a CAN or CAN FD bus: its bits, with the stuff
// bits that its actual content needs, at the arbitration and data rates.
#ifndef VELDOR_TOOLS_BUS_TIMING_H
#define VELDOR_TOOLS_BUS_TIMING_H

#include <cstdint>

#include "can_log/CanFrame.h"

namespace veldor::sample {

struct BusRates {
    std::uint32_t arbitration = 500000;  // bit/s
    std::uint32_t data = 2000000;        // bit/s, FD frames with bit rate switch
};

struct FrameTime {
    std::uint32_t arbitrationBits = 0;  // at the arbitration rate, interframe space included
    std::uint32_t dataBits = 0;         // at the data rate
    std::int64_t nanoseconds = 0;
};

FrameTime TimeOnBus(const canlog::CanFrame& frame, const BusRates& rates);

}  // namespace veldor::sample

#endif
