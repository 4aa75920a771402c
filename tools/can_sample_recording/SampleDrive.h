// A deterministic recording of a vehicle bus: a short drive (idle, pull
// away, cruise, brake) seen on one 500 kbit/s CAN FD bus with 2 Mbit/s data
// phase. Periodic messages of 10 to 1000 ms with task jitter and clock
// drift of their senders, arbitration by identifier when several are ready,
// counters and CRCs in the protected messages, a tester's request with the
// answer a moment later.
#ifndef VELDOR_TOOLS_SAMPLE_DRIVE_H
#define VELDOR_TOOLS_SAMPLE_DRIVE_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "BusTiming.h"
#include "can_log/CanFrame.h"

namespace veldor::sample {

struct DriveSettings {
    std::int64_t start = 1717402500000000;  // 2024-06-03 08:15:00 UTC, in microseconds
    std::int64_t duration = 20000000;       // microseconds
    std::uint64_t seed = 1;
    BusRates rates;
};

struct DriveStats {
    std::size_t frames = 0;
    std::size_t extended = 0;
    std::size_t fd = 0;
    std::size_t bitRateSwitch = 0;
    std::size_t transmitted = 0;  // Tx frames: the tester's requests
    double meanLoad = 0;          // share of the time the bus is busy
    double peakLoad = 0;          // the same in the busiest 100 ms
};

// The frames in the order they left the bus, time-stamped at their end.
std::vector<canlog::CanFrame> SimulateDrive(const DriveSettings& settings, DriveStats& stats);

}  // namespace veldor::sample

#endif
