#include "can_log/TimeGaps.h"

namespace veldor::canlog {

TimeGaps::Change TimeGaps::Apply(std::int64_t& time)
{
    const std::int64_t recorded = time;
    Change change = Change::None;
    if (m_started && m_maxGap > 0) {
        m_lastGap = recorded - m_previous;
        if (m_lastGap > m_maxGap) {
            m_shift += m_lastGap - m_maxGap;
            change = Change::Shortened;
        } else if (m_lastGap < -m_maxGap) {
            m_shift += m_lastGap;
            change = Change::LeaptBack;
        }
    }
    m_started = true;
    m_previous = recorded;
    if (change != Change::None) ++m_changed;
    time = recorded - m_shift;
    return change;
}

void TimeGaps::Restart()
{
    m_started = false;
    m_previous = m_shift = m_lastGap = 0;
    m_changed = 0;
}

}  // namespace veldor::canlog
