// Reading ASC logs: lines of every kind written by hand, header variants,
// the lines it passes over, malformed lines, and files cut short.
#include <gtest/gtest.h>


#include "LogTestSupport.h"
#include "can_log/AscReader.h"

using namespace veldor::canlog;
using namespace canlog_test;

namespace {

// 2023-11-14 22:13:20.123 UTC
constexpr std::int64_t kStart = 1700000000123000;
constexpr const char* kHeader =
    "date Tue Nov 14 10:13:20.123 pm 2023\n"
    "base hex  timestamps absolute\n"
    "internal events logged\n"
    "// version 9.0.0\n"
    "Begin Triggerblock Tue Nov 14 10:13:20.123 pm 2023\n"
    "   0.000000 Start of measurement\n";

ReaderOptions Utc()
{
    ReaderOptions options;
    options.dateZone = DateZone::Utc;
    return options;
}

class AscReading : public ::testing::Test {
protected:
    // Reads `body` inside a standard header and block.
    ReadOutcome ReadBody(const std::string& body)
    {
        return ReadFile(std::string(kHeader) + body + "End TriggerBlock\n");
    }
    ReadOutcome ReadFile(const std::string& text, const ReaderOptions& options = Utc())
    {
        const std::string path = m_dir.File("t.asc");
        WriteText(path, text);
        return ReadAll(path, options);
    }

    ScratchDir m_dir;
};

}  // namespace

TEST_F(AscReading, ClassicExtendedAndRemoteLines)
{
    const ReadOutcome r = ReadBody(
        "   0.000456 1  123             Rx   d 8 01 02 03 04 05 06 07 08  Length = 231910 BitCount = 119 ID = 291\n"
        "   0.100000 2  1ABCDEF0x       Tx   d 2 AA bb\n"
        "   0.200000 1  7FF             Rx   r 4\n"
        "   0.300000 1  1FFFFFFFx       Rx   r\n"
        "   1.5 3  0 d 0\n"
        "   2.0 1  100             Rx   d F 01 02 03 04 05 06 07 08\n");
    CanFrame extended = Classic(kStart + 100000, 0x1ABCDEF0, {0xAA, 0xBB}, true);
    extended.channel = 1;
    extended.direction = Direction::Tx;
    CanFrame noDirection = Classic(kStart + 1500000, 0, {});
    noDirection.channel = 2;
    const std::vector<CanFrame> expected = {
        Classic(kStart + 456, 0x123, {1, 2, 3, 4, 5, 6, 7, 8}),
        extended,
        Remote(kStart + 200000, 0x7FF, 4),
        Remote(kStart + 300000, 0x1FFFFFFF, 0, true),
        noDirection,
        Classic(kStart + 2000000, 0x100, {1, 2, 3, 4, 5, 6, 7, 8}),  // a classic DLC above 8 means 8 bytes
    };
    ExpectFrames(r, expected);
}

TEST_F(AscReading, DecimalBaseAndRelativeTimestamps)
{
    const ReadOutcome r = ReadFile(
        "date Tue Nov 14 10:13:20.123 pm 2023\n"
        "base dec  timestamps relative\n"
        "no internal events logged\n"
        "Begin Triggerblock Tue Nov 14 10:13:20.123 pm 2023\n"
        "   0.000000 Start of measurement\n"
        "   0.500000 1  291             Rx   d 2 1 255\n"
        "   0.100000 1  Statistic: D 0 R 0 XD 0 XR 0 E 0 O 0 B 0.00%\n"
        "   0.150000 1  536870911x      Rx   d 12 1 2 3 4 5 6 7 8\n"
        "End TriggerBlock\n");
    const std::vector<CanFrame> expected = {Classic(kStart + 500000, 291, {1, 255}),
                                            Classic(kStart + 750000, 0x1FFFFFFF, {1, 2, 3, 4, 5, 6, 7, 8}, true)};
    ExpectFrames(r, expected);
}

TEST_F(AscReading, HeaderDatesGiveTheMeasurementStart)
{
    struct DateCase {
        std::string header;
        std::int64_t start;
    };
    const DateCase cases[] = {
        // The date line stands in where the block has no date.
        {"date Thu Feb 29 01:02:03 2024\nBegin Triggerblock\n", 1709168523000000},
        // The block's date wins; am and pm on the 12-hour clock, six fraction digits.
        {"date Thu Feb 29 01:02:03 2024\nBegin Triggerblock Mon jan 1 12:00:00.000250 am 2024\n", 1704067200000250},
        {"Begin Triggerblock Mon Jan 1 12:30:00.5 pm 2024\n", 1704112200500000},
        // German names, full or short, "März" in Latin-1 too; the 24-hour
        // clock, and vorm. and nachm. for am and pm.
        {"Begin Triggerblock Mi Okt 4 13:14:15.5 2023\n", 1696425255500000},
        {"Begin Triggerblock Fr Mai 3 1:02:03 nachm. 2024\n", 1714741323000000},
        {"Begin Triggerblock Di M\xE4r 5 08:00:00 2024\n", 1709625600000000},
        {"Begin Triggerblock Montag Dezember 2 11:59:59.999 vorm. 2024\n", 1733140799999000},
        // Without any date the times count from 0.
        {"base hex  timestamps absolute\nBegin Triggerblock\n", 0},
    };
    for (const DateCase& c : cases) {
        const ReadOutcome r = ReadFile(c.header + "   1.000000 1  1 Rx d 0\nEnd TriggerBlock\n");
        EXPECT_EQ(r.messages, std::vector<std::string>()) << c.header;
        ASSERT_EQ(r.frames.size(), 1u) << c.header;
        EXPECT_EQ(r.frames[0].timestamp, c.start + 1000000) << c.header;
    }
}

TEST_F(AscReading, PassesOverEventsAndCountsErrorFrames)
{
    const ReadOutcome r = ReadBody(
        "// a comment\r\n"
        "\r\n"
        "   0.010000 CAN 1 Status:chip status error active\r\n"
        "   0.020000 1  ErrorFrame\r\n"
        "   0.030000 CANFD   1 Rx ErrorFrame  Not Acknowledge error, dominant error flag  fffe c7 31ca Arb. 556 44 0 f 3 1\r\n"
        "   0.040000 Sv: 5 0 1 ::Sys::Var = 3\r\n"
        "   0.050000 1  Statistic: D 12 R 0 XD 1 XR 0 E 1 O 0 B 3.21%\r\n"
        "   0.060000 1  123             Rx   d 1 55\r\n");
    ExpectFrames(r, std::vector<CanFrame>{Classic(kStart + 60000, 0x123, {0x55})});
    EXPECT_EQ(r.errorFrames, 2u);
}

TEST_F(AscReading, MalformedLinesAreReportedWithTheirNumbersAndSkipped)
{
    // The header takes six lines; the body starts at line 7.
    const ReadOutcome r = ReadBody(
        "   0.1 1  12G             Rx   d 1 00\n"                 // 7
        "   0.1 1  800             Rx   d 1 00\n"                 // 8
        "   0.1 1  20000000x       Rx   d 1 00\n"                 // 9
        "   0.1 1  123             Rx   d G 00\n"                 // 10
        "   0.1 1  123             Rx   d 10 00\n"                // 11
        "   0.1 1  123             Rx   d 8 01 02\n"              // 12
        "   0.1 1  123             Rx   d 8 01 02 Length = 100\n" // 13
        "   0.1 1  123             Rx   d 2 01 XY\n"              // 14
        "   0.1x 1  123            Rx   d 1 00\n"                 // 15
        "   0.1 0  123             Rx   d 1 00\n"                 // 16
        "   0.1 CANFD 1 Rx 123 0 0 9 13 00\n"                     // 17: no such length
        // 18: 11 of 12 bytes; the first field after them is taken for the
        // last byte, so the flags (0) say classic, whose DLC 9 means 8 bytes.
        "   0.1 CANFD 1 Rx 123 0 0 9 12 01 02 03 04 05 06 07 08 09 0A 0B 0 0 1000 0 0 0 0 0\n"
        "   0.1 CANFD 1 Rx 123 0 2 1 1 00\n"                      // 19
        "   0.1 CANFD 1 Rx 123 0 0 1 1 00 0 0 10Z0 0 0 0 0 0\n"   // 20
        "   abc CANFD 1 Rx 123 0 0 1 1 00\n"                      // 21
        "   0.1 CANFD 1 Rx 123 0 0 9 16 00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F\n"  // 22: DLC 9 is 12
        "   0.2 1  321             Rx   d 1 77\n");               // 23
    const std::vector<Issue> expected = {
        {IssueKind::InvalidIdentifier, 7}, {IssueKind::InvalidIdentifier, 8}, {IssueKind::InvalidIdentifier, 9},
        {IssueKind::InvalidDlc, 10},       {IssueKind::InvalidDlc, 11},       {IssueKind::MissingData, 12},
        {IssueKind::MissingData, 13},      {IssueKind::InvalidData, 14},      {IssueKind::InvalidTimestamp, 15},
        {IssueKind::InvalidChannel, 16},   {IssueKind::InvalidLength, 17},    {IssueKind::InvalidLength, 18},
        {IssueKind::Syntax, 19},           {IssueKind::Syntax, 20},           {IssueKind::InvalidTimestamp, 21},
        {IssueKind::InvalidLength, 22},
    };
    EXPECT_EQ(r.issues, expected);
    EXPECT_EQ(r.messages[0], "line 7: invalid identifier \"12G\"");
    EXPECT_EQ(r.messages[5], "line 12: 2 data bytes where the length says 8");
    // Skipping went on to the good line after them.
    EXPECT_EQ(r.frames, std::vector<CanFrame>{Classic(kStart + 200000, 0x321, {0x77})});
}

TEST_F(AscReading, UnreadableHeaderLinesAreIssues)
{
    const ReadOutcome r = ReadFile(
        "date Mi Xyz 18 09:44:45 2020\n"
        "base oct  timestamps absolute\n"
        "Begin Triggerblock\n"
        "   0.5 1  1 Rx d 0\n"
        "End TriggerBlock\n");
    EXPECT_EQ(r.issues, (std::vector<Issue>{{IssueKind::Header, 1}, {IssueKind::Header, 2}}));
    ASSERT_EQ(r.frames.size(), 1u);
    EXPECT_EQ(r.frames[0].timestamp, 500000);
}

TEST_F(AscReading, FileCutShort)
{
    // No End TriggerBlock: the recording stopped without closing.
    ReadOutcome r = ReadFile(std::string(kHeader) + "   0.1 1  123 Rx d 1 01\n");
    EXPECT_EQ(r.frames.size(), 1u);
    EXPECT_EQ(r.issues, (std::vector<Issue>{{IssueKind::Truncated, 8}}));
    // Cut inside a line: what is left of it is told, and nothing more.
    r = ReadFile(std::string(kHeader) + "   0.1 1  123 Rx d 1 01\n   0.2 1  123 Rx d 2 01");
    EXPECT_EQ(r.frames.size(), 1u);
    EXPECT_EQ(r.issues, (std::vector<Issue>{{IssueKind::Truncated, 8}}));
    EXPECT_EQ(r.messages[0], "line 8: the file ends inside this line (1 data bytes where the length says 2)");
}

TEST_F(AscReading, EmptyMissingAndUnknownFiles)
{
    ReadOutcome r = ReadFile("");
    EXPECT_TRUE(r.openError.empty());
    EXPECT_TRUE(r.frames.empty());
    EXPECT_TRUE(r.issues.empty());

    r = ReadAll(m_dir.File("missing.asc"));
    EXPECT_NE(r.openError.find("missing.asc"), std::string::npos) << r.openError;

    WriteText(m_dir.File("t.txt"), "");
    r = ReadAll(m_dir.File("t.txt"));
    EXPECT_NE(r.openError.find("extension"), std::string::npos) << r.openError;
}

TEST_F(AscReading, EndStaysEndAndStopIsTheCallersChoice)
{
    const std::string path = m_dir.File("t.asc");
    WriteText(path, std::string(kHeader) + "   0.1 1  XYZ Rx d 0\n   0.2 1  1 Rx d 0\nEnd TriggerBlock\n");
    std::string error;
    std::unique_ptr<AscReader> reader = AscReader::Open(path, error, Utc());
    ASSERT_TRUE(reader) << error;
    CanFrame frame;
    ASSERT_EQ(reader->Next(frame), ReadResult::Issue);
    EXPECT_EQ(reader->Issue().place.number, 7u);
    EXPECT_EQ(reader->Header().measurementStart, kStart);
    EXPECT_TRUE(reader->Header().internalEventsLogged);
    ASSERT_EQ(reader->Next(frame), ReadResult::Frame);
    EXPECT_EQ(reader->Next(frame), ReadResult::End);
    EXPECT_EQ(reader->Next(frame), ReadResult::End);
    EXPECT_EQ(reader->FramesRead(), 1u);
}

TEST_F(AscReading, LineLongerThanTheBufferIsSkipped)
{
    std::string text = std::string(kHeader) + "   0.1 1  123 Rx d 1 01";
    text.append(1100000, ' ');
    text += "\n   0.2 1  124 Rx d 1 02\nEnd TriggerBlock\n";
    const ReadOutcome r = ReadFile(text);
    EXPECT_EQ(r.issues, (std::vector<Issue>{{IssueKind::LineTooLong, 7}}));
    EXPECT_EQ(r.frames, std::vector<CanFrame>{Classic(kStart + 200000, 0x124, {2})});
}
