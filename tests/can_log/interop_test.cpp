// Interoperability with python-can (Debian's python3-can): the files it
// writes read here frame for frame, and the files written here read there
// with identical frames, in every format; and the files of other tools,
// each case minimal, read as python-can reads them, or better where
// python-can reads them wrong (each such place says why).
#include <gtest/gtest.h>

#include "LogTestSupport.h"
#include "can_log/LogFiles.h"

using namespace veldor::canlog;
using namespace canlog_test;

namespace {

ReaderOptions WithErrorFrames()
{
    ReaderOptions options;
    options.errorFrames = true;
    return options;
}

class WithPythonCan : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!PythonCanReady()) GTEST_SKIP() << "python3-can is not installed (make setup installs it)";
    }

    ScratchDir m_dir;
};

class Interop : public WithPythonCan, public ::testing::WithParamInterface<const char*> {
protected:
    std::string Path() const { return m_dir.File(std::string("t.") + GetParam()); }
    bool Blf() const { return std::string(GetParam()) == "blf"; }
};

}  // namespace

TEST_P(Interop, WeReadWhatPythonCanWrites)
{
    // BLF keeps error frames whole, with their channels: the file has some.
    const std::vector<CanFrame> written = ParseFrames(RunPartner(VELDOR_CAN_LOG_INTEROP_SCRIPT, "write", Path()));
    ASSERT_EQ(written.size(), Blf() ? 11u : 9u);
    const ReadOutcome r = ReadAll(Path(), WithErrorFrames());
    const std::vector<Issue> issues =
        PythonCanCutItsDateLine(Path()) ? std::vector<Issue>{{IssueKind::Header, 1}} : std::vector<Issue>{};
    ASSERT_EQ(r.issues, issues) << (r.messages.empty() ? "" : r.messages.front());
    ExpectSame(r.frames, written);
}

TEST_P(Interop, PythonCanReadsWhatWeWrite)
{
    std::vector<CanFrame> frames = VariedFrames(1688371200250000, 400, 11);
    for (std::size_t i = 0; i < frames.size(); ++i) {
        CanFrame& f = frames[i];
        // python-can reads an ASC FD line without data as a remote frame:
        // give each FD frame at least one byte there.
        if (f.fd && f.length == 0 && !Blf()) f.length = 1;
        if (Blf() && i % 9 == 4) {
            // BLF's error object holds no direction: received.
            f = Classic(f.timestamp, f.id & 0xFF, {1, 2, 3}, f.extended);
            f.error = true;
            f.channel = static_cast<std::uint8_t>(i % 3);
        }
    }
    // The big test below has compressed BLF containers; these are stored.
    WriterOptions options;
    options.compression = 0;
    ASSERT_TRUE(WriteAll(Path(), frames, options));
    ExpectSame(ParseFrames(RunPartner(VELDOR_CAN_LOG_INTEROP_SCRIPT, "read", Path())), frames);
}

INSTANTIATE_TEST_SUITE_P(Formats, Interop, ::testing::Values("asc", "log", "blf"));

// A compressed file of 100000 frames of every kind, error frames among
// them, on several channels, both ways.
TEST_F(WithPythonCan, ABigCompressedBlfBothWays)
{
    const std::string theirs = m_dir.File("theirs.blf");
    const std::vector<CanFrame> written =
        ParseFrames(RunPartner(VELDOR_CAN_LOG_INTEROP_SCRIPT, "write-many", theirs, "100000"));
    ASSERT_EQ(written.size(), 100000u);
    ExpectFrames(ReadAll(theirs, WithErrorFrames()), written);

    const std::string ours = m_dir.File("ours.blf");
    ASSERT_TRUE(WriteAll(ours, written));
    EXPECT_LT(ReadText(ours).size(), ReadText(theirs).size() * 3 / 2) << "compressed as well as python-can does";
    ExpectSame(ParseFrames(RunPartner(VELDOR_CAN_LOG_INTEROP_SCRIPT, "read", ours)), written);
}

namespace {

// A minimal file of a kind that other tools write.
struct OtherToolFile {
    const char* name;
    const char* extension;
    std::string text;
    // Where python-can cannot read the file at all, the same frames in a
    // file it reads: what its reading of that file is held against.
    std::string forPythonCan;
    // Where python-can reads frames wrong: what they are.
    void (*correct)(std::vector<CanFrame>& frames);
    std::vector<Issue> issues;
    std::size_t notices;
};

void PrintTo(const OtherToolFile& c, std::ostream* out) { *out << c.name; }

constexpr const char* kAscHeader =
    "date Tue Nov 14 10:13:20.123 pm 2023\n"
    "base hex  timestamps absolute\n"
    "internal events logged\n"
    "Begin Triggerblock Tue Nov 14 10:13:20.123 pm 2023\n"
    "   0.000000 Start of measurement\n";

const char* const kFdData24 = " 00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 11 12 13 14 15 16 17";

std::string DecimalAsc(bool hexClassicLines)
{
    std::string head = kAscHeader;
    if (!hexClassicLines) head.replace(head.find("base hex"), 8, "base dec");
    return head +
           (hexClassicLines ? "   0.100000 1  123             Rx   d 2 01 FF\n"
                            : "   0.100000 1  291             Rx   d 2 1 255\n") +
           "   0.200000 CANFD   1 Rx 1F5 1 0 c 24" + kFdData24 + "   0    0  3000 0 0 0 0 0\n" +
           "   0.300000 CANFD   2 Tx 123 1 0 2 2 10 20 0 0 3000 0 0 0 0 0\n" +
           (hexClassicLines ? "   0.400000 1  12C             Rx   d 1 0A\n"
                            : "   0.400000 1  300             Rx   d 1 10\n") +
           "End TriggerBlock\n";
}

const OtherToolFile kOtherToolFiles[] = {
    {"LogLastLineWithoutNewline", "log",
     "(1700000000.000001) can0 123#0102 R\n(1700000000.500000) can1 1ABCDEF0#AABBCCDD T", "", nullptr, {}, 0},
    // The block is not closed: the recording stopped without its end, which
    // is told; the last frame is read all the same.
    {"AscLastFrameLineWithoutNewline", "asc", std::string(kAscHeader) + "   0.100000 1  123             Rx   d 2 01 02",
     "", nullptr, {{IssueKind::Truncated, 7}}, 0},
    {"AscEndWithoutNewline", "asc",
     std::string(kAscHeader) + "   0.100000 2  7FF             Tx   r 3\nEnd TriggerBlock", "", nullptr, {}, 0},
    // Fields after the data in every number: none, 7, 8, 9; a symbolic name.
    {"AscFdLinesWithAnyTrailingFields", "asc",
     std::string(kAscHeader) +
         "   0.100000 CANFD   1 Rx 101 1 0 2 2 0A 0B\n"
         "   0.200000 CANFD   1 Rx 102 1 0 2 2 0A 0B 0 0 3000 0 0 0 0\n"
         "   0.300000 CANFD   1 Tx 103 1 1 2 2 0A 0B 130000 130 7000 1a2b3 0 0 0 0\n"
         "   0.400000 CANFD   3 Rx 1ABx 0 0 c 24" + kFdData24 + " 130000 130 1000 1a2b3 0 0 0 0 0\n"
         "   0.500000 CANFD   2 Tx 105 Engine 0 1 0 0 0 0 5000 0\n"
         "   0.600000 CANFD   1 Rx 106 0 0 8 8 01 02 03 04 05 06 07 08 0 0 0\n"
         "   0.700000 CANFD   1 Rx 107 0 0 3 0 0 0 10 0 0 0 0 0\n"
         "End TriggerBlock\n",
     "",
     [](std::vector<CanFrame>& frames) {
         // python-can takes an FD frame without data for a remote frame; its
         // flags (0x5000: EDL, ESI) say FD, and FD has no remote frames.
         frames[4].remote = false;
         // It takes every CANFD line for FD; the flags (0: no EDL; 0x10:
         // remote) say these are classic frames on an FD channel.
         frames[5].fd = false;
         frames[6].fd = false;
     },
     {}, 0},
    // Classic lines in decimal, CANFD lines in hex. python-can reads the
    // CANFD bytes as decimal and stops at the first that is not; it reads
    // the same frames from the file in hex throughout.
    {"AscDecimalBaseWithHexFdLines", "asc", DecimalAsc(false), DecimalAsc(true), nullptr, {}, 1},
    // German month and weekday names, a 24-hour clock and a 12-hour one.
    {"AscGermanDates", "asc",
     "date Do M\xC3\xA4r 19 22:13:20.123 2020\n"
     "base hex  timestamps absolute\n"
     "Begin Triggerblock Do M\xC3\xA4r 19 22:13:20.123 2020\n"
     "   0.100000 1  123             Rx   d 1 01\n"
     "End TriggerBlock\n"
     "Begin Triggerblock So Dez 3 10:13:20.456 pm 2023\n"
     "   0.200000 1  124             Rx   d 1 02\n"
     "End TriggerBlock\n",
     "", nullptr, {}, 0},
    // Comments as can-utils writes and reads them; python-can cannot read a
    // comment line at all, and reads the file without them.
    {"LogComments", "log",
     "# recorded on the bench\n(1.000000) can0 123#01 R\n#(2.000000) can0 124#02 R\n  # indented\n(3.000000) can0 125#03 R\n",
     "(1.000000) can0 123#01 R\n(3.000000) can0 125#03 R\n", nullptr, {}, 0},
};

class OtherTools : public WithPythonCan, public ::testing::WithParamInterface<OtherToolFile> {};

}  // namespace

TEST_P(OtherTools, ReadAsPythonCanReadsThemOrBetter)
{
    const OtherToolFile& c = GetParam();
    const std::string path = m_dir.File(std::string("t.") + c.extension);
    WriteText(path, c.text);
    const std::string reference = m_dir.File(std::string("reference.") + c.extension);
    WriteText(reference, c.forPythonCan.empty() ? c.text : c.forPythonCan);
    std::vector<CanFrame> expected = ParseFrames(RunPartner(VELDOR_CAN_LOG_INTEROP_SCRIPT, "read", reference));
    if (c.correct) c.correct(expected);

    const ReadOutcome r = ReadAll(path);
    EXPECT_EQ(r.issues, c.issues) << ::testing::PrintToString(r.messages);
    EXPECT_EQ(r.notices.size(), c.notices) << ::testing::PrintToString(r.notices);
    ASSERT_GT(expected.size(), 0u);
    EXPECT_EQ(r.frames, expected);
}

INSTANTIATE_TEST_SUITE_P(Files, OtherTools, ::testing::ValuesIn(kOtherToolFiles),
                         [](const ::testing::TestParamInfo<OtherToolFile>& info) { return std::string(info.param.name); });
