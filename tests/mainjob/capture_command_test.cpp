// The commands on Ethernet and on several buses at once, as a user runs
// them under tools/with-sim-bus (the CAN bus and the veth pair nvxeth1 <->
// nvxeth2 shared by the commands the test starts): each bad input with its
// one message and exit code, and captures written by other tools replayed
// frame for frame while another command records the other end.
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

using veldor::pcaplog::Interface;

// A pcapng file of an Ethernet interface and a CAN interface, a few frames
// each.
void WriteTwoBuses(const std::string& path)
{
    std::vector<CapturedFrame> frames;
    for (std::uint32_t k = 0; k < 6; ++k) {
        CapturedFrame f;
        f.interface = k % 2;
        f.time = 1700000000000000000 + k * 1000000;
        f.bytes = EthFrame(60 + k, k);
        f.can = CountedFrames(1, 1)[0];
        frames.push_back(f);
    }
    WriteCapture(path, {EthInterface("eth0"), CanInterface("can0")}, frames);
}

std::string Bytes(const std::string& path) { return ReadText(path); }

// One bad input: how its file is made ("" and no maker: no file), the
// command's words before the file, what the one line told must hold, the
// exit code.
struct BadCapture {
    const char* name;
    const char* file;
    std::function<std::string(const std::string& scratch)> content;  // null: the file does not exist
    std::vector<std::string> words;
    const char* message;
    int code = 1;
};

void PrintTo(const BadCapture& c, std::ostream* out) { *out << c.name; }

class CaptureCommandBadInput : public CommandTest, public ::testing::WithParamInterface<BadCapture> {};

TEST_P(CaptureCommandBadInput, GivesOneClearMessageAndSendsNothing)
{
    const BadCapture& c = GetParam();
    const std::string file = File(c.file);
    if (c.content) WriteText(file, c.content(File("scratch.pcapng")));
    std::vector<std::string> args = c.words;
    args.push_back(file);
    const CommandResult r = Veldor(args);
    EXPECT_EQ(r.code, c.code) << r.err;
    ASSERT_EQ(r.ErrLines().size(), 1u) << r.err;
    EXPECT_EQ(r.err.rfind("veldor " + args[0] + ": ", 0), 0u) << r.err;
    EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
    EXPECT_EQ(r.out, "");
}

// The bytes of the two-bus file, changed by `change`.
std::function<std::string(const std::string&)> TwoBuses(std::function<void(std::string&)> change)
{
    return [change](const std::string& scratch) {
        WriteTwoBuses(scratch);
        std::string bytes = Bytes(scratch);
        change(bytes);
        return bytes;
    };
}

// The offset of the first enhanced packet block.
std::size_t FirstPacketBlock(const std::string& bytes)
{
    for (std::size_t at = 0; at + 8 <= bytes.size();) {
        const auto word = [&](std::size_t i) {
            return static_cast<std::uint32_t>(static_cast<std::uint8_t>(bytes[i])) |
                   static_cast<std::uint32_t>(static_cast<std::uint8_t>(bytes[i + 1])) << 8 |
                   static_cast<std::uint32_t>(static_cast<std::uint8_t>(bytes[i + 2])) << 16 |
                   static_cast<std::uint32_t>(static_cast<std::uint8_t>(bytes[i + 3])) << 24;
        };
        if (word(at) == 6) return at;
        at += word(at + 4);
    }
    return bytes.size();
}

// A classic pcap file header of link type 113 (Linux cooked capture) and
// one record of 20 bytes.
std::string CookedCapture(const std::string&)
{
    const unsigned char header[] = {0xD4, 0xC3, 0xB2, 0xA1, 2, 0, 4, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                                    0xFF, 0xFF, 0, 0, 113, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0,
                                    20, 0, 0, 0, 20, 0, 0, 0};
    return std::string(reinterpret_cast<const char*>(header), sizeof header) + std::string(20, '\x01');
}

const std::vector<std::string> kReplayEth{"replay", "eth", "--channel", "NVX-ETH-1"};

INSTANTIATE_TEST_SUITE_P(
    Inputs, CaptureCommandBadInput,
    ::testing::Values(
        BadCapture{"Missing", "input.pcap", nullptr, kReplayEth, "input.pcap"},
        BadCapture{"Empty", "input.pcap", [](const std::string&) { return std::string(); }, kReplayEth, "input.pcap"},
        BadCapture{"NoCapture", "input.pcapng", [](const std::string&) { return std::string("no capture\n"); },
                   kReplayEth, "input.pcapng"},
        BadCapture{"Truncated", "input.pcapng", TwoBuses([](std::string& b) { b.resize(b.size() - 10); }), kReplayEth,
                   "; nothing was sent"},
        BadCapture{"BlockOfWrongLength", "input.pcapng",
                   TwoBuses([](std::string& b) { b[FirstPacketBlock(b) + 4] += 4; }), kReplayEth, "; nothing was sent"},
        BadCapture{"OtherLinkType", "input.pcap", CookedCapture, kReplayEth, "input.pcap"},
        BadCapture{"NoInterfaceOfTheKind", "input.pcapng",
                   [](const std::string& scratch) {
                       WriteCapture(scratch, {CanInterface("can0")}, {});
                       return Bytes(scratch);
                   },
                   kReplayEth, "input.pcapng holds no Ethernet interface: can0 (CAN)"},
        BadCapture{"MapOfNoInterface", "input.pcapng", TwoBuses([](std::string&) {}),
                   {"replay", "--map", "eth9=NVX-ETH-1"}, "input.pcapng has no interface \"eth9\"; it has eth0 (Ethernet), can0 (CAN)"},
        BadCapture{"NoMap", "input.pcapng", TwoBuses([](std::string&) {}), {"replay", "--sync"},
                   "no interface of", 1},
        BadCapture{"MapOntoAnotherKind", "input.pcapng", TwoBuses([](std::string&) {}),
                   {"replay", "--map", "can0=NVX-ETH-1"}, "can0 holds CAN frames; NVX-ETH-1 is an Ethernet interface"},
        BadCapture{"UnknownInterface", "input.pcap",
                   [](const std::string& scratch) {
                       WriteCapture(scratch, {EthInterface("")}, {CapturedFrame{0, 1, EthFrame(60, 0), CanFrame()}});
                       return Bytes(scratch);
                   },
                   {"replay", "eth", "--channel", "NVX-ETH-9"}, "unknown Ethernet interface \"NVX-ETH-9\" at 127.0.0.1"},
        BadCapture{"UnknownChannelOfSeveral", "input.pcapng", nullptr,
                   {"record", "--channel", "NVX-ETH-2", "--channel", "NVX-NONE-3"}, "unknown channel \"NVX-NONE-3\""},
        BadCapture{"SeveralBusesInALog", "input.asc", nullptr, {"record", "--channel", "NVX-CAN-2"},
                   "a file of several buses is .pcapng", 2},
        BadCapture{"EthernetInALog", "input.log", nullptr, {"record", "eth", "--channel", "NVX-ETH-2"},
                   "eth takes a .pcap or .pcapng file", 2},
        BadCapture{"OptionOfTheOtherKind", "input.pcap", nullptr, {"replay", "eth", "--channel", "NVX-ETH-1", "--fd"},
                   "--fd is an option of CAN channels", 2}),
    [](const ::testing::TestParamInfo<BadCapture>& info) { return std::string(info.param.name); });

// A capture written by another tool, replayed through the commands while
// another command records the other end: the recording holds, interface by
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
        // tcpdump writes what scapy made, in microseconds and in nanoseconds.
        OtherTool{"TcpdumpPcap", "/usr/bin/tcpdump",
                  kScapy + "wrpcap(\\\"s.pcap\\\", [at(n, Ether(**e)/IP()/UDP(**u)/Raw(bytes(n*7))) for n in range(1, 60)])'\n"
                           "tcpdump -r s.pcap -w capture.pcap && tcpdump --time-stamp-precision=nano -r capture.pcap -w ns.pcap",
                  "capture.pcap", {"replay", "eth", "--channel", "NVX-ETH-1"}, {"NVX-ETH-2"}, {{"0", "NVX-ETH-2"}}},
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
