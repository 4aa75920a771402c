// Reading can-utils logs: every frame form, the error frame, malformed
// lines, and files cut short.
#include <gtest/gtest.h>

#include "LogTestSupport.h"

using namespace veldor::canlog;
using namespace canlog_test;

namespace {

class LogReading : public ::testing::Test {
protected:
    ReadOutcome ReadFile(const std::string& text)
    {
        const std::string path = m_dir.File("t.log");
        WriteText(path, text);
        return ReadAll(path);
    }

    ScratchDir m_dir;
};

}  // namespace

TEST_F(LogReading, FramesOfEveryForm)
{
    const ReadOutcome r = ReadFile(
        "(1700000000.123456) can0 123#0102030405060708\n"
        "(1700000000.223456) can1 1ABCDEF0#aabb T\n"
        "(0000000001.000001) vcan12 7FF#R\n"
        "(2.5) can0 1FFFFFFF#R8 R\n"
        "(3.000000) any 000#\n"
        "(4.000000) can0 001#11.22.33\n"
        "(5.000000) can0 002#1122334455667788_C\n"
        // Newer can-utils also set the FD format bit (4) in the flags digit.
        "(6.000000) can0 003##5AA\n");
    CanFrame extended = Classic(1700000000223456, 0x1ABCDEF0, {0xAA, 0xBB}, true);
    extended.channel = 1;
    extended.direction = Direction::Tx;
    CanFrame remote = Remote(1000001, 0x7FF, 0);
    remote.channel = 12;
    const std::vector<CanFrame> expected = {
        Classic(1700000000123456, 0x123, {1, 2, 3, 4, 5, 6, 7, 8}),
        extended,
        remote,
        Remote(2500000, 0x1FFFFFFF, 8, true),
        Classic(3000000, 0, {}),
        Classic(4000000, 1, {0x11, 0x22, 0x33}),
        Classic(5000000, 2, {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88}),
        Fd(6000000, 3, 1, true, false, 0xAA),
    };
    ExpectFrames(r, expected);
}

TEST_F(LogReading, ErrorFramesAreCountedNotReturned)
{
    const ReadOutcome r = ReadFile(
        "(1.0) can0 20000080#0000000000000000\n"
        "(2.0) can0 123#01\n"
        "\n");
    EXPECT_TRUE(r.issues.empty());
    EXPECT_EQ(r.frames.size(), 1u);
    EXPECT_EQ(r.errorFrames, 1u);
}

TEST_F(LogReading, MalformedLinesAreReportedWithTheirNumbersAndSkipped)
{
    const ReadOutcome r = ReadFile(
        "(1.0) can0 1234#00\n"                 // 1: four digits
        "(1.0) can0 12G#00\n"                  // 2
        "(1.0) can0 FFF#00\n"                  // 3: above 0x7FF
        "(1.0) can0 40000000#00\n"             // 4: above 29 bits
        "(1.0) can0 123#001\n"                 // 5: odd digits
        "(1.0) can0 123#0011223344556677AA\n"  // 6: 9 classic bytes
        "(1.0) can0 123##1001122334455667788\n"  // 7: 9 FD bytes
        "(1.0) can0 123#R9\n"                  // 8
        "(1.0) can0 123#0G\n"                  // 9
        "(1.0a) can0 123#00\n"                 // 10
        "(1.0 can0 123#00\n"                   // 11
        "(1.0) can0 12300\n"                   // 12
        "1.0 can0 123#00\n"                    // 13
        "(1.0) can300 123#00\n"                // 14
        "(1.0) can0 123##\n"                   // 15: no flags digit
        "(1.0) can0\n"                         // 16
        "(2.0) can0 321#77\n");                // 17
    const std::vector<Issue> expected = {
        {IssueKind::InvalidIdentifier, 1}, {IssueKind::InvalidIdentifier, 2}, {IssueKind::InvalidIdentifier, 3},
        {IssueKind::InvalidIdentifier, 4}, {IssueKind::InvalidData, 5},       {IssueKind::InvalidLength, 6},
        {IssueKind::InvalidLength, 7},     {IssueKind::InvalidDlc, 8},        {IssueKind::InvalidData, 9},
        {IssueKind::InvalidTimestamp, 10}, {IssueKind::InvalidTimestamp, 11}, {IssueKind::Syntax, 12},
        {IssueKind::Syntax, 13},           {IssueKind::InvalidChannel, 14},   {IssueKind::Syntax, 15},
        {IssueKind::Syntax, 16},
    };
    EXPECT_EQ(r.issues, expected);
    EXPECT_EQ(r.messages[4], "line 5: odd number of data digits \"001\"");
    EXPECT_EQ(r.frames, std::vector<CanFrame>{Classic(2000000, 0x321, {0x77})});
}

TEST_F(LogReading, FileCutInsideItsLastLine)
{
    const ReadOutcome r = ReadFile("(1.0) can0 123#01\n(2.0) can0 123#010");
    EXPECT_EQ(r.frames, std::vector<CanFrame>{Classic(1000000, 0x123, {1})});
    EXPECT_EQ(r.issues, (std::vector<Issue>{{IssueKind::Truncated, 2}}));
}

TEST_F(LogReading, EmptyAndMissingFiles)
{
    ReadOutcome r = ReadFile("");
    EXPECT_TRUE(r.openError.empty());
    EXPECT_TRUE(r.frames.empty());
    EXPECT_TRUE(r.issues.empty());
    r = ReadAll(m_dir.File("missing.log"));
    EXPECT_NE(r.openError.find("No such file"), std::string::npos) << r.openError;
}
