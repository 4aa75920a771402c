// The time callbacks: a jump of the engine's clock reaches a polling
// monitor's reader and a synchronised injector's push thread through their
// handshakes. After a jump 60 s back, a polling reader that kept its old
// schedule would sleep a minute; it reads on at once. An Ethernet monitor
// that converts hardware times makes a new offset to engine time.
#include <chrono>
#include <cstring>
#include <string>
#include <thread>

#include "EthComponentTest.h"
#include "NxCanApiWrapper.h"
#include "NxEthApiWrapper.h"

namespace bus_components {
namespace {

// 60-byte frames to the other end of the link, sent by this process on
// NVX-ETH-1 through the package's wrapper, each ending with its counter.
class EthSender {
public:
    EthSender()
    {
        bool highSpeed = false;
        EXPECT_EQ(m_wrapper.Initialize(&highSpeed).errorCode, 0);
    }
    void Send(int frames)
    {
        const std::size_t length = 60, raw = sizeof(NXSEthRawFrameHeader) + length + NXETH_FCS_SIZE;
        std::vector<std::uint8_t> block(raw * frames, 0);
        for (int i = 0; i < frames; ++i) {
            // To the other end, of the local experimental type.
            std::uint8_t frame[length] = {2, 0x4e, 0x58, 0x45, 0, 2, 2, 0x4e, 0x58, 0x45, 0, 1, 0x88, 0xb5};
            const std::uint32_t counter = m_next++;
            std::memcpy(frame + length - 4, &counter, 4);
            VELDpcap_packet_header_t header{};
            header.caplen = header.len = length;
            NxEthApiWrapper::CopyFrame(reinterpret_cast<NXSEthRawFrame*>(block.data() + i * raw), frame, &header);
        }
        const NxBusError result = m_wrapper.TransmitFrames(block.data(), static_cast<std::uint32_t>(frames));
        EXPECT_EQ(result.errorCode, 0) << m_wrapper.GetErrorMessage(result);
    }

private:
    NxEthApiWrapper m_wrapper{NxEthApiWrapperSettings("127.0.0.1", "NVX-ETH-1", false, false)};
    std::uint32_t m_next = 0;
};

class TimeJumpTest : public EthComponentTest {
protected:
    ~TimeJumpTest() override { RestoreClock(); }
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
    Make("ReplayTimeSource", "times", {{"replay_lead", 10000000}});
    Connect("times.oLogStartTime", "tx.iLogStartTime");
    Connect("times.oReplayStartTime", "tx.iReplayStartTime");
    const std::string got = MakeMonitor(0, false);
    Run();
    ASSERT_TRUE(Eventually([&] { return Threads("tx") == 3; }));
    EthSender eth;
    eth.Send(3);
    ASSERT_TRUE(Eventually([&] { return Figure("got.printed") >= 3; }));

    engine.Clock().SetTime(Now() - 60000000);
    engine.Clock().SetSpeed(-1000);
    engine.Clock().SetSpeed(1000);  // back to forward: a jump for the polling reader
    engine.Clock().Flush();         // every listener has had its answer
    const long long jumpedTo = Now();

    {
        // Five frames from this process, on a channel of its own.
        NxCanApiWrapper can(NxCanApiWrapperSettings("127.0.0.1", "ORV-CAN-1", false, 500000, 500000, false, false));
        bool highSpeed = false;
        ASSERT_EQ(can.Initialize(&highSpeed).errorCode, 0);
        NXSCanMessage messages[5] = {};
        for (NXSCanMessage& m : messages) {
            m.tMessageType = NXCAN_MESSAGE_TYPE_DATA;
            m.tCanIdentifierType = NXCAN_IDENTIFIER_TYPE_STD;
            m.usDLC = 8;
        }
        ASSERT_EQ(can.TransmitMessages(messages, 5).errorCode, 0);
        // Off the bus only once the frames are through.
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    eth.Send(3);
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
