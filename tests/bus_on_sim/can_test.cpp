// The package's CAN wrapper on the simulated library at the fixed path:
// what neither the library's own tests nor the components' can show.
#include <dlfcn.h>

#include <thread>

#include "NxCanApi.h"
#include "SimBusTest.h"

namespace nxbus_on_sim {
namespace {

using CanOnSim = SimBusTest;

bool Mapped()
{
    void* mapped = dlopen(kNxCanApiLibraryPath, RTLD_NOW | RTLD_NOLOAD);
    if (mapped) dlclose(mapped);
    return mapped != nullptr;
}

// The library runs threads of its own: when the last wrapper goes, and even
// the object that loaded it (as when the package is unloaded), it stays
// mapped, and later wrappers find it as it was. Each round sends every
// length from every record: the wrapper's messages and the library's agree
// field for field.
TEST_F(CanOnSim, TheLibraryStaysMappedWhileWrappersComeAndGo)
{
    const std::vector<FrameFields> sent = MixedTraffic();
    for (int round = 0; round < 2; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        auto rx = Open(Monitoring("NVX-CAN-2"));
        auto tx = Open(Monitoring("NVX-CAN-1"));
        ASSERT_TRUE(rx && tx);
        std::vector<NXSCanMessage> messages = ToMessages(sent);
        NxBusError result = tx->TransmitMessages(messages.data(), static_cast<std::uint32_t>(messages.size()));
        ASSERT_EQ(result.errorCode, 0) << tx->GetErrorMessage(result);
        ExpectReceived(sent, Receive(*rx, sent.size()));
        EXPECT_EQ(rx->ReadReceiveQueue(), 0u) << "nothing but what was sent";

        rx.reset();
        tx.reset();
        EXPECT_EQ(pfnCanGetAvailableChannelsCount, nullptr) << "the last wrapper lets the table go";
        hNxCanApiDll.reset();
        EXPECT_TRUE(Mapped()) << "the library was unmapped";
    }
}

TEST_F(CanOnSim, AnUnknownChannelIsCode10ReadThroughTheLibrarysTexts)
{
    NxCanApiWrapperSettings elsewhere = Monitoring("NVX-CAN-1");
    elsewhere.SetIp("127.0.0.2");
    for (const NxCanApiWrapperSettings& settings : {elsewhere, Monitoring("NVX-CAN-9")}) {
        SCOPED_TRACE(settings.GetIp() + " " + settings.GetChannelIdentifier());
        NxCanApiWrapper wrapper(settings);
        bool highSpeed = false;
        NxBusError result = wrapper.Initialize(&highSpeed);
        EXPECT_EQ(result.errorCode, 10);
        EXPECT_EQ(wrapper.GetErrorMessage(result), "RegisterCanChannel: no such channel");
        EXPECT_EQ(wrapper.GetCanChannelHandle(), NXCAN_INVALID_HANDLE);
    }
}

// NVX-ZIRA-1 takes at most three records a push (partial_stream.conf), so
// that pushes leave data behind; every length from every record crosses
// the stream, so the wrapper's replay records and the library's agree.
TEST_F(CanOnSim, TheStagingBufferFillsToItsLastByteAndKeepsWhatAPushLeaves)
{
    const VELDTimestamp kLogStart = 7000000;
    auto replay = Open(Replay("NVX-ZIRA-1"));
    auto rx = Open(Monitoring("NVX-CAN-2"));
    ASSERT_TRUE(replay && rx);
    auto state = [&] {
        NxBusReplayStateInfo info{};
        NxBusError result = replay->GetReplayStateInfo(&info);
        EXPECT_EQ(result.errorCode, 0) << replay->GetErrorMessage(result);
        return info;
    };
    std::vector<FrameFields> frames;
    auto stage = [&](const FrameFields& frame) {
        frames.push_back(frame);
        NxBusError result = Stage(*replay, frame);
        ASSERT_EQ(result.errorCode, 0) << replay->GetErrorMessage(result);
    };
    auto pushAll = [&] {
        std::uint32_t left = replay->GetTxBufferSize();
        for (int pushes = 0; left > 0; ++pushes) {
            ASSERT_LT(pushes, 1000) << "pushing makes no progress";
            NxBusError result = replay->TransmitMessagesPushing(false);
            ASSERT_EQ(result.errorCode, 0) << replay->GetErrorMessage(result);
            const std::uint32_t now = replay->GetTxBufferSize();
            ASSERT_LT(now, left);
            ASSERT_LE(left - now, 3 * 120u) << "three records at most";
            left = now;
        }
        EXPECT_TRUE(replay->IsTransmitFramesAllowed());
    };
    const std::uint32_t kBuffer = NxCanApiWrapper::kTxBufferSize;
    const std::uint32_t kClassicRecord = 64;   // up to 8 bytes of payload
    const std::uint32_t kLongestRecord = 120;  // 64 bytes of payload

    // Classic records fill the buffer to its last byte without a push.
    for (std::uint32_t i = 0; i < kBuffer / kClassicRecord; ++i)
        ASSERT_NO_FATAL_FAILURE(
            stage({Record::Classic, 0x100 + i % 0x600, false, 8, false, false, static_cast<std::uint8_t>(i), kLogStart}));
    EXPECT_EQ(replay->GetTxBufferSize(), kBuffer);
    EXPECT_TRUE(replay->IsTransmitFramesAllowed());
    EXPECT_EQ(state().ui64SentFrames, 0u);

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

    ASSERT_NO_FATAL_FAILURE(pushAll());
    for (const FrameFields& frame : MixedTraffic(kLogStart)) ASSERT_NO_FATAL_FAILURE(stage(frame));
    ASSERT_NO_FATAL_FAILURE(pushAll());
    NxBusError result = replay->TransmitMessagesPushing(true);
    ASSERT_EQ(result.errorCode, 0) << replay->GetErrorMessage(result);
    EXPECT_EQ(replay->GetTxBufferSize(), 0u) << "the library took everything";

    std::uint64_t now = 0;
    ASSERT_EQ(replay->GetHardwareTime(&now).errorCode, 0);
    ASSERT_EQ(replay->SetReplayStartTime(now + 20000, kLogStart).errorCode, 0);
    ExpectReceived(frames, Receive(*rx, frames.size(), std::chrono::seconds(10)));
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    NxBusReplayStateInfo info = state();
    for (; info.tReplayState != NXCAN_REPLAY_STATE_END && std::chrono::steady_clock::now() < deadline; info = state())
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    EXPECT_EQ(info.tReplayState, NXCAN_REPLAY_STATE_END);
    EXPECT_EQ(info.ui64SentFrames, frames.size());
    EXPECT_EQ(info.ui64ErrorData, 0u) << "every record arrived whole";
}

}  // namespace
}  // namespace nxbus_on_sim
