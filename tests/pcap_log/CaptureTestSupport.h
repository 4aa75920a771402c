// Helpers of the capture file tests: capture files built byte by byte (in
// either byte order, with blocks as wrong as a test wants them), a file read
// whole into lines that a test compares, and the tools of the field run on
// files.
#ifndef VELDOR_TESTS_PCAP_LOG_SUPPORT_H
#define VELDOR_TESTS_PCAP_LOG_SUPPORT_H

#include <cstdint>
#include <string>
#include <vector>

#include "pcap_log/PacketReader.h"
#include "pcap_log/PacketWriter.h"

namespace pcaplog_test {

using Bytes = std::string;

Bytes Hex(const std::string& hex);  // "0a 0b" or "0a0b"
std::string ToHex(const std::uint8_t* bytes, std::size_t size);

// A pcapng file in the making, in one byte order per section.
class Pcapng {
public:
    struct Option {
        std::uint16_t code;
        Bytes value;
    };

    Pcapng& Section(bool bigEndian = false, std::uint16_t major = 1);
    Pcapng& Interface(std::uint16_t linkType, std::vector<Option> options = {}, std::uint32_t snapLength = 0);
    Pcapng& Enhanced(std::uint32_t interface, std::uint64_t ticks, const Bytes& data, std::vector<Option> options = {});
    Pcapng& Obsolete(std::uint16_t interface, std::uint64_t ticks, const Bytes& data, std::vector<Option> options = {});
    Pcapng& Simple(std::uint32_t originalLength, const Bytes& data);
    // Any block; the lengths are written as they should be.
    Pcapng& Block(std::uint32_t type, const Bytes& body);
    Pcapng& Raw(const Bytes& bytes);

    static Bytes U16(std::uint16_t v, bool big);
    static Bytes U32(std::uint32_t v, bool big);
    static Bytes U64(std::uint64_t v, bool big);
    // Options, padded and ended, in the section's order.
    Bytes Options(const std::vector<Option>& options) const;
    bool BigEndian() const { return m_big; }

    Bytes bytes;

private:
    bool m_big = false;
};

// A pcap file: micro- or nanoseconds, either byte order.
Bytes PcapFile(std::uint32_t linkType, const std::vector<std::pair<std::uint64_t, Bytes>>& packets,
               bool nanoseconds = false, bool bigEndian = false);

// "can <us>us id=123[x][ remote][ fd][ brs][ esi] len=<n> ch=<n> <hex>"
std::string Describe(const veldor::canlog::CanFrame& frame);

// What a reader gives for a file: a line per packet
//   "<interface> <name> <ns> <Rx|Tx> <captured>/<original> <hex bytes>"
// with " <Describe(frame)>" on CAN interfaces, and a line per issue
//   "issue <kind>[ final] @<offset>: <message>".
struct ReadOutcome {
    std::string openError;
    std::vector<std::string> lines;
    std::vector<veldor::pcaplog::Packet> packets;  // their bytes in `data`
    std::vector<Bytes> data;
    std::vector<veldor::pcaplog::Interface> interfaces;
    std::uint64_t blocksSkipped = 0, leftOut = 0, errorFrames = 0;
    veldor::pcaplog::CaptureFormat format = veldor::pcaplog::CaptureFormat::Pcap;
};
ReadOutcome ReadAll(const std::string& path);
ReadOutcome ReadBytes(const Bytes& bytes);

// "<ns> <hex bytes>" of each packet: what two files hold alike whatever
// their format, names and directions.
std::vector<std::string> TimesAndBytes(const ReadOutcome& outcome);

void WriteFile(const std::string& path, const Bytes& bytes);

veldor::pcaplog::Interface Named(std::string name, std::uint16_t linkType = veldor::pcaplog::kLinkTypeEthernet);

// A drive on two Ethernet ports and two CAN channels, or on one port: frames
// of every length from 14 bytes to jumbo, at nanosecond times, some sent;
// CAN frames of every kind.
struct Drive {
    std::vector<veldor::pcaplog::Interface> interfaces;
    std::vector<veldor::pcaplog::Packet> packets;  // the CAN ones with their frame
    std::vector<Bytes> data;
};
Drive MakeDrive(bool multiBus, std::size_t count);
// Fails the test if a packet is not written.
void WriteDrive(veldor::pcaplog::PacketWriter& writer, const Drive& drive);
void WriteDriveFile(const std::string& path, const Drive& drive,
                    const veldor::pcaplog::WriterOptions& options = veldor::pcaplog::WriterOptions());

// Runs a shell command; its standard output (its errors go to the test's
// log), with the test failing when it ends badly.
std::string RunTool(const std::string& command);
// Whether a program is on this machine.
bool Have(const std::string& program);

}  // namespace pcaplog_test

#endif
