// The frame value: the DLC table, what a log file can hold, equality; and
// the long gaps of a recording, shortened for a replay.
#include <gtest/gtest.h>

#include "LogTestSupport.h"
#include "can_log/CanFrame.h"
#include "can_log/TimeGaps.h"

using namespace veldor::canlog;
using canlog_test::Classic;
using canlog_test::Fd;
using canlog_test::Remote;

TEST(CanFrame, DlcTableBothWays)
{
    const std::uint8_t fdLengths[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 20, 24, 32, 48, 64};
    for (std::uint8_t dlc = 0; dlc < 16; ++dlc) {
        EXPECT_EQ(DlcToLength(dlc, true), fdLengths[dlc]) << int(dlc);
        EXPECT_EQ(DlcToLength(dlc, false), dlc > 8 ? 8 : dlc) << int(dlc);
        EXPECT_EQ(LengthToDlc(fdLengths[dlc]), dlc);
    }
    // Lengths between the table's values round up to the next DLC.
    EXPECT_EQ(LengthToDlc(9), 9);
    EXPECT_EQ(LengthToDlc(33), 14);
    EXPECT_EQ(LengthToDlc(200), 15);
    EXPECT_TRUE(IsValidLength(48, true));
    EXPECT_FALSE(IsValidLength(47, true));
    EXPECT_FALSE(IsValidLength(65, true));
    EXPECT_TRUE(IsValidLength(8, false));
    EXPECT_FALSE(IsValidLength(12, false));
}

TEST(CanFrame, CheckFrameNamesWhatALogCannotHold)
{
    for (const CanFrame& fine : {Classic(0, 0x7FF, {1, 2}), Classic(0, 0x1FFFFFFF, {}, true), Fd(0, 0x10, 64, true, true),
                                 Remote(0, 0x10, 8)}) {
        EXPECT_EQ(CheckFrame(fine), nullptr) << ::testing::PrintToString(fine);
    }
    std::vector<CanFrame> wrong = {Classic(0, 0x800, {}), Classic(0, 0x20000000, {}, true), Fd(0, 0x10, 13, false),
                                   Remote(0, 0x10, 9), Classic(0, 1, {}), Fd(0, 1, 0, false), Classic(0, 1, {})};
    wrong[4].bitRateSwitch = true;  // FD flags on a classic frame
    wrong[5].remote = true;         // no remote FD frames
    wrong[6].length = 12;
    for (const CanFrame& f : wrong) EXPECT_NE(CheckFrame(f), nullptr) << ::testing::PrintToString(f);
}

TEST(CanFrame, EqualityIgnoresBytesPastTheLengthAndRemotePayload)
{
    const CanFrame a = Classic(5, 0x123, {1, 2, 3}), r = Remote(5, 0x123, 4);
    const struct {
        CanFrame base;
        void (*change)(CanFrame&);
        bool equal;
    } cases[] = {
        {a, [](CanFrame& f) { f.data[3] = 0xEE; }, true},
        {a, [](CanFrame& f) { f.data[2] = 0xEE; }, false},
        {r, [](CanFrame& f) { f.data[0] = 0xEE; }, true},
        {r, [](CanFrame& f) { f.length = 3; }, false},
        {a, [](CanFrame& f) { f.direction = Direction::Tx; }, false},
        {a, [](CanFrame& f) { f.channel = 1; }, false},
    };
    for (const auto& c : cases) {
        CanFrame changed = c.base;
        c.change(changed);
        EXPECT_EQ(changed == c.base, c.equal) << ::testing::PrintToString(changed);
    }
}

TEST(TimeGaps, LongGapsShortenedAndLeapsBackClosedTheRestKept)
{
    struct GapCase {
        std::int64_t maxGap;
        std::vector<std::int64_t> recorded;
        std::vector<std::int64_t> played;
        std::uint64_t changed;
    };
    const std::int64_t epoch = 1700000000000000;
    const GapCase cases[] = {
        // Seconds since the epoch among seconds since the start.
        {200000, {0, 10000, epoch + 20000, epoch + 30000, 40000, 50000}, {0, 10000, 210000, 220000, 220000, 230000}, 2},
        // Gaps up to the limit, and small steps back, stay as they are.
        {200000, {0, 200000, 190000, 390000}, {0, 200000, 190000, 390000}, 0},
        // No limit.
        {0, {0, epoch, 5}, {0, epoch, 5}, 0},
    };
    for (const GapCase& c : cases) {
        TimeGaps gaps(c.maxGap);
        std::vector<std::int64_t> played;
        for (std::int64_t t : c.recorded) {
            CanFrame f = Classic(t, 1, {});
            gaps.Apply(f);
            played.push_back(f.timestamp);
        }
        EXPECT_EQ(played, c.played);
        EXPECT_EQ(gaps.Changed(), c.changed);
    }
}
