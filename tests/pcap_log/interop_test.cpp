// Against the tools of the field, on files made here at run time: tcpdump
// copies our pcap and reads our pcapng; mergecap and editcap make pcapng
// files of several interfaces that we read; tshark reads our multi-bus files
// packet for packet and decodes our CAN interfaces as CAN; scapy's captures
// come through unchanged.
#include <gtest/gtest.h>

#include <sstream>

#include "CaptureTestSupport.h"

using namespace veldor::pcaplog;
using namespace pcaplog_test;

namespace {

class ToolInterop : public ::testing::Test {
protected:
    void SetUp() override
    {
        for (const char* tool : {"tcpdump", "tshark", "mergecap", "editcap"}) {
            if (!Have(tool)) GTEST_SKIP() << tool << " is not installed (make setup installs it)";
        }
    }
    std::string File(const std::string& name) const { return m_dir.File(name); }

    canlog_test::ScratchDir m_dir;
};

std::string Seconds(std::int64_t nanoseconds)
{
    char text[32];
    std::snprintf(text, sizeof text, "%lld.%09lld", static_cast<long long>(nanoseconds / 1000000000),
                  static_cast<long long>(nanoseconds % 1000000000));
    return text;
}

}  // namespace

TEST_F(ToolInterop, TcpdumpCopiesOurFilesFrameForFrame)
{
    const Drive drive = MakeDrive(false, 2000);
    for (bool nano : {false, true}) {
        WriterOptions options;
        options.pcapNanoseconds = nano;
        WriteDriveFile(File("ours.pcap"), drive, options);
        RunTool("tcpdump -r " + File("ours.pcap") + " -w " + File("copy.pcap") +
            (nano ? " --time-stamp-precision=nano" : "") + " 2>/dev/null");
        const ReadOutcome ours = ReadAll(File("ours.pcap"));
        const ReadOutcome copy = ReadAll(File("copy.pcap"));
        ASSERT_EQ(copy.openError, "");
        EXPECT_EQ(copy.lines, ours.lines) << "nanoseconds: " << nano;
        EXPECT_EQ(copy.packets.size(), drive.packets.size());
    }
    // An Ethernet pcapng of ours, through libpcap's own pcapng reading.
    WriteDriveFile(File("ours.pcapng"), drive);
    RunTool("tcpdump -r " + File("ours.pcapng") + " -w " + File("copy.pcap") + " --time-stamp-precision=nano 2>/dev/null");
    EXPECT_EQ(TimesAndBytes(ReadAll(File("copy.pcap"))), TimesAndBytes(ReadAll(File("ours.pcapng"))));
}

TEST_F(ToolInterop, WiresharkToolsMakeMultiInterfaceFilesWeRead)
{
    // Three single-interface captures, an Ethernet port, a CAN channel and
    // another port, merged by time into one pcapng file of three interfaces.
    const Drive drive = MakeDrive(true, 1500);
    std::vector<Drive> single(3);
    WriterOptions nano;
    nano.pcapNanoseconds = true;
    std::string inputs;
    for (std::uint32_t i = 0; i < 3; ++i) {
        single[i].interfaces = {drive.interfaces[i]};
        for (std::size_t k = 0; k < drive.packets.size(); ++k) {
            if (drive.packets[k].interface != i) continue;
            single[i].packets.push_back(drive.packets[k]);
            single[i].packets.back().interface = 0;
            single[i].data.push_back(drive.data[k]);
        }
        WriteDriveFile(File("in" + std::to_string(i) + ".pcap"), single[i], nano);
        inputs += " " + File("in" + std::to_string(i) + ".pcap");
    }
    RunTool("mergecap -F pcapng -w " + File("merged.pcapng") + inputs);
    const ReadOutcome merged = ReadAll(File("merged.pcapng"));
    ASSERT_EQ(merged.openError, "");
    ASSERT_EQ(merged.interfaces.size(), 3u);
    EXPECT_EQ(merged.interfaces[1].linkType, kLinkTypeSocketCan);
    // Each interface's packets, in their order, with their nanoseconds.
    std::vector<std::vector<std::string>> perInterface(3);
    const std::vector<std::string> packets = TimesAndBytes(merged);
    for (std::size_t i = 0; i < packets.size(); ++i) perInterface.at(merged.packets[i].interface).push_back(packets[i]);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(perInterface[i], TimesAndBytes(ReadAll(File("in" + std::to_string(i) + ".pcap")))) << i;
    }
    EXPECT_EQ(merged.errorFrames + merged.leftOut + merged.blocksSkipped, 0u);

    // editcap turns a microsecond pcap into pcapng of microsecond resolution.
    WriteDriveFile(File("micro.pcap"), single[0]);
    RunTool("editcap -F pcapng " + File("micro.pcap") + " " + File("micro.pcapng"));
    const ReadOutcome micro = ReadAll(File("micro.pcapng"));
    EXPECT_EQ(micro.format, CaptureFormat::Pcapng);
    EXPECT_EQ(TimesAndBytes(micro), TimesAndBytes(ReadAll(File("micro.pcap"))));
}

TEST_F(ToolInterop, TsharkReadsOurMultiBusFilesAndDecodesCan)
{
    const Drive drive = MakeDrive(true, 3000);
    WriteDriveFile(File("drive.pcapng"), drive);
    const ReadOutcome ours = ReadAll(File("drive.pcapng"));

    // What tshark read, written again by it, is what we wrote: interfaces,
    // names, nanoseconds, bytes, directions.
    RunTool("tshark -r " + File("drive.pcapng") + " -w " + File("again.pcapng") + " 2>/dev/null");
    const ReadOutcome again = ReadAll(File("again.pcapng"));
    EXPECT_EQ(again.lines, ours.lines);

    // And its dissectors: CAN on the CAN interfaces, FD frames as CAN FD,
    // nothing of CAN on the Ethernet ones.
    const std::string fields = RunTool("tshark -r " + File("drive.pcapng") +
                                   " -T fields -E 'separator=;' -e frame.interface_id -e frame.time_epoch"
                                   " -e can.id -e can.flags.xtd -e can.len -e canfd.flags.brs 2>/dev/null");
    std::istringstream lines(fields);
    std::size_t i = 0;
    for (std::string line; std::getline(lines, line); ++i) {
        ASSERT_LT(i, drive.packets.size());
        const Packet& p = drive.packets[i];
        // Only FD frames have the bit rate switch.
        std::string expected = std::to_string(p.interface) + ";" + Seconds(p.time) + ";;;;";
        if (drive.interfaces[p.interface].Kind() == LinkKind::Can) {
            const auto& f = p.canFrame;
            expected = std::to_string(p.interface) + ";" + Seconds(p.time) + ";" + std::to_string(f.id) + ";" +
                       (f.extended ? "1" : "0") + ";" + std::to_string(f.length) + ";" +
                       (f.fd ? (f.bitRateSwitch ? "1" : "0") : "");
        }
        EXPECT_EQ(line, expected) << "packet " << i;
    }
    EXPECT_EQ(i, drive.packets.size());

    // An error frame of ours is one to it too (0x24: controller problems, no acknowledgement).
    const auto error = canlog_test::AsError(canlog_test::Classic(1700000000000000, 0x24, {0, 0, 0, 0, 0, 0, 0, 0}));
    std::string why;
    std::unique_ptr<PacketWriter> writer = OpenPacketWriter(File("error.pcapng"), {Named("can0", kLinkTypeSocketCan)}, why);
    ASSERT_TRUE(writer && writer->Write(0, error) == WriteResult::Written && writer->Close()) << why;
    EXPECT_EQ(RunTool("tshark -r " + File("error.pcapng") + " -T fields -e can.flags.err -e can.len 2>/dev/null"), "1\t8\n");
}

TEST_F(ToolInterop, ScapyCapturesComeThroughUnchanged)
{
    if (std::system("/usr/bin/python3 -c 'import scapy' 2>/dev/null") != 0) GTEST_SKIP() << "no scapy";
    const std::string printed = RunTool("/usr/bin/python3 " VELDOR_SCAPY_SCRIPT " " + File("s.pcap") + " " +
                                    File("s.pcapng") + " 2>/dev/null");
    std::vector<std::string> expected;
    std::istringstream lines(printed);
    for (std::string us, hex; lines >> us >> hex;) expected.push_back(us + "000 " + hex);
    ASSERT_EQ(expected.size(), 5u);
    for (const char* name : {"s.pcap", "s.pcapng"}) {
        EXPECT_EQ(TimesAndBytes(ReadAll(File(name))), expected) << name;
    }
}
