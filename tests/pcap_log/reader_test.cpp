// pcapng and pcap files built byte by byte: every block and option the
// reader knows, both byte orders, several sections, the SocketCAN layout,
// and each kind of bad input with its one message.
#include <gtest/gtest.h>

#include "CaptureTestSupport.h"

using namespace veldor::pcaplog;
using namespace pcaplog_test;
using veldor::canlog::CanFrame;

namespace {

const Bytes kEth = Hex("ffffffffffff 020000000001 0800 45");  // 15 bytes
const std::string kEthHex = "ffffffffffff0200000000010800" "45";

std::string Join(const std::vector<std::string>& lines)
{
    std::string all;
    for (const std::string& l : lines) all += l + "\n";
    return all;
}

// A small good file: an Ethernet interface and one packet on it.
Pcapng Good()
{
    Pcapng f;
    f.Section().Interface(kLinkTypeEthernet).Packet(0, 1, kEth);
    return f;
}

}  // namespace

TEST(PcapngReading, BlocksOptionsSectionsAndByteOrders)
{
    Pcapng f;
    f.Section(false)
        .Interface(kLinkTypeEthernet, {{2, "eth0"}, {3, "front camera"}, {9, Hex("09")}})
        .Interface(kLinkTypeSocketCan, {{2, std::string("can0\0", 5)}});  // microseconds
    const std::uint64_t otherAt = f.bytes.size();
    f.Interface(105, {{2, "wlan0"}})
        .Block(4, Hex("00000000"))  // name resolution
        .Packet(0, 1700000000123456789, kEth)
        .Packet(1, 1700000000123456, Hex("00000123 02000000 0102 000000000000"))
        .Packet(2, 5, kEth)
        .Packet(0, 1700000000123456790, kEth, {{2, U32(2, false)}})  // outbound
        .Block(5, Hex("00000000 00000000 00000000"))                             // statistics
        .Section(true)
        .Interface(kLinkTypeEthernet, {{2, "eth1"}, {9, Hex("8a")}, {14, U64(1700000000, true)}}, 8)
        .Interface(kLinkTypeEthernet, {{9, Hex("03")}})
        .Packet(0, 1536, kEth)                                   // 1.5 s in 2^-10 s, after the offset
        .Packet(1, 2500, kEth, {{2, U32(2, true)}}, true)     // obsolete block, ms, outbound
        .Block(3, U32(15, true) + kEth.substr(0, 8))               // simple, cut to the snap length of 8
        .Block(0xBAD, "abcd")                                      // custom
        .Block(0x0A, Hex("00000000 00000000"));                    // decryption secrets

    const ReadOutcome r = ReadBytes(f.bytes);
    ASSERT_EQ(r.openError, "");
    EXPECT_EQ(Join(r.lines),
              "issue other link type @" + std::to_string(otherAt) +
                  ": interface 2 (wlan0) is link type 105, which is not played: its packets are left out\n"
                  "0 eth0 1700000000123456789 Rx 15/15 " + kEthHex + "\n"
                  "1 can0 1700000000123456000 Rx 16/16 00000123020000000102000000000000 "
                  "can 1700000000123456us id=123 len=2 ch=1 0102\n"
                  "0 eth0 1700000000123456790 Tx 15/15 " + kEthHex + "\n"
                  "3 eth1 1700000001500000000 Rx 15/15 " + kEthHex + "\n"
                  "4 - 2500000000 Tx 15/15 " + kEthHex + "\n"
                  "3 eth1 2500000000 Rx 8/15 ffffffffffff0200\n");
    EXPECT_EQ(r.blocksSkipped, 4u);
    EXPECT_EQ(r.leftOut, 1u);
    ASSERT_EQ(r.interfaces.size(), 5u);
    EXPECT_EQ(r.interfaces[0].description, "front camera");
    EXPECT_EQ(r.format, CaptureFormat::Pcapng);
}

TEST(PcapReading, BothPrecisionsAndByteOrdersThroughLibpcap)
{
    for (bool nano : {false, true}) {
        for (bool big : {false, true}) {
            const ReadOutcome r = ReadBytes(PcapFile(kLinkTypeEthernet, {{1700000000123456789, kEth}}, nano, big));
            ASSERT_EQ(r.openError, "");
            const std::string time = nano ? "1700000000123456789" : "1700000000123456000";
            EXPECT_EQ(Join(r.lines), "0 - " + time + " Rx 15/15 " + kEthHex + "\n") << nano << big;
        }
    }
}

TEST(SocketCan, RecordsAsWiresharkReadsThem)
{
    const struct {
        Bytes record;
        CanRecord result;
        std::string frame;  // Describe(), or the reason
    } cases[] = {
        {Hex("00000123 02000000 0102000000000000"), CanRecord::Frame, "can 0us id=123 len=2 ch=0 0102"},
        {Hex("9abcdef0 01000000 aa"), CanRecord::Frame, "can 0us id=1abcdef0x len=1 ch=0 aa"},
        {Hex("400007ff 04000000"), CanRecord::Frame, "can 0us id=7ff remote len=4 ch=0"},
        // FD by the FD flag, also at a length classic frames have.
        {Hex("00000456 0c050000 000102030405060708090a0b"), CanRecord::Frame,
         "can 0us id=456 fd brs len=12 ch=0 000102030405060708090a0b"},
        {Hex("00000456 04060000 00010203"), CanRecord::Frame, "can 0us id=456 fd esi len=4 ch=0 00010203"},
        // Without the flag a length above 8 is no classic frame, unless the
        // record has the 72 bytes of an FD frame, as older captures do.
        {Hex("00000456 0c010000 000102030405060708090a0b"), CanRecord::Invalid, "a classic frame longer than 8 bytes"},
        {Hex("00000456 0c000000") + Bytes(64, 0x11), CanRecord::Frame, "can 0us id=456 fd len=12 ch=0 " + std::string(24, '1')},
        // The error class in the identifier's bits, the details in the data.
        {Hex("20000004 08000000 0000080000000000"), CanRecord::ErrorFrame, "can 0us id=4 error len=8 ch=0 0000080000000000"},
        {Hex("a0000024 08000000 0000"), CanRecord::ErrorFrame, "can 0us id=24 error len=2 ch=0 0000"},
        {Hex("00000800 00000000"), CanRecord::Invalid, "a standard identifier above 0x7FF"},
        {Hex("40000456 04040000"), CanRecord::Invalid, "a remote frame marked FD"},
        {Hex("00000456 0d040000 00"), CanRecord::Invalid, "a length not in the FD length table"},
        {Hex("00000123 08000000 0102"), CanRecord::Invalid, "fewer data bytes captured than its length"},
        {Hex("00000123 080000"), CanRecord::Invalid, "shorter than the 8 bytes of its header"},
        {Hex("00000123 80000000"), CanRecord::Invalid, "a CAN XL frame, which is not played"},
    };
    for (const auto& c : cases) {
        CanFrame frame;
        const char* why = "";
        const auto* bytes = reinterpret_cast<const std::uint8_t*>(c.record.data());
        const CanRecord result = DecodeSocketCan(bytes, c.record.size(), frame, &why);
        EXPECT_EQ(result, c.result) << c.frame;
        EXPECT_EQ(result == CanRecord::Invalid ? why : Describe(frame), c.frame);
    }
}

TEST(CaptureReading, BadInputGetsOneMessage)
{
    struct Case {
        const char* name;
        Bytes bytes;
        std::string expected;  // in the open's error ("open: ...") or in the lines
        std::size_t packets;
    };
    const auto plus = [](Pcapng f, const Bytes& more) { return f.bytes + more; };
    const std::string end = "@" + std::to_string(Good().bytes.size()) + ": ";
    Pcapng badTrailer = Good();
    badTrailer.Packet(0, 2, kEth);
    badTrailer.bytes[badTrailer.bytes.size() - 4] = 0x34;
    Pcapng badMagic;
    badMagic.Block(0x0A0D0D0A, Hex("4d3c2b2a 01000000 ffffffffffffffff"));
    const Case cases[] = {
        {"empty", "", "open: mem is empty", 0},
        {"no capture", "hello world", "open: mem: neither pcap nor pcapng: it begins with the bytes 68 65 6C 6C", 0},
        {"three bytes", Hex("0a0d0d"), "open: mem: neither pcap nor pcapng: it begins with the bytes 0A 0D 0D", 0},
        {"no interface", Pcapng().Section().bytes, "open: mem: no interface to play: the file declares none", 0},
        {"other link type", Pcapng().Section().Interface(105).Packet(0, 1, kEth).bytes,
         "open: mem: no interface to play: interface 0 is link type 105; only Ethernet and SocketCAN are played", 0},
        {"pcap of another link type", PcapFile(105, {{1, kEth}}),
         "open: mem: no interface to play: interface 0 is link type 105", 0},
        {"byte-order magic", badMagic.bytes, "open: mem, byte 0: section header with the byte-order magic 0x2A2B3C4D",
         0},
        {"version", Pcapng().Section(false, 2).bytes,
         "open: mem, byte 0: pcapng version 2.0, which this reader cannot read", 0},
        {"block cut", plus(Good(), Good().Packet(0, 2, kEth).bytes.substr(Good().bytes.size(), 20)),
         "issue truncated final " + end + "the file ends inside a block of 48 bytes (20 are there)", 1},
        {"header cut", plus(Good(), Hex("0600000030")),
         "issue truncated final " + end + "the file ends inside a block header", 1},
        {"trailer", badTrailer.bytes,
         "issue bad block final " + end + "block of type 0x6 is 48 bytes long at its start but 52 at its end", 1},
        {"length not a multiple of 4", plus(Good(), Hex("06000000 1e000000") + Bytes(22, '\0')),
         "issue bad block final " + end + "block length 30 is not a multiple of 4", 1},
        {"length too short", plus(Good(), Hex("06000000 08000000")),
         "issue bad block final " + end + "block length 8 is shorter than a block's 12 bytes", 1},
        {"length too long", plus(Good(), Hex("06000000 00000010")),
         "issue bad block final " + end + "block length 268435456 is above the 16 MiB a block may have", 1},
        {"interface without block", Good().Packet(3, 2, kEth).Packet(0, 3, kEth).bytes,
         "issue unknown interface " + end + "packet of interface 3, but its section declares 1 interface", 2},
        {"captured length past its block",
         Good().Block(6, U64(0, false) + U32(2, false) + U64(256 * 0x100000001ull, false))
             .Packet(0, 3, kEth)
             .bytes,
         "issue bad packet " + end + "captured length 256 runs past its block of 32 bytes", 2},
        {"time beyond 64 bits", Good().Interface(1, {{9, Hex("00")}}).Packet(1, 1ull << 40, kEth).bytes,
         "the packet's time is beyond what 64 bits of nanoseconds hold", 1},
        {"pcap cut", PcapFile(1, {{1, kEth}, {2, kEth}}).substr(0, 24 + 2 * 31 - 10),
         "issue truncated final @55: truncated dump file; tried to read 15 captured bytes, only got 5", 1},
        {"pcap header cut", PcapFile(1, {}).substr(0, 20),
         "open: mem: truncated dump file; tried to read 24 file header bytes", 0},
    };
    for (const Case& c : cases) {
        const ReadOutcome r = ReadBytes(c.bytes);
        const std::string got = r.openError.empty() ? Join(r.lines) : "open: " + r.openError;
        EXPECT_NE(got.find(c.expected), std::string::npos) << c.name << ":\n" << got;
        EXPECT_EQ(r.packets.size(), c.packets) << c.name << ":\n" << got;
    }

    // An option that runs past its block is told, the interface kept.
    Pcapng f = Good();
    const std::size_t at = f.bytes.size();
    f.Block(1, Hex("0100 0000 00000000") + U16(2, false) + U16(100, false) + "eth1");
    f.Packet(1, 5, kEth);
    const ReadOutcome r = ReadBytes(f.bytes);
    EXPECT_EQ(Join(r.lines), "0 - 1000 Rx 15/15 " + kEthHex + "\nissue bad option @" + std::to_string(at + 16) +
                                 ": option 2 of 100 bytes runs past the end of its interface block\n1 - 5000 Rx 15/15 " +
                                 kEthHex + "\n");
}

TEST(CaptureReading, FilesByTheirContentWhateverTheirName)
{
    canlog_test::ScratchDir dir;
    WriteFile(dir.File("ng.pcap"), Good().bytes);
    WriteFile(dir.File("classic.pcapng"), PcapFile(1, {{7, kEth}}));
    EXPECT_EQ(ReadAll(dir.File("ng.pcap")).format, CaptureFormat::Pcapng);
    EXPECT_EQ(ReadAll(dir.File("ng.pcap")).packets.size(), 1u);
    EXPECT_EQ(ReadAll(dir.File("classic.pcapng")).format, CaptureFormat::Pcap);
    EXPECT_EQ(ReadAll(dir.File("classic.pcapng")).packets.size(), 1u);
    EXPECT_EQ(ReadAll(dir.File("none.pcap")).openError,
              "cannot open " + dir.File("none.pcap") + ": No such file or directory");
    WriteFile(dir.File("empty.pcapng"), "");
    EXPECT_EQ(ReadAll(dir.File("empty.pcapng")).openError, dir.File("empty.pcapng") + " is empty");
}
