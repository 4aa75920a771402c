// Hardware-timed replay through a replay wrapper: frames staged with their
// log times, pushed to the library, and heard by a monitoring wrapper on
// another channel at the replay start plus their distance from the log start.
// A stop time: the library's rule in busapi_sim/replay_test, through the
// injector in bus_components/replay_test.
#include <thread>

#include "SimBusTest.h"

namespace nxbus_on_sim {
namespace {

const VELDTimestamp kLogStart = 7000000;  // a recording that began at 7 s, in microseconds

class ReplayTest : public SimBusTest {
protected:
    void SetUp() override
    {
        replay = Open(Replay(ReplayChannel()));
        rx = Open(Monitoring("NVX-CAN-2"));
        ASSERT_TRUE(replay && rx);
    }
    virtual const char* ReplayChannel() const { return "NVX-CAN-1"; }

    void StageAndPush(const std::vector<FrameFields>& frames)
    {
        for (const FrameFields& frame : frames) {
            NxBusError result = Stage(*replay, frame);
            ASSERT_EQ(result.errorCode, 0) << replay->GetErrorMessage(result);
        }
        NxBusError result = replay->TransmitMessagesPushing(false);
        ASSERT_EQ(result.errorCode, 0) << replay->GetErrorMessage(result);
        result = replay->TransmitMessagesPushing(true);
        ASSERT_EQ(result.errorCode, 0) << replay->GetErrorMessage(result);
        EXPECT_EQ(replay->GetTxBufferSize(), 0u) << "the library took everything";
        EXPECT_TRUE(replay->IsTransmitFramesAllowed());
    }

    NxBusReplayStateInfo State()
    {
        NxBusReplayStateInfo info{};
        NxBusError result = replay->GetReplayStateInfo(&info);
        EXPECT_EQ(result.errorCode, 0) << replay->GetErrorMessage(result);
        return info;
    }

    NxBusReplayStateInfo WaitForState(std::uint8_t state)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        NxBusReplayStateInfo info = State();
        while (info.tReplayState != state && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
            info = State();
        }
        EXPECT_EQ(info.tReplayState, state) << "replay state";
        return info;
    }

    // Hardware time of reception in microseconds, as the package makes it.
    static std::uint64_t ReceivedAt(const NXSCanMessage& message)
    {
        VELDCANUniFrame frame;
        return static_cast<std::uint64_t>(NxCanApiWrapper::CopyFrameMon(frame, message, 0));
    }

    std::unique_ptr<NxCanApiWrapper> replay;
    std::unique_ptr<NxCanApiWrapper> rx;
};

TEST_F(ReplayTest, FramesGoOutAtTheReplayStartPlusTheirDistanceFromTheLogStart)
{
    const std::vector<FrameFields> frames = {
        {Record::Classic, 0x101, false, 8, false, false, 0x10, kLogStart},
        {Record::Fd, 0x1ABCDEF, true, 64, true, true, 0x20, kLogStart + 40000},
        {Record::Universal, 0x102, false, 12, true, false, 0x30, kLogStart + 41000},
        {Record::Universal, 0x103, false, 3, false, false, 0x40, kLogStart + 150000},
        {Record::Classic, 0x1000, true, 0, false, false, 0x50, kLogStart + 300000}};
    EXPECT_EQ(State().tReplayState, NXCAN_REPLAY_STATE_FLUSH) << "bring-up flushes the transmit queue";

    const std::uint64_t start = Now(*replay) + 200000;
    ASSERT_EQ(replay->SetReplayStopTime(0).errorCode, 0);
    NxBusError result = replay->SetReplayStartTime(start, kLogStart);
    ASSERT_EQ(result.errorCode, 0) << replay->GetErrorMessage(result);
    ASSERT_NO_FATAL_FAILURE(StageAndPush(frames));

    // Follow the replay to its end: the states it passes, and sent counts
    // that only grow.
    std::vector<int> states;
    std::vector<NXSCanMessage> got;
    std::uint64_t sent = 0;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    for (;;) {
        const NxBusReplayStateInfo info = State();
        if (states.empty() || states.back() != info.tReplayState) states.push_back(info.tReplayState);
        EXPECT_GE(info.ui64SentFrames, sent);
        EXPECT_LE(info.ui64SentFrames, frames.size());
        sent = info.ui64SentFrames;
        const std::vector<NXSCanMessage> more = Receive(*rx, 0);
        got.insert(got.end(), more.begin(), more.end());
        if (info.tReplayState == NXCAN_REPLAY_STATE_END || std::chrono::steady_clock::now() > deadline) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_EQ(states, (std::vector<int>{NXCAN_REPLAY_STATE_SCHEDULED, NXCAN_REPLAY_STATE_STARTED,
                                        NXCAN_REPLAY_STATE_END}));
    const std::vector<NXSCanMessage> rest = Receive(*rx, frames.size() - got.size());
    got.insert(got.end(), rest.begin(), rest.end());

    ASSERT_EQ(got.size(), frames.size());
    for (std::size_t i = 0; i < frames.size(); ++i) {
        SCOPED_TRACE("frame " + std::to_string(i));
        ExpectReceived(frames[i], got[i]);
        const std::uint64_t due = start + (frames[i].ts - kLogStart);
        EXPECT_GE(ReceivedAt(got[i]), due) << "before its time";
        EXPECT_LT(ReceivedAt(got[i]), due + 50000) << "late beyond a generous margin";
    }
    const NxBusReplayStateInfo info = State();
    EXPECT_EQ(info.ui64SentFrames, frames.size());
    EXPECT_EQ(info.ui64Dropped + info.ui64SendFailed + info.ui64ErrorData, 0u);
    EXPECT_EQ(info.ui64Timestamp, frames.back().ts * NxCanApiWrapper::GetTimeConvCoefficient())
        << "the last frame's log time, in ticks";
}

// The replay channel of this test takes at most three records a push
// (partial_stream.conf), so that pushes leave data behind.
class PartialReplayTest : public ReplayTest {
protected:
    const char* ReplayChannel() const override { return "NVX-ZIRA-1"; }
};

TEST_F(PartialReplayTest, TheStagingBufferFillsToItsLastByteAndKeepsWhatAPushLeaves)
{
    const std::uint32_t kBuffer = NxCanApiWrapper::kTxBufferSize;
    const std::uint32_t kClassicRecord = 64;  // a record of up to 8 bytes of payload
    const std::uint32_t kLongestRecord = 120;  // a record of 64 bytes of payload
    std::vector<FrameFields> frames;
    auto stage = [&](const FrameFields& frame) {
        frames.push_back(frame);
        NxBusError result = Stage(*replay, frame);
        ASSERT_EQ(result.errorCode, 0) << replay->GetErrorMessage(result);
    };

    // Classic records fill the buffer to its last byte without a push.
    for (std::uint32_t i = 0; i < kBuffer / kClassicRecord; ++i)
        ASSERT_NO_FATAL_FAILURE(
            stage({Record::Classic, 0x100 + i % 0x600, false, 8, false, false, static_cast<std::uint8_t>(i), kLogStart}));
    EXPECT_EQ(replay->GetTxBufferSize(), kBuffer);
    EXPECT_TRUE(replay->IsTransmitFramesAllowed());
    EXPECT_EQ(State().ui64SentFrames, 0u);

    // The next record's head finds no room: a push first, which takes three
    // records and leaves the rest.
    ASSERT_NO_FATAL_FAILURE(stage({Record::Fd, 0x7A0, false, 64, true, true, 0xA0, kLogStart}));
    EXPECT_EQ(replay->GetTxBufferSize(), kBuffer - 3 * kClassicRecord + kLongestRecord);
    EXPECT_FALSE(replay->IsTransmitFramesAllowed());

    // Now the head fits and the whole record does not: the push comes after
    // the head was placed, and the head is placed again behind what is left.
    ASSERT_NO_FATAL_FAILURE(stage({Record::Universal, 0x1ABCDE, true, 64, true, false, 0xB0, kLogStart}));
    EXPECT_EQ(replay->GetTxBufferSize(), kBuffer - 6 * kClassicRecord + 2 * kLongestRecord);
    EXPECT_FALSE(replay->IsTransmitFramesAllowed());

    // Each push takes a part, until nothing is left.
    std::uint32_t left = replay->GetTxBufferSize();
    for (int pushes = 0; !replay->IsTransmitFramesAllowed(); ++pushes) {
        ASSERT_LT(pushes, 1000) << "pushing makes no progress";
        NxBusError result = replay->TransmitMessagesPushing(false);
        ASSERT_EQ(result.errorCode, 0) << replay->GetErrorMessage(result);
        const std::uint32_t now = replay->GetTxBufferSize();
        ASSERT_LT(now, left);
        ASSERT_LE(left - now, 3 * kLongestRecord);
        left = now;
    }
    EXPECT_EQ(left, 0u);
    ASSERT_NO_FATAL_FAILURE(StageAndPush({}));

    ASSERT_EQ(replay->SetReplayStartTime(Now(*replay) + 20000, kLogStart).errorCode, 0);
    const std::vector<NXSCanMessage> got = Receive(*rx, frames.size(), std::chrono::seconds(10));
    ASSERT_EQ(got.size(), frames.size());
    for (std::size_t i = 0; i < frames.size() && !HasFailure(); ++i) {
        SCOPED_TRACE("frame " + std::to_string(i));
        ExpectReceived(frames[i], got[i]);
    }
    const NxBusReplayStateInfo info = WaitForState(NXCAN_REPLAY_STATE_END);
    EXPECT_EQ(info.ui64SentFrames, frames.size());
    EXPECT_EQ(info.ui64ErrorData, 0u) << "every record arrived whole";
}

}  // namespace
}  // namespace nxbus_on_sim
