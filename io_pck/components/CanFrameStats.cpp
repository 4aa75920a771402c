// CanFrameStats: counts the CAN frames that reach it and measures how late
// they come. Made for the frames of a CanGenerator: their counters tell
// frames lost on the way and frames out of order. The latency of a frame is
// the engine's time when the component's read returned, minus the frame's
// time; it means the time from the frame's reception by the hardware to its
// arrival here when the frames carry hardware time on the engine's clock.
//
// Figures: frames, at once; brought up to date every 10 ms and when the
// component stops: elements, lost (counters skipped), disordered (a counter not above
// the one before), first_arrival and last_arrival (engine time); once it
// stops, latency_p50, latency_p99 and latency_max.
// With `csv` set, one line per frame "counter,frame_time,arrival" goes to
// that file when the component stops; up to `capacity` frames are measured.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "CanRecords.h"
#include "ModelTables.h"
#include "veld_io_elt.h"

namespace veldor_io {
namespace {

class CanFrameStats : public VELDModel<CanFrameStats> {
public:
    using VELDModel::VELDModel;

    void Birth() override
    {
        const VELDInt64 capacity = GetIntegerProperty("capacity");
        m_records.clear();
        m_records.reserve(static_cast<std::size_t>(capacity > 0 ? capacity : 0));
        m_frames = m_elements = m_lost = m_disordered = 0;
        m_expected = -1;
        m_lastArrival = m_nextPublication = 0;
        for (const char* figure : {"frames", "elements", "lost", "disordered", "first_arrival", "last_arrival",
                                   "latency_p50", "latency_p99", "latency_max"})
            DirectSet(Property(figure), VELDInt64(0));
    }

    void Core() override
    {
        VELDInput& input = Input(0);
        VELDIOElt* element = StartReading(input);
        if (!element) return;
        const VELDTimestamp arrival = VELD::CurrentTime(true, true);
        const int kind = KindOf(*element);
        const int n = kind < 0 ? 0 : element->VectorSize();
        for (int i = 0; i < n; ++i) {
            const FrameView frame = ViewOf(*element, kind, i);
            const VELDInt64 counter = CounterOf(frame);
            if (m_expected >= 0 && counter > m_expected) m_lost += counter - m_expected;
            if (m_expected >= 0 && counter < m_expected) ++m_disordered;
            m_expected = counter + 1;
            if (m_records.size() < m_records.capacity()) m_records.push_back({counter, frame.ts, arrival});
        }
        StopReading(input);
        if (m_frames == 0 && n > 0) DirectSet(Property("first_arrival"), VELDInt64(arrival));
        m_frames += n;
        ++m_elements;
        m_lastArrival = arrival;
        DirectSet(Property("frames"), m_frames);
        // The other figures follow at most every 10 ms: each one written
        // costs a lock.
        if (arrival >= m_nextPublication) {
            Publish();
            m_nextPublication = arrival + 10000;
        }
    }

    void Death() override
    {
        Publish();
        std::vector<VELDInt64> latencies;
        latencies.reserve(m_records.size());
        for (const Record& r : m_records) latencies.push_back(r.arrival - r.frameTime);
        std::sort(latencies.begin(), latencies.end());
        auto at = [&](double q) {
            if (latencies.empty()) return VELDInt64(0);
            return latencies[static_cast<std::size_t>(q * static_cast<double>(latencies.size() - 1))];
        };
        DirectSet(Property("latency_p50"), at(0.50));
        DirectSet(Property("latency_p99"), at(0.99));
        DirectSet(Property("latency_max"), latencies.empty() ? VELDInt64(0) : latencies.back());

        const VELDString path = GetStringProperty("csv");
        if (path.Length() == 0) return;
        std::FILE* file = std::fopen(path.Beginning(), "w");
        if (!file) {
            ReportError((std::string("Cannot write to ") + path.Beginning()).c_str(), 0);
            return;
        }
        for (const Record& r : m_records)
            std::fprintf(file, "%lld,%lld,%lld\n", static_cast<long long>(r.counter),
                         static_cast<long long>(r.frameTime), static_cast<long long>(r.arrival));
        std::fclose(file);
    }

private:
    void Publish()
    {
        DirectSet(Property("last_arrival"), VELDInt64(m_lastArrival));
        DirectSet(Property("lost"), m_lost);
        DirectSet(Property("disordered"), m_disordered);
        DirectSet(Property("elements"), m_elements);
        DirectSet(Property("frames"), m_frames);
    }

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

VELDInputDefinition g_inputs[] = {CanInput("iCAN"), VELDInputDefinition{nullptr, 0, nullptr, 0, 0}};
VELDPropertyDefinition g_properties[] = {Setting("csv", new VELDPropertyValue("")),
                                         Setting("capacity", new VELDPropertyValue(VELDInt64(1000000))),
                                         Figure("frames"),
                                         Figure("elements"),
                                         Figure("lost"),
                                         Figure("disordered"),
                                         Figure("first_arrival", "us"),
                                         Figure("last_arrival", "us"),
                                         Figure("latency_p50", "us"),
                                         Figure("latency_p99", "us"),
                                         Figure("latency_max", "us"),
                                         VELDPropertyDefinition()};

}  // namespace
}  // namespace veldor_io

VELDComponentDefinition CanFrameStatsDefinition = veldor_io::Define<veldor_io::CanFrameStats>(
    "CanFrameStats", "1.0.0", veldor_io::g_inputs, nullptr, veldor_io::g_properties);
VELD_DECLARE_MODEL(veldor_io::CanFrameStats, CanFrameStatsDefinition, "CanFrameStats", "1.0.0");
