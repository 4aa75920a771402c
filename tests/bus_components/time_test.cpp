// The time callbacks: a jump of the engine's clock reaches a polling
// monitor's reader and a synchronised injector's push thread through their
// handshakes. After a jump 60 s back, a polling reader that kept its old
// schedule would sleep a minute; it reads on at once.
#include <cstring>
#include <memory>
#include <string>

#include "ComponentTest.h"
#include "NxCanApiWrapper.h"

namespace bus_components {
namespace {

class TimeJumpTest : public ComponentTest {
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
    Run();
    ASSERT_TRUE(Eventually([&] { return Threads("tx") == 3; }));

    engine.Clock().SetTime(Now() - 60000000);
    engine.Clock().SetSpeed(-1000);
    engine.Clock().SetSpeed(1000);  // back to forward: a jump for the polling reader
    engine.Clock().Flush();         // every listener has had its answer

    SendFrames(5);
    EXPECT_TRUE(Eventually([&] { return Figure("print.printed") == 5; }, 5)) << Figure("print.printed");
    EXPECT_TRUE(Eventually([&] { return Figure("print2.printed") == 5; }, 5)) << Figure("print2.printed");
}

}  // namespace
}  // namespace bus_components
