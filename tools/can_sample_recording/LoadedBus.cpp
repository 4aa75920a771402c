#include "LoadedBus.h"

#include <algorithm>

namespace veldor::sample {

namespace {

canlog::CanFrame Frame(std::size_t k)
{
    canlog::CanFrame f;
    switch (k % 3) {
    case 0:
        f.id = 0x100 + static_cast<std::uint32_t>(k % 16);
        f.length = 8;
        break;
    case 1:
        f.id = 0x18FF0000 + static_cast<std::uint32_t>(k % 16);
        f.extended = true;
        f.length = 4;
        break;
    default:
        f.id = 0x200 + static_cast<std::uint32_t>(k % 16);
        f.fd = true;
        f.bitRateSwitch = true;
        f.length = 48;
        break;
    }
    for (std::size_t i = 0; i < f.length; ++i)
        f.data[i] = static_cast<std::uint8_t>(i < 4 ? (k >> (8 * i)) : (k + i));
    return f;
}

}  // namespace

FrameDuration ActualDuration(const BusRates& rates)
{
    return [rates](const canlog::CanFrame& frame) { return TimeOnBus(frame, rates).nanoseconds; };
}

std::vector<canlog::CanFrame> LoadedBus(std::size_t count, double load, const FrameDuration& duration,
                                        std::int64_t start)
{
    std::vector<canlog::CanFrame> frames;
    std::vector<std::int64_t> held;  // nanoseconds on the bus
    double busy = 0;
    double spaced = 0;
    for (std::size_t k = 0; k < count; ++k) {
        frames.push_back(Frame(k));
        held.push_back(duration(frames.back()));
        if (k > 0) {
            busy += static_cast<double>(held[k]);
            spaced += static_cast<double>(std::max(held[k], held[k - 1]));
        }
    }
    // A frame starts once the one before has ended, at the latest: each gap
    // is the longer of the two frames, stretched so that the whole comes to
    // the load asked for.
    const double stretch = spaced > 0 ? busy / spaced / load : 1;
    double t = static_cast<double>(start) * 1000;
    for (std::size_t k = 0; k < count; ++k) {
        if (k > 0) t += static_cast<double>(std::max(held[k], held[k - 1])) * stretch;
        frames[k].timestamp = static_cast<std::int64_t>(t / 1000);
    }
    return frames;
}

double BusLoad(const std::vector<canlog::CanFrame>& frames, const FrameDuration& held)
{
    if (frames.size() < 2) return 0;
    double busy = 0;
    for (std::size_t k = 1; k < frames.size(); ++k) busy += static_cast<double>(held(frames[k]));
    return busy / 1000 / static_cast<double>(frames.back().timestamp - frames.front().timestamp);
}

}  // namespace veldor::sample
