// The CAN file recorder and player through the engine, without a bus: what
// the recorder writes for every frame record, what it does when the file
// fails; the player's pace on the engine's clock (speed, pause, jumps).
// (Malformed lines and error frames in a file: the commands' tests; files of
// python-can: can_log_interop_tests, whose reader and writer these use.)
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "MainJobTest.h"
#include "NxBusLibraryPaths.h"
#include "veld_property.h"
#include "veld_property_value.h"

namespace mainjob {
namespace {

const long long kFirst = 1700000000000000;

struct RecordCase {
    const char* record;  // CanGenerator.output_type
    bool vectorised;
    const char* extension;
};

class RecorderRecords : public FileComponentTest, public ::testing::WithParamInterface<RecordCase> {};

TEST_P(RecorderRecords, EveryFrameWithItsTimeAndPayload)
{
    const RecordCase& c = GetParam();
    const bool fd = std::string(c.record) != "CAN";
    const std::string file = m_folder + "/out." + c.extension, on = fd ? "true" : "false";
    Make("CanGenerator", "gen",
         {{"output_type", c.record}, {"identifier", "0x18DAF110"}, {"extended", "true"}, {"length", fd ? "12" : "8"},
          {"fd", on}, {"brs", on}, {"count", "50"}, {"period", "1000"}, {"first_timestamp", std::to_string(kFirst)},
          {"paced", "false"}, {"frames_per_element", c.vectorised ? "8" : "1"}});
    Make("CanFileRecorder", "rec", {{"file", file}, {"time_base", "Engine time"}});
    Connect("gen.oCAN", "rec.iCAN");
    Run();
    ASSERT_TRUE(Eventually([&] { return Figure("rec.recorded") == 50; }, 10)) << Figure("rec.recorded");
    Shutdown();

    const std::vector<CanFrame> read = ReadLog(file);
    ASSERT_EQ(read.size(), 50u);
    const std::vector<CanFrame> counted = CountedFrames(50, 1000, kFirst);
    for (int k = 0; k < 50; ++k) {
        // The FD record says nothing of FD: 12 bytes make it an FD frame;
        // only the universal record carries the bit rate switch.
        CanFrame want = counted[k];
        want.id = 0x18DAF110;
        want.extended = true;
        want.fd = fd;
        want.bitRateSwitch = std::string(c.record) == "Universal CAN";
        want.length = fd ? 12 : 8;
        for (int i = 8; i < want.length; ++i) want.data[i] = static_cast<std::uint8_t>(k + i);
        EXPECT_EQ(read[k], want) << k;
    }
}

INSTANTIATE_TEST_SUITE_P(Records, RecorderRecords,
                         ::testing::Values(RecordCase{"CAN", false, "asc"}, RecordCase{"CAN", true, "log"},
                                           RecordCase{"CAN FD", false, "log"}, RecordCase{"CAN FD", true, "asc"},
                                           RecordCase{"Universal CAN", false, "asc"},
                                           RecordCase{"Universal CAN", true, "log"}));

using RecorderFailures = FileComponentTest;

TEST_F(RecorderFailures, StopTheRecorderWithTheReasonAndSpareTheRest)
{
    const std::string full = m_folder + "/full.log";
    const bool haveFull = access("/dev/full", W_OK) == 0 && symlink("/dev/full", full.c_str()) == 0;
    const struct {
        std::string file;
        const char* told;
        const char* reason;
    } cases[] = {{m_folder + "/no/such/folder/out.asc", "cannot record into ", "No such file or directory"},
                 {full, "cannot write ", "No space left on device"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.reason);
        if (c.file == full && !haveFull) continue;
        engine.Graph().Clear();
        engine.GetConsole().ClearCaptured();
        Make("CanGenerator", "gen", {{"period", "100"}, {"frames_per_element", "50"}});
        Make("CanFileRecorder", "rec", {{"file", c.file}, {"flush_period", "0"}});
        Connect("gen.oCAN", "rec.iCAN");
        std::string error;
        engine.Graph().Run(&error);  // the last component's birth is not waited for
        ASSERT_TRUE(Eventually([&] { return engine.Graph().IsDead("rec"); }, 10));
        EXPECT_EQ(engine.GetConsole().CountContaining(c.told + c.file + ": ", VELD::Error), 1u);
        EXPECT_TRUE(Reported(c.reason));
        EXPECT_FALSE(engine.Graph().IsDead("gen"));
        EXPECT_TRUE(c.file != full || Figure("gen.sent") > 0);
        Shutdown();
    }
}

// ---------------------------------------------------------------------------
// The player on the engine's clock

class PlayerClock : public FileComponentTest {
protected:
    // A player of `frames` frames 10 ms apart into a CanFrameStats.
    void Build(int frames)
    {
        const std::string file = m_folder + "/counted.log";
        WriteLog(file, CountedFrames(frames, kPeriod));
        Make("CanFrameStats", "stats", {{"csv", m_csv}});
        Make("CanFilePlayer", "player", {{"file", file}, {"replay_lead", "100000"}});
        Connect("player.oCAN", "stats.iCAN");
    }
    // The frames that arrived, once every frame handed on has and the
    // diagram is shut down.
    std::vector<Arrival> Arrivals()
    {
        EXPECT_TRUE(Eventually([&] { return Figure("stats.frames") == Figure("player.sent"); }, 10))
            << Figure("stats.frames") << " of " << Figure("player.sent");
        Shutdown();
        return ReadArrivals(m_csv);
    }
    // How far from its due time (engine time) an arrival was, the median:
    // a fault makes most frames late, a machine that stalls a thread now
    // and then only a few.
    long long MedianDelay(const std::vector<Arrival>& arrivals)
    {
        const long long start = Figure("player.replay_start_time");
        std::vector<long long> delays;
        for (const Arrival& a : arrivals) delays.push_back(std::llabs(a.arrival - (start + a.counter * kPeriod)));
        if (delays.empty()) return 0;
        std::nth_element(delays.begin(), delays.begin() + delays.size() / 2, delays.end());
        return delays[delays.size() / 2];
    }

    static constexpr long long kPeriod = 10000;
    // Far below what a fault would show (frames held back by a 550 ms pause,
    // or played at real time while the clock runs at twice the speed, are
    // half a second late), far above how late a loaded machine wakes a
    // thread.
    static constexpr long long kBound = 250000;
    const std::string m_csv = m_folder + "/arrivals.csv";
};

TEST_F(PlayerClock, AtSpeed2000TheFramesComeTwiceAsFastOnTimeOnTheEnginesClock)
{
    Build(150);  // 1.5 s recorded
    engine.Clock().SetSpeed(2000);
    const auto start = std::chrono::steady_clock::now();
    Run();
    ASSERT_TRUE(Eventually([&] { return Figure("player.finished") == 1 && Figure("stats.frames") == 150; }, 10));
    const double took = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    const std::vector<Arrival> arrivals = Arrivals();
    ASSERT_EQ(arrivals.size(), 150u);
    // 0.1 s lead and 1.49 s of frames at twice the speed: 0.8 s, never
    // less; played at real time, most frames would come too late.
    EXPECT_GT(took, 0.6);
    EXPECT_LT(MedianDelay(arrivals), kBound);
    // The frames keep the times they were recorded with.
    for (const Arrival& a : arrivals) EXPECT_EQ(a.frameTime, kFirst + a.counter * kPeriod);
}

TEST_F(PlayerClock, APauseHoldsTheFramesBackAndAJumpForwardPassesOverTheFramesOnTheWay)
{
    Build(300);  // 3 s
    Run();
    ASSERT_TRUE(Eventually([&] { return Figure("stats.frames") >= 50; }, 10));
    engine.Clock().SetPaused(true);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    const long long held = Figure("stats.frames");
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    EXPECT_EQ(Figure("stats.frames"), held);
    // The jump is made while the clock stands, so that where it lands does
    // not depend on how fast this machine runs: the frames due before the
    // new time and not yet played are passed over, the rest come when due
    // on the clock after the jump.
    const long long paused = Now();
    engine.Clock().SetTime(paused + 1000000);
    ASSERT_TRUE(Eventually([&] { return Figure("player.jumps") == 1; }, 10));
    engine.Clock().SetPaused(false);
    ASSERT_TRUE(Eventually([&] { return Figure("player.finished") == 1; }, 10));
    const long long start = Figure("player.replay_start_time"), passed = Figure("player.passed_over");
    long long firstAfter = 0;
    while (start + firstAfter * kPeriod < paused + 1000000) ++firstAfter;

    const std::vector<Arrival> arrivals = Arrivals();
    ASSERT_EQ(static_cast<long long>(arrivals.size()) + passed, 300);
    const long long playedBefore = firstAfter - passed;
    // Nothing due after the pause was played before the jump.
    EXPECT_LE(start + (playedBefore - 1) * kPeriod, paused);
    for (long long i = 0; i < static_cast<long long>(arrivals.size()); ++i) {
        const long long k = i < playedBefore ? i : i + passed;
        ASSERT_EQ(arrivals[i].counter, k) << i;
        // Never before it was due: after the jump, on the clock that jumped.
        EXPECT_GE(arrivals[i].arrival, start + k * kPeriod) << i;
    }
    // Time stood still while paused, and the frames after the jump come
    // when due on the clock that jumped: every frame on time.
    EXPECT_LT(MedianDelay(arrivals), kBound);
}

TEST_F(PlayerClock, AJumpBackwardPlaysTheFramesAgain)
{
    Build(200);  // 2 s
    Run();
    ASSERT_TRUE(Eventually([&] { return Figure("stats.frames") >= 100; }, 10));
    engine.Clock().SetTime(Now() - 500000);
    ASSERT_TRUE(Eventually([&] { return Figure("player.finished") == 1; }, 10));
    EXPECT_EQ(Figure("player.jumps"), 1);
    const std::vector<Arrival> arrivals = Arrivals();
    // Half a second of frames again, then on to the end.
    EXPECT_NEAR(static_cast<double>(arrivals.size()), 250, 6);
    EXPECT_EQ(arrivals.back().counter, 199);
    std::size_t back = 1;
    while (back < arrivals.size() && arrivals[back].counter > arrivals[back - 1].counter) ++back;
    ASSERT_LT(back, arrivals.size());
    EXPECT_NEAR(static_cast<double>(arrivals[back - 1].counter - arrivals[back].counter), 50, 6);
}

// ---------------------------------------------------------------------------
// Without a bus library

TEST(NoBusLibrary, TheCommandSaysWhereItLookedAndFails)
{
    if (access(NX_BUSAPI_CAN_LIBRARY_PATH, F_OK) == 0) GTEST_SKIP() << "a bus library is installed on this machine";
    const veldtest::ScratchDir scratch("no_bus");
    for (const std::vector<std::string>& args : {std::vector<std::string>{"channels"},
                                                 {"record", "can", "--channel", "NVX-CAN-1", scratch / "x.asc"}}) {
        const CommandResult r = RunVeldor(args, scratch.Path());
        EXPECT_EQ(r.code, 1) << args[0];
        ASSERT_EQ(r.ErrLines().size(), 1u) << r.err;
        EXPECT_NE(r.err.find("the CAN bus access library is not installed at "), std::string::npos) << r.err;
    }
    EXPECT_FALSE(access((scratch / "x.asc").c_str(), F_OK) == 0);
}

// Without a bus library a component's property sheet still works: discovery
// offers the custom channel alone, and nothing is reported.
using NoBusLibraryComponents = FileComponentTest;

TEST_F(NoBusLibraryComponents, OfferTheCustomChannelAloneAndSayNothing)
{
    if (access(NX_BUSAPI_CAN_LIBRARY_PATH, F_OK) == 0) GTEST_SKIP() << "a bus library is installed on this machine";
    const unsigned long errors = engine.GetConsole().ErrorCount();
    for (const char* model : {"NxCanMonitoring", "NxCanInject"}) {
        SCOPED_TRACE(model);
        engine.Graph().Clear();
        Make(model, "bus");
        EXPECT_EQ(Refusal("bus.ip", "127.0.0.1"), "");
        EXPECT_EQ(Text("bus.channel"), "Custom channel");
        Set("bus.channel", "Custom channel");
        Trigger("bus.Refresh_Devices");
        EXPECT_EQ(engine.Property("bus.channel")->EnumValues()->Count(), 1);
        EXPECT_EQ(Text("bus.channel_description"), "");
    }
    EXPECT_EQ(engine.GetConsole().ErrorCount(), errors);
}

}  // namespace
}  // namespace mainjob
