// What a CAN log file holds at a glance, and how a recording of a replay
// compares with the original: frame count, content, timing.
#ifndef VELDOR_CLI_LOG_COMPARISON_H
#define VELDOR_CLI_LOG_COMPARISON_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "can_log/CanFrame.h"

namespace veldor::cli {

struct LogSummary {
    std::size_t frames = 0;
    std::int64_t first = 0;  // microseconds, long gaps shortened
    std::int64_t last = 0;
    bool fd = false;  // holds CAN FD frames
    std::uint64_t gapsShortened = 0;
    // With bit rates given: the share of the bus that the busiest second
    // of the replay needs at its speed, and when in the replay it ends.
    double peakLoad = 0;
    double peakEnd = 0;  // seconds
    std::int64_t Duration() const { return last - first; }
};
struct SummaryOptions {
    std::int64_t maxGap = 0;  // microseconds: longer gaps shortened, as the player does
    long bitRate = 0;         // bit/s; 0: no bus load
    long dataBitRate = 0;
    double speed = 1;
};
// Reads the whole file, passing over the lines it can't read. False, with
// the reason, when the file can't be opened.
bool Summarize(const std::string& path, LogSummary* summary, std::string* error,
               const SummaryOptions& options = SummaryOptions());
// The frames of a file, lines that can't be read passed over.
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
    // Pairs of frames, in order, that differ in identifier, extended,
    // remote, FD, bit rate switch, length or data; channel, direction, the
    // error state indicator and the time are not compared.
    std::size_t differing = 0;
    std::string firstDifference;
    // Frame k's time relative to the first frame, recording against
    // original; and the gap between frames k-1 and k, the same.
    ErrorFigures relativeToFirst;
    ErrorFigures gaps;
};
Comparison Compare(const std::vector<veldor::canlog::CanFrame>& original,
                   const std::vector<veldor::canlog::CanFrame>& recording);
bool SameContent(const veldor::canlog::CanFrame& a, const veldor::canlog::CanFrame& b);

void Print(const Comparison& comparison, std::FILE* out);

}  // namespace veldor::cli

#endif
