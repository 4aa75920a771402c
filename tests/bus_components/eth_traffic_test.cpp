// The Ethernet components through the engine, on the veth pair of
// tools/with-sim-bus: an EthGenerator's frames sent by NxEthInject on
// NVX-ETH-1 and read by NxEthMonitoring on NVX-ETH-2. Printers dump every
// byte on both sides, so that what was read is compared with what was sent.
#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "EthComponentTest.h"

namespace bus_components {
namespace {

struct TrafficCase {
    const char* name;
    bool vectorize;
    int perElement;  // frames of a generator's element
    int from, to;    // frame lengths, sweeping up a byte a frame
    int count;
};

void PrintTo(const TrafficCase& c, std::ostream* os) { *os << c.name; }

class EthTrafficTest : public EthComponentTest, public ::testing::WithParamInterface<TrafficCase> {};

TEST_P(EthTrafficTest, EveryFrameArrivesOnceInOrderByteForByte)
{
    const TrafficCase& c = GetParam();
    const std::string got = MakeMonitor(1, c.vectorize);
    // Reads far apart, so that a vectorised read holds many frames.
    if (c.vectorize) Set("rx.sampling_period", 20000);
    const std::string sent = MakeSender("Unsynchronized", c.count, c.from, c.to, c.perElement);
    Run();
    ASSERT_TRUE(Eventually([&] { return Figure("got.printed") >= c.count && Figure("sent.printed") >= c.count; }))
        << Figure("got.printed");
    Shutdown();

    const std::vector<PrintedEthFrame> in = ReadPrintedEthFrames(sent);
    const std::vector<PrintedEthFrame> out = ReadPrintedEthFrames(got);
    ASSERT_EQ(in.size(), static_cast<std::size_t>(c.count));
    ASSERT_EQ(out.size(), in.size());
    int largest = 0;
    for (std::size_t k = 0; k < in.size(); ++k) {
        ASSERT_EQ(out[k].bytes, in[k].bytes) << "frame " << k;
        largest = std::max(largest, out[k].count);
    }
    EXPECT_EQ(in.front().bytes.size(), static_cast<std::size_t>(c.from));
    EXPECT_EQ(in.back().bytes.size(), static_cast<std::size_t>(c.to));
    // One read an element, or one frame an element.
    EXPECT_EQ(largest > 1, c.vectorize) << largest;
}

INSTANTIATE_TEST_SUITE_P(Frames, EthTrafficTest,
                         ::testing::Values(TrafficCase{"ShortestFramesOneAnElement", false, 1, 60, 159, 100},
                                           TrafficCase{"LongestFramesOneReadAnElement", true, 8, 1415, 1514, 100}),
                         [](const ::testing::TestParamInfo<TrafficCase>& info) { return info.param.name; });

// Refusals: what the injector does not send, while the rest goes out.
using EthRefusalTest = EthComponentTest;

// Both ends of the veth pair at another MTU while it lives.
struct ScopedLinkMtu {
    explicit ScopedLinkMtu(int mtu) { EXPECT_EQ(Mtu(mtu), 0); }
    ~ScopedLinkMtu() { Mtu(1500); }
    static int Mtu(int mtu)
    {
        const std::string value = " mtu " + std::to_string(mtu);
        return std::system(("ip link set dev nvxeth1" + value + " && ip link set dev nvxeth2" + value).c_str());
    }
};

TEST_F(EthRefusalTest, ElementsOfAnotherLinkTypeAreReportedAndNotSent)
{
    const std::string got = MakeMonitor(1, false);
    Make("EthGenerator", "gen", {{"count", 30}, {"rate", 0}});
    Make("EthMangler", "mangle", {{"foreign_every", 3}});  // elements 3, 6, 9...: frames 2, 5, 8...
    Connect("gen.oEth", "mangle.iEth");
    MakeOnInterface("NxEthInject", "tx", "NVX-ETH-1", "Unsynchronized");
    Connect("mangle.oEth", "tx.iEth");
    Run();
    ASSERT_TRUE(Eventually([&] { return Figure("got.printed") >= 20; }));
    // The generator's last frame leaves; nothing more comes.
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_FALSE(engine.Graph().IsDead("tx"));
    Shutdown();

    EXPECT_EQ(engine.GetConsole().CountContaining("component tx: unsupported ethernet link type : 227"), 10u);
    const std::vector<PrintedEthFrame> out = ReadPrintedEthFrames(got);
    ASSERT_EQ(out.size(), 20u);
    for (std::size_t k = 0; k < out.size(); ++k) EXPECT_EQ(CounterOf(out[k].bytes), k / 2 * 3 + k % 2);
}

TEST_F(EthRefusalTest, AFrameLongerThanTheMtuEndsItsElement)
{
    // The link takes frames of 1526 bytes and more.
    ScopedLinkMtu mtu(1600);
    const std::string got = MakeMonitor(1, true);
    // Each element: 1524, 1525, 1526, 1527, 1528 bytes.
    const std::string sent = MakeSender("Unsynchronized", 20, 1524, 1528, 5);
    Run();
    ASSERT_TRUE(Eventually([&] { return Figure("got.printed") >= 12 && Figure("sent.printed") >= 20; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_FALSE(engine.Graph().IsDead("tx"));
    Shutdown();

    EXPECT_EQ(engine.GetConsole().CountContaining(
                  "component tx: Ethernet frame to transmit is larger than MTU. The frame cannot be transmitted."),
              4u);
    const std::vector<PrintedEthFrame> in = ReadPrintedEthFrames(sent);
    const std::vector<PrintedEthFrame> out = ReadPrintedEthFrames(got);
    ASSERT_EQ(out.size(), 12u);
    for (std::size_t k = 0; k < out.size(); ++k) {
        const std::size_t from = k / 3 * 5 + k % 3;
        EXPECT_EQ(out[k].bytes, in[from].bytes) << k;
        EXPECT_EQ(out[k].bytes.size(), 1524 + k % 3);
    }
}

}  // namespace
}  // namespace bus_components
