// The three timestamp behaviours of NxCanMonitoring, on a bus whose
// hardware clock runs 3 s ahead of the engine's (clock_offset.conf).
#include <string>
#include <vector>

#include "ComponentTest.h"

namespace bus_components {
namespace {

const long long kHardwareAhead = 3000000;  // microseconds
const int kFrames = 24;

class ClockOffsetTest : public ComponentTest {};

TEST_F(ClockOffsetTest, TimestampsFollowTheSelectedBehaviour)
{
    // One monitor per ts_behavior: 0 converts to engine time, 1 keeps
    // hardware time everywhere, 2 keeps it in the frames and stamps the
    // element with the engine's time of the read.
    const char* channels[] = {"NVX-CAN-2", "NVX-ZIRA-1", "ORV-CAN-1"};
    const bool vectorize[] = {false, true, true};
    const char* sampling[] = {"Event based", "Polling", "Event based"};
    std::vector<std::string> files;
    for (int i = 0; i < 3; ++i) {
        const std::string rx = "rx" + std::to_string(i);
        MakeOnChannel("NxCanMonitoring", rx, channels[i], false);
        Set(rx + ".ts_behavior", "3|" + std::to_string(i) +
                                     "|Convert HW timestamps to Veldor timebase|Keep HW timestamps (apply this on "
                                     "output)|Keep HW timestamps (use Veldor timebase on output)");
        Set(rx + ".vectorize_frames", vectorize[i] ? "true" : "false");
        Set(rx + ".sampling_mode", sampling[i]);
        files.push_back(MakePrinter("print" + std::to_string(i), rx + ".oCAN"));
    }
    Make("CanGenerator", "gen");
    Set("gen.count", std::to_string(kFrames));
    Set("gen.period", "2000");
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

    std::vector<PrintedFrame> converted = ReadPrinted(files[0]);
    std::vector<PrintedFrame> hardware = ReadPrinted(files[1]);
    std::vector<PrintedFrame> hardwareFrames = ReadPrinted(files[2]);
    ASSERT_EQ(converted.size(), static_cast<std::size_t>(kFrames));
    ASSERT_EQ(hardware.size(), static_cast<std::size_t>(kFrames));
    ASSERT_EQ(hardwareFrames.size(), static_cast<std::size_t>(kFrames));

    for (int k = 0; k < kFrames; ++k) {
        SCOPED_TRACE("frame " + std::to_string(k));
        // 0: engine time in frame and element.
        EXPECT_GE(converted[k].ts, before);
        EXPECT_LE(converted[k].ts, after);
        EXPECT_EQ(converted[k].elementTs, converted[k].ts);
        // 1: hardware time; a vector's element bears its first frame's.
        EXPECT_GE(hardware[k].ts - kHardwareAhead, before);
        EXPECT_LE(hardware[k].ts - kHardwareAhead, after);
        if (hardware[k].index == 0) {
            EXPECT_EQ(hardware[k].elementTs, hardware[k].ts);
        }
        // 2: hardware time in the frame, the engine's time of the read on
        // the element, which comes after the frame's end.
        const long long received = hardwareFrames[k].ts - kHardwareAhead;
        EXPECT_GE(received, before);
        EXPECT_LE(received, after);
        EXPECT_GE(hardwareFrames[k].elementTs, received);
        EXPECT_LE(hardwareFrames[k].elementTs, after);
        // The same frame, seen through the three behaviours, at the same
        // moment of the bus (the conversion's offset is read once, to the
        // microsecond).
        EXPECT_EQ(hardware[k].ts, hardwareFrames[k].ts);
        EXPECT_NEAR(static_cast<double>(converted[k].ts), static_cast<double>(hardware[k].ts - kHardwareAhead),
                    1000.0);
    }
}

}  // namespace
}  // namespace bus_components

namespace bus_components {
namespace {

TEST_F(ClockOffsetTest, SimulationTimeIsTheHardwareClockStampedWithTheEngines)
{
    Make("NxCanMonitoring", "rx");
    Trigger("rx.Refresh_Devices");
    Set("rx.channel", "NVX-CAN-2");
    Set("rx.data_baudrate", "500");
    Set("rx.sim_time_output", "true");
    Set("rx.polling_period", "2000");
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
