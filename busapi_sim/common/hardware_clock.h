// The simulated hardware clock: CLOCK_MONOTONIC shifted by an offset and
// counted in ticks of a configurable resolution. The CAN and the Ethernet
// library count on the same clock, so that their frames share one timebase.
#pragma once

#include <cstdint>

namespace nxsim {

int64_t MonotonicNs();

class HardwareClock {
public:
    explicit HardwareClock(uint64_t resolutionHz = 80000000, int64_t offsetNs = 0)
        : m_resolution(resolutionHz), m_offsetNs(offsetNs)
    {
    }

    uint64_t Resolution() const { return m_resolution; }
    int64_t OffsetNs() const { return m_offsetNs; }

    // ticks = (monoNs + offset) * resolution / 1e9, 0 before the epoch.
    uint64_t TicksAt(int64_t monoNs) const;
    // The earliest monotonic time at which the clock shows `ticks`.
    int64_t MonoNsAt(int64_t ticks) const;
    uint64_t NowTicks() const { return TicksAt(MonotonicNs()); }

private:
    uint64_t m_resolution;
    int64_t m_offsetNs;
};

}  // namespace nxsim
