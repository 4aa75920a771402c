// Frames from a generator go out through NxCanInject (Unsynchronized) on
// NVX-CAN-1; four NxCanMonitoring components on the other channels read
// them back, one for each pairing of vectorised or not with event-based or
// polling, and printers write what arrived.
#include <algorithm>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "ComponentTest.h"

namespace bus_components {
namespace {

struct Traffic {
    const char* name;
    const char* outputType;  // the monitors'
    bool monitorFd;
    // The frames sent.
    std::uint32_t id;
    bool extended;
    int length;
    bool fd, brs;
};

const int kFrames = 48;

const struct {
    const char* channel;
    bool vectorize;
    const char* sampling;
} kMonitors[] = {{"NVX-CAN-2", false, "Event based"},
                 {"NVX-ZIRA-1", true, "Event based"},
                 {"ORV-CAN-1", false, "Polling"},
                 {"NVX-VIRT-1", true, "Polling"}};

class TrafficTest : public ComponentTest, public ::testing::WithParamInterface<Traffic> {};

TEST_P(TrafficTest, EveryFrameArrivesOnceInOrderAndIntact)
{
    const Traffic& t = GetParam();
    for (int m = 0; m < 4; ++m) {
        const std::string rx = "rx" + std::to_string(m);
        MakeOnChannel("NxCanMonitoring", rx, kMonitors[m].channel, t.monitorFd);
        Set(rx + ".output_type", t.outputType);
        Set(rx + ".vectorize_frames", kMonitors[m].vectorize);
        Set(rx + ".sampling_mode", kMonitors[m].sampling);
        MakePrinter("print" + std::to_string(m), rx + ".oCAN");
    }
    // The readers first: the sender starts once they are born.
    Make("CanGenerator", "gen",
         {{"output_type", "Universal CAN"}, {"identifier", t.id}, {"extended", t.extended}, {"length", t.length},
          {"fd", t.fd}, {"brs", t.brs}, {"count", kFrames}, {"frames_per_element", 4}, {"period", 1000}});
    MakeOnChannel("NxCanInject", "tx", "NVX-CAN-1", true, "Unsynchronized");
    Connect("gen.oCAN", "tx.iCAN");
    Run();
    for (int m = 0; m < 4; ++m) {
        const std::string printed = "print" + std::to_string(m) + ".printed";
        EXPECT_TRUE(Eventually([&] { return Figure(printed) >= kFrames; }, 10)) << printed << ": " << Figure(printed);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(30));  // time for a duplicate to show
    Shutdown();

    const bool universal = std::string(t.outputType) == "Universal CAN";
    for (int m = 0; m < 4; ++m) {
        SCOPED_TRACE(std::string(kMonitors[m].channel) + (kMonitors[m].vectorize ? ", vectorised, " : ", ") +
                     kMonitors[m].sampling);
        const std::vector<PrintedFrame> frames = ReadPrinted(m_folder + "/print" + std::to_string(m) + ".txt");
        ASSERT_EQ(frames.size(), static_cast<std::size_t>(kFrames));
        int largestElement = 0;
        for (int k = 0; k < kFrames; ++k) {
            const PrintedFrame& f = frames[k];
            ASSERT_EQ(CounterOf(f), static_cast<std::uint32_t>(k)) << "frame " << k;
            EXPECT_EQ(f.id, t.id);
            EXPECT_EQ(f.extended, t.extended);
            ASSERT_EQ(f.length, t.length);
            for (int b = 4; b < t.length; ++b) EXPECT_EQ(f.data[b], static_cast<std::uint8_t>((k + b) & 0xFF));
            // Only the universal record tells the bit rate switch.
            EXPECT_EQ(f.flags.count("BRS") == 1, universal && t.brs) << "frame " << k;
            if (k > 0) { EXPECT_GE(f.ts, frames[k - 1].ts); }
            if (!kMonitors[m].vectorize) { EXPECT_EQ(f.size, 1); }
            if (f.index == 0) { EXPECT_EQ(f.elementTs, f.ts); }
            largestElement = std::max(largestElement, f.size);
        }
        // Polling reads several frames at once: vectorised, they share an
        // element.
        if (kMonitors[m].vectorize && std::string(kMonitors[m].sampling) == "Polling") { EXPECT_GT(largestElement, 1); }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Records, TrafficTest,
    ::testing::Values(Traffic{"ClassicIntoClassic", "CAN/CAN FD", false, 0x123, false, 8, false, false},
                      Traffic{"ClassicExtendedIntoUniversal", "Universal CAN", false, 0x1ABCDE, true, 5, false, false},
                      Traffic{"ClassicIntoFdRecords", "CAN/CAN FD", true, 0x123, false, 8, false, false},
                      Traffic{"FdIntoFdRecords", "CAN/CAN FD", true, 0x18DAF110, true, 12, true, true},
                      Traffic{"FdIntoUniversal", "Universal CAN", true, 0x18DAF110, true, 12, true, true},
                      Traffic{"FdWithoutSwitchIntoUniversal", "Universal CAN", true, 0x7FF, false, 64, true, false}),
    [](const ::testing::TestParamInfo<Traffic>& info) { return std::string(info.param.name); });

// A read of more than 256 frames passes on the first 256 and says so.
using ReadLimitTest = ComponentTest;

TEST_F(ReadLimitTest, OneReadPassesOnAtMost256Frames)
{
    MakeOnChannel("NxCanMonitoring", "rx", "NVX-CAN-2", false);
    Set("rx.sampling_mode", "Polling");
    Set("rx.sampling_period", 300000);
    Set("rx.vectorize_frames", true);
    MakePrinter("print", "rx.oCAN");
    // 257 frames at once from the virtual channel, which takes no bus time:
    // they are all in the receive queue at the next read.
    Make("CanGenerator", "gen", {{"count", 257}, {"frames_per_element", 256}, {"period", 1}});
    MakeOnChannel("NxCanInject", "tx", "NVX-VIRT-1", false, "Unsynchronized");
    Connect("gen.oCAN", "tx.iCAN");
    Run();
    ASSERT_TRUE(Eventually([&] { return Figure("print.printed") >= 256; }, 10));
    EXPECT_TRUE(Eventually(
        [&] { return Reported("Too many messages [msgBufferSize:257]. Outputting the first 256 messages ..."); }));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(Figure("print.printed"), 256);
}

}  // namespace
}  // namespace bus_components
