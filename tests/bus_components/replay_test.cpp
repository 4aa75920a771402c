// NxCanInject in Synchronized mode: a generator writes the frames of a
// "recording" (times L, L + P, L + 2P...), a ReplayTimeSource gives the
// replay start S a lead after the run's start, and the simulator emits frame
// k at S + kP. A monitor on another channel stamps each frame with hardware
// time (the engine's clock, on this bus) at its start; a probe reads the
// injector's replay state records.
#include <string>
#include <vector>

#include "ComponentTest.h"

namespace bus_components {
namespace {

const long long kLogStart = 5000000;
const long long kPeriod = 10000;
const int kFrames = 30;
// A standard 8-byte data frame at 500 kbit/s: 135 bits.
const long long kFrameTime = 270;
// How far an emission may stray from its schedule here: generous, for a
// loaded machine or a sanitizer (bench_bus_components measures the real
// spread), and still far below the 290 ms over which the frames spread.
const long long kTolerance = 30000;

enum ReplayState { Stop = 3, End = 4 };

class SynchronizedReplayTest : public ComponentTest {
protected:
    // The diagram: monitor and printer, generator, injector, probe, replay
    // times; `stopAfter` and `eofDelay` (microseconds after the replay
    // start and after birth) 0 when not used.
    std::string Build(long long stopAfter, long long eofDelay)
    {
        MakeOnChannel("NxCanMonitoring", "rx", "NVX-CAN-2", false);
        Set("rx.ts_behavior", "3|1|Convert HW timestamps to Veldor timebase|Keep HW timestamps (apply this on "
                              "output)|Keep HW timestamps (use Veldor timebase on output)");
        const std::string file = MakePrinter("print", "rx.oCAN");

        Make("CanGenerator", "gen");
        Set("gen.output_type", "Universal CAN");
        Set("gen.identifier", "0x321");
        Set("gen.count", std::to_string(kFrames));
        Set("gen.period", std::to_string(kPeriod));
        Set("gen.first_timestamp", std::to_string(kLogStart));
        Set("gen.paced", "false");
        Set("gen.frames_per_element", "10");

        MakeOnChannel("NxCanInject", "tx", "NVX-CAN-1", true);
        EXPECT_EQ(Text("tx.replay_mode"), "Synchronized");
        Connect("gen.oCAN", "tx.iCAN");

        MakeReplayTimes(kLogStart, 300000, stopAfter, kLogStart + kFrames * kPeriod, eofDelay);
        return file;
    }
};

TEST_F(SynchronizedReplayTest, EmitsOnScheduleThenClosesTheStreamAtTheEndOfData)
{
    const std::string file = Build(0, 150000);
    Run();
    ASSERT_TRUE(Eventually([&] { return Figure("print.printed") >= kFrames; }, 10));
    ExpectStreamClosed(kFrames);
    if (HasFatalFailure()) return;
    const long long start = Figure("times.replay_start_time");
    Shutdown();

    const std::vector<PrintedFrame> frames = ReadPrinted(file);
    ASSERT_EQ(frames.size(), static_cast<std::size_t>(kFrames));
    for (int k = 0; k < kFrames; ++k) {
        ASSERT_EQ(CounterOf(frames[k]), static_cast<std::uint32_t>(k));
        const long long emitted = frames[k].ts - kFrameTime;
        EXPECT_NEAR(static_cast<double>(emitted), static_cast<double>(start + k * kPeriod),
                    static_cast<double>(kTolerance))
            << "frame " << k;
    }
}

TEST_F(SynchronizedReplayTest, EmitsNothingAfterTheStopTime)
{
    const long long stopAfter = kPeriod * 15 + kPeriod / 2;  // frames 0 to 15 are due before it
    const std::string file = Build(stopAfter, 0);
    Run();
    ASSERT_TRUE(Eventually([&] { return Figure("probe.state") == Stop; }, 10)) << Figure("probe.state");
    const long long start = Figure("times.replay_start_time");
    // Past the time of the last frame of the recording.
    ASSERT_TRUE(Eventually([&] { return Now() > start + kFrames * kPeriod + 20000; }, 10));
    EXPECT_GT(Figure("probe.dropped"), 0);
    // Without an end of data the push thread runs on.
    EXPECT_EQ(Threads("tx"), 3);
    Shutdown();

    const std::vector<PrintedFrame> frames = ReadPrinted(file);
    EXPECT_EQ(frames.size(), 16u);
    for (const PrintedFrame& f : frames) {
        EXPECT_LE(CounterOf(f), 15u);
        EXPECT_LE(f.ts - kFrameTime, start + stopAfter + kTolerance) << CounterOf(f);
    }
}

}  // namespace
}  // namespace bus_components
