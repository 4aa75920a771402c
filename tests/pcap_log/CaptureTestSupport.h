// Helpers of the capture file tests: files built byte by byte (either byte
// order, blocks as wrong as a test wants them), a file read whole into lines
// that a test compares, a drive of Ethernet and CAN packets to write, and
// the tools of the field run on files.
#ifndef VELDOR_TESTS_PCAP_LOG_SUPPORT_H
#define VELDOR_TESTS_PCAP_LOG_SUPPORT_H

#include <cstdint>
#include <string>
#include <vector>

#include "LogTestSupport.h"
#include "pcap_log/PacketReader.h"
#include "pcap_log/PacketWriter.h"

namespace pcaplog_test {

using Bytes = std::string;

using canlog_test::Describe;
using canlog_test::Have;
using canlog_test::Hex;
using canlog_test::RunTool;
using canlog_test::ToHex;
using canlog_test::U16;
using canlog_test::U32;
using canlog_test::U64;

// A pcapng file in the making; a section header sets the byte order.
struct Pcapng {
    struct Option {
        std::uint16_t code;
        Bytes value;
    };
    Pcapng& Section(bool bigEndian = false, std::uint16_t major = 1);
    Pcapng& Interface(std::uint16_t linkType, std::vector<Option> options = {}, std::uint32_t snapLength = 0);
    // Enhanced packet blocks, or obsolete ones (a 16-bit interface number).
    Pcapng& Packet(std::uint32_t interface, std::uint64_t ticks, const Bytes& data, std::vector<Option> options = {},
                   bool obsolete = false);
    Pcapng& Block(std::uint32_t type, const Bytes& body);  // lengths as they should be

    Bytes bytes;
    bool big = false;
};

// A pcap file: micro- or nanoseconds, either byte order.
Bytes PcapFile(std::uint32_t linkType, const std::vector<std::pair<std::uint64_t, Bytes>>& packets,
               bool nanoseconds = false, bool bigEndian = false);

// What a reader gives for a file: a line per packet
//   "<interface> <name or -> <ns> <Rx|Tx> <captured>/<original> <hex>[ <Describe(CAN frame)>]"
// and a line per issue: "issue <kind>[ final] @<offset>: <message>".
struct ReadOutcome {
    std::string openError;
    std::vector<std::string> lines;
    std::vector<veldor::pcaplog::Packet> packets;  // their bytes in `data`
    std::vector<Bytes> data;
    std::vector<veldor::pcaplog::Interface> interfaces;
    std::uint64_t blocksSkipped = 0, leftOut = 0, errorFrames = 0;
    veldor::pcaplog::CaptureFormat format = veldor::pcaplog::CaptureFormat::Pcap;
};
ReadOutcome ReadAll(const std::string& path,
                    const veldor::pcaplog::ReaderOptions& options = veldor::pcaplog::ReaderOptions());
ReadOutcome ReadBytes(const Bytes& bytes);
// "<ns> <hex>" a packet: what two files hold alike whatever their format.
std::vector<std::string> TimesAndBytes(const ReadOutcome& outcome);

void WriteFile(const std::string& path, const Bytes& bytes);
veldor::pcaplog::Interface Named(std::string name, std::uint16_t linkType = veldor::pcaplog::kLinkTypeEthernet);

// A drive on two Ethernet ports and two CAN channels, or on one port: frames
// from 14 bytes to jumbo at nanosecond times, some sent, CAN frames of every
// kind.
struct Drive {
    std::vector<veldor::pcaplog::Interface> interfaces;
    std::vector<veldor::pcaplog::Packet> packets;  // the CAN ones with their frame
    std::vector<Bytes> data;
};
Drive MakeDrive(bool multiBus, std::size_t count);
// Fail the test if a packet is not written.
void WriteDrive(veldor::pcaplog::PacketWriter& writer, const Drive& drive);
void WriteDriveFile(const std::string& path, const Drive& drive,
                    const veldor::pcaplog::WriterOptions& options = veldor::pcaplog::WriterOptions());

}  // namespace pcaplog_test

#endif
