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

// splitmix64: the same numbers from every standard library.
class Random {
public:
    explicit Random(std::uint64_t seed) : m_state(seed) {}
    std::uint64_t Next()
    {
        std::uint64_t z = (m_state += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }
    // Uniform in [low, high].
    std::int64_t Between(std::int64_t low, std::int64_t high)
    {
        return low + static_cast<std::int64_t>(Next() % static_cast<std::uint64_t>(high - low + 1));
    }

private:
    std::uint64_t m_state;
};

// The car at one moment of the drive, which every bus of it tells about.
struct Vehicle {
    double seconds = 0;
    double speed = 0;         // km/h
    double acceleration = 0;  // m/s^2
    double rpm = 0;
    int gear = 0;
    double pedal = 0;  // %
    double brake = 0;  // bar
    double steering = 0;  // degrees
    double odometer = 48213.7;  // km
};
Vehicle VehicleAt(double seconds);

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

// The frames in the order they left the bus, time-stamped at their start.
std::vector<canlog::CanFrame> SimulateDrive(const DriveSettings& settings, DriveStats& stats);

}  // namespace veldor::sample

#endif
