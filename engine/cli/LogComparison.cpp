#include "LogComparison.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <map>
#include <memory>

#include "BusTiming.h"
#include "can_log/LogFiles.h"
#include "can_log/TimeGaps.h"
#include "pcap_log/PacketReader.h"

namespace veldor::cli {

using veldor::canlog::CanFrame;
using veldor::canlog::ReadResult;

namespace {

// Calls `use(summary of its source, frame)` with each frame of the file, in
// file order, and leaves in `sources` every source the file declares, and in
// `unreadable` why a capture file can't be read to its end.
template <class Use>
bool EachFrame(const std::string& path, std::vector<SourceSummary>* sources, std::string* unreadable, std::string* error,
               Use use)
{
    sources->clear();
    const FileKindInfo* file = FileKindOf(path);
    if (file && file->kind == FileKind::CanLog) {
        std::unique_ptr<veldor::canlog::FrameReader> reader = veldor::canlog::OpenFrameReader(path, *error);
        if (!reader) return false;
        sources->push_back(SourceSummary());
        BusFrame frame;
        frame.can = true;
        for (ReadResult r; (r = reader->Next(frame.canFrame)) != ReadResult::End;) {
            if (r != ReadResult::Frame) continue;
            frame.time = frame.canFrame.timestamp * 1000;
            use(sources->front(), frame);
        }
        return true;
    }
    // Anything else is read as a capture file, which the reader tells by
    // its content.
    std::unique_ptr<veldor::pcaplog::PacketReader> reader = veldor::pcaplog::OpenPacketReader(path, *error);
    if (!reader) return false;
    std::map<std::uint32_t, SourceSummary> byInterface;
    auto sourceOf = [&](std::uint32_t index) -> SourceSummary& {
        auto it = byInterface.find(index);
        if (it != byInterface.end()) return it->second;
        const veldor::pcaplog::Interface& i = reader->InterfaceAt(index);
        SourceSummary s;
        s.name = i.name;
        s.index = index;
        s.kind = i.Kind() == veldor::pcaplog::LinkKind::Can ? BusKind::Can : BusKind::Ethernet;
        return byInterface.emplace(index, s).first->second;
    };
    veldor::pcaplog::Packet packet;
    BusFrame frame;
    for (ReadResult r; (r = reader->Next(packet)) != ReadResult::End;) {
        if (r == ReadResult::Issue && reader->Issue().final && unreadable) *unreadable = reader->Issue().Describe();
        if (r != ReadResult::Frame) continue;
        SourceSummary& source = sourceOf(packet.interface);
        frame.time = packet.time;
        frame.can = source.kind == BusKind::Can;
        if (frame.can) frame.canFrame = packet.canFrame;
        else frame.bytes.assign(packet.data, packet.data + packet.capturedLength);
        use(source, frame);
    }
    for (const veldor::pcaplog::Interface& i : reader->Interfaces())
        if (i.Kind() != veldor::pcaplog::LinkKind::Other) sourceOf(i.index);
    for (auto& entry : byInterface) sources->push_back(entry.second);
    return true;
}

std::string Describe(const BusFrame& frame)
{
    if (!frame.can) return std::to_string(frame.bytes.size()) + " bytes";
    const CanFrame& f = frame.canFrame;
    char text[64];
    std::snprintf(text, sizeof text, "%s%X [%u]%s%s%s", f.extended ? "x" : "", f.id, f.length, f.fd ? " FD" : "",
                  f.bitRateSwitch ? " BRS" : "", f.remote ? " RTR" : "");
    return text;
}

std::string Difference(std::size_t k, const BusFrame& original, const BusFrame& recorded)
{
    std::string text = "frame " + std::to_string(k + 1) + ": " + Describe(recorded) + " where " + Describe(original) + " was";
    if (original.can || recorded.can) return text;
    const auto at = std::mismatch(original.bytes.begin(), original.bytes.end(), recorded.bytes.begin(), recorded.bytes.end());
    return text + ", first differing at byte " + std::to_string(at.first - original.bytes.begin());
}

}  // namespace

std::string SourceSummary::Label() const
{
    if (!name.empty()) return name;
    return kind == BusKind::Can && index == 0 ? "the file's frames" : "interface " + std::to_string(index);
}

bool SourceSummary::Named(const std::string& text) const
{
    if (!name.empty() && text == name) return true;
    return !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isdigit(c); }) &&
           std::strtoul(text.c_str(), nullptr, 10) == index;
}

const SourceSummary* LogSummary::Find(const std::string& name) const
{
    if (name.empty()) return sources.size() == 1 ? &sources.front() : nullptr;
    for (const SourceSummary& s : sources)
        if (s.Named(name)) return &s;
    return nullptr;
}

bool Summarize(const std::string& path, LogSummary* summary, std::string* error, const SummaryOptions& options)
{
    *summary = LogSummary();
    veldor::canlog::TimeGaps gaps(options.maxGap);
    veldor::sample::BusRates rates;
    rates.arbitration = static_cast<std::uint32_t>(options.bitRate);
    rates.data = static_cast<std::uint32_t>(options.dataBitRate > 0 ? options.dataBitRate : options.bitRate);
    // The busiest second of each CAN source in real time: a second at the
    // replay's speed.
    std::map<std::uint32_t, veldor::sample::BusLoadPeak> loads;  // by the source's index
    const bool measure = options.bitRate > 0 && options.speed > 0;
    std::vector<SourceSummary> sources;
    const bool ok = EachFrame(path, &sources, &summary->unreadable, error, [&](SourceSummary& source, BusFrame& frame) {
        // The times of all buses on one timeline, long gaps shortened as
        // the player does.
        CanFrame stamp;
        stamp.timestamp = frame.time / 1000;
        gaps.Apply(stamp);
        if (summary->frames++ == 0) summary->first = stamp.timestamp;
        summary->last = stamp.timestamp;
        ++source.frames;
        if (!frame.can) return;
        source.fd = source.fd || frame.canFrame.fd;
        if (measure) {
            auto load = loads.try_emplace(source.index, rates, 1000000).first;
            load->second.Add(static_cast<std::int64_t>(static_cast<double>(stamp.timestamp - summary->first) / options.speed),
                             frame.canFrame);
        }
    });
    // The sources' figures, in the summary's own copy of them.
    for (SourceSummary& source : sources) {
        const auto load = loads.find(source.index);
        if (load != loads.end()) {
            source.peakLoad = load->second.Peak();
            source.peakEnd = static_cast<double>(load->second.PeakEnd()) / 1e6;
        }
        summary->fd = summary->fd || source.fd;
        if (source.peakLoad > summary->peakLoad) {
            summary->peakLoad = source.peakLoad;
            summary->peakEnd = source.peakEnd;
        }
    }
    summary->sources = sources;
    summary->gapsShortened = gaps.Changed();
    return ok;
}

bool ReadSources(const std::string& path, std::vector<Source>* sources, std::string* error)
{
    std::map<std::uint32_t, std::vector<BusFrame>> frames;  // by the source's index
    std::vector<SourceSummary> summaries;
    const bool ok = EachFrame(path, &summaries, nullptr, error, [&frames](SourceSummary& source, BusFrame& frame) {
        ++source.frames;
        frames[source.index].push_back(frame);
    });
    sources->clear();
    for (SourceSummary& s : summaries) sources->push_back(Source{s, std::move(frames[s.index])});
    return ok;
}

bool ReadFrames(const std::string& path, std::vector<CanFrame>* frames, std::string* error)
{
    std::vector<SourceSummary> sources;
    frames->clear();
    return EachFrame(path, &sources, nullptr, error, [frames](SourceSummary&, BusFrame& frame) {
        if (frame.can) frames->push_back(frame.canFrame);
    });
}

ErrorFigures Figures(std::vector<double> errors)
{
    ErrorFigures figures;
    if (errors.empty()) return figures;
    for (double& e : errors) e = std::fabs(e);
    std::sort(errors.begin(), errors.end());
    const double n = static_cast<double>(errors.size());
    auto at = [&](double share) { return errors[static_cast<std::size_t>(std::ceil(share * n)) - 1]; };
    figures.p50 = errors[(errors.size() - 1) / 2];
    figures.p99 = at(0.99);
    figures.p999 = at(0.999);
    figures.max = errors.back();
    return figures;
}

bool SameContent(const BusFrame& x, const BusFrame& y)
{
    if (x.can != y.can) return false;
    if (!x.can) return x.bytes == y.bytes;
    const CanFrame& a = x.canFrame;
    const CanFrame& b = y.canFrame;
    if (a.id != b.id || a.extended != b.extended || a.remote != b.remote || a.fd != b.fd ||
        a.bitRateSwitch != b.bitRateSwitch || a.length != b.length)
        return false;
    return a.remote || std::equal(a.data.begin(), a.data.begin() + a.length, b.data.begin());
}

Comparison Compare(const std::vector<BusFrame>& original, const std::vector<BusFrame>& recording)
{
    Comparison c;
    c.originalFrames = original.size();
    c.recordedFrames = recording.size();
    const std::size_t n = std::min(original.size(), recording.size());
    std::vector<double> relative;
    std::vector<double> gaps;
    auto micros = [](std::int64_t ns) { return static_cast<double>(ns) / 1000; };
    for (std::size_t k = 0; k < n; ++k) {
        if (!SameContent(original[k], recording[k]) && c.differing++ == 0)
            c.firstDifference = Difference(k, original[k], recording[k]);
        relative.push_back(micros((recording[k].time - recording[0].time) - (original[k].time - original[0].time)));
        if (k > 0)
            gaps.push_back(micros((recording[k].time - recording[k - 1].time) - (original[k].time - original[k - 1].time)));
    }
    c.relativeToFirst = Figures(relative);
    c.gaps = Figures(gaps);
    return c;
}

Comparison Compare(const std::vector<CanFrame>& original, const std::vector<CanFrame>& recording)
{
    auto wrap = [](const std::vector<CanFrame>& frames) {
        std::vector<BusFrame> wrapped(frames.size());
        for (std::size_t k = 0; k < frames.size(); ++k) {
            wrapped[k].can = true;
            wrapped[k].canFrame = frames[k];
            wrapped[k].time = frames[k].timestamp * 1000;
        }
        return wrapped;
    };
    return Compare(wrap(original), wrap(recording));
}

ErrorFigures Stray(const std::vector<BusFrame>& originalA, const std::vector<BusFrame>& recordingA,
                   const std::vector<BusFrame>& originalB, const std::vector<BusFrame>& recordingB)
{
    std::vector<double> stray;
    const std::size_t nA = std::min(originalA.size(), recordingA.size());
    const std::size_t nB = std::min(originalB.size(), recordingB.size());
    if (nB == 0) return ErrorFigures();
    std::size_t j = 0;
    for (std::size_t k = 0; k < nA; ++k) {
        const std::int64_t t = originalA[k].time;
        // Both buses' frames come in time order: the nearest moves on.
        while (j + 1 < nB && std::llabs(originalB[j + 1].time - t) <= std::llabs(originalB[j].time - t)) ++j;
        const std::int64_t recorded = recordingA[k].time - recordingB[j].time;
        const std::int64_t original = t - originalB[j].time;
        stray.push_back(static_cast<double>(recorded - original) / 1000);
    }
    return Figures(stray);
}

void Print(const Comparison& c, std::FILE* out, const char* indent)
{
    std::fprintf(out, "%sframes     %zu recorded, %zu in the original%s\n", indent, c.recordedFrames, c.originalFrames,
                 c.recordedFrames == c.originalFrames ? "" : "  <- NOT THE SAME COUNT");
    if (c.differing == 0)
        std::fprintf(out, "%scontent    identical, frame for frame\n", indent);
    else
        std::fprintf(out, "%scontent    %zu frames differ; first: %s\n", indent, c.differing, c.firstDifference.c_str());
    std::fprintf(out,
                 "%stiming     error of each frame's time relative to the first: p50 %.0f us, p99 %.0f us, "
                 "p99.9 %.0f us, max %.0f us\n",
                 indent, c.relativeToFirst.p50, c.relativeToFirst.p99, c.relativeToFirst.p999, c.relativeToFirst.max);
    std::fprintf(out,
                 "%s           error of the gap to the frame before:             p50 %.0f us, p99 %.0f us, "
                 "p99.9 %.0f us, max %.0f us\n",
                 indent, c.gaps.p50, c.gaps.p99, c.gaps.p999, c.gaps.max);
}

}  // namespace veldor::cli
