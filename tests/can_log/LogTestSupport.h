// Helpers of the CAN log and capture tests: scratch files, reading a whole
// file with its issues, frames that print readably, tools run on files, and
// python-can as a partner.
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

void PrintTo(const CanFrame& frame, std::ostream* out);  // Describe() and the direction

}  // namespace veldor::canlog

namespace canlog_test {

using veldor::canlog::CanFrame;

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
// Expects the outcome to be these frames and nothing else; the same frames,
// telling the first that differs.
void ExpectFrames(const ReadOutcome& outcome, const std::vector<CanFrame>& expected);
void ExpectSame(const std::vector<CanFrame>& read, const std::vector<CanFrame>& expected);

// "can <us>us id=123[x][ remote][ fd][ brs][ esi][ error] len=<n> ch=<n> <hex>"
std::string Describe(const CanFrame& frame);
std::string ToHex(const void* bytes, std::size_t size);
// A shell command's standard output (its errors go to the test's log); the
// test fails when it ends badly.
std::string RunTool(const std::string& command);
bool Have(const std::string& program);

// python-can, run by Debian's python3 through interop.py (see there for what
// it prints). Whether it is installed; if so the test runs in a zone with
// daylight saving (central Europe, two hours east of UTC in July), since ASC
// and BLF dates are local time on both sides. What `script` printed for its
// verb, file and argument (the test fails if it does not end well); and
// those lines as frames.
bool PythonCanReady();
std::string RunPartner(const std::string& script, const std::string& verb, const std::string& path,
                       const std::string& argument = "");
std::vector<CanFrame> ParseFrames(const std::string& text);
// python-can writes an ASC file's date line from the wall clock, cutting
// the microseconds to milliseconds with a text replacement that also cuts
// any other place where the same digits stand: about one file in a few
// hundred gets a date line such as "... PM 2" for "... PM 2026". That line
// is unreadable and told as such; the frames count from the trigger
// block's date and are not touched by it. True for such a file.
bool PythonCanCutItsDateLine(const std::string& path);

// Bytes of files made by hand: "0a 0b" or "0a0b"; numbers in either byte
// order.
std::string Hex(const std::string& hex);
std::string U16(std::uint16_t v, bool big = false);
std::string U32(std::uint32_t v, bool big = false);
std::string U64(std::uint64_t v, bool big = false);

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
