// The file recorder and the file player through the engine, without a bus:
// what the recorder writes for every frame record, what it does when the
// file fails; the player's pace on the engine's clock (speed, pause, jumps)
// and its malformed lines; files of python-can through both.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "ComponentTest.h"
#include "NxBusLibraryPaths.h"
#include "MainJobTest.h"
#include "PythonPartner.h"
#include "veld_property.h"
#include "veld_property_value.h"

namespace mainjob {
namespace {

using bus_components::ComponentTest;

// ---------------------------------------------------------------------------
// The recorder

struct RecordCase {
    const char* record;  // CanGenerator.output_type
    bool vectorised;
    const char* extension;
};

class RecorderRecords : public ComponentTest, public ::testing::WithParamInterface<RecordCase> {};

TEST_P(RecorderRecords, EveryFrameWithItsTimeAndPayload)
{
    const RecordCase& c = GetParam();
    const bool fd = std::string(c.record) != "CAN";
    const int frames = 50;
    const long long first = 1700000000000000;
    Make("CanGenerator", "gen");
    Set("gen.output_type", c.record);
    Set("gen.identifier", "0x18DAF110");
    Set("gen.extended", "true");
    Set("gen.length", fd ? "12" : "8");
    Set("gen.fd", fd ? "true" : "false");
    Set("gen.brs", fd ? "true" : "false");
    Set("gen.count", std::to_string(frames));
    Set("gen.period", "1000");
    Set("gen.first_timestamp", std::to_string(first));
    Set("gen.paced", "false");
    Set("gen.frames_per_element", c.vectorised ? "8" : "1");
    const std::string file = m_folder + "/out." + c.extension;
    Make("CanFileRecorder", "rec");
    Set("rec.file", file);
    Set("rec.time_base", "Engine time");
    Connect("gen.oCAN", "rec.iCAN");
    Run();
    ASSERT_TRUE(Eventually([&] { return Figure("rec.recorded") == frames; }, 10)) << Figure("rec.recorded");
    Shutdown();

    const std::vector<CanFrame> read = ReadLog(file);
    ASSERT_EQ(read.size(), static_cast<std::size_t>(frames));
    for (int k = 0; k < frames; ++k) {
        const CanFrame& f = read[k];
        EXPECT_EQ(f.timestamp, first + k * 1000) << k;
        EXPECT_EQ(f.id, 0x18DAF110u) << k;
        EXPECT_TRUE(f.extended) << k;
        // The FD record says nothing of FD: 12 bytes make it an FD frame;
        // only the universal record carries the bit rate switch.
        EXPECT_EQ(f.fd, fd) << k;
        EXPECT_EQ(f.bitRateSwitch, std::string(c.record) == "Universal CAN") << k;
        ASSERT_EQ(f.length, fd ? 12 : 8) << k;
        EXPECT_EQ(f.data[0] | f.data[1] << 8 | f.data[2] << 16 | f.data[3] << 24, k);
        for (int i = 4; i < f.length; ++i) EXPECT_EQ(f.data[i], (k + i) & 0xFF) << k << ":" << i;
    }
}

INSTANTIATE_TEST_SUITE_P(Records, RecorderRecords,
                         ::testing::Values(RecordCase{"CAN", false, "asc"}, RecordCase{"CAN", true, "log"},
                                           RecordCase{"CAN FD", false, "log"}, RecordCase{"CAN FD", true, "asc"},
                                           RecordCase{"Universal CAN", false, "asc"},
                                           RecordCase{"Universal CAN", true, "log"}));

class RecorderFailures : public ComponentTest {
protected:
    void Record(const std::string& file)
    {
        Make("CanGenerator", "gen");
        Set("gen.period", "100");
        Set("gen.frames_per_element", "50");
        Make("CanFileRecorder", "rec");
        Set("rec.file", file);
        Set("rec.flush_period", "0");
        Connect("gen.oCAN", "rec.iCAN");
    }
};

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
        Record(c.file);
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

class PlayerClock : public ComponentTest {
protected:
    // A player of `frames` frames 10 ms apart into a CanFrameStats.
    void Build(int frames)
    {
        m_csv = m_folder + "/arrivals.csv";
        const std::string file = m_folder + "/counted.log";
        WriteLog(file, CountedFrames(frames, kPeriod));
        Make("CanFrameStats", "stats");
        Set("stats.csv", m_csv);
        Make("CanFilePlayer", "player");
        Set("player.file", file);
        Set("player.replay_lead", "100000");
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
    static double Seconds(std::chrono::steady_clock::time_point since)
    {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
    }

    static constexpr long long kPeriod = 10000;
    // Far below what a fault would show (frames held back by a 550 ms pause,
    // or played at real time while the clock runs at twice the speed, are
    // half a second late), far above how late a loaded machine wakes a
    // thread.
    static constexpr long long kBound = 250000;
    std::string m_csv;
};

TEST_F(PlayerClock, AtSpeed2000TheFramesComeTwiceAsFastOnTimeOnTheEnginesClock)
{
    Build(150);  // 1.5 s recorded
    engine.Clock().SetSpeed(2000);
    const auto start = std::chrono::steady_clock::now();
    Run();
    ASSERT_TRUE(Eventually([&] { return Figure("player.finished") == 1 && Figure("stats.frames") == 150; }, 10));
    const double took = Seconds(start);
    const std::vector<Arrival> arrivals = Arrivals();
    ASSERT_EQ(arrivals.size(), 150u);
    // 0.1 s lead and 1.49 s of frames at twice the speed: 0.8 s, never
    // less; played at real time, most frames would come too late.
    EXPECT_GT(took, 0.6);
    EXPECT_LT(MedianDelay(arrivals), kBound);
    // The frames keep the times they were recorded with.
    for (const Arrival& a : arrivals) EXPECT_EQ(a.frameTime, 1700000000000000 + a.counter * kPeriod);
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
    const long long start = Figure("player.replay_start_time");
    const long long passed = Figure("player.passed_over");
    long long firstAfter = 0;
    while (start + firstAfter * kPeriod < paused + 1000000) ++firstAfter;

    const std::vector<Arrival> arrivals = Arrivals();
    ASSERT_EQ(static_cast<long long>(arrivals.size()) + passed, 300);
    const long long playedBefore = firstAfter - passed;
    // Nothing due after the pause was played before the jump.
    EXPECT_LE(start + (playedBefore - 1) * kPeriod, paused);
    for (std::size_t i = 0; i < arrivals.size(); ++i) {
        const long long k = static_cast<long long>(i) < playedBefore ? static_cast<long long>(i) : static_cast<long long>(i) + passed;
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
// The player's malformed lines

class PlayerLines : public ComponentTest {
protected:
    // Six frames, the third line with an identifier that is no number, the
    // fifth an FD frame of 9 bytes; played into a recorder.
    std::string Build(const std::string& onError)
    {
        const std::string file = m_folder + "/bad.log";
        WriteText(file,
                  "(1700000000.000000) can0 100#0000000000000000\n"
                  "(1700000000.001000) can0 101#0100000000000000\n"
                  "(1700000000.002000) can0 1G2#0200000000000000\n"
                  "(1700000000.003000) can0 103#0300000000000000\n"
                  "(1700000000.004000) can0 104##0000102030405060708\n"
                  "(1700000000.005000) can0 105#0500000000000000\n");
        Make("CanFileRecorder", "rec");
        Set("rec.file", m_folder + "/out.log");
        Make("CanFilePlayer", "player");
        Set("player.file", file);
        Set("player.replay_lead", "0");
        Set("player.on_error", onError);
        Connect("player.oCAN", "rec.iCAN");
        return file;
    }
};

TEST_F(PlayerLines, AreToldWithTheirNumbersAndSkipped)
{
    const std::string file = Build("Skip");
    Run();
    ASSERT_TRUE(Eventually([&] { return Figure("player.finished") == 1 && Figure("rec.recorded") == 4; }, 10));
    EXPECT_EQ(Figure("player.bad_lines"), 2);
    EXPECT_EQ(engine.GetConsole().CountContaining(file + ": line 3: ", VELD::Warning), 1u);
    EXPECT_EQ(engine.GetConsole().CountContaining(file + ": line 5: ", VELD::Warning), 1u);
    EXPECT_EQ(engine.GetConsole().ErrorCount(), 0u);
    Shutdown();
    std::vector<std::uint32_t> ids;
    for (const CanFrame& f : ReadLog(m_folder + "/out.log")) ids.push_back(f.id);
    EXPECT_EQ(ids, (std::vector<std::uint32_t>{0x100, 0x101, 0x103, 0x105}));
}

TEST_F(PlayerLines, StopThePlayerWhenAsked)
{
    const std::string file = Build("Stop");
    Run();
    ASSERT_TRUE(Eventually([&] { return engine.Graph().IsDead("player"); }, 10));
    EXPECT_EQ(engine.GetConsole().CountContaining(file + ": line 3: ", VELD::Error), 1u);
    EXPECT_EQ(Figure("player.sent"), 2);
    Shutdown();
}

// ---------------------------------------------------------------------------
// Files of python-can through the player and the recorder

class PythonCanThroughComponents : public ComponentTest, public ::testing::WithParamInterface<const char*> {
protected:
    void SetUp() override
    {
        if (!canlog_test::PythonCanPresent()) GTEST_SKIP() << "python3-can is not installed (make setup installs it)";
        // The ASC dates are local time on both sides: a zone with daylight
        // saving, in July.
        setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
        tzset();
    }
};

TEST_P(PythonCanThroughComponents, FramesArriveIdenticalFromItsFileIntoAFileItReads)
{
    const std::string in = m_folder + "/python." + GetParam();
    const std::string out = m_folder + "/ours." + GetParam();
    std::vector<CanFrame> written =
        canlog_test::ParseFrames(canlog_test::RunPartner(VELDOR_CAN_LOG_INTEROP_SCRIPT, "write", in));
    // A diagram's frame records have no error frames: the player passes
    // over those of a BLF file.
    written.erase(std::remove_if(written.begin(), written.end(), [](const CanFrame& f) { return f.error; }),
                  written.end());
    ASSERT_EQ(written.size(), 9u);
    Make("CanFileRecorder", "rec");
    Set("rec.file", out);
    Set("rec.time_base", "Engine time");
    Make("CanFilePlayer", "player");
    Set("player.file", in);
    Set("player.replay_lead", "0");
    Connect("player.oCAN", "rec.iCAN");
    engine.Clock().SetSpeed(100000);  // 4.5 s of frames, played fast
    Run();
    ASSERT_TRUE(Eventually([&] { return Figure("rec.recorded") == 9; }, 10)) << Figure("rec.recorded");
    EXPECT_EQ(Figure("player.bad_lines"), canlog_test::PythonCanCutItsDateLine(in) ? 1 : 0);
    Shutdown();

    const std::vector<CanFrame> read =
        canlog_test::ParseFrames(canlog_test::RunPartner(VELDOR_CAN_LOG_INTEROP_SCRIPT, "read", out));
    ASSERT_EQ(read.size(), written.size());
    for (std::size_t i = 0; i < written.size(); ++i) {
        // A diagram's frame records carry no channel, direction or error
        // state indicator: the recorder writes channel 0, received.
        CanFrame expected = written[i];
        expected.channel = 0;
        expected.direction = veldor::canlog::Direction::Rx;
        expected.errorStateIndicator = false;
        EXPECT_EQ(read[i], expected) << "frame " << i;
    }
}

INSTANTIATE_TEST_SUITE_P(Formats, PythonCanThroughComponents, ::testing::Values("asc", "log", "blf"));

// ---------------------------------------------------------------------------
// The command without a bus library

TEST(NoBusLibrary, TheCommandSaysWhereItLookedAndFails)
{
    if (access(NX_BUSAPI_CAN_LIBRARY_PATH, F_OK) == 0)
        GTEST_SKIP() << "a bus library is installed on this machine";
    const veldtest::ScratchDir scratch("no_bus");
    const std::string folder = scratch.Path();
    for (const std::vector<std::string>& args :
         {std::vector<std::string>{"channels"},
          std::vector<std::string>{"record", "can", "--channel", "NVX-CAN-1", folder + "/x.asc"}}) {
        const CommandResult r = RunVeldor(args, folder);
        EXPECT_EQ(r.code, 1) << args[0];
        ASSERT_EQ(r.ErrLines().size(), 1u) << r.err;
        EXPECT_NE(r.err.find("the CAN bus access library is not installed at "), std::string::npos) << r.err;
    }
    EXPECT_FALSE(access((folder + "/x.asc").c_str(), F_OK) == 0);
}

// Without a bus library a component's property sheet still works: discovery
// offers the custom channel alone, and nothing is reported.
class NoBusLibraryComponents : public ComponentTest {};

TEST_F(NoBusLibraryComponents, OfferTheCustomChannelAloneAndSayNothing)
{
    if (access(NX_BUSAPI_CAN_LIBRARY_PATH, F_OK) == 0)
        GTEST_SKIP() << "a bus library is installed on this machine";
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
