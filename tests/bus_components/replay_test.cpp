// The injectors in Synchronized mode, CAN on NVX-CAN-1 and Ethernet on
// NVX-ETH-1: a generator writes the frames of a "recording" (times L,
// L + P, L + 2P...), a ReplayTimeSource gives the replay start S a lead after
// the run's start, and the library emits frame k at S + kP. A monitor on the
// other channel stamps each frame with hardware time (the engine's clock
// here); a probe reads the injector's replay state records. Or tcpdump
// captures the other end of the link and tshark puts the fragmented messages
// back together.
#include <signal.h>

#include <string>
#include <utility>
#include <vector>

#include "ChildProcess.h"
#include "EthComponentTest.h"

namespace bus_components {
namespace {

const long long kLogStart = 5000000;
const int kRate = 200;  // frames a second
const long long kPeriod = 1000000 / kRate;
const int kFrames = 40;
// A standard 8-byte data frame at 500 kbit/s: 135 bits.
const long long kCanFrameTime = 270;
// How far an emission may stray from its schedule here: generous, for a
// loaded machine or a sanitizer (bench_bus_components measures the real
// spread), and still far below the 200 ms over which the frames spread.
const long long kTolerance = 30000;

enum ReplayState { Stop = 3, End = 4 };

class ReplayTest : public EthComponentTest {
protected:
    // The CAN diagram: monitor and printer, generator (ten frames an
    // element), injector, probe and replay times.
    void BuildCan(long long stopAfter, long long eofDelay)
    {
        MakeOnChannel("NxCanMonitoring", "rx", "NVX-CAN-2", false);
        SetTsBehaviour("rx", 1);
        m_printed = MakePrinter("print", "rx.oCAN");
        Make("CanGenerator", "gen",
             {{"output_type", "Universal CAN"}, {"identifier", "0x321"}, {"count", kFrames}, {"period", kPeriod},
              {"first_timestamp", kLogStart}, {"paced", false}, {"frames_per_element", 10}});
        MakeOnChannel("NxCanInject", "tx", "NVX-CAN-1", true);
        EXPECT_EQ(Text("tx.replay_mode"), "Synchronized");
        Connect("gen.oCAN", "tx.iCAN");
        MakeReplayTimes(kLogStart, 400000, stopAfter, kLogStart + kFrames * kPeriod, eofDelay);
    }
    // The Ethernet one without its monitor: generator (paced so that its
    // frames reach the injector a little ahead of their time), a mangler
    // (`reverse`: each element's frames in reverse order), injector
    // (protocol_type), probe and replay times.
    void BuildEth(const std::string& traffic, int count, int perElement, const std::string& protocol,
                  long long stopAfter, long long eofDelay, bool reverse = false)
    {
        Make("EthGenerator", "gen",
             {{"traffic", traffic}, {"message_size", 4000}, {"count", count}, {"rate", kRate},
              {"frames_per_element", perElement}, {"first_timestamp", kLogStart}});
        Make("EthMangler", "mangle", {{"reverse", reverse}});
        Connect("gen.oEth", "mangle.iEth");
        MakeOnInterface("NxEthInject", "tx", "NVX-ETH-1");
        EXPECT_EQ(Text("tx.replay_mode"), "Synchronized");
        Set("tx.protocol_type", protocol);
        Connect("mangle.oEth", "tx.iEth");
        MakeReplayTimes(kLogStart, 400000, stopAfter, kLogStart + count * kPeriod, eofDelay);
    }
    // Each frame the monitor read: its counter and when it was emitted.
    std::vector<std::pair<std::uint32_t, long long>> Emitted(bool eth)
    {
        std::vector<std::pair<std::uint32_t, long long>> frames;
        if (eth) {
            for (const PrintedEthFrame& f : ReadPrintedEthFrames(m_printed))
                frames.emplace_back(CounterOf(f.bytes), f.time);
        } else {
            for (const PrintedFrame& f : ReadPrinted(m_printed))
                frames.emplace_back(CounterOf(f), f.ts - kCanFrameTime);
        }
        return frames;
    }

    std::string m_printed;
};

struct ScheduleCase {
    const char* name;
    bool eth;
    bool stops;  // at a stop time between frames 15 and 16; else at the end of data
};

void PrintTo(const ScheduleCase& c, std::ostream* os) { *os << c.name; }

class ReplaySchedule : public ReplayTest, public ::testing::WithParamInterface<ScheduleCase> {};

TEST_P(ReplaySchedule, EmitsOnScheduleAndNothingAfterTheStopTimeAndClosesTheStreamAtTheEndOfData)
{
    const ScheduleCase& c = GetParam();
    const long long stopAfter = c.stops ? kPeriod * 15 + kPeriod / 2 : 0;
    const long long eofDelay = c.stops ? 0 : 400000;
    if (c.eth) {
        m_printed = MakeMonitor(1, true);
        BuildEth("Ethernet", kFrames, 1, "Generic", stopAfter, eofDelay);
    } else {
        BuildCan(stopAfter, eofDelay);
    }
    Run();
    const std::string printed = c.eth ? "got.printed" : "print.printed";
    if (c.stops) {
        ASSERT_TRUE(Eventually([&] { return Figure("probe.state") == Stop; }, 10)) << Figure("probe.state");
        // Past the time of the last frame of the recording.
        const long long start = Figure("times.replay_start_time");
        ASSERT_TRUE(Eventually([&] { return Now() > start + kFrames * kPeriod + 50000; }, 10));
        EXPECT_GT(Figure("probe.dropped"), 0);
        // Without an end of data the push thread runs on.
        EXPECT_EQ(Threads("tx"), 3);
    } else {
        ASSERT_TRUE(Eventually([&] { return Figure(printed) >= kFrames; }, 10)) << Figure(printed);
        ExpectStreamClosed(kFrames);
        if (HasFatalFailure()) return;
    }
    const long long start = Figure("times.replay_start_time");
    Shutdown();

    const auto frames = Emitted(c.eth);
    ASSERT_EQ(frames.size(), c.stops ? 16u : static_cast<std::size_t>(kFrames));
    for (std::size_t k = 0; k < frames.size(); ++k) {
        ASSERT_EQ(frames[k].first, k);
        EXPECT_NEAR(static_cast<double>(frames[k].second), static_cast<double>(start + k * kPeriod),
                    static_cast<double>(kTolerance))
            << "frame " << k;
    }
}

INSTANTIATE_TEST_SUITE_P(Buses, ReplaySchedule,
                         ::testing::Values(ScheduleCase{"CanToTheEnd", false, false},
                                           ScheduleCase{"CanStopped", false, true},
                                           ScheduleCase{"EthernetToTheEnd", true, false},
                                           ScheduleCase{"EthernetStopped", true, true}),
                         [](const ::testing::TestParamInfo<ScheduleCase>& info) { return info.param.name; });

// The first lines of tshark's listing of a capture, for a failure's message.
std::string Listing(const std::string& file)
{
    std::string text = "capture:\n";
    const std::vector<std::string> lines = Tshark("-r " + file);
    for (std::size_t i = 0; i < lines.size() && i < 12; ++i) text += lines[i] + "\n";
    return text + "(" + std::to_string(lines.size()) + " frames)";
}

struct FragmentCase {
    const char* name;
    const char* traffic;
    const char* protocol;
    // tshark's view of the capture: a display filter that shows each
    // message once, whole, and the field with its payload.
    const char* decode;
    const char* filter;
    const char* dataField;
    const char* offsetField;  // a piece's offset in its message
};

class EthReassemblyTest : public ReplayTest, public ::testing::WithParamInterface<FragmentCase> {};

TEST_P(EthReassemblyTest, AShuffledFragmentedStreamReachesTheWireWholeAndInOrder)
{
    const FragmentCase& c = GetParam();
    const int kMessages = 12, kPieces = 3;  // of a 4000-byte message
    // tcpdump on the other end of the link, in this process's network
    // namespace; in immediate mode, so that it holds nothing back when it
    // stops.
    const std::string file = m_folder + "/wire.pcap";
    nxtest::ChildProcess tcpdump(
        "/bin/sh", {"-c", "exec /usr/bin/tcpdump -i nvxeth2 -p --immediate-mode -U -Z root -w " + file + " 2>&1"});
    ASSERT_NE(tcpdump.Line().find("listening on nvxeth2"), std::string::npos) << "tcpdump did not start";
    // Each message's pieces recorded backwards: its own element, reversed.
    BuildEth(c.traffic, kMessages * kPieces, kPieces, c.protocol, 0, 300000, true);
    Run();
    ASSERT_TRUE(Eventually([&] { return Figure("probe.state") == End; }, 15)) << Figure("probe.state");
    EXPECT_EQ(Figure("probe.sent"), kMessages * kPieces);
    Shutdown();
    kill(tcpdump.Pid(), SIGINT);
    tcpdump.Reap();

    const std::vector<std::string> rows =
        Tshark("-r " + file + " " + c.decode + " -Y '" + c.filter + "' -T fields -e " + c.dataField);
    ASSERT_EQ(rows.size(), static_cast<std::size_t>(kMessages)) << Listing(file);
    for (int m = 0; m < kMessages; ++m) {
        // The message number in the first 4 bytes of the payload, and every
        // byte there.
        ASSERT_EQ(rows[m].size(), 2u * 4000) << rows[m].substr(0, 40);
        long long number = 0;
        for (int i = 3; i >= 0; --i) number = number << 8 | std::stoll(rows[m].substr(2 * i, 2), nullptr, 16);
        EXPECT_EQ(number, m);
    }
    // Every piece left in offset order, message after message.
    const std::vector<std::string> offsets = Tshark("-r " + file + " " + c.decode + " -Y '" + c.offsetField +
                                                    "' -T fields -e " + c.offsetField);
    ASSERT_EQ(offsets.size(), static_cast<std::size_t>(kMessages * kPieces));
    for (std::size_t i = 0; i < offsets.size(); ++i) {
        if (i % kPieces == 0)
            EXPECT_EQ(std::stol(offsets[i]), 0) << i;
        else
            EXPECT_GT(std::stol(offsets[i]), std::stol(offsets[i - 1])) << i;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Protocols, EthReassemblyTest,
    ::testing::Values(FragmentCase{"Udp", "Fragmented UDP", "UDP", "-d udp.port==30501,data", "udp", "data.data",
                                   "ip.frag_offset"},
                      FragmentCase{"SomeIpTp", "SOME/IP TP", "SOME/IP TP",
                                   "-d udp.port==30501,someip -o someip.reassemble_tp:TRUE",
                                   "someip.tp.reassembled.length", "someip.tp.reassembled.data", "someip.tp.offset"}),
    [](const ::testing::TestParamInfo<FragmentCase>& info) { return info.param.name; });

}  // namespace
}  // namespace bus_components
