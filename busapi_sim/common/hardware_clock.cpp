#include "hardware_clock.h"

#include <ctime>

namespace nxsim {

int64_t MonotonicNs()
{
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

uint64_t HardwareClock::TicksAt(int64_t monoNs) const
{
    const __int128 ns = static_cast<__int128>(monoNs) + m_offsetNs;
    if (ns <= 0)
        return 0;
    return static_cast<uint64_t>(ns * m_resolution / 1000000000);
}

int64_t HardwareClock::MonoNsAt(int64_t ticks) const
{
    // Round up, so that the clock read at the returned time shows `ticks`.
    const __int128 scaled = static_cast<__int128>(ticks) * 1000000000;
    __int128 ns = scaled / static_cast<__int128>(m_resolution);
    if (scaled > 0 && scaled % static_cast<__int128>(m_resolution) != 0)
        ++ns;
    return static_cast<int64_t>(ns - m_offsetNs);
}

}  // namespace nxsim
