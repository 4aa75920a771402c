// How long a frame holds a CAN or CAN FD bus: its bits, with the stuff
// bits that its actual content needs, at the arbitration and data rates.
#ifndef VELDOR_TOOLS_BUS_TIMING_H
#define VELDOR_TOOLS_BUS_TIMING_H

#include <cstdint>
#include <deque>
#include <utility>

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

// The busiest stretch of a stream of frames: the most bus time that the
// frames due within any window of a given length need, as a share of the
// window (1 is a bus that is never idle, above 1 more than it can carry).
class BusLoadPeak {
public:
    BusLoadPeak(const BusRates& rates, std::int64_t windowMicros) : m_rates(rates), m_window(windowMicros) {}
    // A frame due at `due` microseconds; frames come in time order.
    void Add(std::int64_t due, const canlog::CanFrame& frame);
    double Peak() const;
    // When the busiest window ends.
    std::int64_t PeakEnd() const { return m_peakEnd; }

private:
    BusRates m_rates;
    std::int64_t m_window;
    std::deque<std::pair<std::int64_t, std::int64_t>> m_inWindow;  // due, nanoseconds on the bus
    std::int64_t m_busy = 0;                                        // nanoseconds, of those in the window
    std::int64_t m_peak = 0;
    std::int64_t m_peakEnd = 0;
};

}  // namespace veldor::sample

#endif
