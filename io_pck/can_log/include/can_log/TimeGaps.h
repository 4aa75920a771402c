// Long gaps of a recording, shortened for a replay. A frame more than
// `maxGap` after the one before comes `maxGap` after it; a frame more than
// `maxGap` before it (the clock leapt back, as when a file mixes times of
// two clocks: seconds since the epoch among seconds since the start) comes
// right after it. Every other gap stays as it is, and the frames keep their
// order; later frames move with the ones before them.
#ifndef VELDOR_CAN_LOG_TIME_GAPS_H
#define VELDOR_CAN_LOG_TIME_GAPS_H

#include <cstdint>

#include "can_log/CanFrame.h"

namespace veldor::canlog {

class TimeGaps {
public:
    enum class Change { None, Shortened, LeaptBack };

    // Microseconds; 0 leaves every gap as it is.
    explicit TimeGaps(std::int64_t maxGap = 0) : m_maxGap(maxGap) {}

    // Moves the frame's time by what was taken out before it, and more if
    // its own gap is too long.
    Change Apply(CanFrame& frame) { return Apply(frame.timestamp); }
    // The same for a time of any frame, in microseconds.
    Change Apply(std::int64_t& time);
    // The gap before the last frame as the file has it.
    std::int64_t LastGap() const { return m_lastGap; }
    std::uint64_t Changed() const { return m_changed; }
    std::int64_t MaxGap() const { return m_maxGap; }
    // From the first frame again.
    void Restart();

private:
    std::int64_t m_maxGap;
    bool m_started = false;
    std::int64_t m_previous = 0;  // the time of the frame before, as the file has it
    std::int64_t m_shift = 0;     // taken out of the times so far
    std::int64_t m_lastGap = 0;
    std::uint64_t m_changed = 0;
};

}  // namespace veldor::canlog

#endif
