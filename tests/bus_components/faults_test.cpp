// Faults on the bus side, injected by the simulator (faults.conf): a
// transmission that fails on ORV-CAN-1 and NVX-ETH-1, a replay stream on
// NVX-ETH-2, a channel, NVX-VIRT-1, that can't be registered. The component
// concerned stops with the library's words; the rest of the diagram runs on.
// A hardware clock that can't be read (NVX-ZIRA-1) ends a monitor's reader,
// which needs it to convert times.
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
        Make("CanGenerator", "other", {{"period", 1000}});
        Connect("other.oCAN", "stats.iCAN");
    }
    bool IsDead(const std::string& name) { return engine.Graph().IsDead(name); }
};

// A call that fails stops its component with the library's words; the
// bystander and the component's own source run on.
struct Fault {
    const char* name;
    const char* model;
    const char* channel;
    const char* replayMode;  // "": a monitor
    const char* message;
    bool injectedText;  // the fault has a text of its own
};

class BusFaultsStop : public BusFaultsTest, public ::testing::WithParamInterface<Fault> {};

TEST_P(BusFaultsStop, TheComponentConcernedOnly)
{
    const Fault& f = GetParam();
    const bool eth = std::string(f.model).find("Eth") != std::string::npos;
    const std::string name = *f.replayMode ? "tx" : "rx";
    MakeBystander();
    if (eth)
        MakeOnInterface(f.model, name, f.channel, f.replayMode);
    else
        MakeOnChannel(f.model, name, f.channel, false, f.replayMode);
    if (*f.replayMode) {
        Make(eth ? "EthGenerator" : "CanGenerator", "gen");
        if (eth) Set("gen.rate", 500);
        Connect(eth ? "gen.oEth" : "gen.oCAN", eth ? "tx.iEth" : "tx.iCAN");
    }
    if (std::string(f.replayMode) == "Synchronized") {
        Make("ReplayTimeSource", "times");
        for (const std::string time : {"LogStartTime", "ReplayStartTime"}) Connect("times.o" + time, "tx.i" + time);
    }
    Run();
    ASSERT_TRUE(Eventually([&] { return IsDead(name); }, 10));
    EXPECT_TRUE(Reported("component " + name + ": " + f.message + ": ")) << f.message;
    EXPECT_EQ(Reported("(injected)"), f.injectedText);
    const long long frames = Figure("stats.frames");
    EXPECT_TRUE(Eventually([&] { return Figure("stats.frames") > frames + 10; }, 10));
    EXPECT_FALSE(IsDead("stats"));
    EXPECT_FALSE(IsDead("other"));
    EXPECT_FALSE(*f.replayMode && IsDead("gen"));
}

INSTANTIATE_TEST_SUITE_P(
    BusFaults, BusFaultsStop,
    ::testing::Values(Fault{"CanTransmit", "NxCanInject", "ORV-CAN-1", "Unsynchronized", "NXCAN_TransmitMessages", true},
                      Fault{"CanRegister", "NxCanMonitoring", "NVX-VIRT-1", "", "NXCAN_RegisterChannel", false},
                      Fault{"EthTransmit", "NxEthInject", "NVX-ETH-1", "Unsynchronized", "NXETH_TransmitFrames", true},
                      Fault{"EthReplayStream", "NxEthInject", "NVX-ETH-2", "Synchronized", "NXETH_ReplayStreamData",
                            true}),
    [](const ::testing::TestParamInfo<Fault>& info) { return info.param.name; });

TEST_F(BusFaultsTest, UnreadableHardwareClockEndsTheReaderThatConvertsTimes)
{
    MakeOnChannel("NxCanMonitoring", "rx", "NVX-ZIRA-1", false);
    Run();
    ASSERT_TRUE(Eventually([&] { return Reported("component rx: NXCAN_GetHardwareTime: "); }, 10));
    // The reader is gone; the component, marked in error, is still there.
    EXPECT_TRUE(Eventually([&] { return Threads("rx") == 1; }, 10)) << Threads("rx");
    EXPECT_TRUE(Component("rx")->State() & VELD::ErrorState);
}

}  // namespace
}  // namespace bus_components
