#include "LogComparison.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "BusTiming.h"
#include "can_log/LogFiles.h"
#include "can_log/TimeGaps.h"

namespace veldor::cli {

using veldor::canlog::CanFrame;
using veldor::canlog::ReadResult;

namespace {

// Calls `use` with each frame of the file.
template <class Use>
bool EachFrame(const std::string& path, std::string* error, Use use)
{
    std::unique_ptr<veldor::canlog::FrameReader> reader = veldor::canlog::OpenFrameReader(path, *error);
    if (!reader) return false;
    CanFrame frame;
    for (ReadResult r; (r = reader->Next(frame)) != ReadResult::End;)
        if (r == ReadResult::Frame) use(frame);
    return true;
}

std::string Describe(const CanFrame& f)
{
    char text[64];
    std::snprintf(text, sizeof text, "%s%X [%u]%s%s%s", f.extended ? "x" : "", f.id, f.length, f.fd ? " FD" : "",
                  f.bitRateSwitch ? " BRS" : "", f.remote ? " RTR" : "");
    return text;
}

}  // namespace

bool Summarize(const std::string& path, LogSummary* summary, std::string* error, const SummaryOptions& options)
{
    *summary = LogSummary();
    veldor::canlog::TimeGaps gaps(options.maxGap);
    veldor::sample::BusRates rates;
    rates.arbitration = static_cast<std::uint32_t>(options.bitRate);
    rates.data = static_cast<std::uint32_t>(options.dataBitRate > 0 ? options.dataBitRate : options.bitRate);
    // The busiest second in real time: a second at the replay's speed.
    veldor::sample::BusLoadPeak load(rates, 1000000);
    const bool measure = options.bitRate > 0 && options.speed > 0;
    const bool ok = EachFrame(path, error, [&](CanFrame frame) {
        gaps.Apply(frame);
        if (summary->frames++ == 0) summary->first = frame.timestamp;
        summary->last = frame.timestamp;
        summary->fd = summary->fd || frame.fd;
        if (measure)
            load.Add(static_cast<std::int64_t>(static_cast<double>(frame.timestamp - summary->first) / options.speed), frame);
    });
    summary->gapsShortened = gaps.Changed();
    summary->peakLoad = load.Peak();
    summary->peakEnd = static_cast<double>(load.PeakEnd()) / 1e6;
    return ok;
}

bool ReadFrames(const std::string& path, std::vector<CanFrame>* frames, std::string* error)
{
    frames->clear();
    return EachFrame(path, error, [frames](const CanFrame& frame) { frames->push_back(frame); });
}

ErrorFigures Figures(std::vector<double> errors)
{
    ErrorFigures figures;
    if (errors.empty()) return figures;
    for (double& e : errors) e = std::fabs(e);
    std::sort(errors.begin(), errors.end());
    const std::size_t n = errors.size();
    figures.p50 = errors[(n - 1) / 2];
    figures.p99 = errors[static_cast<std::size_t>(std::ceil(0.99 * static_cast<double>(n))) - 1];
    figures.p999 = errors[static_cast<std::size_t>(std::ceil(0.999 * static_cast<double>(n))) - 1];
    figures.max = errors.back();
    return figures;
}

bool SameContent(const CanFrame& a, const CanFrame& b)
{
    if (a.id != b.id || a.extended != b.extended || a.remote != b.remote || a.fd != b.fd ||
        a.bitRateSwitch != b.bitRateSwitch || a.length != b.length)
        return false;
    return a.remote || std::equal(a.data.begin(), a.data.begin() + a.length, b.data.begin());
}

Comparison Compare(const std::vector<CanFrame>& original, const std::vector<CanFrame>& recording)
{
    Comparison c;
    c.originalFrames = original.size();
    c.recordedFrames = recording.size();
    const std::size_t n = std::min(original.size(), recording.size());
    std::vector<double> relative;
    std::vector<double> gaps;
    for (std::size_t k = 0; k < n; ++k) {
        if (!SameContent(original[k], recording[k]) && c.differing++ == 0)
            c.firstDifference = "frame " + std::to_string(k + 1) + ": " + Describe(recording[k]) + " where " +
                                Describe(original[k]) + " was";
        relative.push_back(static_cast<double>((recording[k].timestamp - recording[0].timestamp) -
                                               (original[k].timestamp - original[0].timestamp)));
        if (k > 0)
            gaps.push_back(static_cast<double>((recording[k].timestamp - recording[k - 1].timestamp) -
                                               (original[k].timestamp - original[k - 1].timestamp)));
    }
    c.relativeToFirst = Figures(relative);
    c.gaps = Figures(gaps);
    return c;
}

void Print(const Comparison& c, std::FILE* out)
{
    std::fprintf(out, "  frames     %zu recorded, %zu in the original%s\n", c.recordedFrames, c.originalFrames,
                 c.recordedFrames == c.originalFrames ? "" : "  <- NOT THE SAME COUNT");
    if (c.differing == 0)
        std::fprintf(out, "  content    identical, frame for frame (identifier, extended, remote, FD, BRS, data)\n");
    else
        std::fprintf(out, "  content    %zu frames differ; first: %s\n", c.differing, c.firstDifference.c_str());
    std::fprintf(out,
                 "  timing     error of each frame's time relative to the first: p50 %.0f us, p99 %.0f us, "
                 "p99.9 %.0f us, max %.0f us\n",
                 c.relativeToFirst.p50, c.relativeToFirst.p99, c.relativeToFirst.p999, c.relativeToFirst.max);
    std::fprintf(out,
                 "             error of the gap to the frame before:             p50 %.0f us, p99 %.0f us, "
                 "p99.9 %.0f us, max %.0f us\n",
                 c.gaps.p50, c.gaps.p99, c.gaps.p999, c.gaps.max);
}

}  // namespace veldor::cli
