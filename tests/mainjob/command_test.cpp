// The bus commands of veldor as a user runs them, on the simulated buses
// (the test runs under tools/with-sim-bus; the commands it starts share its
// CAN bus and the veth pair nvxeth1 <-> nvxeth2): the channel list, a replay
// recorded by another process, captures of other tools replayed frame for
// frame, a channel in use and Ctrl-C, and each bad input (logs and
// captures) with its one message and exit code.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <thread>
#include <tuple>

#include "BusSession.h"
#include "CaptureTestSupport.h"
#include "LogComparison.h"
#include "MainJobTest.h"
#include "NxBusLibraryPaths.h"
#include "can_load.h"
#include "scoped_env.h"

namespace mainjob {
namespace {

using Command = CommandTest;

TEST_F(Command, ChannelsListsTheBusWithDescriptions)
{
    const CommandResult r = Veldor({"channels"});
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(r.err, "");
    for (const char* line : {"NVX-CAN-1   CAN       Vendor: Norvex; Interface: NVX CAN FD Interface 4",
                             "NVX-VIRT-1  CAN       Vendor: Norvex; Interface: Virtual",
                             "ORV-CAN-1   CAN       Vendor: Orvik Labs", "NVX-ETH-1   Ethernet  Vendor: Norvex",
                             "NVX-ETH-2   Ethernet  Vendor: Norvex"})
        EXPECT_NE(r.out.find(line), std::string::npos) << r.out;
    const CommandResult elsewhere = Veldor({"channels", "--ip", "10.9.9.9"});
    EXPECT_EQ(elsewhere.code, 1);
    EXPECT_EQ(elsewhere.err,
              "veldor channels: the bus libraries offer no CAN channel and no Ethernet interface at 10.9.9.9\n");
}

TEST_F(Command, AReplayIsRecordedFrameForFrameByAnotherProcess)
{
    // Classic and FD frames, 2 ms apart, from a BLF file into one; the
    // recorder takes the channel as FD to hear both. The file's error frames
    // are passed over: a diagram's frame records have none.
    std::vector<CanFrame> frames = CountedFrames(400, 2000), file;
    for (std::size_t k = 0; k < frames.size(); ++k) {
        frames[k].fd = k % 3 == 0;
        frames[k].bitRateSwitch = k % 6 == 0;
        frames[k].length = frames[k].fd ? 16 : 8;
        if (k % 100 == 50) file.push_back(canlog_test::AsError(canlog_test::Classic(frames[k].timestamp - 1, 0x80, {1, 2})));
        file.push_back(frames[k]);
    }
    WriteLog(File("original.blf"), file);
    mainjob::Veldor recorder({"record", "can", "--channel", "NVX-CAN-2", "--fd", File("copy.blf")}, m_folder);
    std::this_thread::sleep_for(std::chrono::milliseconds(700));  // its channel is open by then
    const CommandResult replay = Veldor({"replay", "can", "--channel", "NVX-CAN-1", File("original.blf")});
    EXPECT_EQ(replay.code, 0) << replay.err;
    EXPECT_NE(replay.out.find("replayed 400 frames"), std::string::npos) << replay.out;
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    recorder.Interrupt();
    const CommandResult recorded = recorder.Wait(20);
    ASSERT_EQ(recorded.code, 0) << recorded.err;
    EXPECT_NE(recorded.out.find("recorded 400 frames"), std::string::npos) << recorded.out;
    EXPECT_NE(recorded.out.find("(interrupted)"), std::string::npos) << recorded.out;

    const std::vector<CanFrame> copy = ReadLog(File("copy.blf"));
    ASSERT_EQ(copy.size(), frames.size());
    for (std::size_t k = 0; k < frames.size(); ++k) {
        CanFrame want = canlog_test::On(frames[k], copy[k].channel, copy[k].direction);
        want.timestamp = copy[k].timestamp;
        EXPECT_EQ(copy[k], want) << k;
    }
    // The file's times are on the calendar: the recording was made now.
    const long long now = std::chrono::duration_cast<std::chrono::microseconds>(
                              std::chrono::system_clock::now().time_since_epoch())
                              .count();
    EXPECT_NEAR(static_cast<double>(copy.back().timestamp), static_cast<double>(now), 30e6);
}

TEST_F(Command, AChannelInUseIsRefusedAndTheOtherUserGoesOn)
{
    for (const auto& [kind, channel, extension] :
         {std::tuple<std::string, std::string, std::string>{"can", "NVX-CAN-2", ".asc"}, {"eth", "NVX-ETH-2", ".pcap"}}) {
        mainjob::Veldor first({"record", kind, "--channel", channel, File("first" + extension)}, m_folder);
        std::this_thread::sleep_for(std::chrono::milliseconds(700));
        const CommandResult second = Veldor({"record", kind, "--channel", channel, File("second" + extension)});
        EXPECT_EQ(second.code, 1) << kind;
        ASSERT_EQ(second.ErrLines().size(), 1u) << second.err;
        EXPECT_NE(second.err.find("veldor record: "), std::string::npos);
        EXPECT_NE(second.err.find(channel), std::string::npos) << second.err;
        EXPECT_NE(second.err.find("in use"), std::string::npos) << second.err;
        // Ctrl-C closes the file and prints the counts.
        first.Interrupt();
        const CommandResult r = first.Wait(20);
        EXPECT_EQ(r.code, 0) << r.err;
        EXPECT_EQ(r.err, "");
        EXPECT_NE(r.out.find("recorded 0 frames in"), std::string::npos) << r.out;
        EXPECT_NE(r.out.find("into " + File("first" + extension) + "; dropped 0 (interrupted)"), std::string::npos)
            << r.out;
    }
}

// With its defaults, a recording keeps every frame of a bus that carries the
// most frames its bit timing allows: empty frames back to back, whose
// identifiers count them, classic at 1 Mbit/s and FD at 1/8 Mbit/s.
TEST_F(Command, ARecordingKeepsEveryFrameOfAFullBus)
{
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
    // A full bus gives a reader about 10 ms before one read holds more than
    // 256 frames; an instrumented reader on a loaded machine misses that by
    // its slowness, not by a fault. The benchmark measures the margin.
    GTEST_SKIP() << "a sanitizer's reader is too slow for a full bus";
#endif
    std::string config;
    for (const std::string bus : {"CLASSIC", "FD"}) {
        config += "[bus " + bus + "]\naddress = 127.0.0.1\nbitrate = 1000000\ndata_bitrate = 8000000\n";
        for (const char* end : {"-TX", "-RX"})
            config += "[channel " + bus + end + "]\nbus = " + bus + "\nvendor = Norvex\ninterface = Bench\n";
    }
    WriteText(File("sim.conf"), config);
    // The other tests run on the default buses, whatever becomes of this one.
    const veldor_test::ScopedEnv buses("NXBUSAPI_SIM_CONFIG", File("sim.conf").c_str());
    const std::uint64_t count = 20000;  // about a second of the bus
    for (const bool fd : {false, true}) {
        const std::string bus = fd ? "FD" : "CLASSIC";
        SCOPED_TRACE(bus);
        veldor_test::CanLoad sender(NX_BUSAPI_CAN_LIBRARY_PATH, bus + "-TX", "Norvex", "Bench");
        ASSERT_EQ(sender.Error(), "");
        sender.SetFrames(fd, 0);
        std::vector<std::string> args{"record", "can", "--channel", bus + "-RX", "--bitrate", "1M", File(bus + ".blf")};
        if (fd) args.insert(args.end() - 1, {"--fd", "--data-bitrate", "8M"});
        mainjob::Veldor recorder(args, m_folder);
        std::this_thread::sleep_for(std::chrono::milliseconds(1000));  // its channel is open by then
        ASSERT_EQ(sender.Send(count, 0), count) << sender.Error();
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
        recorder.Interrupt();
        const CommandResult r = recorder.Wait(20);
        ASSERT_EQ(r.code, 0) << r.err;
        EXPECT_EQ(r.err, "");
        const std::vector<CanFrame> copy = ReadLog(File(bus + ".blf"));
        ASSERT_EQ(copy.size(), count) << r.out;
        for (std::size_t k = 0; k < copy.size(); ++k) {
            ASSERT_EQ(copy[k].id, k % 0x800) << k;
            ASSERT_EQ(copy[k].fd, fd) << k;
        }
    }
}

// One bad input: a file's bytes (none: the file does not exist) and the
// command's words before it; what it must say and its exit code.
struct BadInput {
    const char* name;
    const char* file;
    std::string bytes;  // "-": no file
    std::vector<std::string> words;
    int code;
    const char* message;  // in the first line told
    int replayed = -1;    // -1: nothing replayed, no summary; -2: a summary of a replay that failed
    std::size_t lines = 1;               // told on the standard error stream
    const char* alsoSaid = "";           // in those lines too
    const char* simulatorConfig = "";    // for the command's bus library
};

void PrintTo(const BadInput& c, std::ostream* out) { *out << c.name; }

class CommandBadInput : public Command, public ::testing::WithParamInterface<BadInput> {};

TEST_P(CommandBadInput, GivesOneClearMessage)
{
    const BadInput& c = GetParam();
    const std::string file = File(c.file);
    if (c.bytes != "-") WriteText(file, c.bytes);
    std::vector<std::string> args = c.words;
    args.push_back(file);
    if (*c.simulatorConfig) {
        WriteText(File("sim.conf"), c.simulatorConfig);
        setenv("NXBUSAPI_SIM_CONFIG", File("sim.conf").c_str(), 1);
    }
    const CommandResult r = Veldor(args);
    unsetenv("NXBUSAPI_SIM_CONFIG");
    EXPECT_EQ(r.code, c.code) << r.err;
    ASSERT_EQ(r.ErrLines().size(), c.lines) << r.err;
    EXPECT_EQ(r.err.rfind("veldor " + args[0] + ": ", 0), 0u) << r.err;
    EXPECT_NE(r.ErrLines()[0].find(c.message), std::string::npos) << r.err;
    EXPECT_NE(r.err.find(c.alsoSaid), std::string::npos) << r.err;
    if (c.replayed >= 0)
        EXPECT_EQ(r.out.rfind("replayed " + std::to_string(c.replayed) + " frames", 0), 0u) << r.out;
    else if (c.replayed == -2)
        EXPECT_TRUE(r.out.rfind("replayed ", 0) == 0 && r.out.find(" (failed)\n") != std::string::npos) << r.out;
    else
        EXPECT_EQ(r.out, "");
}

// Three seconds of 8-byte frames, 300 us apart: most of a 500 kbit/s bus.
std::string Busy()
{
    std::string text;
    char line[80];
    for (int k = 0; k < 10000; ++k) {
        std::snprintf(line, sizeof line, "(%.6f) can0 %03X#0011223344556677\n", 1700000000 + k * 0.0003, k % 0x800);
        text += line;
    }
    return text;
}

const char* const kGoodLines =
    "(1700000000.000000) can0 100#0011223344556677\n"
    "(1700000000.001000) can0 101#0011223344556677\n";
const std::string kBadIdentifier =
    "(1700000000.000000) can0 100#0011223344556677\n(1700000000.000500) can0 12345#00\n"
    "(1700000000.001000) can0 101#0011223344556677\n";

std::vector<std::string> ReplayCan(std::vector<std::string> options = {})
{
    options.insert(options.begin(), {"replay", "can", "--channel", "NVX-CAN-1"});
    return options;
}

INSTANTIATE_TEST_SUITE_P(
    Logs, CommandBadInput,
    ::testing::Values(
        BadInput{"Missing", "input.log", "-", ReplayCan(), 1, "input.log: No such file or directory"},
        BadInput{"Empty", "input.log", "", ReplayCan(), 1, "input.log holds no CAN frame"},
        BadInput{"Truncated", "input.log", "(1700000000.000000) can0 100#0011223344556677\n(1700000000.001000) can0 10",
                 ReplayCan(), 0, "input.log: line 2: ", 1},
        BadInput{"InvalidIdentifier", "input.log", kBadIdentifier, ReplayCan(), 0,
                 "input.log: line 2: invalid identifier", 2},
        BadInput{"InvalidIdentifierStops", "input.log", kBadIdentifier, ReplayCan({"--on-error", "stop"}), 1,
                 "input.log: line 2: invalid identifier", 1},
        BadInput{"InvalidDlc", "input.asc",
                 "date Tue Nov 14 10:13:20.123 pm 2023\nbase hex  timestamps absolute\n"
                 "Begin Triggerblock Tue Nov 14 10:13:20.123 pm 2023\n"
                 "   0.000100 1  123             Rx   d 2 01 02\n"
                 "   0.000200 1  124             Rx   d 19 01 02\n"
                 "   0.000300 1  125             Rx   d 1 01\n"
                 "End TriggerBlock\n",
                 ReplayCan(), 0, "input.asc: line 5: invalid DLC", 2},
        BadInput{"UnknownChannel", "input.log", kGoodLines, ReplayCan({"--channel", "NVX-CAN-9"}), 1,
                 "unknown channel \"NVX-CAN-9\" at 127.0.0.1; channels: NVX-CAN-1, NVX-CAN-2"},
        BadInput{"SpeedWithSync", "input.log", kGoodLines, ReplayCan({"--sync", "--speed", "2"}), 2,
                 "--speed is for a replay paced here"},
        // Lines in seconds since the epoch among seconds since the start:
        // without the shortened gap this replay would wait 54 years.
        BadInput{"EpochSecondsAmongRelativeOnes", "input.log",
                 "(0.000000) can0 100#00\n(0.010000) can0 101#01\n(1700000000.020000) can0 102#02\n"
                 "(1700000000.030000) can0 103#03\n(0.040000) can0 104#04\n(0.050000) can0 105#05\n",
                 ReplayCan({"--max-gap", "0.2s"}), 0,
                 "input.log: line 3: the frame comes 1700000000.01 s after the one before; the gap is shortened to 0.2 s",
                 6, 2, "input.log: line 5: the time goes back 1699999999.99 s"},
        // Refused before anything is sent: no summary.
        BadInput{"SpeedBeyondTheBus", "input.log", Busy(), ReplayCan({"--speed", "1.5"}), 1,
                 "the file needs 114.2% of the bus at 500k bit/s and speed 1.50 in its busiest second", -1, 1,
                 "more than the 100% the channel carries"},
        BadInput{"TransmitFailure", "input.log", Busy(), ReplayCan(), 1, "the replay onto NVX-CAN-1 stopped: ", -2, 1,
                 "transmit queue full", "[fault NXCAN_TransmitMessages]\ncode = 7\nafter = 100\n"}),
    [](const ::testing::TestParamInfo<BadInput>& info) { return std::string(info.param.name); });

// A pcapng file of an Ethernet interface and a CAN interface, three frames
// each; cut short by `cut` bytes, or its first packet block's length wrong.
std::string TwoBuses(std::size_t cut = 0, bool wrongLength = false)
{
    pcaplog_test::Pcapng f;
    f.Section().Interface(1, {{2, "eth0"}}).Interface(227, {{2, "can0"}});
    const std::size_t first = f.bytes.size();
    for (int k = 0; k < 6; ++k)
        f.Packet(k % 2, 1700000000000000 + k * 1000,
                 k % 2 ? pcaplog_test::Hex("00000123 08000000 0011223344556677") : std::string(60 + k, 'e'));
    if (wrongLength) f.bytes[first + 4] += 4;
    f.bytes.resize(f.bytes.size() - cut);
    return f.bytes;
}

const std::vector<std::string> kReplayEth{"replay", "eth", "--channel", "NVX-ETH-1"};

// Files that the reader can't open take one path (their messages:
// pcap_log_tests).
INSTANTIATE_TEST_SUITE_P(
    CaptureFiles, CommandBadInput,
    ::testing::Values(
        BadInput{"MissingCapture", "input.pcap", "-", kReplayEth, 1, "input.pcap"},
        BadInput{"NoCapture", "input.pcapng", "no capture\n", kReplayEth, 1, "input.pcapng"},
        BadInput{"TruncatedCapture", "input.pcapng", TwoBuses(10), kReplayEth, 1, "; nothing was sent"},
        BadInput{"BlockOfWrongLength", "input.pcapng", TwoBuses(0, true), kReplayEth, 1, "; nothing was sent"},
        BadInput{"NoInterfaceOfTheKind", "input.pcapng",
                 pcaplog_test::Pcapng().Section().Interface(227, {{2, "can0"}}).bytes, kReplayEth, 1,
                 "input.pcapng holds no Ethernet interface: can0 (CAN)"},
        BadInput{"MapOfNoInterface", "input.pcapng", TwoBuses(), {"replay", "--map", "eth9=NVX-ETH-1"}, 1,
                 "input.pcapng has no interface \"eth9\"; it has eth0 (Ethernet), can0 (CAN)"},
        BadInput{"NoMap", "input.pcapng", TwoBuses(), {"replay", "--sync"}, 1, "no interface of"},
        BadInput{"MapOntoAnotherKind", "input.pcapng", TwoBuses(), {"replay", "--map", "can0=NVX-ETH-1"}, 1,
                 "can0 holds CAN frames; NVX-ETH-1 is an Ethernet interface"},
        BadInput{"UnknownInterface", "input.pcap", pcaplog_test::PcapFile(1, {{1000, std::string(60, 'e')}}),
                 {"replay", "eth", "--channel", "NVX-ETH-9"}, 1, "unknown Ethernet interface \"NVX-ETH-9\" at 127.0.0.1"},
        BadInput{"UnknownChannelOfSeveral", "input.pcapng", "-",
                 {"record", "--channel", "NVX-ETH-2", "--channel", "NVX-NONE-3"}, 1, "unknown channel \"NVX-NONE-3\""},
        BadInput{"SeveralBusesInALog", "input.asc", "-", {"record", "--channel", "NVX-CAN-2"}, 2,
                 "a file of several buses is .pcapng"},
        BadInput{"EthernetInALog", "input.log", "-", {"record", "eth", "--channel", "NVX-ETH-2"}, 2,
                 "eth takes a .pcap or .pcapng file"},
        BadInput{"OptionOfTheOtherKind", "input.pcap", "-", {"replay", "eth", "--channel", "NVX-ETH-1", "--fd"}, 2,
                 "--fd is an option of CAN channels"}),
    [](const ::testing::TestParamInfo<BadInput>& info) { return std::string(info.param.name); });

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
