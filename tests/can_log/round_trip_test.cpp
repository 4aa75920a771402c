// Frames written by the writers read back identical, through both formats;
// the exact lines the writers produce; what the writers refuse and how they
// fail.
#include <gtest/gtest.h>

#include <memory>

#include "LogTestSupport.h"
#include "can_log/AscWriter.h"
#include "can_log/LogFiles.h"

using namespace veldor::canlog;
using namespace canlog_test;

namespace {

// 2023-11-14 22:13:20.123456 UTC
constexpr std::int64_t kTime = 1700000000123456;

// The four frames whose lines the writers are held to.
std::vector<CanFrame> FourKinds()
{
    return {Classic(kTime, 0x123, {1, 2, 3, 4, 5, 6, 7, 8}), On(Classic(kTime + 100000, 0x1ABCDEF0, {0xAA, 0xBB}, true), 1, Direction::Tx),
            Remote(kTime + 200000, 0x7FF, 4), Fd(kTime + 300000, 0x456, 12, true)};
}

class RoundTrip : public ::testing::TestWithParam<const char*> {
protected:
    std::string Path() const { return m_dir.File(std::string("t.") + GetParam()); }

    ScratchDir m_dir;
};

}  // namespace

TEST_P(RoundTrip, EveryKindOfFrameReadsBackExactly)
{
    // Enough lines that the reader's buffer refills in the middle of one.
    const std::vector<CanFrame> frames = VariedFrames(kTime, 20000, 7);
    ASSERT_TRUE(WriteAll(Path(), frames, UtcWriting()));
    ExpectFrames(ReadAll(Path(), UtcReading()), frames);
}

TEST_P(RoundTrip, TimesAroundTheEpochAndOutOfOrder)
{
    // Before 1970, at 0, and a frame older than the one before it. BLF has
    // no time before its start, 0 for times that are no calendar times.
    std::vector<CanFrame> frames = {Classic(-1500001, 1, {1}), Classic(-1, 2, {}), Classic(0, 3, {}),
                                    Classic(999999, 4, {}), Classic(5, 5, {})};
    const bool blf = std::string(GetParam()) == "blf";
    std::string error;
    std::unique_ptr<FrameWriter> writer = OpenFrameWriter(Path(), error, UtcWriting());
    ASSERT_TRUE(writer) << error;
    for (const CanFrame& f : frames) {
        EXPECT_EQ(writer->Write(f), blf && f.timestamp < 0 ? WriteResult::Refused : WriteResult::Written);
    }
    EXPECT_TRUE(writer->Close());
    if (blf) frames.erase(frames.begin(), frames.begin() + 2);
    ExpectFrames(ReadAll(Path(), UtcReading()), frames);
}

TEST_P(RoundTrip, RefusedFramesCloseAndWritesAfterIt)
{
    std::string error;
    std::unique_ptr<FrameWriter> writer = OpenFrameWriter(Path(), error, UtcWriting());
    ASSERT_TRUE(writer) << error;
    EXPECT_EQ(writer->Write(Classic(kTime, 0x800, {})), WriteResult::Refused);
    EXPECT_NE(writer->Error().find("0x7FF"), std::string::npos) << writer->Error();
    EXPECT_EQ(writer->Write(Fd(kTime, 1, 13, false)), WriteResult::Refused);
    EXPECT_EQ(writer->Write(Classic(kTime, 0x7FF, {9})), WriteResult::Written);
    EXPECT_EQ(writer->FramesWritten(), 1u);
    EXPECT_TRUE(writer->Close());
    EXPECT_TRUE(writer->Close());
    EXPECT_EQ(writer->Write(Classic(kTime, 2, {})), WriteResult::Failed);
    ExpectFrames(ReadAll(Path(), UtcReading()), {Classic(kTime, 0x7FF, {9})});
    // Without a close, the destructor closes.
    writer = OpenFrameWriter(Path(), error, UtcWriting());
    writer->Write(Classic(kTime, 3, {}));
    writer.reset();
    ExpectFrames(ReadAll(Path(), UtcReading()), {Classic(kTime, 3, {})});
}

TEST_P(RoundTrip, ErrorFramesKeepWhatTheFormatHolds)
{
    CanFrame error = On(AsError(Classic(kTime, 0x80, {1, 2, 3})), 2);
    ASSERT_TRUE(WriteAll(Path(), {error, Classic(kTime + 1, 0x123, {4})}, UtcWriting()));
    const ReadOutcome r = ReadAll(Path(), UtcReading(true));
    // ASC keeps an error frame's time and channel only.
    if (std::string(GetParam()) == "asc") error = On(AsError(Classic(kTime, 0, {})), 2);
    ExpectFrames(r, {error, Classic(kTime + 1, 0x123, {4})});
    // Unasked, they are counted only.
    const ReadOutcome counted = ReadAll(Path(), UtcReading());
    EXPECT_EQ(counted.frames.size(), 1u);
    EXPECT_EQ(counted.errorFrames, 1u);
}

INSTANTIATE_TEST_SUITE_P(Formats, RoundTrip, ::testing::Values("asc", "log", "blf"));

TEST(Writing, ExactLines)
{
    WriterOptions relative = UtcWriting(), empty = UtcWriting(), vcan;
    relative.relativeTimestamps = true;
    relative.measurementStart = kTime + 50999;  // taken down to the millisecond: ...123456 + 50999 -> ...174000
    empty.measurementStart = kTime;
    vcan.interfacePrefix = "vcan";
    std::vector<CanFrame> logFrames = FourKinds();
    logFrames.push_back(Fd(1500000, 0x18DAF110, 0, false, true));
    logFrames.back().extended = true;
    const std::string head = "date Tue Nov 14 10:13:20.123 pm 2023\nbase hex  timestamps absolute\ninternal events logged\n"
                             "Begin Triggerblock Tue Nov 14 10:13:20.123 pm 2023\n   0.000000 Start of measurement\n";
    const struct {
        const char* name;
        WriterOptions options;
        std::vector<CanFrame> frames;
        std::string text;
    } cases[] = {
        {"t.asc", UtcWriting(), FourKinds(),
         head +
             "   0.000456 1  123             Rx   d 8 01 02 03 04 05 06 07 08\n"
             "   0.100456 2  1ABCDEF0x       Tx   d 2 AA BB\n"
             "   0.200456 1  7FF             Rx   r 4\n"
             "   0.300456 CANFD   1 Rx       456                                   1 0 9 12 00 01 02 03 04 05 06 07 08 "
             "09 0A 0B        0    0     3000        0        0        0        0        0\n"
             "End TriggerBlock\n"},
        // Times before the given start are negative.
        {"relative.asc", relative, {Classic(kTime, 1, {}), Classic(kTime + 250000, 2, {}), Classic(kTime + 250000, 3, {})},
         "date Tue Nov 14 10:13:20.174 pm 2023\nbase hex  timestamps relative\ninternal events logged\n"
         "Begin Triggerblock Tue Nov 14 10:13:20.174 pm 2023\n   0.000000 Start of measurement\n"
         "  -0.050544 1  1               Rx   d 0\n"
         "   0.250000 1  2               Rx   d 0\n"
         "   0.000000 1  3               Rx   d 0\n"
         "End TriggerBlock\n"},
        // An empty recording is a whole file.
        {"empty.asc", empty, {}, head + "End TriggerBlock\n"},
        {"t.log", vcan, logFrames,
         "(1700000000.123456) vcan0 123#0102030405060708 R\n"
         "(1700000000.223456) vcan1 1ABCDEF0#AABB T\n"
         "(1700000000.323456) vcan0 7FF#R4 R\n"
         "(1700000000.423456) vcan0 456##1000102030405060708090A0B R\n"
         "(0000000001.500000) vcan0 18DAF110##2 R\n"},
    };
    ScratchDir dir;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ASSERT_TRUE(WriteAll(dir.File(c.name), c.frames, c.options));
        EXPECT_EQ(ReadText(dir.File(c.name)), c.text);
        ExpectFrames(ReadAll(dir.File(c.name), UtcReading()), c.frames);
    }
}

TEST(Writing, FailuresAreReportedNotSwallowed)
{
    std::string error;
    EXPECT_FALSE(OpenFrameWriter("/nonexistent-dir/t.asc", error));
    EXPECT_NE(error.find("/nonexistent-dir/t.asc"), std::string::npos) << error;
    EXPECT_FALSE(OpenFrameWriter("t.mf4", error));
    EXPECT_NE(error.find("extension"), std::string::npos) << error;

    // A full disk: the buffer fills, the write to the file fails, and the
    // writer says so, at the latest when it is closed.
    std::unique_ptr<AscWriter> writer = AscWriter::Open("/dev/full", error);
    ASSERT_TRUE(writer) << error;
    bool failed = false;
    for (int i = 0; i < 10000 && !failed; ++i) failed = writer->Write(Fd(kTime + i, 1, 64, true)) == WriteResult::Failed;
    EXPECT_TRUE(failed);
    EXPECT_NE(writer->Error().find("No space"), std::string::npos) << writer->Error();
    EXPECT_FALSE(writer->Close());
}
