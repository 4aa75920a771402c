// Reading ASC and can-utils logs: lines of every kind written by hand,
// header variants, the lines a reader passes over, malformed lines, and
// files cut short.
#include <gtest/gtest.h>

#include "LogTestSupport.h"
#include "can_log/LogFiles.h"

using namespace veldor::canlog;
using namespace canlog_test;

namespace {

// 2023-11-14 22:13:20.123 UTC
constexpr std::int64_t kStart = 1700000000123000;
// Six lines: a body starts at line 7.
const std::string kHeader =
    "date Tue Nov 14 10:13:20.123 pm 2023\n"
    "base hex  timestamps absolute\n"
    "internal events logged\n"
    "// version 9.0.0\n"
    "Begin Triggerblock Tue Nov 14 10:13:20.123 pm 2023\n"
    "   0.000000 Start of measurement\n";
const std::string kEnd = "End TriggerBlock\n";

class Reading : public ::testing::Test {
protected:
    // `name`'s extension picks the reader.
    ReadOutcome Read(const std::string& text, const std::string& name = "t.asc")
    {
        WriteText(m_dir.File(name), text);
        return ReadAll(m_dir.File(name), UtcReading());
    }

    ScratchDir m_dir;
};

}  // namespace

TEST_F(Reading, WholeFiles)
{
    std::string tooLong = kHeader + "   0.1 1  123 Rx d 1 01";
    tooLong.append(1100000, ' ');
    const struct {
        const char* what;
        const char* name;
        std::string text;
        std::vector<CanFrame> frames;
        std::vector<Issue> issues;
        std::uint64_t errorFrames;
    } cases[] = {
        {"every ASC line form", "t.asc",
         kHeader +
             "   0.000456 1  123             Rx   d 8 01 02 03 04 05 06 07 08  Length = 231910 BitCount = 119 ID = 291\n"
             "   0.100000 2  1ABCDEF0x       Tx   d 2 AA bb\n"
             "   0.200000 1  7FF             Rx   r 4\n"
             "   0.300000 1  1FFFFFFFx       Rx   r\n"
             "   1.5 3  0 d 0\n"
             "   2.0 1  100             Rx   d F 01 02 03 04 05 06 07 08\n" + kEnd,
         {Classic(kStart + 456, 0x123, {1, 2, 3, 4, 5, 6, 7, 8}),
          On(Classic(kStart + 100000, 0x1ABCDEF0, {0xAA, 0xBB}, true), 1, Direction::Tx), Remote(kStart + 200000, 0x7FF, 4),
          Remote(kStart + 300000, 0x1FFFFFFF, 0, true), On(Classic(kStart + 1500000, 0, {}), 2),
          // a classic DLC above 8 means 8 bytes
          Classic(kStart + 2000000, 0x100, {1, 2, 3, 4, 5, 6, 7, 8})},
         {}, 0},
        {"decimal base, relative times", "t.asc",
         "date Tue Nov 14 10:13:20.123 pm 2023\n"
         "base dec  timestamps relative\n"
         "no internal events logged\n"
         "Begin Triggerblock Tue Nov 14 10:13:20.123 pm 2023\n"
         "   0.000000 Start of measurement\n"
         "   0.500000 1  291             Rx   d 2 1 255\n"
         "   0.100000 1  Statistic: D 0 R 0 XD 0 XR 0 E 0 O 0 B 0.00%\n"
         "   0.150000 1  536870911x      Rx   d 12 1 2 3 4 5 6 7 8\n" + kEnd,
         {Classic(kStart + 500000, 291, {1, 255}), Classic(kStart + 750000, 0x1FFFFFFF, {1, 2, 3, 4, 5, 6, 7, 8}, true)},
         {}, 0},
        {"events passed over, error frames counted", "t.asc",
         kHeader +
             "// a comment\r\n"
             "\r\n"
             "   0.010000 CAN 1 Status:chip status error active\r\n"
             "   0.020000 1  ErrorFrame\r\n"
             "   0.030000 CANFD   1 Rx ErrorFrame  Not Acknowledge error, dominant error flag  fffe c7 31ca Arb. 556 44 0 f 3 1\r\n"
             "   0.040000 Sv: 5 0 1 ::Sys::Var = 3\r\n"
             "   0.050000 1  Statistic: D 12 R 0 XD 1 XR 0 E 1 O 0 B 3.21%\r\n"
             "   0.060000 1  123             Rx   d 1 55\r\n" + kEnd,
         {Classic(kStart + 60000, 0x123, {0x55})}, {}, 2},
        {"unreadable header lines", "t.asc",
         "date Mi Xyz 18 09:44:45 2020\nbase oct  timestamps absolute\nBegin Triggerblock\n   0.5 1  1 Rx d 0\n" + kEnd,
         {Classic(500000, 1, {})}, {{IssueKind::Header, 1}, {IssueKind::Header, 2}}, 0},
        // The recording stopped without closing its block.
        {"no end of block", "t.asc", kHeader + "   0.1 1  123 Rx d 1 01\n", {Classic(kStart + 100000, 0x123, {1})},
         {{IssueKind::Truncated, 8}}, 0},
        {"ASC cut inside a line", "t.asc", kHeader + "   0.1 1  123 Rx d 1 01\n   0.2 1  123 Rx d 2 01",
         {Classic(kStart + 100000, 0x123, {1})}, {{IssueKind::Truncated, 8}}, 0},
        {"a line longer than the buffer", "t.asc", tooLong + "\n   0.2 1  124 Rx d 1 02\n" + kEnd,
         {Classic(kStart + 200000, 0x124, {2})}, {{IssueKind::LineTooLong, 7}}, 0},
        {"every can-utils form", "t.log",
         "(1700000000.123456) can0 123#0102030405060708\n"
         "(1700000000.223456) can1 1ABCDEF0#aabb T\n"
         "(0000000001.000001) vcan12 7FF#R\n"
         "(2.5) can0 1FFFFFFF#R8 R\n"
         "(3.000000) any 000#\n"
         "(4.000000) can0 001#11.22.33\n"
         "(5.000000) can0 002#1122334455667788_C\n"
         // Newer can-utils also set the FD format bit (4) in the flags digit.
         "(6.000000) can0 003##5AA\n",
         {Classic(1700000000123456, 0x123, {1, 2, 3, 4, 5, 6, 7, 8}),
          On(Classic(1700000000223456, 0x1ABCDEF0, {0xAA, 0xBB}, true), 1, Direction::Tx), On(Remote(1000001, 0x7FF, 0), 12),
          Remote(2500000, 0x1FFFFFFF, 8, true), Classic(3000000, 0, {}), Classic(4000000, 1, {0x11, 0x22, 0x33}),
          Classic(5000000, 2, {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88}), Fd(6000000, 3, 1, true, false, 0xAA)},
         {}, 0},
        {"can-utils error frame", "t.log", "(1.0) can0 20000080#0000000000000000\n(2.0) can0 123#01\n\n",
         {Classic(2000000, 0x123, {1})}, {}, 1},
        {"can-utils cut inside its last line", "t.log", "(1.0) can0 123#01\n(2.0) can0 123#010",
         {Classic(1000000, 0x123, {1})}, {{IssueKind::Truncated, 2}}, 0},
        {"empty ASC", "t.asc", "", {}, {}, 0},
        {"empty can-utils", "t.log", "", {}, {}, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const ReadOutcome r = Read(c.text, c.name);
        EXPECT_EQ(r.openError, "");
        EXPECT_EQ(r.issues, c.issues) << ::testing::PrintToString(r.messages);
        EXPECT_EQ(r.frames, c.frames);
        EXPECT_EQ(r.errorFrames, c.errorFrames);
    }
    // What is left of a cut line is told, and nothing more.
    EXPECT_EQ(Read(cases[5].text).messages,
              std::vector<std::string>{"line 8: the file ends inside this line (1 data bytes where the length says 2)"});
}

TEST_F(Reading, MissingAndUnknownFilesCannotBeOpened)
{
    WriteText(m_dir.File("t.txt"), "");
    const std::pair<const char*, const char*> cases[] = {
        {"missing.asc", "missing.asc"}, {"missing.log", "No such file"}, {"t.txt", "extension"}};
    for (const auto& [name, said] : cases) {
        const std::string error = ReadAll(m_dir.File(name)).openError;
        EXPECT_NE(error.find(said), std::string::npos) << error;
    }
}

TEST_F(Reading, AscHeaderDatesGiveTheMeasurementStart)
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
        const ReadOutcome r = Read(c.header + "   1.000000 1  1 Rx d 0\n" + kEnd);
        EXPECT_EQ(r.messages, std::vector<std::string>()) << c.header;
        ASSERT_EQ(r.frames.size(), 1u) << c.header;
        EXPECT_EQ(r.frames[0].timestamp, c.start + 1000000) << c.header;
    }
}

TEST_F(Reading, MalformedLinesAreReportedWithTheirNumbersAndSkipped)
{
    const struct {
        const char* name;
        std::string text;
        std::vector<Issue> issues;
        std::vector<std::pair<std::size_t, const char*>> messages;  // of some issues, by their index
        CanFrame last;                                               // the good line after them
    } cases[] = {
        {"t.asc",
         kHeader +
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
             "   0.2 1  321             Rx   d 1 77\n" + kEnd,
         {{IssueKind::InvalidIdentifier, 7}, {IssueKind::InvalidIdentifier, 8}, {IssueKind::InvalidIdentifier, 9},
          {IssueKind::InvalidDlc, 10},       {IssueKind::InvalidDlc, 11},       {IssueKind::MissingData, 12},
          {IssueKind::MissingData, 13},      {IssueKind::InvalidData, 14},      {IssueKind::InvalidTimestamp, 15},
          {IssueKind::InvalidChannel, 16},   {IssueKind::InvalidLength, 17},    {IssueKind::InvalidLength, 18},
          {IssueKind::Syntax, 19},           {IssueKind::Syntax, 20},           {IssueKind::InvalidTimestamp, 21},
          {IssueKind::InvalidLength, 22}},
         {{0, "line 7: invalid identifier \"12G\""}, {5, "line 12: 2 data bytes where the length says 8"}},
         Classic(kStart + 200000, 0x321, {0x77})},
        {"t.log",
         "(1.0) can0 1234#00\n"                   // 1: four digits
         "(1.0) can0 12G#00\n"                    // 2
         "(1.0) can0 FFF#00\n"                    // 3: above 0x7FF
         "(1.0) can0 40000000#00\n"               // 4: above 29 bits
         "(1.0) can0 123#001\n"                   // 5: odd digits
         "(1.0) can0 123#0011223344556677AA\n"    // 6: 9 classic bytes
         "(1.0) can0 123##1001122334455667788\n"  // 7: 9 FD bytes
         "(1.0) can0 123#R9\n"                    // 8
         "(1.0) can0 123#0G\n"                    // 9
         "(1.0a) can0 123#00\n"                   // 10
         "(1.0 can0 123#00\n"                     // 11
         "(1.0) can0 12300\n"                     // 12
         "1.0 can0 123#00\n"                      // 13
         "(1.0) can300 123#00\n"                  // 14
         "(1.0) can0 123##\n"                     // 15: no flags digit
         "(1.0) can0\n"                           // 16
         "(2.0) can0 321#77\n",                   // 17
         {{IssueKind::InvalidIdentifier, 1}, {IssueKind::InvalidIdentifier, 2}, {IssueKind::InvalidIdentifier, 3},
          {IssueKind::InvalidIdentifier, 4}, {IssueKind::InvalidData, 5},       {IssueKind::InvalidLength, 6},
          {IssueKind::InvalidLength, 7},     {IssueKind::InvalidDlc, 8},        {IssueKind::InvalidData, 9},
          {IssueKind::InvalidTimestamp, 10}, {IssueKind::InvalidTimestamp, 11}, {IssueKind::Syntax, 12},
          {IssueKind::Syntax, 13},           {IssueKind::InvalidChannel, 14},   {IssueKind::Syntax, 15},
          {IssueKind::Syntax, 16}},
         {{4, "line 5: odd number of data digits \"001\""}}, Classic(2000000, 0x321, {0x77})},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const ReadOutcome r = Read(c.text, c.name);
        EXPECT_EQ(r.issues, c.issues);
        ASSERT_EQ(r.messages.size(), c.issues.size());
        for (const auto& [index, text] : c.messages) EXPECT_EQ(r.messages[index], text);
        EXPECT_EQ(r.frames, std::vector<CanFrame>{c.last});
    }
}

// An issue does not stop the reader: the caller chooses; and once at the
// end, a reader stays there.
TEST_F(Reading, EndStaysEndAndStopIsTheCallersChoice)
{
    WriteText(m_dir.File("t.asc"), kHeader + "   0.1 1  XYZ Rx d 0\n   0.2 1  1 Rx d 0\n" + kEnd);
    std::string error;
    std::unique_ptr<FrameReader> reader = OpenFrameReader(m_dir.File("t.asc"), error, UtcReading());
    ASSERT_TRUE(reader) << error;
    CanFrame frame;
    for (ReadResult expected : {ReadResult::Issue, ReadResult::Frame, ReadResult::End, ReadResult::End})
        EXPECT_EQ(reader->Next(frame), expected);
}
