// The time callbacks: a jump of the engine's clock reaches a polling
// monitor's reader and a synchronised injector's push thread through their
// handshakes. After a jump 60 s back, a polling reader that kept its old
// schedule would sleep a minute; it reads on at once. An Ethernet monitor
// that converts hardware times makes a new offset to engine time.
#include <cstring>
#include <memory>
#include <string>

#include "EthComponentTest.h"
#include "NxCanApiWrapper.h"
#include "pcap_file.h"

namespace bus_components {
namespace {

class TimeJumpTest : public EthComponentTest {
protected:
    ~TimeJumpTest() override { RestoreClock(); }

    // Frames sent from this process, on a channel of its own.
    void SendFrames(int n)
    {
        NxCanApiWrapperSettings settings("127.0.0.1", "ORV-CAN-1", false, 500000, 500000, false, false);
        std::unique_ptr<NxCanApiWrapper> wrapper(new NxCanApiWrapper(settings));
        bool highSpeed = false;
        ASSERT_EQ(wrapper->Initialize(&highSpeed).errorCode, 0);
        NXSCanMessage messages[8];
        std::memset(messages, 0, sizeof messages);
        for (int i = 0; i < n && i < 8; ++i) {
            messages[i].tMessageType = NXCAN_MESSAGE_TYPE_DATA;
            messages[i].ulCanIdentifier = 0x100 + i;
            messages[i].tCanIdentifierType = NXCAN_IDENTIFIER_TYPE_STD;
            messages[i].usDLC = 8;
        }
        ASSERT_EQ(wrapper->TransmitMessages(messages, static_cast<std::uint32_t>(n)).errorCode, 0);
        // Off the bus only once the frames are through.
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
};

TEST_F(TimeJumpTest, ReadersAndPushThreadsFollowAJumpBack)
{
    MakeOnChannel("NxCanMonitoring", "polled", "NVX-CAN-2", false);
    Set("polled.sampling_mode", "Polling");
    MakePrinter("print", "polled.oCAN");
    MakeOnChannel("NxCanMonitoring", "evented", "NVX-VIRT-1", false);
    MakePrinter("print2", "evented.oCAN");
    // A synchronised injector waiting for its times: its push thread runs.
    MakeOnChannel("NxCanInject", "tx", "NVX-ZIRA-1", false, "Synchronized");
    Make("ReplayTimeSource", "times");
    Set("times.replay_lead", "10000000");
    Connect("times.oLogStartTime", "tx.iLogStartTime");
    Connect("times.oReplayStartTime", "tx.iReplayStartTime");
    const std::string got = MakeMonitor(0, false);
    Run();
    ASSERT_TRUE(Eventually([&] { return Threads("tx") == 3; }));
    DirectSender sender("NVX-ETH-1");
    sender.Send(3);
    ASSERT_TRUE(Eventually([&] { return Figure("got.printed") >= 3; }));

    engine.Clock().SetTime(Now() - 60000000);
    engine.Clock().SetSpeed(-1000);
    engine.Clock().SetSpeed(1000);  // back to forward: a jump for the polling reader
    engine.Clock().Flush();         // every listener has had its answer
    const long long jumpedTo = Now();

    SendFrames(5);
    sender.Send(3);
    EXPECT_TRUE(Eventually([&] { return Figure("print.printed") == 5; }, 5)) << Figure("print.printed");
    EXPECT_TRUE(Eventually([&] { return Figure("print2.printed") == 5; }, 5)) << Figure("print2.printed");
    ASSERT_TRUE(Eventually([&] { return Figure("got.printed") >= 6; }));
    const long long after = Now();
    Shutdown();
    const std::vector<PrintedEthFrame> out = ReadPrintedEthFrames(got);
    ASSERT_EQ(out.size(), 6u);
    // Before the jump on the old time, after it on the new one.
    for (int k = 0; k < 3; ++k) EXPECT_GT(out[k].time, after);
    for (int k = 3; k < 6; ++k) {
        EXPECT_GE(out[k].time, jumpedTo);
        EXPECT_LE(out[k].time, after);
    }
}

}  // namespace
}  // namespace bus_components
