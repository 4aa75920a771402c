// The three timestamp behaviours of the monitors (SetTsBehaviour), on a bus
// whose hardware clock runs 3 s ahead of the engine's (clock_offset.conf).
#include <string>
#include <vector>

#include "EthComponentTest.h"

namespace bus_components {
namespace {

const long long kHardwareAhead = 3000000;  // microseconds

struct Stamp {
    long long frame, element;
    int index;  // in its element
};

// Every frame of a monitor of `behaviour`, read between `before` and `after`.
void ExpectStamps(int behaviour, const std::vector<Stamp>& stamps, long long before, long long after)
{
    SCOPED_TRACE("ts_behavior " + std::to_string(behaviour));
    for (std::size_t k = 0; k < stamps.size(); ++k) {
        const Stamp& s = stamps[k];
        const long long received = behaviour == 0 ? s.frame : s.frame - kHardwareAhead;
        EXPECT_GE(received, before) << k;
        EXPECT_LE(received, after) << k;
        if (behaviour == 2) {
            // The engine's time of the wake-up on the element: taken just
            // before the queue is read, so a frame that ends meanwhile may
            // be a little younger than its element.
            EXPECT_GE(s.element, before) << k;
            EXPECT_LE(s.element, after) << k;
            EXPECT_NEAR(static_cast<double>(s.element), static_cast<double>(received), 100000.0) << k;
        } else if (s.index == 0) {
            // An element bears its first frame's time.
            EXPECT_EQ(s.element, s.frame) << k;
        }
    }
}

using ClockOffsetTest = EthComponentTest;

TEST_F(ClockOffsetTest, TimestampsFollowTheSelectedBehaviour)
{
    // One monitor per ts_behavior, on the same frames.
    const int kFrames = 24;
    const struct {
        const char* channel;
        bool vectorize;
        const char* sampling;
    } monitors[] = {
        {"NVX-CAN-2", false, "Event based"}, {"NVX-ZIRA-1", true, "Polling"}, {"ORV-CAN-1", true, "Event based"}};
    std::vector<std::string> files;
    for (int i = 0; i < 3; ++i) {
        const std::string rx = "rx" + std::to_string(i);
        MakeOnChannel("NxCanMonitoring", rx, monitors[i].channel, false);
        SetTsBehaviour(rx, i);
        Set(rx + ".vectorize_frames", monitors[i].vectorize);
        Set(rx + ".sampling_mode", monitors[i].sampling);
        files.push_back(MakePrinter("print" + std::to_string(i), rx + ".oCAN"));
    }
    Make("CanGenerator", "gen", {{"count", kFrames}, {"period", 2000}});
    MakeOnChannel("NxCanInject", "tx", "NVX-CAN-1", false, "Unsynchronized");
    Connect("gen.oCAN", "tx.iCAN");

    const long long before = Now();
    Run();
    for (int i = 0; i < 3; ++i) {
        const std::string printed = "print" + std::to_string(i) + ".printed";
        ASSERT_TRUE(Eventually([&] { return Figure(printed) >= kFrames; })) << printed;
    }
    const long long after = Now();
    Shutdown();

    std::vector<PrintedFrame> printed[3];
    for (int i = 0; i < 3; ++i) {
        printed[i] = ReadPrinted(files[i]);
        ASSERT_EQ(printed[i].size(), static_cast<std::size_t>(kFrames));
        std::vector<Stamp> stamps;
        for (const PrintedFrame& f : printed[i]) stamps.push_back({f.ts, f.elementTs, f.index});
        ExpectStamps(i, stamps, before, after);
    }
    // The same frame, seen through the three behaviours, at the same moment
    // of the bus (the conversion's offset is read once, to the microsecond).
    for (int k = 0; k < kFrames; ++k) {
        EXPECT_EQ(printed[1][k].ts, printed[2][k].ts) << k;
        EXPECT_NEAR(static_cast<double>(printed[0][k].ts), static_cast<double>(printed[1][k].ts - kHardwareAhead),
                    1000.0)
            << k;
    }
}

TEST_F(ClockOffsetTest, EthernetTimestampsFollowTheSelectedBehaviour)
{
    const int kFrames = 20;
    for (int behaviour = 0; behaviour < 3; ++behaviour) {
        const std::string got = MakeMonitor(behaviour, behaviour != 0);
        MakeSender("Unsynchronized", kFrames, 60, 60, 1);
        const long long before = Now();
        Run();
        ASSERT_TRUE(Eventually([&] { return Figure("got.printed") >= kFrames; }));
        const long long after = Now();
        engine.Graph().Clear();

        const std::vector<PrintedEthFrame> out = ReadPrintedEthFrames(got);
        ASSERT_EQ(out.size(), static_cast<std::size_t>(kFrames));
        std::vector<Stamp> stamps;
        for (const PrintedEthFrame& f : out) stamps.push_back({f.time, f.elementTime, f.index});
        ExpectStamps(behaviour, stamps, before, after);
    }
}

TEST_F(ClockOffsetTest, SimulationTimeIsTheHardwareClockStampedWithTheEngines)
{
    MakeOnChannel("NxCanMonitoring", "rx", "NVX-CAN-2", false);
    Set("rx.sim_time_output", true);
    Set("rx.polling_period", 2000);
    Make("TimeProbe", "time");
    Connect("rx.oSimTime", "time.iTime");
    Run();
    ASSERT_TRUE(Eventually([&] { return Figure("time.elements") >= 20; }));
    const long long now = Now();
    Shutdown();
    const long long stamped = Figure("time.timestamp");
    EXPECT_TRUE(Reported("\"NxCanMonitoring\" is the data replay time provider."));
    EXPECT_LE(stamped, now);
    EXPECT_GT(stamped, now - 1000000);
    // The hardware's time, read after the wait that the stamp began.
    EXPECT_GE(Figure("time.value") - kHardwareAhead, stamped);
    EXPECT_LE(Figure("time.value") - kHardwareAhead, stamped + 100000);
}

}  // namespace
}  // namespace bus_components
