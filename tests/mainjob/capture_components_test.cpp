// The capture file player and recorder through the engine, without a bus:
// files played into the recorder come back frame for frame; the pace
// of every output on the engine's clock, with the Ethernet outputs ahead for
// the frames a synchronised replay holds back (a pause and a jump are the
// pacing every file player shares: file_components_test); bad files and bad
// recordings told with one message while the rest goes on.
#include <sstream>

#include "CaptureTestSupport.h"
#include "MainJobTest.h"

namespace mainjob {
namespace {

using pcaplog_test::Drive;
using pcaplog_test::ReadAll;
using pcaplog_test::ReadOutcome;
using veldor::pcaplog::kLinkTypeSocketCan;
using veldor::pcaplog::LinkKind;
using veldor::pcaplog::Packet;

const long long kStart = 1700000000000000;  // us

// The drive's packets 1 ms apart from kStart, keeping what their times had
// below the microsecond.
Drive Retimed(Drive d)
{
    for (std::size_t i = 0; i < d.packets.size(); ++i) {
        Packet& p = d.packets[i];
        p.canFrame.timestamp = kStart + static_cast<long long>(i) * 1000;
        p.time = p.canFrame.timestamp * 1000 + (d.interfaces[p.interface].Kind() == LinkKind::Can ? 0 : p.time % 1000);
    }
    return d;
}

// "<us> <hex>" of every packet of each interface, as a diagram carries them.
std::vector<std::vector<std::string>> PerInterface(const ReadOutcome& r)
{
    std::vector<std::vector<std::string>> lines(r.interfaces.size());
    for (std::size_t i = 0; i < r.packets.size(); ++i) {
        const Packet& p = r.packets[i];
        std::string line = std::to_string(p.time / 1000) + " ";
        if (r.interfaces[p.interface].Kind() == LinkKind::Can) {
            veldor::canlog::CanFrame f = p.canFrame;
            // The records carry no direction and no error state indicator.
            f.direction = veldor::canlog::Direction::Rx;
            f.errorStateIndicator = false;
            line += pcaplog_test::Describe(f);
        } else {
            line += pcaplog_test::ToHex(r.data[i].data(), r.data[i].size()) + " of " + std::to_string(p.originalLength);
        }
        lines[p.interface].push_back(line);
    }
    return lines;
}

class Captures : public FileComponentTest {
protected:
    // A player of `file` into a recorder of every interface it plays; the
    // recording's path. The player's outputs are connected by what
    // `interfaces` tells.
    std::string PlayIntoRecorder(const std::string& file, const std::string& recording, bool vectorise = false)
    {
        // The reader first, so that it hears everything.
        const std::string path = m_folder + "/" + recording;
        Make("CaptureFileRecorder", "rec", {{"file", path}, {"time_base", "Engine time"}});
        Make("CaptureFilePlayer", "player",
             {{"file", file}, {"replay_lead", "0"}, {"vectorize_frames", vectorise ? "true" : "false"}});
        // "<output>=<name>:<kind>": a channel of that name (of the output's
        // without one) and kind.
        std::string channels;
        std::vector<std::pair<std::string, std::string>> links;
        int counts[2] = {0, 0};
        std::istringstream told(Text("player.interfaces"));
        for (std::string entry; std::getline(told, entry, ',');) {
            const std::size_t equals = entry.find('='), colon = entry.rfind(':');
            const std::string output = entry.substr(0, equals), kind = entry.substr(colon + 1);
            const std::string name = entry.substr(equals + 1, colon - equals - 1);
            channels += (channels.empty() ? "" : ",") + (name.empty() ? output.substr(1) : name) + ":" + kind;
            const bool eth = kind == "eth";
            links.emplace_back(output, (eth ? "iEth" : "iCan") + std::to_string(counts[eth]++));
        }
        Set("rec.channels", channels);
        for (const auto& [output, input] : links) Connect("player." + output, "rec." + input);
        return path;
    }
};

// ---------------------------------------------------------------------------
// Frame for frame (what the tools of the field write and read of these files
// is the reader's and the writer's business: pcap_log_interop_tests)

std::string Ours(const std::string& folder, bool multiBus)
{
    const std::string path = folder + (multiBus ? "/ours.pcapng" : "/ours.pcap");
    pcaplog_test::WriteDriveFile(path, Retimed(pcaplog_test::MakeDrive(multiBus, 600)));
    return path;
}

TEST_F(Captures, PlayedIntoTheRecorderComeBackFrameForFrame)
{
    // CAN and Ethernet into pcapng, Ethernet into pcap; an element a read
    // or a frame.
    for (const bool multiBus : {true, false})
    for (const bool vectorise : {true, false}) {
        SCOPED_TRACE(std::string(multiBus ? "pcapng" : "pcap") + (vectorise ? ", vectorised" : ""));
        engine.Graph().Clear();
        const std::string file = Ours(m_folder, multiBus);
        const ReadOutcome source = ReadAll(file);
        ASSERT_EQ(source.openError, "");
        const std::string recording = PlayIntoRecorder(file, std::to_string(vectorise) + (multiBus ? "rec.pcapng" : "rec.pcap"), vectorise);
        const long long frames = static_cast<long long>(source.packets.size());
        engine.Clock().SetSpeed(20000);
        Run();
        EXPECT_TRUE(Eventually([&] { return Figure("player.finished") == 1 && Figure("rec.recorded") == frames; }))
            << Figure("rec.recorded") << " of " << frames;
        Shutdown();
        engine.Clock().SetSpeed(1000);
        EXPECT_EQ(Figure("player.sent"), frames);
        EXPECT_EQ(Figure("player.bad_lines") + Figure("player.left_out") + Figure("rec.refused"), 0);

        const ReadOutcome recorded = ReadAll(recording);
        ASSERT_EQ(recorded.interfaces.size(), source.interfaces.size());
        for (std::size_t i = 0; i < source.interfaces.size(); ++i) {
            EXPECT_EQ(recorded.interfaces[i].linkType, source.interfaces[i].linkType) << i;
            EXPECT_EQ(recorded.interfaces[i].name, multiBus ? source.interfaces[i].name : "") << i;
        }
        EXPECT_EQ(PerInterface(recorded), PerInterface(source));
    }
}

TEST_F(Captures, SkippedInterfacesHaveNoOutputAndTheirFramesAreLeftOutAndToldOnce)
{
    const std::string file = Ours(m_folder, true);
    const ReadOutcome source = ReadAll(file);
    Make("CaptureFilePlayer", "player", {{"file", file}});
    EXPECT_EQ(Text("player.interfaces"), "oeth0=eth0:eth,ocan0=can0:can,oeth1=eth1:eth,ocan1=can1:can");
    // By the interface's name or by its output's.
    Set("player.skip", "can1, oeth1");
    EXPECT_EQ(Text("player.interfaces"), "oeth0=eth0:eth,ocan0=can0:can");
    EXPECT_FALSE(HasProperty("player", "sent_oeth1"));
    engine.Clock().SetSpeed(20000);
    Run();
    ASSERT_TRUE(Eventually([&] { return Figure("player.finished") == 1; }));
    engine.Clock().SetSpeed(1000);
    long long skipped = 0;
    for (const Packet& p : source.packets) skipped += p.interface >= 2;
    EXPECT_EQ(Figure("player.left_out"), skipped);
    EXPECT_EQ(Figure("player.sent_oeth0") + Figure("player.sent_ocan0"), Figure("player.sent"));
    EXPECT_EQ(Figure("player.sent") + skipped, static_cast<long long>(source.packets.size()));
    EXPECT_EQ(engine.GetConsole().CountContaining("(can1) is skipped: its frames are left out", VELD::Warning), 1u);
    EXPECT_EQ(engine.GetConsole().CountContaining("(eth1) is skipped: its frames are left out", VELD::Warning), 1u);
}

// ---------------------------------------------------------------------------
// Pace

// CAN frames 10 ms apart, Ethernet frames 100 ms apart (60 bytes, ending
// with their counter), for 1.2 s.
std::string PacedFile(const std::string& folder)
{
    Drive d;
    d.interfaces = {pcaplog_test::Named("can0", kLinkTypeSocketCan), pcaplog_test::Named("eth0")};
    const std::vector<CanFrame> frames = CountedFrames(120, 10000, kStart);
    for (std::uint32_t k = 0; k < 120; ++k) {
        Packet p;
        p.time = frames[k].timestamp * 1000;
        p.canFrame = frames[k];
        d.packets.push_back(p);
        d.data.emplace_back();
        if (k % 10 != 0) continue;
        d.data.push_back(pcaplog_test::Hex("020000000002 020000000001 88b5") + std::string(42, '\0') + pcaplog_test::U32(k / 10));
        p.interface = 1;
        p.capturedLength = p.originalLength = 60;
        d.packets.push_back(p);
    }
    pcaplog_test::WriteDriveFile(folder + "/paced.pcapng", d);
    return folder + "/paced.pcapng";
}

TEST_F(Captures, PaceEveryOutputOnTheEnginesClockTheEthernetOnesAheadByTheFramesHeldBack)
{
    for (const long long ahead : {0LL, 200000LL}) {
        SCOPED_TRACE(ahead);
        engine.Graph().Clear();
        Make("CanFrameStats", "can", {{"csv", m_folder + "/can.csv"}});
        Make("EthFrameStats", "eth", {{"csv", m_folder + "/eth.csv"}});
        Make("CaptureFilePlayer", "player",
             {{"file", PacedFile(m_folder)}, {"replay_lead", "300000"}, {"send_ahead", std::to_string(ahead)}});
        Connect("player.ocan0", "can.iCAN");
        Connect("player.oeth0", "eth.iEth");
        Run();
        ASSERT_TRUE(Eventually([&] { return Figure("player.finished") == 1; }));
        EXPECT_TRUE(Eventually([&] { return Figure("can.frames") == 120 && Figure("eth.frames") == 12; }));
        // When a frame recorded at `t` is due on the engine's clock.
        const long long start = Figure("player.replay_start_time");
        const auto due = [&](long long t) { return start + t - kStart; };
        Shutdown();
        const std::vector<Arrival> can = ReadArrivals(m_folder + "/can.csv"), eth = ReadArrivals(m_folder + "/eth.csv");
        ASSERT_EQ(can.size(), 120u);
        ASSERT_EQ(eth.size(), 12u);
        // A CAN frame goes send_ahead before it is due, never earlier.
        for (std::size_t k = 0; k < can.size(); ++k) {
            ASSERT_EQ(can[k].counter, static_cast<long long>(k));
            EXPECT_GE(can[k].arrival, due(can[k].frameTime) - ahead) << k;
        }
        // With a lead, an Ethernet frame goes when the frame 9 before it on
        // its output goes: 900 ms early here, in the same round as the CAN
        // frame of that time; without, when due.
        for (std::size_t k = 0; k < eth.size(); ++k) {
            ASSERT_EQ(eth[k].counter, static_cast<long long>(k));
            const long long lead = ahead > 0 ? kStart + 100000LL * (k < 9 ? 0 : k - 9) : eth[k].frameTime;
            EXPECT_GE(eth[k].arrival, due(lead) - ahead) << k;
            EXPECT_TRUE(ahead == 0 || eth[k].arrival < can[(lead - kStart) / 10000 + 30].arrival) << k;
        }
    }
}

// ---------------------------------------------------------------------------
// Bad input

TEST_F(Captures, BadFilesAreToldOnceAndTheRestOfTheDiagramGoesOn)
{
    pcaplog_test::Pcapng three, beside;
    three.Section().Interface(1);
    beside.Section().Interface(1).Interface(147);
    for (int k = 0; k < 3; ++k) {
        const std::string frame = std::string(59, 'e') + static_cast<char>(k);
        three.Packet(0, kStart + 1000 * k, frame);
        beside.Packet(0, kStart + 1000 * k, frame).Packet(1, kStart + 1000 * k, "x");
    }
    std::string wrongLength = three.bytes;
    wrongLength[wrongLength.size() - 4] = 0x7C;  // the last block's length at its end
    const struct {
        const char* told;  // in the one message
        std::string bytes;  // "-": no file
        bool dies;
        int played;
    } cases[] = {
        // Files the reader refuses at the start take the path of the missing
        // one (their messages: pcap_log_tests).
        {"No such file or directory", "-", true, 0},
        {"holds no frame to play", pcaplog_test::Pcapng().Section().Interface(1).bytes, true, 0},
        {"the file ends inside", three.bytes.substr(0, three.bytes.size() - 30), false, 2},
        {"at its end; the frames before it are played", wrongLength, false, 2},
        {"is link type 147, which is not played", beside.bytes, false, 3},
    };
    const std::string good = m_folder + "/good.pcapng";
    pcaplog_test::WriteFile(good, three.bytes);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.told);
        engine.Graph().Clear();
        engine.GetConsole().ClearCaptured();
        const std::string file = m_folder + "/bad" + std::to_string(&c - cases) + ".pcapng";
        if (c.bytes != "-") pcaplog_test::WriteFile(file, c.bytes);
        // Beside it, a good file played into a recorder.
        const std::string recording = PlayIntoRecorder(good, "rec.pcapng");
        Make("CaptureFilePlayer", "bad", {{"file", file}});
        Make("CaptureFileRecorder", "badrec", {{"file", m_folder + "/badrec.pcapng"}, {"channels", "e:eth"}});
        if (!c.dies) Connect("bad.oIf0", "badrec.iEth0");
        std::string error;
        engine.Graph().Run(&error);
        ASSERT_TRUE(Eventually([&] { return Figure("player.finished") == 1 && Figure("rec.recorded") == 3; }));
        ASSERT_TRUE(Eventually([&] {
            return c.dies ? engine.Graph().IsDead("bad") : Figure("bad.finished") == 1 && Figure("badrec.recorded") == c.played;
        }));
        Shutdown();
        EXPECT_EQ(engine.GetConsole().CountContaining(file), 1u) << engine.GetConsole().LastError();
        EXPECT_TRUE(engine.GetConsole().Contains(c.told, c.dies ? VELD::Error : VELD::Warning));
        EXPECT_EQ(ReadAll(recording).packets.size(), 3u);
    }
}

// ---------------------------------------------------------------------------
// The recorder

TEST_F(Captures, TheRecorderRefusesWhatItCanNotWriteWithOneMessage)
{
    const struct {
        const char* file;
        const char* channels;
        const char* told;
    } cases[] = {
        {"r.pcap", "c:can", "a .pcap file holds one Ethernet channel"},
        {"r.pcap", "a:eth,b:eth", "a .pcap file holds one Ethernet channel"},
        {"r.pcapng", "", "no channel to record"},
        {"r.pcapng", "a:eth,b:wifi", "the channel \"b:wifi\" is not <name>:<eth|can>"},
        {"r.txt", "a:eth", "neither .pcap nor .pcapng"},
        {"no/such/folder/r.pcapng", "a:eth", "No such file or directory"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.told);
        engine.Graph().Clear();
        engine.GetConsole().ClearCaptured();
        Make("CaptureFileRecorder", "rec", {{"file", m_folder + "/" + c.file}, {"channels", c.channels}});
        std::string error;
        engine.Graph().Run(&error);
        ASSERT_TRUE(Eventually([&] { return engine.Graph().IsDead("rec"); }));
        EXPECT_EQ(engine.GetConsole().CountContaining(m_folder + "/" + c.file), 1u);
        EXPECT_TRUE(engine.GetConsole().Contains(c.told, VELD::Error)) << engine.GetConsole().LastError();
    }
}

TEST_F(Captures, TheRecorderFlushesWhileItWaitsAndLosesNothingOnStop)
{
    Make("CanGenerator", "can", {{"count", "40"}, {"period", "1000"}});
    Make("EthGenerator", "eth", {{"count", "60"}, {"frames_per_element", "7"}});
    const std::string file = m_folder + "/r.pcapng";
    Make("CaptureFileRecorder", "rec",
         {{"file", file}, {"channels", "NVX-CAN-2:can,NVX-ETH-2:eth"}, {"flush_period", "200000"}});
    Connect("can.oCAN", "rec.iCan0");
    Connect("eth.oEth", "rec.iEth0");
    Run();
    // Nothing more comes: what was written reaches the file within a flush
    // period, while the recorder runs.
    EXPECT_TRUE(Eventually([&] { return ReadAll(file).packets.size() == 100; }, 10));
    EXPECT_EQ(Figure("rec.recorded_iCan0"), 40);
    EXPECT_EQ(Figure("rec.recorded_iEth0"), 60);
    Shutdown();
    const ReadOutcome r = ReadAll(file);
    ASSERT_EQ(r.interfaces.size(), 2u);
    EXPECT_EQ(r.interfaces[0].name, "NVX-CAN-2");
    EXPECT_EQ(r.interfaces[1].linkType, 1);
    EXPECT_EQ(r.packets.size(), 100u);
}

}  // namespace
}  // namespace mainjob
