// The commands on Ethernet and on several buses at once, as a user runs
// them under tools/with-sim-bus (the CAN bus and the veth pair nvxeth1 <->
// nvxeth2 shared by the commands the test starts): captures written by other
// tools replayed frame for frame while another command records the other
// end.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <thread>

#include "BusSession.h"
#include "LogComparison.h"
#include "MainJobTest.h"

namespace mainjob {
namespace {

// A capture written by another tool, replayed through the commands while
// another command records the other end (whether the files of the tools read
// right is pcap_log_interop_tests' business; here, what the wire and the
// commands make of them): the recording holds, interface by
// interface, every frame of the file's replayed interfaces that fits the
// interface (1526 bytes with two VLAN tags and the check sequence), byte
// for byte, in order.
struct OtherTool {
    const char* name;
    const char* tool;    // what must be installed
    std::string script;  // run by /bin/sh in the test's folder; writes "capture.*"
    const char* capture;
    std::vector<std::string> replay;  // the words before the file
    std::vector<std::string> record;  // the channels recorded
    // The file's interfaces that are replayed, each with the channel whose
    // recording must hold its frames.
    std::vector<std::pair<std::string, std::string>> routes;
    long long refused = 0;  // frames too long for the interface
};

void PrintTo(const OtherTool& c, std::ostream* out) { *out << c.name; }

class CapturesOfOtherTools : public CommandTest, public ::testing::WithParamInterface<OtherTool> {};

const std::size_t kMaxFrame = 1526 - 4;  // without the check sequence

TEST_P(CapturesOfOtherTools, AreReplayedFrameForFrame)
{
    const OtherTool& c = GetParam();
    if (access(c.tool, X_OK) != 0) GTEST_SKIP() << c.tool << " is not installed";
    ASSERT_EQ(std::system(("cd " + m_folder + " && /bin/sh -e -c \"" + c.script + "\" >/dev/null 2>&1").c_str()), 0)
        << c.script;
    std::vector<veldor::cli::Source> original;
    std::string error;
    ASSERT_TRUE(veldor::cli::ReadSources(File(c.capture), &original, &error)) << error;

    std::vector<std::string> record{"record"};
    for (const std::string& channel : c.record) record.insert(record.end(), {"--channel", channel});
    record.push_back(File("copy.pcapng"));
    mainjob::Veldor recorder(record, m_folder);
    std::this_thread::sleep_for(std::chrono::milliseconds(700));  // its channels are open by then
    std::vector<std::string> replay = c.replay;
    replay.push_back(File(c.capture));
    const CommandResult played = Veldor(replay);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    recorder.Interrupt();
    const CommandResult recorded = recorder.Wait(20);
    ASSERT_EQ(played.code, 0) << played.err;
    ASSERT_EQ(recorded.code, 0) << recorded.err;
    if (c.refused > 0) {
        EXPECT_NE(played.out.find(", too long for the interface " + std::to_string(c.refused)), std::string::npos)
            << played.out;
    }

    std::vector<veldor::cli::Source> copy;
    ASSERT_TRUE(veldor::cli::ReadSources(File("copy.pcapng"), &copy, &error)) << error;
    for (const auto& route : c.routes) {
        SCOPED_TRACE(route.first + " -> " + route.second);
        const auto named = [](const std::vector<veldor::cli::Source>& sources, const std::string& name) {
            const auto it = std::find_if(sources.begin(), sources.end(),
                                         [&](const veldor::cli::Source& s) { return s.summary.Named(name); });
            return it == sources.end() ? std::vector<veldor::cli::BusFrame>() : it->frames;
        };
        std::vector<veldor::cli::BusFrame> expected = named(original, route.first);
        ASSERT_FALSE(expected.empty());
        expected.erase(std::remove_if(expected.begin(), expected.end(),
                                      [](const veldor::cli::BusFrame& f) { return f.bytes.size() > kMaxFrame; }),
                       expected.end());
        const std::vector<veldor::cli::BusFrame> got = named(copy, route.second);
        ASSERT_EQ(got.size(), expected.size());
        for (std::size_t k = 0; k < got.size(); ++k)
            EXPECT_TRUE(veldor::cli::SameContent(got[k], expected[k])) << "frame " << k;
    }
}

// scapy's frames, to and from the veth pair's addresses; at(k, frame) puts
// frame k 2 ms after frame k - 1.
const std::string kScapy = "/usr/bin/python3 -c '"
                           "from scapy.all import *\n"
                           "from scapy.layers.can import CAN\n"
                           "e = dict(dst=\\\"02:4e:58:45:00:02\\\", src=\\\"02:4e:58:45:00:01\\\")\n"
                           "u = dict(sport=30490, dport=30490)\n"
                           "def at(k, p, offset=0):\n"
                           "    p.time = 1700000000 + k * 0.002 + offset\n"
                           "    return p\n";

INSTANTIATE_TEST_SUITE_P(
    Tools, CapturesOfOtherTools,
    ::testing::Values(
        // Two captures of two buses merged as dumpcap and mergecap write them:
        // an interface block each, replayed in sync onto a channel each.
        OtherTool{"MergecapInterfaces", "/usr/bin/mergecap",
                  kScapy + "wrpcap(\\\"e.pcap\\\", [at(n, Ether(**e)/IP()/UDP(**u)/Raw(bytes(n*11))) for n in range(40)])\n"
                           "wrpcap(\\\"c.pcap\\\", [at(n, CAN(identifier=0x100+n, length=8, data=bytes(range(n, n+8))), 0.001)"
                           " for n in range(40)], linktype=227)'\n"
                           "mergecap -I none -F pcapng -w capture.pcapng e.pcap c.pcap",
                  "capture.pcapng", {"replay", "--sync", "--map", "0=NVX-ETH-1", "--map", "1=NVX-CAN-1"},
                  {"NVX-ETH-2", "NVX-CAN-2"}, {{"0", "NVX-ETH-2"}, {"1", "NVX-CAN-2"}}},
        // VLAN tags, one and two; frames shorter than 60 bytes; a jumbo frame
        // that the interface refuses, and the frames after it go on.
        OtherTool{"ScapyVlanJumboShort", "/usr/bin/python3",
                  kScapy + "f = [Ether(**e)/Dot1Q(vlan=10+n)/IP()/UDP(**u)/Raw(bytes(n)) for n in range(5)]"
                           " + [Ether(**e, type=0x88a8)/Dot1Q(vlan=100)/Dot1Q(vlan=20)/IP()/UDP(**u)/Raw(bytes(1400))]"
                           " + [Ether(**e)/ARP(), Ether(**e, type=0x88b5)/Raw(bytes(4))]"
                           " + [Ether(**e)/IP()/UDP(**u)/Raw(bytes(2000))]"
                           " + [Ether(**e)/Dot1Q(vlan=7)/ARP(), Ether(**e)/IP()/UDP(**u)/Raw(bytes(1472))]\n"
                           "wrpcap(\\\"capture.pcap\\\", [at(k, p) for k, p in enumerate(f)])'",
                  "capture.pcap", {"replay", "eth", "--channel", "NVX-ETH-1"}, {"NVX-ETH-2"}, {{"0", "NVX-ETH-2"}}, 1}),
    [](const ::testing::TestParamInfo<OtherTool>& info) { return std::string(info.param.name); });

// A figure read by a name the diagram does not have is a fault of the
// command: it fails, never reads 0.
TEST(SessionFigure, OfANameThatIsNotThereFails)
{
    veldor::cli::BusSession session("figures");
    std::string error;
    ASSERT_TRUE(session.Open({}, &error)) << error;
    ASSERT_TRUE(session.Make("CanReplayStatus", "status0", &error)) << error;
    EXPECT_EQ(session.Figure("status0.sent"), 0);
    for (const char* name : {"status0.sant", "status1.sent", "Engine.nothing"})
        EXPECT_THROW(session.Figure(name), veldor::cli::MissingFigure) << name;
}

}  // namespace
}  // namespace mainjob
