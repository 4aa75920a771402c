// Faults on the bus side, injected by the simulator (faults.conf): a
// transmission that fails on ORV-CAN-1 and a channel, NVX-VIRT-1, that
// can't be registered. The component concerned stops with the library's
// words; the rest of the diagram runs on. A hardware clock that can't be read
// (NVX-ZIRA-1) ends a monitor's reader, which needs it to convert times.
#include <string>

#include "ComponentTest.h"

namespace bus_components {
namespace {

class BusFaultsTest : public ComponentTest {
protected:
    // A generator feeding statistics: the part of the diagram that has to
    // keep running.
    void MakeBystander()
    {
        Make("CanFrameStats", "stats");
        Make("CanGenerator", "other");
        Set("other.period", "1000");
        Connect("other.oCAN", "stats.iCAN");
    }
    bool IsDead(const std::string& name) { return engine.Graph().IsDead(name); }
};

TEST_F(BusFaultsTest, FailedTransmissionStopsTheInjectorOnly)
{
    MakeBystander();
    Make("CanGenerator", "gen");
    MakeOnChannel("NxCanInject", "tx", "ORV-CAN-1", false, "Unsynchronized");
    Connect("gen.oCAN", "tx.iCAN");
    Run();
    ASSERT_TRUE(Eventually([&] { return IsDead("tx"); }, 10));
    EXPECT_TRUE(Reported("component tx: NXCAN_TransmitMessages: "));
    EXPECT_TRUE(Reported("(injected)"));
    const long long frames = Figure("stats.frames");
    EXPECT_TRUE(Eventually([&] { return Figure("stats.frames") > frames + 10; }, 10));
    EXPECT_FALSE(IsDead("stats"));
    EXPECT_FALSE(IsDead("other"));
}

TEST_F(BusFaultsTest, ChannelThatCannotBeRegisteredStopsTheMonitorAtBirth)
{
    MakeBystander();
    MakeOnChannel("NxCanMonitoring", "rx", "NVX-VIRT-1", false);
    Run();
    ASSERT_TRUE(Eventually([&] { return IsDead("rx"); }, 10));
    EXPECT_TRUE(Reported("component rx: NXCAN_RegisterChannel: "));
    const long long frames = Figure("stats.frames");
    EXPECT_TRUE(Eventually([&] { return Figure("stats.frames") > frames + 10; }, 10));
    EXPECT_FALSE(IsDead("stats"));
}

TEST_F(BusFaultsTest, UnreadableHardwareClockEndsTheReaderThatConvertsTimes)
{
    MakeOnChannel("NxCanMonitoring", "rx", "NVX-ZIRA-1", false);
    Run();
    ASSERT_TRUE(Eventually([&] { return Reported("component rx: NXCAN_GetHardwareTime: "); }, 10));
    // The reader is gone; the component, marked in error, is still there.
    EXPECT_TRUE(Eventually([&] { return Threads("rx") == 1; }, 10)) << Threads("rx");
    EXPECT_TRUE(Component("rx")->State() & VELD::ErrorState);
}

struct EthernetFault {
    const char* replayMode;
    const char* interface;
    const char* message;
};

class BusFaultsEthernetTest : public BusFaultsTest, public ::testing::WithParamInterface<EthernetFault> {};

TEST_P(BusFaultsEthernetTest, FailedTransmitOrStreamCallStopsTheInjectorOnly)
{
    const EthernetFault& f = GetParam();
    MakeBystander();
    Make("EthGenerator", "gen");
    Set("gen.rate", "500");
    MakeOnInterface("NxEthInject", "tx", f.interface, f.replayMode);
    Connect("gen.oEth", "tx.iEth");
    if (std::string(f.replayMode) == "Synchronized") {
        Make("ReplayTimeSource", "times");
        Connect("times.oLogStartTime", "tx.iLogStartTime");
        Connect("times.oReplayStartTime", "tx.iReplayStartTime");
    }
    Run();
    ASSERT_TRUE(Eventually([&] { return IsDead("tx"); }, 10));
    EXPECT_TRUE(Reported(std::string("component tx: ") + f.message + ": ")) << f.message;
    EXPECT_TRUE(Reported("(injected)"));
    const long long frames = Figure("stats.frames");
    EXPECT_TRUE(Eventually([&] { return Figure("stats.frames") > frames + 10; }, 10));
    EXPECT_FALSE(IsDead("stats"));
    EXPECT_FALSE(IsDead("gen"));
}

INSTANTIATE_TEST_SUITE_P(BusFaultsEthernet, BusFaultsEthernetTest,
                         ::testing::Values(EthernetFault{"Unsynchronized", "NVX-ETH-1", "NXETH_TransmitFrames"},
                                           EthernetFault{"Synchronized", "NVX-ETH-2", "NXETH_ReplayStreamData"}),
                         [](const ::testing::TestParamInfo<EthernetFault>& info) { return info.param.replayMode; });

}  // namespace
}  // namespace bus_components
