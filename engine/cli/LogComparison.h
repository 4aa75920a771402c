// What a recording holds at a glance, and how a recording of a replay
// compares with the original: frame count, content, timing; per bus, and
// between the buses of a multi-bus file.
//
// A file is read as sources, one a bus: a CAN log file (.asc, .log, .blf)
// is one CAN source; a capture file (.pcap, .pcapng) a source for each of
// its Ethernet and CAN interfaces, named by the interface's name (if_name),
// in file order.
#ifndef VELDOR_CLI_LOG_COMPARISON_H
#define VELDOR_CLI_LOG_COMPARISON_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "BusKinds.h"
#include "can_log/CanFrame.h"

namespace veldor::cli {

struct SourceSummary {
    std::string name;        // the interface's name; empty in a CAN log file or where the file has none
    std::uint32_t index = 0;  // of the interface in the file
    BusKind kind = BusKind::Can;
    std::size_t frames = 0;
    bool fd = false;  // CAN: holds CAN FD frames
    // CAN, with bit rates given: the share of the bus that the busiest
    // second of the replay needs at its speed, and when in the replay it
    // ends (seconds).
    double peakLoad = 0;
    double peakEnd = 0;
    // "can0", or "interface 2" for one without a name, or "the file's
    // frames" for a CAN log file.
    std::string Label() const;
    // Whether `name` names it: its name, or its index in digits.
    bool Named(const std::string& name) const;
};

struct LogSummary {
    std::vector<SourceSummary> sources;
    std::size_t frames = 0;
    std::int64_t first = 0;  // microseconds, long gaps shortened
    std::int64_t last = 0;
    bool fd = false;  // some CAN source holds CAN FD frames
    std::uint64_t gapsShortened = 0;
    // Why a capture file can't be read to its end (truncated, a block that
    // can't be trusted); empty when it can.
    std::string unreadable;
    // The busiest CAN source's figures.
    double peakLoad = 0;
    double peakEnd = 0;
    std::int64_t Duration() const { return last - first; }
    // By its name or number; the empty name stands for a file's only source.
    const SourceSummary* Find(const std::string& name) const;
};
struct SummaryOptions {
    std::int64_t maxGap = 0;  // microseconds: longer gaps shortened, as the player does
    long bitRate = 0;         // bit/s; 0: no bus load
    long dataBitRate = 0;
    double speed = 1;
};
// Reads the whole file, passing over what it can't read. False, with the
// reason, when the file can't be opened.
bool Summarize(const std::string& path, LogSummary* summary, std::string* error,
               const SummaryOptions& options = SummaryOptions());

// One frame of a recording: a CAN frame or an Ethernet frame's bytes.
struct BusFrame {
    std::int64_t time = 0;  // nanoseconds
    bool can = false;
    veldor::canlog::CanFrame canFrame;
    std::vector<std::uint8_t> bytes;
};
struct Source {
    SourceSummary summary;
    std::vector<BusFrame> frames;
};
// The frames of a file, source by source; what can't be read passed over.
bool ReadSources(const std::string& path, std::vector<Source>* sources, std::string* error);
// The frames of a CAN log file.
bool ReadFrames(const std::string& path, std::vector<veldor::canlog::CanFrame>* frames, std::string* error);

// Absolute errors in microseconds.
struct ErrorFigures {
    double p50 = 0;
    double p99 = 0;
    double p999 = 0;
    double max = 0;
};
ErrorFigures Figures(std::vector<double> errors);

struct Comparison {
    std::size_t originalFrames = 0;
    std::size_t recordedFrames = 0;
    // Pairs of frames, in order, that differ: CAN frames in identifier,
    // extended, remote, FD, bit rate switch, length or data (channel,
    // direction, the error state indicator and the time are not compared);
    // Ethernet frames in any byte.
    std::size_t differing = 0;
    std::string firstDifference;
    // Frame k's time relative to the first frame, recording against
    // original; and the gap between frames k-1 and k, the same.
    ErrorFigures relativeToFirst;
    ErrorFigures gaps;
};
Comparison Compare(const std::vector<BusFrame>& original, const std::vector<BusFrame>& recording);
Comparison Compare(const std::vector<veldor::canlog::CanFrame>& original,
                   const std::vector<veldor::canlog::CanFrame>& recording);
bool SameContent(const BusFrame& a, const BusFrame& b);

// How far the timelines of two buses of a recording stray from each other
// against the original: each frame k of bus A against the frame j of bus B
// nearest to it in the original, the time between them in the recording
// less the time between them in the original.
ErrorFigures Stray(const std::vector<BusFrame>& originalA, const std::vector<BusFrame>& recordingA,
                   const std::vector<BusFrame>& originalB, const std::vector<BusFrame>& recordingB);

// The comparison's lines, each led by `indent`.
void Print(const Comparison& comparison, std::FILE* out, const char* indent = "  ");

}  // namespace veldor::cli

#endif
