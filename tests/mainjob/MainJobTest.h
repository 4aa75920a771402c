// What the tests of the file players, the file recorders and the bus
// commands share: log files of counted frames, components made with their
// settings, the veldor command run as a user runs it, and the frames a
// CanFrameStats wrote into its csv file.
#ifndef VELDOR_TESTS_MAIN_JOB_TEST_H
#define VELDOR_TESTS_MAIN_JOB_TEST_H

#include <gtest/gtest.h>
#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "ComponentTest.h"
#include "LogTestSupport.h"

namespace mainjob {

using veldor::canlog::CanFrame;
using veldtest::Eventually;
using veldtest::ReadText;
using veldtest::WriteText;

// `count` classic frames `period` apart from `start`, frame k carrying k in
// its first four bytes (what CanFrameStats counts).
std::vector<CanFrame> CountedFrames(std::size_t count, std::int64_t period, std::int64_t start = 1700000000000000);
inline void WriteLog(const std::string& path, const std::vector<CanFrame>& frames) { canlog_test::WriteAll(path, frames); }
// The frames of a log that must have no issue.
std::vector<CanFrame> ReadLog(const std::string& path);

class FileComponentTest : public bus_components::ComponentTest {
protected:
    using ComponentTest::Make;
    // A component and its settings ("property", "value").
    void Make(const std::string& model, const std::string& name,
              const std::vector<std::pair<std::string, std::string>>& settings)
    {
        Make(model, name);
        for (const auto& [property, value] : settings) Set(name + "." + property, value);
    }
};

// One line of a CanFrameStats csv file.
struct Arrival {
    long long counter;
    long long frameTime;
    long long arrival;  // engine time
};
std::vector<Arrival> ReadArrivals(const std::string& path);

struct CommandResult {
    int code = -1;  // -1: did not end in time (it was killed)
    std::string out;
    std::string err;
    // Lines of the standard error stream.
    std::vector<std::string> ErrLines() const;
};

// The veldor command, started with its outputs going to files of `folder`.
class Veldor {
public:
    Veldor(const std::vector<std::string>& arguments, const std::string& folder);
    ~Veldor();
    // Ctrl-C.
    void Interrupt();
    // Waits for the end, at most `seconds`; kills it after that.
    CommandResult Wait(double seconds = 60);

private:
    pid_t m_pid;
    std::string m_out;
    std::string m_err;
    bool m_waited = false;
};

// Runs the command to its end.
CommandResult RunVeldor(const std::vector<std::string>& arguments, const std::string& folder, double seconds = 60);

// A test of the commands, with a folder of its own for their files.
class CommandTest : public ::testing::Test {
protected:
    std::string File(const std::string& name) const { return m_scratch.File(name); }
    CommandResult Veldor(const std::vector<std::string>& args, double seconds = 60)
    {
        return RunVeldor(args, m_folder, seconds);
    }

    veldtest::ScratchDir m_scratch{"veldor_command"};
    const std::string m_folder = m_scratch.Path();
};

}  // namespace mainjob

#endif
