// The io package's Ethernet components through the engine, without a bus:
// the generator's traffic of every kind, vectorised or not, into the
// statistics and the printer: every frame counted once, in order, every
// message whole; and the frames the printer dumped, written to a pcap file,
// put back together by tshark.
#include <algorithm>
#include <fstream>
#include <sstream>

#include "ComponentTest.h"
#include "pcap_file.h"

namespace {

using bus_components::ComponentTest;
using veldtest::Eventually;

const long long kFirst = 1700000000000000;
// What the generator's port carries: SOME/IP, whose segments are put
// together, or plain data (no guessing: a message number 4 looks like the
// start of another protocol).
const char* const kSomeIp = " -d udp.port==30501,someip -o someip.reassemble_tp:TRUE";
const char* const kData = " -d udp.port==30501,data";

// The counter a generator's frame ends with: at the end of the IPv4 packet,
// or of the frame.
std::uint32_t CounterOf(const std::vector<std::uint8_t>& f)
{
    std::size_t end = f.size();
    if (f.size() >= 34 && f[12] == 0x08 && f[13] == 0x00) end = 14 + (f[16] << 8 | f[17]);
    return f[end - 4] | f[end - 3] << 8 | f[end - 2] << 16 | static_cast<std::uint32_t>(f[end - 1]) << 24;
}

// A message number: the first 4 bytes of a hex dump, little-endian.
long long MessageNumber(const std::string& hex)
{
    long long n = 0;
    for (int i = 3; i >= 0 && hex.size() >= 8; --i) n = n << 8 | std::stoll(hex.substr(2 * i, 2), nullptr, 16);
    return n;
}

struct TrafficCase {
    const char* traffic;
    int frameSize, frameSizeMax, messageSize, perElement, count;
    int frames, messages;
    // How tshark shows a message: its display filter, the field that tells
    // its length and the one with its payload; none for plain frames.
    const char* filter;
    const char* lengthField;
    int length;
    const char* dataField;
};

void PrintTo(const TrafficCase& c, std::ostream* os)
{
    *os << c.traffic << " " << c.messageSize << " bytes, " << c.perElement << " a element";
}

class EthTraffic : public ComponentTest, public ::testing::WithParamInterface<TrafficCase> {};

TEST_P(EthTraffic, EveryFrameArrivesOnceInOrderAndEveryMessageWhole)
{
    const TrafficCase& c = GetParam();
    Make("EthGenerator", "gen");
    for (const auto& [property, value] : std::vector<std::pair<const char*, std::string>>{
             {"traffic", c.traffic}, {"frame_size", std::to_string(c.frameSize)},
             {"frame_size_max", std::to_string(c.frameSizeMax)}, {"message_size", std::to_string(c.messageSize)},
             {"frames_per_element", std::to_string(c.perElement)}, {"count", std::to_string(c.count)}, {"rate", "0"},
             {"first_timestamp", std::to_string(kFirst)}})
        Set(std::string("gen.") + property, value);
    Make("EthFrameStats", "stats");
    Make("EthPrinter", "printer");
    const std::string printed = m_folder + "/printed.txt";
    Set("printer.file", printed);
    Set("printer.dump_bytes", "-1");
    Connect("gen.oEth", "stats.iEth");
    Connect("gen.oEth", "printer.iEth");
    Run();
    ASSERT_TRUE(Eventually([&] { return Figure("stats.frames") >= c.frames && Figure("printer.printed") >= c.frames; }));
    Shutdown();

    for (const auto& [figure, value] : {std::pair<const char*, int>{"gen.sent", c.frames}, {"stats.frames", c.frames},
                                        {"stats.lost", 0}, {"stats.disordered", 0}, {"stats.messages", c.messages},
                                        {"stats.broken_messages", 0}})
        EXPECT_EQ(Figure(figure), value) << figure;

    const std::vector<PrintedEthFrame> frames = ReadPrintedEthFrames(printed);
    ASSERT_EQ(frames.size(), static_cast<std::size_t>(c.frames));
    std::size_t shortest = 65536, longest = 0;
    for (int k = 0; k < c.frames; ++k) {
        ASSERT_EQ(CounterOf(frames[k].bytes), static_cast<std::uint32_t>(k));
        EXPECT_EQ(frames[k].time, kFirst + k);
        shortest = std::min(shortest, frames[k].bytes.size());
        longest = std::max(longest, frames[k].bytes.size());
    }
    if (c.frameSizeMax > 0) {
        EXPECT_EQ(shortest, static_cast<std::size_t>(c.frameSize));
        EXPECT_EQ(longest, static_cast<std::size_t>(c.frameSizeMax));
    }
    if (!c.filter) return;

    const std::string pcap = m_folder + "/traffic.pcap";
    ASSERT_TRUE(WritePcap(pcap, frames));
    const std::vector<std::string> rows =
        Tshark("-r " + pcap + (std::string(c.filter).find("someip") == 0 ? kSomeIp : kData) + " -Y '" + c.filter +
               "' -T fields -e " + c.lengthField + " -e " + c.dataField);
    ASSERT_EQ(rows.size(), static_cast<std::size_t>(c.messages)) << "tshark: " << c.filter;
    for (int m = 0; m < c.messages; ++m) {
        std::istringstream row(rows[m]);
        int length = 0;
        std::string data;
        row >> length >> data;
        EXPECT_EQ(length, c.length) << rows[m];
        EXPECT_EQ(MessageNumber(data), m) << rows[m];
    }
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, EthTraffic,
    ::testing::Values(
        // Frame lengths sweep from the shortest to the longest.
        TrafficCase{"Ethernet", 60, 1514, 0, 64, 3000, 3000, 0, nullptr, nullptr, 0, nullptr},
        TrafficCase{"UDP", 64, 64, 0, 1, 200, 200, 200, "udp", "udp.length", 30, "data.data"},
        // 4008 bytes in fragments of 1480: three frames a datagram.
        TrafficCase{"Fragmented UDP", 60, 0, 4000, 7, 60, 60, 20, "udp", "udp.length", 4008, "data.data"},
        // 2962 bytes: a last fragment of 2 would have no room for its counter.
        TrafficCase{"Fragmented UDP", 60, 0, 2954, 1, 30, 30, 10, "udp", "udp.length", 2962, "data.data"},
        // 5000 bytes in segments of 1440: four frames a message.
        TrafficCase{"SOME/IP TP", 60, 0, 5000, 16, 40, 40, 10, "someip.tp.reassembled.length",
                    "someip.tp.reassembled.length", 5000, "someip.tp.reassembled.data"},
        // A count in the middle of a message completes it.
        TrafficCase{"SOME/IP TP", 60, 0, 2882, 5, 28, 30, 10, "someip.tp.reassembled.length",
                    "someip.tp.reassembled.length", 2882, "someip.tp.reassembled.data"},
        // A message that fits one frame goes without TP.
        TrafficCase{"SOME/IP TP", 60, 0, 1000, 4, 20, 20, 20, "someip && !someip.tp", "someip.length", 1008,
                    "someip.payload"}));

class EthPrinterLines : public ComponentTest {};

TEST_F(EthPrinterLines, TellWhatEachFrameCarries)
{
    Make("EthGenerator", "gen");
    Set("gen.traffic", "SOME/IP TP");
    Set("gen.message_size", "3000");
    Set("gen.count", "3");
    Set("gen.frames_per_element", "3");
    Set("gen.first_timestamp", std::to_string(kFirst));
    Make("EthPrinter", "printer");
    const std::string printed = m_folder + "/printed.txt";
    Set("printer.file", printed);
    Set("printer.element_info", "true");
    Connect("gen.oEth", "printer.iEth");
    Run();
    ASSERT_TRUE(Eventually([&] { return Figure("printer.printed") == 3; }));
    Shutdown();
    std::ifstream file(printed);
    std::string line;
    const char* const expected[] = {
        "(1700000000.000000) 02:00:00:00:00:01 > 02:00:00:00:00:02 [1502] IPv4 10.0.0.1:30501 > 10.0.0.2:30501 "
        "UDP 1460 SOME/IP 0x12348001 session 1 type 0x22 TP 0+1440 more  elt=1700000000.000000 #0/3",
        "(1700000000.001000) 02:00:00:00:00:01 > 02:00:00:00:00:02 [1502] IPv4 10.0.0.1:30501 > 10.0.0.2:30501 "
        "UDP 1460 SOME/IP 0x12348001 session 1 type 0x22 TP 1440+1440 more  elt=1700000000.000000 #1/3",
        "(1700000000.002000) 02:00:00:00:00:01 > 02:00:00:00:00:02 [182] IPv4 10.0.0.1:30501 > 10.0.0.2:30501 "
        "UDP 140 SOME/IP 0x12348001 session 1 type 0x22 TP 2880+120  elt=1700000000.000000 #2/3"};
    for (const char* want : expected) {
        ASSERT_TRUE(std::getline(file, line));
        EXPECT_EQ(line, want);
    }
}

}  // namespace
