// Interoperability with python-can (Debian's python3-can): the files it
// writes read here frame for frame, and the files written here read there
// with identical frames. The dates in ASC headers are local time on both
// sides, so the tests run in a zone with daylight saving.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <regex>
#include <sstream>

#include "LogTestSupport.h"
#include "PythonPartner.h"
#include "can_log/LogFiles.h"

using namespace veldor::canlog;
using namespace canlog_test;

namespace {

// python-can writes the file's date line from the wall clock, cutting the
// microseconds to milliseconds with a text replacement that also cuts any
// other place where the same digits stand: about one file in a few hundred
// gets a date line such as "... PM 2" for "... PM 2026". That line is
// unreadable and told as such; the frames count from the trigger block's
// date and are not touched by it.
std::vector<Issue> IssuesOfPythonCanHeader(const std::string& path)
{
    static const std::regex kWhole(R"(date \w{3} \w{3} \d{2} \d{2}:\d{2}:\d{2}\.\d{3} [AP]M \d{4})");
    const std::string text = ReadText(path);
    if (path.size() < 4 || path.compare(path.size() - 4, 4, ".asc") != 0) return {};
    if (std::regex_match(text.substr(0, text.find('\n')), kWhole)) return {};
    return {{IssueKind::Header, 1}};
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
    const std::vector<CanFrame> written = ParseFrames(RunPartner(VELDOR_CAN_LOG_INTEROP_SCRIPT, "write", Path()));
    ASSERT_EQ(written.size(), 9u);
    const ReadOutcome r = ReadAll(Path());
    ASSERT_EQ(r.issues, IssuesOfPythonCanHeader(Path())) << (r.messages.empty() ? "" : r.messages.front());
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

    const std::vector<CanFrame> read = ParseFrames(RunPartner(VELDOR_CAN_LOG_INTEROP_SCRIPT, "read", Path()));
    ASSERT_EQ(read.size(), frames.size());
    for (std::size_t i = 0; i < frames.size(); ++i) EXPECT_EQ(read[i], frames[i]) << "frame " << i;
}

INSTANTIATE_TEST_SUITE_P(Formats, Interop, ::testing::Values("asc", "log"));
