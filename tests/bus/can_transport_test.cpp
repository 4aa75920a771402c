// Frames through the CAN wrapper: conversions, reading with its trace file,
// waiting for reception, direct transmission and the replay stream.
#include <time.h>

#include <atomic>
#include <thread>

#include "bus_frames.h"
#include "bus_test_fixture.h"
#include "scratch.h"

namespace {

using CanTransport = BusTest;

// Record sizes that the test chooses one by one, 64 bytes after the list.
void RecordSizes(nxtest::FakeCanLibrary& fake, std::vector<std::uint32_t> sizes)
{
    auto remaining = std::make_shared<std::deque<std::uint32_t>>(sizes.begin(), sizes.end());
    fake.SetRecordSize([remaining](std::uint16_t, bool) {
        if (remaining->empty()) return std::uint32_t(64);
        std::uint32_t size = remaining->front();
        remaining->pop_front();
        return size;
    });
}

// A deadline that runs past the end of the current second makes a wait fail
// at once: waits that must block start early in a second.
void WaitForEarlyInSecond(long nanosecondsAtMost)
{
    for (timespec now; clock_gettime(CLOCK_REALTIME, &now) == 0 && now.tv_nsec >= nanosecondsAtMost;)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
}

// Signals reception every millisecond until stopped.
class ReceivingLibrary {
public:
    explicit ReceivingLibrary(nxtest::FakeCanLibrary& fake)
        : m_thread([this, &fake] {
              for (; !m_stop; std::this_thread::sleep_for(std::chrono::milliseconds(1)))
                  fake.Receive(nxtest::MakeMessage(1, false, 1, 0));
          })
    {
    }
    ~ReceivingLibrary()
    {
        m_stop = true;
        m_thread.join();
    }

private:
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

}  // namespace

TEST_F(CanTransport, DlcTablesBothWaysWithTheirReports)
{
    const int lengths[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 20, 24, 32, 48, 64};
    for (std::uint16_t dlc = 0; dlc < 16; ++dlc) {
        EXPECT_EQ(NxCanApiWrapper::FrameDlcToDataLength(dlc), lengths[dlc]);
        EXPECT_EQ(NxCanApiWrapper::DataLengthToFrameDlc(static_cast<VELDInt8>(lengths[dlc])), dlc);
    }
    EXPECT_TRUE(engine.GetConsole().Captured().empty());

    EXPECT_EQ(NxCanApiWrapper::FrameDlcToDataLength(16), -1);
    EXPECT_TRUE(Reported("External : Invalid DLC Value [dlc:16]"));
    for (int length : {13, -3, 65}) {
        EXPECT_EQ(NxCanApiWrapper::DataLengthToFrameDlc(static_cast<VELDInt8>(length)), 0xFFFF) << length;
        EXPECT_TRUE(Reported("External : Invalid Data Length [length:" + std::to_string(length) + "]")) << length;
    }
}

// Identifiers, lengths and payloads of the three records reach a printer in
// the components' traffic tests; here the times and flags.
TEST_F(CanTransport, MessagesBecomeFramesOfAllThreeKinds)
{
    AddChannel();
    auto wrapper = Ready(Monitoring());  // 80 ticks per microsecond
    NXSCanMessage extended = nxtest::MakeMessage(0x1ABCDEF, true, 9, 80 * 1000, NXCAN_FLAG_RX_BRS);
    NXSCanMessage standard = nxtest::MakeMessage(0x123, false, 3, 80 * 2500 + 79);

    VELDCANFrame classic;
    std::memset(&classic, 0xFF, sizeof classic);
    EXPECT_EQ(NxCanApiWrapper::CopyFrameMon(classic, standard, 100), 2600);
    EXPECT_EQ(classic.ts, 2600);
    EXPECT_EQ(classic.arbitrationId, 0x123u);
    EXPECT_FALSE(classic.isRemote);
    EXPECT_EQ(classic.dataLength, 3);
    EXPECT_EQ(classic.data[7], 0xA7);
    EXPECT_EQ(NxCanApiWrapper::CopyFrameMon(classic, extended, -1000), 0);
    EXPECT_EQ(classic.arbitrationId, 0x1ABCDEFu | VELDCANFrame::ExtendedId);
    EXPECT_EQ(classic.dataLength, 12);

    VELDCANFDFrame fd{};
    EXPECT_EQ(NxCanApiWrapper::CopyFrameMon(fd, extended, 5), 1005);
    EXPECT_EQ(fd.data[63], 0xA0 + 63);

    VELDCANUniFrame uni;
    NxCanApiWrapper::CopyFrameMon(uni, extended, 0);
    EXPECT_TRUE(uni.HasFlag<VELDCANUniFrame::Flag_RX>() && uni.GetFlag<VELDCANUniFrame::Flag_RX>());
    EXPECT_TRUE(uni.GetFlag<VELDCANUniFrame::Flag_BRS>());
    EXPECT_FALSE(uni.HasFlag<VELDCANUniFrame::Flag_FD>());
    NxCanApiWrapper::CopyFrameMon(uni, standard, 0);
    EXPECT_TRUE(uni.HasStandardId());
    EXPECT_TRUE(uni.HasFlag<VELDCANUniFrame::Flag_BRS>());
    EXPECT_FALSE(uni.GetFlag<VELDCANUniFrame::Flag_BRS>());

    // A DLC outside the table is reported and the length is what came back.
    NxCanApiWrapper::CopyFrameMon(classic, nxtest::MakeMessage(1, false, 20, 0), 0);
    EXPECT_EQ(classic.dataLength, -1);
    EXPECT_TRUE(Reported("Invalid DLC Value [dlc:20]"));
}

// Identifiers, lengths, payloads and the flags of the three records meet the
// simulated library field for field in the simulator's tests; here, the
// fields no receiver shows.
TEST_F(CanTransport, FramesBecomeMessagesWithTheirFlags)
{
    NXSCanMessage message;
    std::memset(&message, 0x5A, sizeof message);
    NxCanApiWrapper::CopyFrame(message, MakeCanFrame(0x1FFFFFFF, 5, 77, true));
    EXPECT_EQ(message.tMessageType, NXCAN_MESSAGE_TYPE_DATA);
    EXPECT_EQ(message.ui64Timestamp, 0u);
    EXPECT_EQ(message.ulFlags, 0u);

    // A universal record without FD and with bit rate switch; a stale FD bit
    // without its validity does not count.
    VELDCANUniFrame uni = MakeCanFrame<VELDCANUniFrame>(0x20, 16);
    uni.SetFlag<VELDCANUniFrame::Flag_BRS>(true);
    NxCanApiWrapper::CopyFrame(message, uni);
    EXPECT_EQ(message.ulFlags, 2u);
    uni.SetFD(true);
    uni.InvalidateAllFlags();
    NxCanApiWrapper::CopyFrame(message, uni);
    EXPECT_EQ(message.ulFlags, 2u);
}

TEST_F(CanTransport, ReadingNeedsAnInitialisedWrapperAndThrowsLibraryErrors)
{
    AddChannel();
    EXPECT_EQ(Thrown([&] { Make(Monitoring())->ReadReceiveQueue(); }), "CAN Handle is not initialized");
    auto wrapper = Ready(Monitoring());
    EXPECT_EQ(wrapper->ReadReceiveQueue(), 0u);
    EXPECT_EQ(Fake().CallsTo("NXCAN_ReadReceiveQueue")[0].args, (Args{7, 32768}));
    for (std::uint32_t i = 0; i < 3; ++i) Fake().Receive(nxtest::MakeMessage(i, false, 8, i));
    EXPECT_EQ(wrapper->ReadReceiveQueue(), 3u);
    EXPECT_EQ(wrapper->GetCanChannelMsgBuffer()[2].ulCanIdentifier, 2u);

    Fake().SetResult("NXCAN_ReadReceiveQueue", 4);
    EXPECT_THROW(wrapper->ReadReceiveQueue(), std::runtime_error);

    // The flush code is no error: what the library left in count is used.
    Fake().SetResult("NXCAN_ReadReceiveQueue", -1);
    Fake().SetVendorError(128, "");
    Fake().Receive(nxtest::MakeMessage(9, false, 8, 0));
    EXPECT_EQ(CallsDuring([&] { EXPECT_EQ(wrapper->ReadReceiveQueue(), 1u); }).back(), "NXCAN_FlushReceiveQueue");
}

TEST_F(CanTransport, TraceLinesByteForByte)
{
    veldtest::ScratchDir dir;
    const std::string id = dir / "trace";
    Fake().AddChannel({"Norvex", "PCIe", "", id, 0});
    NxCanApiWrapperSettings settings("127.0.0.1", id, true, 2000000, 500000, true, false);
    auto wrapper = Ready(settings);
    Fake().Receive(nxtest::MakeMessage(0x5, false, 8, 80 * 123456 + 40));
    NXSCanMessage fd = nxtest::MakeMessage(0x1ABCDEF, true, 15, 0);
    fd.tMessageType = NXCAN_MESSAGE_TYPE_ERROR;  // every kind is logged alike
    fd.ucData[0] = 0x0F;
    Fake().Receive(fd);
    ASSERT_EQ(wrapper->ReadReceiveQueue(), 2u);
    wrapper.reset();  // closes the file
    EXPECT_EQ(veldtest::ReadText(id + ".asc"),
              "123456 1  005 Rx d 8 8 A0 A1 A2 A3 A4 A5 A6 A7\n"
              "0 1  28036591 Rx d 8 15 0F A1 A2 A3 A4 A5 A6 A7\n");

    // A new wrapper starts the file anew; an empty read writes nothing.
    wrapper = Ready(settings);
    EXPECT_EQ(wrapper->ReadReceiveQueue(), 0u);
    wrapper.reset();
    EXPECT_EQ(veldtest::ReadText(id + ".asc"), "");
}

TEST_F(CanTransport, WaitingWakesOnReceptionAndTimesOut)
{
    AddChannel();
    EXPECT_FALSE(Ready(Monitoring())->WaitForReceiveEvent(1000, nullptr));  // polling: no event at all
    NxCanApiWrapperSettings settings = Monitoring();
    settings.SetEventBasedReceive(true);
    auto wrapper = Ready(settings);
    EXPECT_FALSE(wrapper->WaitForReceiveEvent(1000, nullptr));

    // The timeout is computed in 32 bits without carry: 4794968 us are
    // 4794968000 ns, which 32 bits turn into about half a second. Each wait
    // starts early enough in a second that its deadline stays within it.
    for (std::uint32_t timeout : {400000u, 4794968u}) {
        bool woken;
        {
            ReceivingLibrary library(Fake());
            WaitForEarlyInSecond(300000000);
            woken = wrapper->WaitForReceiveEvent(timeout, nullptr);
        }
        EXPECT_TRUE(woken) << timeout;
        EXPECT_GT(wrapper->ReadReceiveQueue(), 0u);
    }
    // A second or more in the nanoseconds field: the wait fails at once.
    EXPECT_FALSE(wrapper->WaitForReceiveEvent(1000000, nullptr));
}

// A refusal reaches the user through the components' fault tests; here what
// the library is handed: the messages as they are, to go at once.
TEST_F(CanTransport, DirectTransmission)
{
    AddChannel();
    NXSCanMessage messages[2];
    EXPECT_THROW(Make(Monitoring())->TransmitMessages(messages, 2), std::runtime_error);
    auto wrapper = Ready(Monitoring());
    EXPECT_TRUE(CallsDuring([&] { EXPECT_EQ(wrapper->TransmitMessages(messages, 0).errorCode, 0); }).empty());
    NxCanApiWrapper::CopyFrame(messages[0], MakeCanFrame(0x11));
    NxCanApiWrapper::CopyFrame(messages[1], MakeCanFrame(0x22));
    messages[0].ui64Timestamp = 99;
    messages[1].ui64Timestamp = 98;
    ASSERT_EQ(wrapper->TransmitMessages(messages, 2).errorCode, 0);
    std::vector<NXSCanMessage> sent = Fake().Transmitted();
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(sent[1].ulCanIdentifier, 0x22u);
    EXPECT_EQ(sent[0].ui64Timestamp + sent[1].ui64Timestamp, 0u);
}

// ---------------------------------------------------------------------------
// The replay stream

// Every field of every record meets the simulated library in the
// simulator's tests; here the times in ticks and the buffer's accounting.
TEST_F(CanTransport, StagedFramesWaitForThePushWithTheirTimesInTicks)
{
    AddChannel();
    auto wrapper = Ready(Replay());  // 80 ticks per microsecond
    EXPECT_EQ(wrapper->CopyFrame2(MakeCanFrame(0x123, 5, 1000)).errorCode, 0);
    EXPECT_EQ(wrapper->CopyFrame2(MakeCanFrame<VELDCANFDFrame>(0xABCDE, 20, 2000, true)).errorCode, 0);
    EXPECT_EQ(wrapper->CopyFrame2(MakeCanFrame<VELDCANUniFrame>(0x7, 64, 3000)).errorCode, 0);
    EXPECT_EQ(wrapper->GetTxBufferSize(), 64u + 80u + 120u);
    EXPECT_TRUE(Fake().Streamed().empty());

    EXPECT_EQ(wrapper->TransmitMessagesPushing(false).errorCode, 0);
    std::vector<nxtest::StreamRecord> records = Fake().StreamRecords();
    ASSERT_EQ(records.size(), 3u);
    for (std::uint64_t i = 0; i < 3; ++i) EXPECT_EQ(records[i].head.tHeader.ui64Timestamp, (i + 1) * 80000u);
    EXPECT_EQ(wrapper->GetTxBufferSize(), 0u);
    EXPECT_TRUE(wrapper->IsTransmitFramesAllowed());
}

// The buffer fills to its last byte: a record's head needs 64 free bytes,
// and a record that does not fit behind it goes after a push, placed anew.
TEST_F(CanTransport, AHeaderNeeds64FreeBytes)
{
    for (std::uint32_t used : {65472u, 65473u}) {
        SCOPED_TRACE(used);
        nxtest::ScopedFakeCanLibrary scoped;
        AddChannel();
        RecordSizes(Fake(), {used});
        auto wrapper = Ready(Replay());
        wrapper->CopyFrame2(MakeCanFrame(1));
        ASSERT_EQ(wrapper->GetTxBufferSize(), used);
        wrapper->CopyFrame2(MakeCanFrame(2));
        const bool pushed = used == 65473u;  // the first record goes before the second is placed
        EXPECT_EQ(Fake().Streamed().size(), pushed ? used : 0u);
        EXPECT_EQ(wrapper->GetTxBufferSize(), pushed ? 64u : 65536u);
    }
}

TEST_F(CanTransport, ARecordThatNoLongerFitsIsPlacedAgainAfterThePush)
{
    AddChannel();
    RecordSizes(Fake(), {65000, 1000, 1000});
    auto wrapper = Ready(Replay());
    wrapper->CopyFrame2(MakeCanFrame(1));
    wrapper->CopyFrame2(MakeCanFrame(2, 8, 77));
    std::vector<nxtest::FakeCall> inits = Fake().CallsTo("NXCAN_ReplayInitHeader");
    ASSERT_EQ(inits.size(), 3u);
    EXPECT_EQ(inits[1].args[2] - inits[0].args[2], 65000u);
    EXPECT_EQ(inits[2].args[2], inits[0].args[2]);  // back at the front
    EXPECT_EQ(Fake().Streamed().size(), 65000u);     // the first record alone went
    EXPECT_EQ(wrapper->GetTxBufferSize(), 1000u);

    wrapper->TransmitMessagesPushing(false);
    std::vector<nxtest::StreamRecord> records = Fake().StreamRecords();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[1].head.tMsgHeader.ulCanId, 2u);
    EXPECT_EQ(records[1].head.tHeader.ui64Timestamp, 77u * 80u);
    EXPECT_EQ(records[1].head.tMsgHeader.usDLC, 8);
}

TEST_F(CanTransport, APartialPushKeepsTheRestAndHoldsBackNewFrames)
{
    AddChannel();
    auto wrapper = Ready(Replay());
    for (std::uint32_t id = 1; id <= 3; ++id) wrapper->CopyFrame2(MakeCanFrame(id));
    Fake().SetConsumption([](std::uint32_t offered) { return offered > 64 ? 64u : offered; });
    for (std::uint32_t left : {128u, 64u, 0u}) {
        EXPECT_EQ(wrapper->TransmitMessagesPushing(false).errorCode, 0);
        EXPECT_EQ(wrapper->GetTxBufferSize(), left);
        EXPECT_EQ(wrapper->IsTransmitFramesAllowed(), left == 0);
    }
    std::vector<nxtest::StreamRecord> records = Fake().StreamRecords();
    ASSERT_EQ(records.size(), 3u);
    for (std::uint32_t i = 0; i < 3; ++i) EXPECT_EQ(records[i].head.tMsgHeader.ulCanId, i + 1);

    // An error keeps the data for the next push.
    wrapper->CopyFrame2(MakeCanFrame(4));
    Fake().SetResult("NXCAN_ReplayStreamData", 6);
    EXPECT_EQ(wrapper->TransmitMessagesPushing(false), NxBusError(6, "NXCAN_ReplayStreamData", kError));
    EXPECT_EQ(wrapper->GetTxBufferSize(), 64u);
}

TEST_F(CanTransport, TheEndOfTheStreamIsOneRecordWithDlc0AndTime0)
{
    AddChannel();
    auto idle = Make(Replay());
    EXPECT_TRUE(CallsDuring([&] { EXPECT_EQ(idle->TransmitMessagesPushing(true).errorCode, 0); }).empty())
        << "not initialised: nothing done";

    auto wrapper = Ready(Replay());
    wrapper->CopyFrame2(MakeCanFrame(1, 8, 50));
    EXPECT_EQ(wrapper->TransmitMessagesPushing(true).errorCode, 0);
    std::vector<nxtest::FakeCall> inits = Fake().CallsTo("NXCAN_ReplayInitHeader");
    ASSERT_EQ(inits.size(), 2u);
    EXPECT_EQ(inits[1].args[0], 1u);  // end of file
    EXPECT_EQ(inits[1].args[1], 0u);  // DLC 0
    std::vector<nxtest::StreamRecord> records = Fake().StreamRecords();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[1].head.tHeader.reserved1, 1u);
    EXPECT_EQ(records[1].head.tHeader.ui64Timestamp, 0u);
    EXPECT_EQ(records[1].head.tMsgHeader.usDLC, 0);
}

TEST_F(CanTransport, ConcurrentStagingAndPushingNeverSendAHalfWrittenRecord)
{
    AddChannel();
    auto wrapper = Ready(Replay());
    const std::uint32_t kFrames = 3000;
    std::atomic<bool> staged(false);
    std::thread pusher([&] {
        while (!staged) wrapper->TransmitMessagesPushing(false);
        wrapper->TransmitMessagesPushing(false);
    });
    for (std::uint32_t id = 1; id <= kFrames; ++id) wrapper->CopyFrame2(MakeCanFrame(id & 0x7FF, 8, id));
    staged = true;
    pusher.join();
    std::vector<nxtest::StreamRecord> records = Fake().StreamRecords();
    ASSERT_EQ(records.size(), kFrames);
    for (std::uint32_t i = 0; i < kFrames; ++i) {
        ASSERT_EQ(records[i].head.tMsgHeader.ulCanId, (i + 1) & 0x7FF) << i;
        ASSERT_EQ(records[i].head.tHeader.ui64Timestamp, (i + 1) * 80u) << i;
    }
}
