// Helpers of the CAN log tests: scratch files, reading a whole file with
// its issues, and frames that print readably when a test fails.
#ifndef VELDOR_TESTS_CAN_LOG_SUPPORT_H
#define VELDOR_TESTS_CAN_LOG_SUPPORT_H

#include <cstdint>
#include <initializer_list>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "can_log/CanFrame.h"
#include "can_log/FrameReader.h"
#include "can_log/LogOptions.h"
#include "scratch.h"

namespace veldor::canlog {

void PrintTo(const CanFrame& frame, std::ostream* out);

}  // namespace veldor::canlog

namespace canlog_test {

using veldor::canlog::CanFrame;

// A folder of its own for each test, removed afterwards.
using veldtest::ReadText;
using veldtest::ScratchDir;
using veldtest::WriteText;

struct Issue {
    veldor::canlog::IssueKind kind;
    std::uint64_t line;
};
bool operator==(const Issue& a, const Issue& b);
std::ostream& operator<<(std::ostream& out, const Issue& issue);

// Everything a reader gives for a file, skipping past each issue.
struct ReadOutcome {
    std::string openError;
    std::vector<CanFrame> frames;
    std::vector<Issue> issues;
    std::vector<std::string> messages;  // of the issues
    std::vector<std::string> notices;
    std::uint64_t errorFrames = 0;
    std::uint64_t otherObjects = 0;
};
ReadOutcome ReadAll(const std::string& path,
                    const veldor::canlog::ReaderOptions& options = veldor::canlog::ReaderOptions());
// Writes the frames and closes; false (and a failure) on any error.
bool WriteAll(const std::string& path, const std::vector<CanFrame>& frames,
              const veldor::canlog::WriterOptions& options = veldor::canlog::WriterOptions());
// Header dates read and written as UTC, as the files made by hand have them.
veldor::canlog::ReaderOptions UtcReading(bool errorFrames = false);
veldor::canlog::WriterOptions UtcWriting();
// Expects the outcome to be these frames and nothing else.
void ExpectFrames(const ReadOutcome& outcome, const std::vector<CanFrame>& expected);

// Frame makers for the cases the tests write by hand.
CanFrame Classic(std::int64_t timestamp, std::uint32_t id, std::initializer_list<std::uint8_t> data,
                 bool extended = false);
CanFrame Remote(std::int64_t timestamp, std::uint32_t id, std::uint8_t length, bool extended = false);
// `f` on another channel, or sent; `f` as an error frame.
CanFrame On(CanFrame f, std::uint8_t channel, veldor::canlog::Direction direction = veldor::canlog::Direction::Rx);
CanFrame AsError(CanFrame f);
// An FD frame of `length` bytes counting up from `first`.
CanFrame Fd(std::int64_t timestamp, std::uint32_t id, std::uint8_t length, bool bitRateSwitch,
            bool errorStateIndicator = false, std::uint8_t first = 0);

// Frames of every kind, length and flag, over several channels and both
// directions, with times that grow by uneven steps from `start`.
std::vector<CanFrame> VariedFrames(std::int64_t start, std::size_t count, std::uint32_t seed);

}  // namespace canlog_test

#endif
