// Interoperability with python-can (Debian's python3-can): the files it
// writes read here frame for frame, and the files written here read there
// with identical frames. The dates in ASC headers are local time on both
// sides, so the tests run in a zone with daylight saving.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <sstream>

#include "LogTestSupport.h"
#include "can_log/LogFiles.h"

using namespace veldor::canlog;
using namespace canlog_test;

namespace {

constexpr const char* kPython = "/usr/bin/python3";

bool PythonCanPresent()
{
    const std::string command = std::string(kPython) + " -c 'import can' >/dev/null 2>&1";
    return std::system(command.c_str()) == 0;
}

// Runs the partner script and returns what it printed; fails the test if it
// does not end well.
std::string RunPartner(const std::string& verb, const std::string& path)
{
    const std::string command = std::string(kPython) + " " + VELDOR_CAN_LOG_INTEROP_SCRIPT + " " + verb + " '" + path + "'";
    std::string out;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) {
        ADD_FAILURE() << "cannot run " << command;
        return out;
    }
    char buffer[4096];
    for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) out.append(buffer, n);
    const int status = pclose(pipe);
    EXPECT_EQ(status, 0) << command << " printed:\n" << out;
    return out;
}

// The partner's lines (see interop.py) as frames.
std::vector<CanFrame> ParseFrames(const std::string& text)
{
    std::vector<CanFrame> frames;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream fields(line);
        CanFrame f;
        std::string id;
        std::string direction;
        std::string data;
        int flags[5];
        int length = 0;
        int channel = 0;
        fields >> f.timestamp >> id >> flags[0] >> flags[1] >> flags[2] >> flags[3] >> flags[4] >> length >> channel >>
            direction >> data;
        EXPECT_FALSE(fields.fail()) << "unreadable partner line: " << line;
        f.id = static_cast<std::uint32_t>(std::stoul(id, nullptr, 16));
        f.extended = flags[0];
        f.remote = flags[1];
        f.fd = flags[2];
        f.bitRateSwitch = flags[3];
        f.errorStateIndicator = flags[4];
        f.length = static_cast<std::uint8_t>(length);
        f.channel = static_cast<std::uint8_t>(channel);
        f.direction = direction == "T" ? Direction::Tx : Direction::Rx;
        for (std::size_t i = 0; data != "-" && 2 * i + 1 < data.size(); ++i) {
            f.data[i] = static_cast<std::uint8_t>(std::stoul(data.substr(2 * i, 2), nullptr, 16));
        }
        frames.push_back(f);
    }
    return frames;
}

class Interop : public ::testing::TestWithParam<const char*> {
protected:
    void SetUp() override
    {
        if (!PythonCanPresent()) GTEST_SKIP() << "python3-can is not installed (make setup installs it)";
        // Central European time, in July: two hours east of UTC.
        setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
        tzset();
    }
    std::string Path() const { return m_dir.File(std::string("t.") + GetParam()); }

    ScratchDir m_dir;
};

}  // namespace

TEST_P(Interop, WeReadWhatPythonCanWrites)
{
    const std::vector<CanFrame> written = ParseFrames(RunPartner("write", Path()));
    ASSERT_EQ(written.size(), 9u);
    const ReadOutcome r = ReadAll(Path());
    ASSERT_TRUE(r.issues.empty()) << r.messages.front();
    ASSERT_EQ(r.frames.size(), written.size());
    for (std::size_t i = 0; i < written.size(); ++i) EXPECT_EQ(r.frames[i], written[i]) << "frame " << i;
}

TEST_P(Interop, PythonCanReadsWhatWeWrite)
{
    std::vector<CanFrame> frames = VariedFrames(1688371200250000, 400, 11);
    for (CanFrame& f : frames) {
        // python-can reads an FD line without data as a remote frame: give
        // each FD frame at least one byte.
        if (f.fd && f.length == 0) f.length = 1;
    }
    std::string error;
    std::unique_ptr<FrameWriter> writer = OpenFrameWriter(Path(), error);
    ASSERT_TRUE(writer) << error;
    for (const CanFrame& f : frames) ASSERT_EQ(writer->Write(f), WriteResult::Written) << writer->Error();
    ASSERT_TRUE(writer->Close()) << writer->Error();

    const std::vector<CanFrame> read = ParseFrames(RunPartner("read", Path()));
    ASSERT_EQ(read.size(), frames.size());
    for (std::size_t i = 0; i < frames.size(); ++i) EXPECT_EQ(read[i], frames[i]) << "frame " << i;
}

INSTANTIATE_TEST_SUITE_P(Formats, Interop, ::testing::Values("asc", "log"));
