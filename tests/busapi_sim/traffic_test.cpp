// Frames between the channels of one bus: contents, filters, bus timing,
// queues, event notification and bit rate agreement.
#include <pthread.h>

#include <chrono>
#include <cstring>
#include <ctime>
#include <thread>

#include "sim_frame.h"
#include "sim_test_support.h"

namespace nxsim_test {
namespace {

using TrafficTest = SimTest;

// On the default bus: 500 kbit/s, 2 Mbit/s data phase.
int64_t BusTimeNs(const NXSCanMessage& m)
{
    const nxsim::FrameShape shape{m.tCanIdentifierType == NXCAN_IDENTIFIER_TYPE_XTD, (m.ulFlags & NXCAN_FLAG_TX_FD) != 0,
                                  (m.ulFlags & NXCAN_FLAG_TX_BRS) != 0, m.tMessageType == NXCAN_MESSAGE_TYPE_REMOTE,
                                  static_cast<unsigned>(nxsim::DlcToLength(m.usDLC))};
    return nxsim::FrameDurationNs(shape, 500000, 2000000);
}

TEST_F(TrafficTest, FramesArriveInOrderWithEveryField)
{
    const NXTCanHandle tx = Open("NVX-CAN-1");
    const NXTCanHandle rx = Open("NVX-CAN-2");
    NXSCanMessage remote = DataFrame(0x7FF, 4);
    remote.tMessageType = NXCAN_MESSAGE_TYPE_REMOTE;
    NXSCanMessage sent[] = {
        DataFrame(0x123, 8, false, 0, 1),
        DataFrame(0x1ABCDEF0, 3, true, 0, 2),
        remote,
        DataFrame(0x42, 15, false, NXCAN_FLAG_TX_FD | NXCAN_FLAG_TX_BRS, 3),
        DataFrame(0x1FFFFFFF, 9, true, NXCAN_FLAG_TX_FD, 4),
        DataFrame(0x0, 0),
    };
    const uint64_t before = HardwareTime(tx);
    ASSERT_EQ(NXCAN_TransmitMessages(tx, 6, sent), NXCAN_SUCCESS);
    const auto got = ReadAtLeast(rx, 6);
    ASSERT_EQ(got.size(), 6u);

    uint64_t previous = before;
    for (size_t i = 0; i < 6; ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(got[i].tMessageType, sent[i].tMessageType);
        EXPECT_EQ(got[i].ulCanIdentifier, sent[i].ulCanIdentifier);
        EXPECT_EQ(got[i].tCanIdentifierType, sent[i].tCanIdentifierType);
        EXPECT_EQ(got[i].usDLC, sent[i].usDLC);
        const uint32_t expectedFlags = ((sent[i].ulFlags & NXCAN_FLAG_TX_FD) ? NXCAN_FLAG_RX_FD : 0u) |
                                       ((sent[i].ulFlags & NXCAN_FLAG_TX_BRS) ? NXCAN_FLAG_RX_BRS : 0u);
        EXPECT_EQ(got[i].ulFlags, expectedFlags);
        const int length = sent[i].tMessageType == NXCAN_MESSAGE_TYPE_REMOTE ? 0 : nxsim::DlcToLength(sent[i].usDLC);
        EXPECT_EQ(std::memcmp(got[i].ucData, sent[i].ucData, length), 0);
        for (int b = length; b < 64; ++b) ASSERT_EQ(got[i].ucData[b], 0) << "nothing beyond the length";
        // Back to back on the wire: each starts one bus time of the previous
        // after it.
        if (i > 0) {
            const uint64_t busTicks = static_cast<uint64_t>(BusTimeNs(sent[i - 1]) * 80 / 1000);
            EXPECT_NEAR(static_cast<double>(got[i].ui64Timestamp - previous), static_cast<double>(busTicks), 2.0);
        } else {
            EXPECT_GE(got[i].ui64Timestamp, before);
        }
        EXPECT_EQ(got[i].tBusInfo.tBusStatus, NXCAN_BUS_STATUS_ACTIVE);
        previous = got[i].ui64Timestamp;
    }
    EXPECT_TRUE(ReadAtLeast(tx, 1, std::chrono::milliseconds(20)).empty()) << "no echo to the sender";
}

TEST_F(TrafficTest, InvalidMessagesAreRefusedWhole)
{
    const NXTCanHandle classic = Open("NVX-CAN-1", false);
    const NXTCanHandle rx = Open("NVX-CAN-2");
    NXSCanMessage bad[] = {
        DataFrame(0x800, 1),                                   // standard identifier too large
        DataFrame(0x20000000, 1, true),                        // extended identifier too large
        DataFrame(0x1, 9),                                     // DLC 9 without FD
        DataFrame(0x1, 2, false, NXCAN_FLAG_TX_BRS),           // BRS without FD
        DataFrame(0x1, 16, false, NXCAN_FLAG_TX_FD),           // no such DLC
        DataFrame(0x1, 8, false, NXCAN_FLAG_TX_FD),            // FD on a classic channel
    };
    for (NXSCanMessage& m : bad) {
        NXSCanMessage pair[2] = {DataFrame(0x10, 1), m};
        EXPECT_EQ(NXCAN_TransmitMessages(classic, 2, pair), NXCAN_ERR_INVALID_MESSAGE) << m.ulCanIdentifier;
    }
    NXSCanMessage error = DataFrame(0x1, 1);
    error.tMessageType = NXCAN_MESSAGE_TYPE_ERROR;
    EXPECT_EQ(NXCAN_TransmitMessages(classic, 1, &error), NXCAN_ERR_INVALID_MESSAGE);
    EXPECT_TRUE(ReadAtLeast(rx, 1, std::chrono::milliseconds(50)).empty()) << "nothing of a refused call is sent";
    EXPECT_EQ(NXCAN_TransmitMessages(classic, 0, nullptr), NXCAN_SUCCESS);
}

TEST_F(TrafficTest, EachReceiverSeesWhatItsSettingsSelect)
{
    const uint32_t X = 0x80000000u;  // marks an extended identifier below
    const uint32_t FD = 0x40000000u;  // and an FD frame
    const NXTCanHandle tx = Open("NVX-CAN-1");
    const NXTCanHandle ranges = Open("NVX-CAN-2"), exact = Open("ORV-CAN-1"), all = Open("NVX-ZIRA-1");
    // A classic channel for extended identifiers: no FD frames, no standard ones.
    const NXTCanHandle classicExtended = Open("NVX-VIRT-1", false, false, false, NXCAN_IDENTIFIER_TYPE_XTD);
    // Standard 0x120..0x12F, extended 0x18DAxxxx; every standard identifier
    // and the extended 0x120 alone; masks of 0 pass everything.
    ASSERT_EQ(NXCAN_SetAcceptance(ranges, 0x125, 0x7F0, 0x18DA1234, 0x1FFF0000), NXCAN_SUCCESS);
    ASSERT_EQ(NXCAN_SetAcceptance(exact, 0, 0, 0x120, 0x1FFFFFFF), NXCAN_SUCCESS);
    const std::vector<uint32_t> sent = {0x120,          0x12F,          0x130,          0x7FF,
                                        X | 0x18DA0001, X | 0x18DB0001, X | 0x00000120, X | 0x18DAFFFF,
                                        FD | 0x100,     FD | X | 0x121, X | 0x121,      0x121};
    std::vector<NXSCanMessage> frames;
    for (uint32_t id : sent)
        frames.push_back(DataFrame(id & 0x1FFFFFFF, (id & FD) ? 12 : 2, (id & X) != 0, (id & FD) ? NXCAN_FLAG_TX_FD : 0));
    ASSERT_EQ(NXCAN_TransmitMessages(tx, static_cast<uint32_t>(frames.size()), frames.data()), NXCAN_SUCCESS);
    auto ids = [&](const std::vector<NXSCanMessage>& got) {
        std::vector<uint32_t> out;
        for (const NXSCanMessage& m : got)
            out.push_back(m.ulCanIdentifier | (m.tCanIdentifierType == NXCAN_IDENTIFIER_TYPE_XTD ? X : 0) |
                          ((m.ulFlags & NXCAN_FLAG_RX_FD) ? FD : 0));
        return out;
    };
    // Every channel has the batch once the one that takes all has it.
    EXPECT_EQ(ids(ReadAtLeast(all, sent.size())), sent);
    const std::pair<NXTCanHandle, std::vector<uint32_t>> selected[] = {
        {ranges, {0x120, 0x12F, X | 0x18DA0001, X | 0x18DAFFFF, 0x121}},
        {exact, {0x120, 0x12F, 0x130, 0x7FF, X | 0x120, FD | 0x100, 0x121}},
        {classicExtended, {X | 0x18DA0001, X | 0x18DB0001, X | 0x120, X | 0x18DAFFFF, X | 0x121}},
    };
    for (const auto& [handle, expected] : selected) {
        EXPECT_EQ(ids(ReadAtLeast(handle, expected.size())), expected);
        EXPECT_TRUE(ReadAtLeast(handle, 1, std::chrono::milliseconds(20)).empty());
    }
}

// The receiver also takes the burst in a few deliveries, one each 10 ms,
// while every frame keeps its own stamp.
TEST_F(TrafficTest, ABurstTakesTheBusTimeOfItsFrames)
{
    UseConfig(TwoChannelBus("bitrate = 125000\ndelivery_interval_us = 10000\n"));
    const NXTCanHandle tx = Open("A", false);
    const NXTCanHandle rx = Open("B", false);
    constexpr int kFrames = 40;
    std::vector<NXSCanMessage> burst = DataFrames(0x100, kFrames, 8);
    // 135 bits at 125 kbit/s: 1080 us a frame, worst-case stuffing included.
    const uint64_t frameTicks = 1080 * TicksPerMicrosecond(tx);
    const auto start = std::chrono::steady_clock::now();
    const uint64_t sentAt = HardwareTime(tx);
    ASSERT_EQ(NXCAN_TransmitMessages(tx, kFrames, burst.data()), NXCAN_SUCCESS);
    std::vector<NXSCanMessage> got;
    int reads = 0;  // that found frames
    while (got.size() < kFrames && std::chrono::steady_clock::now() - start < std::chrono::seconds(5)) {
        NXSCanMessage part[kFrames];
        uint32_t count = kFrames;
        ASSERT_EQ(NXCAN_ReadReceiveQueue(rx, &count, part), NXCAN_SUCCESS);
        reads += count > 0;
        got.insert(got.end(), part, part + count);
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    const auto elapsed = std::chrono::steady_clock::now() - start;
    ASSERT_EQ(got.size(), static_cast<size_t>(kFrames));
    EXPECT_GE(elapsed, std::chrono::microseconds(kFrames * 1080)) << "no faster than the wire";
    EXPECT_LE(reads, 6) << "the first frame at its end, the rest at most every 10 ms";
    EXPECT_GE(got.front().ui64Timestamp, sentAt);
    EXPECT_EQ(got.back().ui64Timestamp - got.front().ui64Timestamp, (kFrames - 1) * frameTicks);
}

TEST_F(TrafficTest, VirtualChannelTakesNoBusTime)
{
    const NXTCanHandle tx = Open("NVX-VIRT-1");
    const NXTCanHandle rx = Open("NVX-CAN-2");
    std::vector<NXSCanMessage> burst(200, DataFrame(0x1, 8));
    const uint64_t sentAt = HardwareTime(tx);
    ASSERT_EQ(NXCAN_TransmitMessages(tx, 200, burst.data()), NXCAN_SUCCESS);
    const uint64_t after = HardwareTime(tx);
    const auto got = ReadAtLeast(rx, 200);
    ASSERT_EQ(got.size(), 200u);
    EXPECT_GE(got.front().ui64Timestamp, sentAt);
    EXPECT_LE(got.back().ui64Timestamp, after) << "200 frames of 270 us would take 54 ms on the wire";
}

TEST_F(TrafficTest, FullTransmitQueueFailsAtOnceAndFlushWithdraws)
{
    UseConfig(TwoChannelBus("bitrate = 1000\ntx_queue_limit = 8\n"));
    const NXTCanHandle tx = Open("A", false);
    const NXTCanHandle rx = Open("B", false);
    std::vector<NXSCanMessage> frames = DataFrames(0x200, 9, 8);
    ASSERT_EQ(NXCAN_TransmitMessages(tx, 8, frames.data()), NXCAN_SUCCESS);  // 135 ms each on the wire
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(NXCAN_TransmitMessages(tx, 1, &frames[8]), NXCAN_ERR_TX_QUEUE_FULL);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(100))
        << "never blocks (room comes only when the first frame is through, after 135 ms)";
    EXPECT_EQ(ErrorText(NXCAN_ERR_TX_QUEUE_FULL), "transmit queue full");

    // The first frame is on the wire; the seven behind it are withdrawn.
    ASSERT_EQ(NXCAN_FlushTransmitQueue(tx), NXCAN_SUCCESS);
    ASSERT_EQ(NXCAN_TransmitMessages(tx, 1, &frames[8]), NXCAN_SUCCESS);
    const auto got = ReadAtLeast(rx, 2, std::chrono::seconds(2));
    ASSERT_EQ(got.size(), 2u);
    EXPECT_EQ(got[0].ulCanIdentifier, 0x200u);
    EXPECT_EQ(got[1].ulCanIdentifier, 0x208u);
    EXPECT_EQ(got[1].ui64Timestamp - got[0].ui64Timestamp, 135000 * TicksPerMicrosecond(tx))
        << "the withdrawn frames gave their wire time back";
}

TEST_F(TrafficTest, TransmitNeedsAnActiveChannel)
{
    NXTCanHandle h = NXCAN_INVALID_HANDLE;
    ASSERT_EQ(Register("NVX-CAN-1", &h), NXCAN_SUCCESS);
    NXSCanMessage m = DataFrame(1, 1);
    EXPECT_EQ(NXCAN_TransmitMessages(h, 1, &m), NXCAN_ERR_WRONG_STATE);
    EXPECT_EQ(NXCAN_ActivateChannel(h), NXCAN_ERR_WRONG_STATE) << "initialise first";
    uint32_t count = 4;
    NXSCanMessage out[4];
    EXPECT_EQ(NXCAN_ReadReceiveQueue(h, &count, out), NXCAN_ERR_WRONG_STATE);
    bool fd = false;
    ASSERT_EQ(NXCAN_InitChannel(h, NXCAN_IDENTIFIER_TYPE_STD_XTD, 16, false, &fd), NXCAN_SUCCESS);
    ASSERT_EQ(NXCAN_ActivateChannel(h), NXCAN_SUCCESS);
    EXPECT_EQ(NXCAN_InitChannel(h, NXCAN_IDENTIFIER_TYPE_STD_XTD, 16, false, &fd), NXCAN_ERR_WRONG_STATE);
    EXPECT_EQ(NXCAN_TransmitMessages(h, 1, &m), NXCAN_SUCCESS);
    ASSERT_EQ(NXCAN_DeactivateChannel(h), NXCAN_SUCCESS);
    EXPECT_EQ(NXCAN_TransmitMessages(h, 1, &m), NXCAN_ERR_WRONG_STATE);
}

TEST_F(TrafficTest, EventNotificationWakesAWaiter)
{
    const NXTCanHandle tx = Open("NVX-CAN-1");
    const NXTCanHandle rx = Open("NVX-CAN-2");
    // The receiving side's event, as the package makes it.
    NXCanEventRecord event{false, PTHREAD_MUTEX_INITIALIZER, PTHREAD_COND_INITIALIZER};
    ASSERT_EQ(NXCAN_SetEventNotification(rx, &event, 1), NXCAN_SUCCESS);
    int waitResult = -1;
    std::thread waiter([&] {
        timespec until;
        clock_gettime(CLOCK_REALTIME, &until);
        until.tv_sec += 10;
        pthread_mutex_lock(&event.m_mutex);
        while (!event.m_signalled && waitResult != ETIMEDOUT)
            waitResult = pthread_cond_timedwait(&event.m_cond, &event.m_mutex, &until);
        pthread_mutex_unlock(&event.m_mutex);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    NXSCanMessage m = DataFrame(0x55, 2);
    ASSERT_EQ(NXCAN_TransmitMessages(tx, 1, &m), NXCAN_SUCCESS);
    waiter.join();
    EXPECT_EQ(waitResult, 0) << "woken, the flag set";
    ASSERT_EQ(NXCAN_SetEventNotification(rx, nullptr, 0), NXCAN_SUCCESS);
}

// A queue of 4 overflows; the lost frames are told once, with the frames
// read. Another channel's flush drops what waits.
TEST_F(TrafficTest, OverflowIsReportedOnceAndFlushDropsWhatWaits)
{
    const NXTCanHandle tx = Open("NVX-VIRT-1");
    const NXTCanHandle small = Open("NVX-CAN-2", true, false, false, NXCAN_IDENTIFIER_TYPE_STD_XTD, 4);
    const NXTCanHandle flushed = Open("ORV-CAN-1");
    const NXTCanHandle witness = Open("NVX-CAN-1");
    std::vector<NXSCanMessage> frames = DataFrames(0x300, 10, 1);
    ASSERT_EQ(NXCAN_TransmitMessages(tx, 10, frames.data()), NXCAN_SUCCESS);
    ASSERT_EQ(ReadAtLeast(witness, 10).size(), 10u);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));  // the same batch reaches every channel

    NXSCanMessage out[16];
    uint32_t count = 16;
    ASSERT_EQ(NXCAN_ReadReceiveQueue(small, &count, out), NXCAN_ERR_VENDOR_SPECIFIC);
    EXPECT_EQ(count, 4u);
    EXPECT_EQ(out[3].ulCanIdentifier, 0x303u);
    int32_t vendorCode = 0;
    EXPECT_NE(VendorText(small, &vendorCode).find("6 frames lost"), std::string::npos);
    EXPECT_EQ(vendorCode, NXCAN_VENDOR_RX_OVERFLOW);
    count = 16;
    EXPECT_EQ(NXCAN_ReadReceiveQueue(small, &count, out), NXCAN_SUCCESS) << "reported once";
    EXPECT_EQ(count, 0u);

    ASSERT_EQ(NXCAN_FlushReceiveQueue(flushed), NXCAN_SUCCESS);
    EXPECT_TRUE(ReadAtLeast(flushed, 1, std::chrono::milliseconds(20)).empty());
}

TEST_F(TrafficTest, ChannelWithAnotherBitRateNeitherSendsNorReceives)
{
    const NXTCanHandle tx = Open("NVX-CAN-1", false);
    const NXTCanHandle rx = Open("NVX-CAN-2", false);
    NXSCanBitTimingParameters rate250{}, rate500{}, zero{};
    ASSERT_EQ(NXCAN_ConvertBaudrateToBitTimingParameters(8000000, 250000, &rate250), NXCAN_SUCCESS);
    ASSERT_EQ(NXCAN_ConvertBaudrateToBitTimingParameters(8000000, 500000, &rate500), NXCAN_SUCCESS);

    EXPECT_EQ(NXCAN_SetBaudrate(rx, 8000000, &rate250, &zero), NXCAN_ERR_BITRATE_MISMATCH);
    EXPECT_NE(ErrorText(NXCAN_ERR_BITRATE_MISMATCH).find("NVX-CAN-2"), std::string::npos);
    NXSCanMessage m = DataFrame(0x77, 1);
    EXPECT_EQ(NXCAN_TransmitMessages(rx, 1, &m), NXCAN_ERR_BITRATE_MISMATCH);
    ASSERT_EQ(NXCAN_TransmitMessages(tx, 1, &m), NXCAN_SUCCESS);
    EXPECT_TRUE(ReadAtLeast(rx, 1, std::chrono::milliseconds(50)).empty());

    ASSERT_EQ(NXCAN_SetBaudrate(rx, 8000000, &rate500, &zero), NXCAN_SUCCESS);
    ASSERT_EQ(NXCAN_TransmitMessages(tx, 1, &m), NXCAN_SUCCESS);
    const auto got = ReadAtLeast(rx, 1);
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0].tBusInfo.usRxErrorCounter, 1) << "the frame it could not read counts as an error";
}

TEST_F(TrafficTest, BusLoadCoversTheLastSecond)
{
    UseConfig(TwoChannelBus("bitrate = 125000\n"));
    const NXTCanHandle tx = Open("A", false);
    const NXTCanHandle rx = Open("B", false);
    std::vector<NXSCanMessage> burst(100, DataFrame(0x10, 8));  // 108 ms of 1 s: about 10 %
    ASSERT_EQ(NXCAN_TransmitMessages(tx, 100, burst.data()), NXCAN_SUCCESS);
    ASSERT_EQ(ReadAtLeast(rx, 100).size(), 100u);
    std::this_thread::sleep_for(std::chrono::milliseconds(120));
    ASSERT_EQ(NXCAN_TransmitMessages(tx, 1, burst.data()), NXCAN_SUCCESS);
    const auto got = ReadAtLeast(rx, 1);
    ASSERT_EQ(got.size(), 1u);
    EXPECT_GE(got[0].tBusInfo.ucBusLoad, 8);
    EXPECT_LE(got[0].tBusInfo.ucBusLoad, 12);
}

}  // namespace
}  // namespace nxsim_test
