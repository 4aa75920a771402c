// The package's CAN wrapper on the simulated library at the fixed path, with
// its default topology: bus CAN1 at 127.0.0.1 with NVX-CAN-1, NVX-CAN-2,
// NVX-VIRT-1, ORV-CAN-1 and NVX-ZIRA-1, at 500 kbit/s and 2 Mbit/s.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

#include "Engine.h"
#include "NxCanApi.h"
#include "NxCanApiWrapper.h"
#include "bus_frames.h"
#include "veld_constants.h"

namespace nxbus_on_sim {
namespace {

const char* const kAddress = "127.0.0.1";  // where the simulated bus is found

class CanOnSim : public ::testing::Test {
protected:
    // The package reports invalid lengths and DLCs through the kernel; none
    // of the traffic here has any.
    void TearDown() override
    {
        for (const veldor::ReportRecord& report : engine.GetConsole().Captured())
            EXPECT_NE(report.level, VELD::Error) << "reported: " << report.text;
    }

    veldor::Engine engine;  // the kernel of the package code
};

// The record through which a frame reaches the wrapper.
enum class Record { Classic, Fd, Universal };

struct FrameFields {
    Record record;
    std::uint32_t id;  // payload byte i is id + i
    bool extended;
    int length;
    bool fd;  // CAN FD format; a CAN FD record is always sent with bit rate switch
    bool brs;
};

// Calls `use` with the frame's record, stamped `ts`.
template <class Use>
auto WithRecord(const FrameFields& f, VELDTimestamp ts, Use use)
{
    switch (f.record) {
    case Record::Classic:
        return use(MakeCanFrame<VELDCANFrame>(f.id, f.length, ts, f.extended));
    case Record::Fd:
        return use(MakeCanFrame<VELDCANFDFrame>(f.id, f.length, ts, f.extended));
    case Record::Universal:
        break;
    }
    VELDCANUniFrame frame = MakeCanFrame<VELDCANUniFrame>(f.id, f.length, ts, f.extended);
    frame.SetFD(f.fd);
    frame.SetFlag<VELDCANUniFrame::Flag_BRS>(f.brs);
    frame.SetFlag<VELDCANUniFrame::Flag_TX>(true);
    return use(frame);
}

// Every classic length and every CAN FD length with and without bit rate
// switch, from all three records; identifiers up to both limits.
std::vector<FrameFields> MixedTraffic()
{
    std::vector<FrameFields> frames;
    for (int length = 0; length <= 8; ++length) {
        frames.push_back({Record::Classic, 0x100u + length, false, length, false, false});
        frames.push_back({Record::Classic, length == 8 ? 0x1FFFFFFFu : 0x1ABC000u + length, true, length, false, false});
        frames.push_back({Record::Universal, 0x7F7u + length, false, length, false, false});
    }
    std::uint32_t n = 0;
    for (int length : {0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 20, 24, 32, 48, 64}) {
        ++n;
        frames.push_back({Record::Fd, n % 2 ? 0x200 + n : 0x0BCD0000 + n, n % 2 == 0, length, true, true});
        frames.push_back({Record::Universal, n % 2 ? 0x0DEF0000 + n : 0x300 + n, n % 2 == 1, length, true, false});
    }
    frames.push_back({Record::Universal, 0x7FF, false, 64, true, true});
    frames.push_back({Record::Universal, 0x1FFFFFFF, true, 12, true, true});
    return frames;
}

// Settings as the components make them, CAN FD.
NxCanApiWrapperSettings Settings(const std::string& channel, bool replay = false)
{
    return NxCanApiWrapperSettings(kAddress, channel, true, 500000, 2000000, false, replay);
}

// A wrapper that Initialize brought onto the bus; null, with the wrapper's
// own error text as the failure, if it did not come up.
std::unique_ptr<NxCanApiWrapper> Open(const NxCanApiWrapperSettings& settings)
{
    auto wrapper = std::make_unique<NxCanApiWrapper>(settings);
    bool highSpeed = false;
    NxBusError result = wrapper->Initialize(&highSpeed);
    if (result.errorCode == 0) return wrapper;
    ADD_FAILURE() << "channel " << settings.GetChannelIdentifier() << " did not come up: code " << result.errorCode
                  << ", " << wrapper->GetErrorMessage(result);
    return nullptr;
}

std::vector<NXSCanMessage> Receive(NxCanApiWrapper& wrapper, std::size_t count)
{
    std::vector<NXSCanMessage> got;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (got.size() < count && std::chrono::steady_clock::now() < deadline) {
        const std::uint32_t n = wrapper.ReadReceiveQueue();
        got.insert(got.end(), wrapper.GetCanChannelMsgBuffer(), wrapper.GetCanChannelMsgBuffer() + n);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return got;
}

void ExpectReceived(const std::vector<FrameFields>& sent, const std::vector<NXSCanMessage>& got)
{
    ASSERT_EQ(got.size(), sent.size()) << "frames received";
    for (std::size_t k = 0; k < sent.size() && !::testing::Test::HasFailure(); ++k) {
        SCOPED_TRACE("frame " + std::to_string(k));
        const FrameFields& f = sent[k];
        EXPECT_EQ(got[k].tMessageType, NXCAN_MESSAGE_TYPE_DATA);
        EXPECT_EQ(got[k].ulCanIdentifier, f.id);
        EXPECT_EQ(got[k].tCanIdentifierType, f.extended ? NXCAN_IDENTIFIER_TYPE_XTD : NXCAN_IDENTIFIER_TYPE_STD);
        EXPECT_EQ(NxCanApiWrapper::FrameDlcToDataLength(got[k].usDLC), f.length);
        EXPECT_EQ((got[k].ulFlags & 0x100) != 0, f.fd) << "CAN FD format, bit 8 on reception";
        EXPECT_EQ((got[k].ulFlags & NXCAN_FLAG_RX_BRS) != 0, f.brs) << "bit rate switch, bit 9 on reception";
        for (int i = 0; i < f.length; ++i)
            ASSERT_EQ(got[k].ucData[i], static_cast<std::uint8_t>(f.id + i)) << "payload byte " << i;
        if (k > 0) {
            EXPECT_GE(got[k].ui64Timestamp, got[k - 1].ui64Timestamp) << "out of order";
        }
    }
}

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
        auto rx = Open(Settings("NVX-CAN-2"));
        auto tx = Open(Settings("NVX-CAN-1"));
        ASSERT_TRUE(rx && tx);
        std::vector<NXSCanMessage> messages(sent.size());
        for (std::size_t k = 0; k < sent.size(); ++k)
            WithRecord(sent[k], 0, [&](const auto& record) { NxCanApiWrapper::CopyFrame(messages[k], record); });
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

// The double's tests take both ways to code 10 (an address without channels,
// an unknown identifier); here the library's text for it.
TEST_F(CanOnSim, AnUnknownChannelIsCode10ReadThroughTheLibrarysTexts)
{
    NxCanApiWrapper wrapper(Settings("NVX-CAN-9"));
    bool highSpeed = false;
    NxBusError result = wrapper.Initialize(&highSpeed);
    EXPECT_EQ(result.errorCode, 10);
    EXPECT_EQ(wrapper.GetErrorMessage(result), "RegisterCanChannel: no such channel");
    EXPECT_EQ(wrapper.GetCanChannelHandle(), NXCAN_INVALID_HANDLE);
}

// NVX-ZIRA-1 takes at most three records a push (partial_stream.conf), so
// that pushes leave data behind; every length from every record crosses
// the stream, so the wrapper's replay records and the library's agree. (The
// staging buffer's bounds are the library double's to show, with record
// sizes chosen to the byte.)
TEST_F(CanOnSim, EveryRecordCrossesAStreamThatTakesThreeRecordsAPush)
{
    const VELDTimestamp kLogStart = 7000000;
    auto replay = Open(Settings("NVX-ZIRA-1", true));
    auto rx = Open(Settings("NVX-CAN-2"));
    ASSERT_TRUE(replay && rx);
    auto state = [&] {
        NxBusReplayStateInfo info{};
        NxBusError result = replay->GetReplayStateInfo(&info);
        EXPECT_EQ(result.errorCode, 0) << replay->GetErrorMessage(result);
        return info;
    };
    const std::vector<FrameFields> frames = MixedTraffic();
    for (const FrameFields& frame : frames) {
        NxBusError result = WithRecord(frame, kLogStart, [&](const auto& record) { return replay->CopyFrame2(record); });
        ASSERT_EQ(result.errorCode, 0) << replay->GetErrorMessage(result);
    }
    EXPECT_EQ(state().ui64SentFrames, 0u);
    std::uint32_t left = replay->GetTxBufferSize();
    for (int pushes = 0; left > 0; ++pushes) {
        ASSERT_LT(pushes, 1000) << "pushing makes no progress";
        NxBusError result = replay->TransmitMessagesPushing(false);
        ASSERT_EQ(result.errorCode, 0) << replay->GetErrorMessage(result);
        const std::uint32_t now = replay->GetTxBufferSize();
        ASSERT_LT(now, left);
        ASSERT_LE(left - now, 3 * 120u) << "three records at most";
        EXPECT_EQ(replay->IsTransmitFramesAllowed(), now == 0);
        left = now;
    }
    NxBusError result = replay->TransmitMessagesPushing(true);
    ASSERT_EQ(result.errorCode, 0) << replay->GetErrorMessage(result);
    EXPECT_EQ(replay->GetTxBufferSize(), 0u) << "the library took everything";

    std::uint64_t now = 0;
    ASSERT_EQ(replay->GetHardwareTime(&now).errorCode, 0);
    ASSERT_EQ(replay->SetReplayStartTime(now + 20000, kLogStart).errorCode, 0);
    ExpectReceived(frames, Receive(*rx, frames.size()));
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
