// NxEthInject in Synchronized mode on NVX-ETH-1: a generator writes the
// frames of a "recording" (times L, L + P, L + 2P...), paced so that they
// reach the injector a little ahead of their time, a ReplayTimeSource gives
// the replay start S a lead after the run's start, and the library emits
// frame k at S + kP. NxEthMonitoring on NVX-ETH-2 stamps each frame with
// hardware time (the engine's clock, with the library's default clock), a
// probe reads the injector's replay state records; or tcpdump captures the
// other end and tshark puts the fragmented messages back together.
#include <signal.h>

#include <string>
#include <vector>

#include "ChildProcess.h"
#include "EthComponentTest.h"
#include "pcap_file.h"

namespace bus_components {
namespace {

const long long kLogStart = 5000000;
const int kRate = 200;  // frames a second: P = 5 ms
const long long kPeriod = 1000000 / kRate;
const int kFrames = 40;
// How far an emission may stray from its schedule here: generous, for a
// loaded machine or a sanitizer (bench_bus_components measures the real
// spread), and still far below the 200 ms over which the frames spread.
const long long kTolerance = 30000;

enum ReplayState { Stop = 3, End = 4 };

class EthReplayTest : public EthComponentTest {
protected:
    // Generator, injector (protocol_type), probe and replay times;
    // `stopAfter` (after the replay start) and `eofDelay` (after birth) 0
    // when not used; `reverse`: each element's frames in reverse order.
    void Build(const std::string& traffic, int count, int perElement, const std::string& protocol,
               long long stopAfter, long long eofDelay, bool reverse = false)
    {
        Make("EthGenerator", "gen");
        Set("gen.traffic", traffic);
        Set("gen.message_size", "4000");
        Set("gen.count", std::to_string(count));
        Set("gen.rate", std::to_string(kRate));
        Set("gen.frames_per_element", std::to_string(perElement));
        Set("gen.first_timestamp", std::to_string(kLogStart));
        Make("EthMangler", "mangle");
        Set("mangle.reverse", reverse ? "true" : "false");
        Connect("gen.oEth", "mangle.iEth");

        MakeOnInterface("NxEthInject", "tx", "NVX-ETH-1");
        EXPECT_EQ(Text("tx.replay_mode"), "Synchronized");
        Set("tx.protocol_type", protocol);
        Connect("mangle.oEth", "tx.iEth");

        MakeReplayTimes(kLogStart, 400000, stopAfter, kLogStart + count * kPeriod, eofDelay);
    }
};

TEST_F(EthReplayTest, EmitsOnScheduleThenClosesTheStreamAtTheEndOfData)
{
    const std::string got = MakeMonitor(1, true);
    Build("Ethernet", kFrames, 1, "Generic", 0, 400000);
    Run();
    ASSERT_TRUE(Eventually([&] { return Figure("got.printed") >= kFrames; }, 10)) << Figure("got.printed");
    ExpectStreamClosed(kFrames);
    if (HasFatalFailure()) return;
    const long long start = Figure("times.replay_start_time");
    Shutdown();

    const std::vector<PrintedEthFrame> out = ReadPrintedEthFrames(got);
    ASSERT_EQ(out.size(), static_cast<std::size_t>(kFrames));
    for (int k = 0; k < kFrames; ++k) {
        ASSERT_EQ(CounterOf(out[k].bytes), static_cast<std::uint32_t>(k));
        EXPECT_NEAR(static_cast<double>(out[k].time), static_cast<double>(start + k * kPeriod),
                    static_cast<double>(kTolerance))
            << "frame " << k;
    }
}

TEST_F(EthReplayTest, EmitsNothingAfterTheStopTime)
{
    const long long stopAfter = kPeriod * 15 + kPeriod / 2;  // frames 0 to 15 are due before it
    const std::string got = MakeMonitor(1, true);
    Build("Ethernet", kFrames, 1, "Generic", stopAfter, 0);
    Run();
    ASSERT_TRUE(Eventually([&] { return Figure("probe.state") == Stop; }, 10)) << Figure("probe.state");
    const long long start = Figure("times.replay_start_time");
    // Past the time of the last frame of the recording.
    ASSERT_TRUE(Eventually([&] { return Now() > start + kFrames * kPeriod + 50000; }, 10));
    EXPECT_GT(Figure("probe.dropped"), 0);
    // Without an end of data the push thread runs on.
    EXPECT_EQ(Threads("tx"), 3);
    Shutdown();

    const std::vector<PrintedEthFrame> out = ReadPrintedEthFrames(got);
    EXPECT_EQ(out.size(), 16u);
    for (const PrintedEthFrame& f : out) {
        EXPECT_LE(CounterOf(f.bytes), 15u);
        EXPECT_LE(f.time, start + stopAfter + kTolerance) << CounterOf(f.bytes);
    }
}

// tcpdump on the other end of the link, in this process's network
// namespace, into `file` until Stop; in immediate mode, so that it holds
// nothing back when it stops.
class Capture {
public:
    explicit Capture(const std::string& file)
        : m_tcpdump("/bin/sh", {"-c", "exec /usr/bin/tcpdump -i nvxeth2 -p --immediate-mode -U -Z root -w " + file + " 2>&1"})
    {
        EXPECT_NE(m_tcpdump.Line().find("listening on nvxeth2"), std::string::npos) << "tcpdump did not start";
    }
    void Stop()
    {
        kill(m_tcpdump.Pid(), SIGINT);
        m_tcpdump.Reap();
    }

private:
    nxtest::ChildProcess m_tcpdump;
};

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
    int perMessage;  // frames of a 4000-byte message
    // tshark's view of the capture: a display filter that shows each
    // message once, whole, and the field with its payload.
    const char* decode;
    const char* filter;
    const char* dataField;
    const char* offsetField;  // a piece's offset in its message
};

void PrintTo(const FragmentCase& c, std::ostream* os) { *os << c.name; }

class EthReassemblyTest : public EthReplayTest, public ::testing::WithParamInterface<FragmentCase> {};

TEST_P(EthReassemblyTest, AShuffledFragmentedStreamReachesTheWireWholeAndInOrder)
{
    const FragmentCase& c = GetParam();
    const int kMessages = 12;
    const std::string file = m_folder + "/wire.pcap";
    Capture capture(file);
    // Each message's pieces recorded backwards: its own element, reversed.
    Build(c.traffic, kMessages * c.perMessage, c.perMessage, c.protocol, 0, 300000, true);
    Run();
    ASSERT_TRUE(Eventually([&] { return Figure("probe.state") == End; }, 15)) << Figure("probe.state");
    EXPECT_EQ(Figure("probe.sent"), kMessages * c.perMessage);
    Shutdown();
    capture.Stop();

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
    ASSERT_EQ(offsets.size(), static_cast<std::size_t>(kMessages * c.perMessage));
    for (std::size_t i = 0; i < offsets.size(); ++i) {
        if (i % c.perMessage == 0)
            EXPECT_EQ(std::stol(offsets[i]), 0) << i;
        else
            EXPECT_GT(std::stol(offsets[i]), std::stol(offsets[i - 1])) << i;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Protocols, EthReassemblyTest,
    ::testing::Values(FragmentCase{"Udp", "Fragmented UDP", "UDP", 3, "-d udp.port==30501,data", "udp", "data.data",
                                   "ip.frag_offset"},
                      FragmentCase{"SomeIpTp", "SOME/IP TP", "SOME/IP TP", 3,
                                   "-d udp.port==30501,someip -o someip.reassemble_tp:TRUE",
                                   "someip.tp.reassembled.length", "someip.tp.reassembled.data", "someip.tp.offset"}),
    [](const ::testing::TestParamInfo<FragmentCase>& info) { return info.param.name; });

}  // namespace
}  // namespace bus_components
