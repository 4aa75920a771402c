// Hardware-timed replay: record layout, the scheduling rule, start options,
// stop time, end of stream, queue limits and counters.
#include <cstring>
#include <thread>

#include "sim_test_support.h"

namespace nxsim_test {
namespace {

class ReplayTest : public SimTest {
protected:
    // A replay channel without bus time (its frames end when emitted) and a
    // receiver, so that reception timestamps show emission times.
    void OpenPair(const char* replayChannel = "NVX-VIRT-1")
    {
        m_replay = Open(replayChannel, true, true);
        m_rx = Open("NVX-CAN-2");
        m_coef = TicksPerMicrosecond(m_replay);
    }
    uint64_t Ms(uint64_t ms) const { return ms * 1000 * m_coef; }
    void Stream(const std::vector<uint8_t>& stream)
    {
        uint32_t size = static_cast<uint32_t>(stream.size());
        ASSERT_EQ(NXCAN_ReplayStreamData(m_replay, &size, const_cast<uint8_t*>(stream.data())), NXCAN_SUCCESS);
        ASSERT_EQ(size, stream.size());
    }
    bool Reaches(NXECanReplayState state)
    {
        return veldtest::Eventually([&] { return ReplayStatus(m_replay).tReplayState == state; }, 5);
    }

    NXTCanHandle m_replay = NXCAN_INVALID_HANDLE;
    NXTCanHandle m_rx = NXCAN_INVALID_HANDLE;
    uint64_t m_coef = 0;
};

TEST_F(ReplayTest, RecordSizeFollowsTheDlcAndOnlyTheHeadIsWritten)
{
    const uint32_t expected[16] = {64, 64, 64, 64, 64, 64, 64, 64, 64, 72, 72, 80, 80, 88, 104, 120};
    for (uint16_t dlc = 0; dlc < 16; ++dlc) {
        uint8_t block[128];
        std::memset(block, 0xAB, sizeof block);
        uint32_t size = 0;
        ASSERT_EQ(NXCAN_ReplayInitHeader(reinterpret_cast<NXSCanReplayData*>(block), false, dlc, &size), NXCAN_SUCCESS);
        EXPECT_EQ(size, expected[dlc]) << dlc;
        EXPECT_EQ(reinterpret_cast<NXSCanReplayData*>(block)->tHeader.ulSize, expected[dlc]);
        EXPECT_EQ(reinterpret_cast<NXSCanReplayData*>(block)->tMsgHeader.usDLC, dlc);
        EXPECT_EQ(block[64], 0xAB) << "the payload beyond the head is the caller's";
    }
    NXSCanReplayData end;
    uint32_t size = 0;
    ASSERT_EQ(NXCAN_ReplayInitHeader(&end, true, 0, &size), NXCAN_SUCCESS);
    EXPECT_EQ(size, 64u);
    EXPECT_EQ(NXCAN_ReplayInitHeader(&end, false, 16, &size), NXCAN_ERR_INVALID_ARGUMENT);
}

TEST_F(ReplayTest, FramesLeaveAtStartPlusTimestampMinusOffset)
{
    OpenPair();
    const uint64_t logStart = 5000000 * m_coef;  // a recording that began at 5 s
    std::vector<uint8_t> stream;
    for (uint64_t i = 0; i < 5; ++i)
        AppendRecord(stream, logStart + Ms(20 * i), 0x100 + i, i == 4 ? 15 : 8, i == 4 ? NXCAN_FLAG_TX_FD : 0);
    AppendEndRecord(stream);
    Stream(stream);
    EXPECT_EQ(ReplayStatus(m_replay).tReplayState, NXCAN_REPLAY_STATE_UNKNOWN) << "no start time yet";
    EXPECT_EQ(ReplayStatus(m_replay).Reserved[1], 6u) << "records queued";

    const uint64_t start = HardwareTime(m_replay) + Ms(100);
    ASSERT_EQ(NXCAN_SetReplayStartTime(m_replay, start, logStart, NXCAN_REPLAY_OPTION_NONE, 0), NXCAN_SUCCESS);
    EXPECT_EQ(ReplayStatus(m_replay).tReplayState, NXCAN_REPLAY_STATE_SCHEDULED);

    const auto got = ReadAtLeast(m_rx, 5);
    ASSERT_EQ(got.size(), 5u);
    for (uint64_t i = 0; i < 5; ++i) {
        SCOPED_TRACE(i);
        const uint64_t due = start + Ms(20 * i);
        EXPECT_EQ(got[i].ulCanIdentifier, 0x100 + i);
        EXPECT_GE(got[i].ui64Timestamp, due);
        EXPECT_LT(got[i].ui64Timestamp, due + Ms(40)) << "generous: scheduling jitter";
        EXPECT_EQ(got[i].ucData[7], static_cast<uint8_t>(0x100 + i + 7));
    }
    EXPECT_EQ(got[4].usDLC, 15);
    EXPECT_EQ(got[4].ucData[63], static_cast<uint8_t>(0x104 + 63)) << "payload beyond the 64-byte head";

    ASSERT_TRUE(Reaches(NXCAN_REPLAY_STATE_END));
    const NXSCanReplayStatusInfo info = ReplayStatus(m_replay);
    EXPECT_EQ(info.ui64SentFrames, 5u);
    EXPECT_EQ(info.ui64SendFailed + info.ui64Dropped + info.ui64ErrorData, 0u);
    EXPECT_EQ(info.ui64Timestamp, logStart + Ms(80)) << "position in the log";
    EXPECT_EQ(info.ulValidInfoFlags, NXCAN_REPLAY_INFO_VALID_ALL);
    EXPECT_EQ(info.Reserved[1], 0u);
}

TEST_F(ReplayTest, StopTimeEndsTheReplay)
{
    OpenPair();
    std::vector<uint8_t> stream;
    for (uint64_t i = 0; i < 10; ++i) AppendRecord(stream, Ms(50 * i), 0x200 + i, 1);
    Stream(stream);
    const uint64_t start = HardwareTime(m_replay) + Ms(30);
    ASSERT_EQ(NXCAN_SetReplayStopTime(m_replay, start + Ms(225)), NXCAN_SUCCESS);
    ASSERT_EQ(NXCAN_SetReplayStartTime(m_replay, start, 0, NXCAN_REPLAY_OPTION_NONE, 0), NXCAN_SUCCESS);
    ASSERT_TRUE(Reaches(NXCAN_REPLAY_STATE_STOP));
    const auto got = ReadAtLeast(m_rx, 6, std::chrono::milliseconds(100));
    ASSERT_EQ(got.size(), 5u) << "frames at 0, 50, 100, 150 and 200 ms";
    EXPECT_EQ(got.back().ulCanIdentifier, 0x204u);
    const NXSCanReplayStatusInfo info = ReplayStatus(m_replay);
    EXPECT_EQ(info.ui64SentFrames, 5u);
    EXPECT_EQ(info.ui64Dropped, 5u);

    // What comes after the stop is taken and dropped, not sent.
    std::vector<uint8_t> more;
    AppendRecord(more, Ms(600), 0x300, 1);
    Stream(more);
    EXPECT_EQ(ReplayStatus(m_replay).ui64Dropped, 6u);
}

TEST_F(ReplayTest, LogStartAloneStartsTheReplayNow)
{
    OpenPair();
    const uint64_t logStart = Ms(1000);
    const uint64_t before = HardwareTime(m_replay);
    ASSERT_EQ(NXCAN_SetReplayStartTime(m_replay, 0, logStart, NXCAN_REPLAY_OPTION_APPLY_OFFSET_ONLY, 0),
              NXCAN_SUCCESS);
    const uint64_t after = HardwareTime(m_replay);
    std::vector<uint8_t> stream;
    // Due well after the call, so that a slow machine still streams it in time.
    AppendRecord(stream, logStart + Ms(300), 0x1, 1);
    Stream(stream);
    const auto got = ReadAtLeast(m_rx, 1);
    ASSERT_EQ(got.size(), 1u);
    EXPECT_GE(got[0].ui64Timestamp, before + Ms(300));
    // A start read as time 0 would have sent it at once, before its time.
    EXPECT_LT(got[0].ui64Timestamp, after + Ms(400));
}

TEST_F(ReplayTest, PassedFramesGoOutAtOnceAndCountAsLate)
{
    OpenPair();
    const uint64_t now = HardwareTime(m_replay);
    std::vector<uint8_t> stream;
    for (uint64_t i = 0; i < 3; ++i) AppendRecord(stream, Ms(i), 0x10 + i, 2);
    AppendRecord(stream, Ms(1000) + Ms(300), 0x20, 2);  // 300 ms after the call
    Stream(stream);
    ASSERT_EQ(NXCAN_SetReplayStartTime(m_replay, now, Ms(1000), NXCAN_REPLAY_OPTION_NONE, 0), NXCAN_SUCCESS);
    const auto got = ReadAtLeast(m_rx, 4);
    ASSERT_EQ(got.size(), 4u);
    EXPECT_LT(got[2].ui64Timestamp, now + Ms(150)) << "late frames are not held back";
    EXPECT_GE(got[3].ui64Timestamp, now + Ms(300));
    EXPECT_EQ(ReplayStatus(m_replay).Reserved[0], 3u);
}

TEST_F(ReplayTest, StartTimeIsFixedOnceStartedUnlessForced)
{
    OpenPair();
    const uint64_t now = HardwareTime(m_replay);
    ASSERT_EQ(NXCAN_SetReplayStartTime(m_replay, now + Ms(500), 0, NXCAN_REPLAY_OPTION_NONE, 0), NXCAN_SUCCESS);
    ASSERT_EQ(NXCAN_SetReplayStartTime(m_replay, now, 0, NXCAN_REPLAY_OPTION_NONE, 0), NXCAN_SUCCESS)
        << "not started yet: may be moved";
    EXPECT_EQ(ReplayStatus(m_replay).tReplayState, NXCAN_REPLAY_STATE_STARTED);
    EXPECT_EQ(NXCAN_SetReplayStartTime(m_replay, now + Ms(10), 0, NXCAN_REPLAY_OPTION_NONE, 0),
              NXCAN_ERR_REPLAY_ALREADY_STARTED);
    const uint64_t later = HardwareTime(m_replay) + Ms(30);
    ASSERT_EQ(NXCAN_SetReplayStartTime(m_replay, later, Ms(7), NXCAN_REPLAY_OPTION_FORCE_APPLY, 0), NXCAN_SUCCESS);
    std::vector<uint8_t> stream;
    AppendRecord(stream, Ms(7), 0x5, 1);
    Stream(stream);
    const auto got = ReadAtLeast(m_rx, 1);
    ASSERT_EQ(got.size(), 1u);
    EXPECT_GE(got[0].ui64Timestamp, later);
    EXPECT_EQ(NXCAN_SetReplayStartTime(m_replay, 0, 0, static_cast<NXECanReplayStartOptions>(9), 0),
              NXCAN_ERR_INVALID_ARGUMENT);
}

TEST_F(ReplayTest, ReplayQueueLimitAndInjectedPartialConsumption)
{
    UseConfig("[bus CAN1]\naddress = 127.0.0.1\nreplay_queue_limit = 3\n"
              "[channel R]\nvendor = Norvex\ninterface = Virtual\n"
              "[channel NVX-CAN-2]\nvendor = Norvex\ninterface = i\n"
              "[fault NXCAN_ReplayStreamData]\nconsume_records = 2\nafter = 1\ntimes = 1\n");
    OpenPair("R");
    std::vector<uint8_t> stream;
    AppendRecord(stream, Ms(1), 0x1, 12, NXCAN_FLAG_TX_FD);  // 80 bytes
    for (int i = 0; i < 4; ++i)
        AppendRecord(stream, Ms(2 + i), 0x2 + i, 8);  // 64 bytes each
    uint32_t size = static_cast<uint32_t>(stream.size());
    ASSERT_EQ(NXCAN_ReplayStreamData(m_replay, &size, stream.data()), NXCAN_SUCCESS);
    EXPECT_EQ(size, 80u + 64 + 64) << "the queue holds three records";
    stream.erase(stream.begin(), stream.begin() + size);

    ASSERT_EQ(NXCAN_SetReplayStartTime(m_replay, HardwareTime(m_replay), 0, NXCAN_REPLAY_OPTION_NONE, 0),
              NXCAN_SUCCESS);
    ASSERT_EQ(ReadAtLeast(m_rx, 3).size(), 3u);
    size = static_cast<uint32_t>(stream.size());
    stream.resize(stream.size() + 10);  // and the first bytes of a further record
    ASSERT_EQ(NXCAN_ReplayStreamData(m_replay, &size, stream.data()), NXCAN_SUCCESS);
    EXPECT_EQ(size, 128u) << "the injected limit: two records";

    std::vector<uint8_t> partial;
    AppendRecord(partial, Ms(9), 0x9, 9, NXCAN_FLAG_TX_FD);  // 72 bytes, of which 64 are offered
    size = 64;
    ASSERT_EQ(NXCAN_ReplayStreamData(m_replay, &size, partial.data()), NXCAN_SUCCESS);
    EXPECT_EQ(size, 0u) << "whole records only";
}

TEST_F(ReplayTest, InvalidRecordsAreCountedOrRefused)
{
    OpenPair();
    std::vector<uint8_t> stream;
    AppendRecord(stream, 0, 0x800, 1);                 // standard identifier too large
    AppendRecord(stream, 0, 0x1, 8, NXCAN_FLAG_TX_BRS);  // BRS without FD
    AppendRecord(stream, 0, 0x2, 1);                   // fine
    const size_t good = stream.size();
    stream.resize(good + 64);  // not made by NXCAN_ReplayInitHeader
    uint32_t size = static_cast<uint32_t>(stream.size());
    EXPECT_EQ(NXCAN_ReplayStreamData(m_replay, &size, stream.data()), NXCAN_ERR_INVALID_RECORD);
    EXPECT_EQ(size, good);
    const NXSCanReplayStatusInfo info = ReplayStatus(m_replay);
    EXPECT_EQ(info.ui64ErrorData, 2u);
    EXPECT_EQ(info.Reserved[1], 1u);

    // A record whose size does not belong to its DLC.
    std::vector<uint8_t> lying;
    AppendRecord(lying, 0, 0x3, 8);
    reinterpret_cast<NXSCanReplayData*>(lying.data())->tMsgHeader.usDLC = 9;
    size = static_cast<uint32_t>(lying.size());
    EXPECT_EQ(NXCAN_ReplayStreamData(m_replay, &size, lying.data()), NXCAN_ERR_INVALID_RECORD);
    EXPECT_EQ(size, 0u);
}

TEST_F(ReplayTest, FlushDiscardsTheQueue)
{
    OpenPair();
    std::vector<uint8_t> stream;
    for (int i = 0; i < 4; ++i) AppendRecord(stream, Ms(i), 0x60 + i, 0);
    Stream(stream);
    ASSERT_EQ(NXCAN_FlushTransmitQueue(m_replay), NXCAN_SUCCESS);
    NXSCanReplayStatusInfo info = ReplayStatus(m_replay);
    EXPECT_EQ(info.tReplayState, NXCAN_REPLAY_STATE_FLUSH);
    EXPECT_EQ(info.ui64Dropped, 4u);
    EXPECT_EQ(info.Reserved[1], 0u);
}

TEST_F(ReplayTest, FramesOfAnInactiveChannelFail)
{
    OpenPair();
    ASSERT_EQ(NXCAN_DeactivateChannel(m_replay), NXCAN_SUCCESS);
    std::vector<uint8_t> stream;
    AppendRecord(stream, 0, 0x1, 0);
    AppendEndRecord(stream);
    Stream(stream);
    ASSERT_EQ(NXCAN_SetReplayStartTime(m_replay, 0, 0, NXCAN_REPLAY_OPTION_APPLY_OFFSET_ONLY, 0), NXCAN_SUCCESS);
    ASSERT_TRUE(Reaches(NXCAN_REPLAY_STATE_END));
    const NXSCanReplayStatusInfo info = ReplayStatus(m_replay);
    EXPECT_EQ(info.ui64SendFailed, 1u);
    EXPECT_EQ(info.ui64SentFrames, 0u);
}

TEST_F(ReplayTest, HighSpeedPathOnlyWhereTheChannelOffersIt)
{
    const NXTCanHandle offered = Open("NVX-CAN-1", true, true, true);
    const NXTCanHandle notOffered = Open("NVX-CAN-2", true, true, true);
    EXPECT_EQ(ReplayStatus(offered).Reserved[2], 1u);
    EXPECT_EQ(ReplayStatus(notOffered).Reserved[2], 0u);
    const NXTCanHandle plain = Open("ORV-CAN-1");
    NXSCanReplayStatusInfo info;
    EXPECT_EQ(NXCAN_GetReplayStateInfo(plain, &info), NXCAN_ERR_NOT_REPLAY_CHANNEL);
    EXPECT_EQ(NXCAN_SetReplayStopTime(plain, 1), NXCAN_ERR_NOT_REPLAY_CHANNEL);
}

}  // namespace
}  // namespace nxsim_test
