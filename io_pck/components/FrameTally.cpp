#include "FrameTally.h"

#include <algorithm>
#include <cstdio>
#include <string>

#include "ModelTables.h"

namespace veldor_io {

std::vector<VELDPropertyDefinition> FrameTally::Properties(std::initializer_list<VELDPropertyDefinition> more)
{
    std::vector<VELDPropertyDefinition> table = {Setting("csv", new VELDPropertyValue("")),
                                                 Setting("capacity", new VELDPropertyValue(VELDInt64(1000000))),
                                                 Figure("frames"),
                                                 Figure("elements"),
                                                 Figure("lost"),
                                                 Figure("disordered"),
                                                 Figure("first_arrival", "us"),
                                                 Figure("last_arrival", "us"),
                                                 Figure("latency_p50", "us"),
                                                 Figure("latency_p99", "us"),
                                                 Figure("latency_max", "us")};
    table.insert(table.end(), more.begin(), more.end());
    table.emplace_back();
    return table;
}

void FrameTally::Birth(VELDModule& module)
{
    const VELDInt64 capacity = module.GetIntegerProperty("capacity");
    m_records.clear();
    m_records.reserve(static_cast<std::size_t>(capacity > 0 ? capacity : 0));
    m_frames = m_elements = m_lost = m_disordered = 0;
    m_expected = -1;
    m_lastArrival = m_nextPublication = 0;
    for (const char* figure : {"frames", "elements", "lost", "disordered", "first_arrival", "last_arrival",
                               "latency_p50", "latency_p99", "latency_max"})
        module.DirectSet(module.Property(figure), VELDInt64(0));
}

bool FrameTally::Element(VELDModule& module, int frames, VELDTimestamp arrival)
{
    if (m_frames == 0 && frames > 0) module.DirectSet(module.Property("first_arrival"), VELDInt64(arrival));
    m_frames += frames;
    ++m_elements;
    m_lastArrival = arrival;
    module.DirectSet(module.Property("frames"), m_frames);
    // The other figures follow at most every 10 ms: each one written costs
    // a lock.
    if (arrival < m_nextPublication) return false;
    Publish(module);
    m_nextPublication = arrival + 10000;
    return true;
}

void FrameTally::Publish(VELDModule& module)
{
    module.DirectSet(module.Property("last_arrival"), VELDInt64(m_lastArrival));
    module.DirectSet(module.Property("lost"), m_lost);
    module.DirectSet(module.Property("disordered"), m_disordered);
    module.DirectSet(module.Property("elements"), m_elements);
    module.DirectSet(module.Property("frames"), m_frames);
}

void FrameTally::Death(VELDModule& module)
{
    Publish(module);
    std::vector<VELDInt64> latencies;
    latencies.reserve(m_records.size());
    for (const Record& r : m_records) latencies.push_back(r.arrival - r.frameTime);
    std::sort(latencies.begin(), latencies.end());
    auto at = [&](double q) {
        if (latencies.empty()) return VELDInt64(0);
        return latencies[static_cast<std::size_t>(q * static_cast<double>(latencies.size() - 1))];
    };
    module.DirectSet(module.Property("latency_p50"), at(0.50));
    module.DirectSet(module.Property("latency_p99"), at(0.99));
    module.DirectSet(module.Property("latency_max"), latencies.empty() ? VELDInt64(0) : latencies.back());

    const VELDString path = module.GetStringProperty("csv");
    if (path.Length() == 0) return;
    std::FILE* file = std::fopen(path.Beginning(), "w");
    if (!file) {
        module.ReportError((std::string("Cannot write to ") + path.Beginning()).c_str(), 0);
        return;
    }
    for (const Record& r : m_records)
        std::fprintf(file, "%lld,%lld,%lld\n", static_cast<long long>(r.counter), static_cast<long long>(r.frameTime),
                     static_cast<long long>(r.arrival));
    std::fclose(file);
}

}  // namespace veldor_io
