// The bundled sample recording: both files hold the same frames, all of
// them readable, in time order, with the mix the generator promises; and the
// bus simulation that makes it: bit times, and no two frames at once.
#include <gtest/gtest.h>

#include <set>

#include "LogTestSupport.h"
#include "SampleDrive.h"

using namespace veldor::canlog;
using namespace canlog_test;

TEST(SampleRecording, AscAndLogHoldTheSameFrames)
{
    const ReadOutcome log = ReadAll(std::string(VELDOR_SAMPLE_DATA_DIR) + "/sample_drive.log");
    const std::vector<CanFrame>& frames = log.frames;
    EXPECT_EQ(log.messages, std::vector<std::string>());
    // The generator writes the ASC header's date as UTC.
    ExpectFrames(ReadAll(std::string(VELDOR_SAMPLE_DATA_DIR) + "/sample_drive.asc", UtcReading()), frames);
    ASSERT_GT(frames.size(), 3000u);
    std::set<std::uint32_t> ids;
    std::size_t fd = 0, brs = 0, extended = 0;
    for (std::size_t i = 0; i < frames.size(); ++i) {
        if (i > 0) {
            ASSERT_GT(frames[i].timestamp, frames[i - 1].timestamp) << "frame " << i;
        }
        ids.insert(frames[i].id);
        fd += frames[i].fd;
        brs += frames[i].bitRateSwitch;
        extended += frames[i].extended;
    }
    EXPECT_GE(ids.size(), 10u);
    EXPECT_GT(fd, brs);
    EXPECT_GT(brs, 0u);
    EXPECT_GT(extended, 0u);
    EXPECT_GE(frames.back().timestamp - frames.front().timestamp, 19000000);
}

TEST(SampleRecording, BitsOnTheBus)
{
    using veldor::sample::BusRates;
    using veldor::sample::TimeOnBus;
    const BusRates rates;
    // Identifier 0, no data: 34 dominant bits up to the CRC (which is 0 too)
    // need a stuff bit after every five; then 13 recessive bits.
    const auto empty = TimeOnBus(Classic(0, 0, {}), rates);
    EXPECT_EQ(empty.arbitrationBits, 34u + 6u + 13u);
    EXPECT_EQ(empty.dataBits, 0u);
    EXPECT_EQ(empty.nanoseconds, 53 * 2000);
    // Eight bytes cost 64 bits and their stuffing; an extended identifier
    // 20 more bits.
    const auto eight = TimeOnBus(Classic(0, 0x555, {0x55, 0x55, 0x55, 0x55, 0x55, 0x55, 0x55, 0x55}), rates);
    EXPECT_GE(eight.arbitrationBits, 111u);
    EXPECT_LE(eight.arbitrationBits, 111u + 24u);
    const auto extended = TimeOnBus(Classic(0, 0x1555555, {0x55, 0x55, 0x55, 0x55, 0x55, 0x55, 0x55, 0x55}, true), rates);
    EXPECT_GE(extended.arbitrationBits, eight.arbitrationBits + 20);
    // The data phase of an FD frame runs four times as fast with the bit
    // rate switch, and not at all without it.
    const auto fast = TimeOnBus(Fd(0, 0x100, 64, true), rates);
    const auto slow = TimeOnBus(Fd(0, 0x100, 64, false), rates);
    EXPECT_GT(fast.dataBits, 64u * 8u);
    EXPECT_EQ(slow.dataBits, 0u);
    EXPECT_EQ(slow.arbitrationBits, fast.arbitrationBits + fast.dataBits);
    EXPECT_LT(fast.nanoseconds * 2, slow.nanoseconds);
}

TEST(SampleRecording, FramesNeverOverlapOnTheBus)
{
    veldor::sample::DriveSettings settings;
    settings.duration = 5000000;
    veldor::sample::DriveStats stats;
    const std::vector<CanFrame> frames = veldor::sample::SimulateDrive(settings, stats);
    ASSERT_EQ(stats.frames, frames.size());
    EXPECT_GT(stats.meanLoad, 0.02);
    EXPECT_LT(stats.peakLoad, 0.8);
    for (std::size_t i = 1; i < frames.size(); ++i) {
        // A frame is stamped at its start, so the gap to the one before is at
        // least that one's time on the bus (to the microsecond).
        const std::int64_t onBus = veldor::sample::TimeOnBus(frames[i - 1], settings.rates).nanoseconds / 1000;
        ASSERT_GE(frames[i].timestamp - frames[i - 1].timestamp, onBus - 1) << "frame " << i;
    }
}
