// What the file players share to follow the engine's clock.
#ifndef VELDOR_IO_ENGINE_PACE_H
#define VELDOR_IO_ENGINE_PACE_H

#include <algorithm>
#include <cstdlib>

#include "veld.h"

namespace veldor_io {

// How long, in ms, a player that saw the clock leap waits for the clock's
// word of the jump.
const long kJumpWordWait = 200;

// Tells a leap of the engine's clock between two readings: more engine time
// passed than real time at the faster of the two speeds allows. The clock
// tells of a jump on the host's time thread, a moment after the jump; a
// player whose wait ended because the clock leapt forward must not hand on
// what the leap passes over in that moment.
class LeapWatch {
public:
    void Restart() { m_has = false; }

    // Reads the engine's time into `engineNow`; true when the clock leapt
    // since the last reading.
    bool Leapt(VELDTimestamp& engineNow)
    {
        // Real time is read before and after the engine's, and the span
        // between two readings runs from the earlier real time of the last
        // one to the later of this one: a preempted reading widens the span
        // and never makes a leap out of nothing.
        const VELDTimestamp realBefore = VELD::GetSystemAccurateTiming();
        engineNow = VELD::CurrentTime(true, true);
        const VELDTimestamp realAfter = VELD::GetSystemAccurateTiming();
        const int speed = std::abs(VELD::TimeSpeed());
        const bool leapt =
            m_has && engineNow - m_engine > (realAfter - m_realBefore) * std::max(speed, m_speed) / 1000 + kTolerance;
        m_has = true;
        m_engine = engineNow;
        m_realBefore = realBefore;
        m_speed = speed;
        return leapt;
    }

private:
    static constexpr VELDTimestamp kTolerance = 2000;
    bool m_has = false;
    VELDTimestamp m_engine = 0;
    VELDTimestamp m_realBefore = 0;
    int m_speed = 1000;
};

}  // namespace veldor_io

#endif
