// Frames from one wrapper to another over the simulated bus: direct
// transmission, reception by polling and by the reception event, and the
// frame records made of what arrived. The wrapper hands its acceptance
// settings over as they are (bus/can_wrapper_test); the library's filters:
// busapi_sim/traffic_test.
#include <time.h>

#include <thread>

#include "SimBusTest.h"

namespace nxbus_on_sim {
namespace {

std::vector<FrameFields> Classic(const std::vector<FrameFields>& fieldSets)
{
    std::vector<FrameFields> classic;
    for (const FrameFields& fields : fieldSets)
        if (!fields.fd) classic.push_back(fields);
    return classic;
}

NxBusError Transmit(NxCanApiWrapper& tx, std::vector<NXSCanMessage> messages)
{
    return tx.TransmitMessages(messages.data(), static_cast<std::uint32_t>(messages.size()));
}

class Traffic : public SimBusTest, public ::testing::WithParamInterface<bool> {};

TEST_P(Traffic, AMonitoringWrapperReceivesInOrderWhatAnotherTransmits)
{
    NxCanApiWrapperSettings settings = Monitoring("NVX-CAN-2");
    settings.SetEventBasedReceive(GetParam());
    auto rx = Open(settings);
    auto tx = Open(Monitoring("NVX-CAN-1"));
    ASSERT_TRUE(rx && tx);
    std::uint64_t ticksPerSecond = 0;
    ASSERT_EQ(rx->GetHardwareTimeResolution(&ticksPerSecond).errorCode, 0);
    ASSERT_EQ(NxCanApiWrapper::GetTimeConvCoefficient(), ticksPerSecond / 1000000);

    const std::vector<FrameFields> sent = MixedTraffic();
    const std::uint64_t before = Now(*rx);
    NxBusError result = Transmit(*tx, ToMessages(sent));
    ASSERT_EQ(result.errorCode, 0) << tx->GetErrorMessage(result);
    const std::vector<NXSCanMessage> got = Receive(*rx, sent.size());
    ExpectTraffic(sent, got, before, Now(*rx));
    EXPECT_EQ(rx->ReadReceiveQueue(), 0u) << "nothing but what was sent";
}

INSTANTIATE_TEST_SUITE_P(ReceiveModes, Traffic, ::testing::Values(false, true),
                         [](const ::testing::TestParamInfo<bool>& info) {
                             return info.param ? "EventBased" : "Polling";
                         });

using Reception = SimBusTest;

TEST_F(Reception, TheEventWakesAReaderThatWaitsForIt)
{
    NxCanApiWrapperSettings settings = Monitoring("NVX-CAN-2");
    settings.SetEventBasedReceive(true);
    auto rx = Open(settings);
    auto tx = Open(Monitoring("NVX-CAN-1"));
    ASSERT_TRUE(rx && tx);

    // The wait's deadline must not run past the end of the current second.
    for (;;) {
        timespec now;
        clock_gettime(CLOCK_REALTIME, &now);
        if (now.tv_nsec < 300000000) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    const FrameFields fields = MixedTraffic().front();
    std::thread sender([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        EXPECT_EQ(Transmit(*tx, {ToMessage(fields)}).errorCode, 0);
    });
    const bool woken = rx->WaitForReceiveEvent(600000, nullptr);
    sender.join();
    EXPECT_TRUE(woken) << "the library did not signal the package's event";
    const std::vector<NXSCanMessage> got = Receive(*rx, 1);
    ASSERT_EQ(got.size(), 1u);
    ExpectReceived(fields, got[0]);
}

TEST_F(Reception, AClassicChannelSetsItsBitRateAndHearsClassicFramesOnly)
{
    auto classic = Open(Monitoring("ORV-CAN-1", false));
    auto fd = Open(Monitoring("NVX-CAN-2"));
    auto tx = Open(Monitoring("NVX-CAN-1"));
    ASSERT_TRUE(classic && fd && tx);
    // Read from the channel before the wrapper set its own rate, and after.
    EXPECT_EQ(classic->GetInitialBaudRate(), kBitrate);
    std::uint32_t rate = 0;
    ASSERT_EQ(classic->GetBaudRate(&rate).errorCode, 0);
    EXPECT_EQ(rate, kBitrate);

    const std::vector<FrameFields> sent = MixedTraffic();
    const std::uint64_t before = Now(*classic);
    ASSERT_EQ(Transmit(*tx, ToMessages(sent)).errorCode, 0);
    // The CAN FD channel hearing everything marks the end of the traffic.
    EXPECT_EQ(Receive(*fd, sent.size()).size(), sent.size());
    const std::vector<FrameFields> expected = Classic(sent);
    ExpectTraffic(expected, Receive(*classic, expected.size()), before, Now(*classic));
}

TEST_F(Reception, RemoteFramesPassTheDirectPath)
{
    auto rx = Open(Monitoring("NVX-CAN-2"));
    auto tx = Open(Monitoring("NVX-CAN-1"));
    ASSERT_TRUE(rx && tx);
    std::vector<NXSCanMessage> remote = {ToMessage({Record::Classic, 0x123, false, 4, false, false, 0, 0}),
                                         ToMessage({Record::Classic, 0x1234567, true, 8, false, false, 0, 0})};
    for (NXSCanMessage& m : remote) m.tMessageType = NXCAN_MESSAGE_TYPE_REMOTE;
    NxBusError result = Transmit(*tx, remote);
    ASSERT_EQ(result.errorCode, 0) << tx->GetErrorMessage(result);

    const std::vector<NXSCanMessage> got = Receive(*rx, 2);
    ASSERT_EQ(got.size(), 2u);
    for (std::size_t i = 0; i < got.size(); ++i) {
        SCOPED_TRACE(Describe(got[i]));
        EXPECT_EQ(got[i].tMessageType, NXCAN_MESSAGE_TYPE_REMOTE);
        EXPECT_EQ(got[i].ulCanIdentifier, remote[i].ulCanIdentifier);
        EXPECT_EQ(got[i].tCanIdentifierType, remote[i].tCanIdentifierType);
        EXPECT_EQ(got[i].usDLC, remote[i].usDLC) << "a remote frame keeps its DLC";
    }
}

}  // namespace
}  // namespace nxbus_on_sim
