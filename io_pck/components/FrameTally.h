// What the statistics components count, CAN and Ethernet alike, from the
// frames of a generator: their counters tell frames lost on the way and
// frames out of order. The latency of a frame is the engine's time when the
// component's read returned, minus the frame's time.
//
// Settings: csv (a file to get, when the component stops, one line per frame
// "counter,frame_time,arrival") and capacity (how many frames are measured).
// Figures: frames, at once; brought up to date every 10 ms and when the
// component stops: elements, lost (counters skipped), disordered (a counter
// not above the one before), first_arrival and last_arrival (engine time);
// once it stops, latency_p50, latency_p99 and latency_max.
#ifndef VELDOR_IO_FRAME_TALLY_H
#define VELDOR_IO_FRAME_TALLY_H

#include <cstdint>
#include <initializer_list>
#include <vector>

#include "veld_definitions.h"
#include "veld_types.h"

class VELDModule;

namespace veldor_io {

class FrameTally {
public:
    // The tally's settings and figures, then the model's own `more`, then
    // the end of the table.
    static std::vector<VELDPropertyDefinition> Properties(std::initializer_list<VELDPropertyDefinition> more = {});

    void Birth(VELDModule& module);
    // One frame; counters are 32 bits wide and may wrap.
    void Frame(std::uint32_t counter, VELDTimestamp frameTime, VELDTimestamp arrival)
    {
        const VELDInt64 value =
            m_expected < 0 ? counter
                           : m_expected + static_cast<std::int32_t>(counter - static_cast<std::uint32_t>(m_expected));
        if (m_expected >= 0 && value > m_expected) m_lost += value - m_expected;
        if (m_expected >= 0 && value < m_expected) ++m_disordered;
        m_expected = value + 1;
        if (m_records.size() < m_records.capacity()) m_records.push_back({value, frameTime, arrival});
    }
    // After the `frames` frames of one element; true when the figures other
    // than frames were brought up to date.
    bool Element(VELDModule& module, int frames, VELDTimestamp arrival);
    // The last figures, the latencies and the csv file.
    void Death(VELDModule& module);

private:
    void Publish(VELDModule& module);

    struct Record {
        VELDInt64 counter;
        VELDTimestamp frameTime;
        VELDTimestamp arrival;
    };

    std::vector<Record> m_records;
    VELDInt64 m_frames = 0;
    VELDInt64 m_elements = 0;
    VELDInt64 m_lost = 0;
    VELDInt64 m_disordered = 0;
    VELDInt64 m_expected = -1;
    VELDTimestamp m_lastArrival = 0;
    VELDTimestamp m_nextPublication = 0;
};

}  // namespace veldor_io

#endif
