// What capture files hold: interfaces, and packets on them. An interface is
// one bus as the file declares it (an Ethernet port, a CAN channel); a packet
// is one frame captured on it, with its time to the nanosecond.
#ifndef VELDOR_PCAP_LOG_PACKET_H
#define VELDOR_PCAP_LOG_PACKET_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "can_log/CanFrame.h"

namespace veldor::pcaplog {

// The link types of the capture file formats (the LINKTYPE_ values).
constexpr std::uint16_t kLinkTypeEthernet = 1;
// A CAN or CAN FD frame as Linux lays it out: the 4-byte identifier in
// network byte order with the EFF, RTR and ERR flags, the payload length,
// the FD flags, two reserved bytes, the payload.
constexpr std::uint16_t kLinkTypeSocketCan = 227;

enum class LinkKind { Ethernet, Can, Other };

LinkKind KindOf(std::uint16_t linkType);
// "Ethernet", "SocketCAN", else "link type <n>".
std::string LinkTypeName(std::uint16_t linkType);

// The largest frame a writer of this library lets through by default, and
// the snap length it declares: libpcap's own maximum.
constexpr std::uint32_t kDefaultSnapLength = 262144;

struct Interface {
    // Counted from 0 over the whole file, in the order of the interface
    // blocks (a pcapng file with several sections numbers on); a pcap file
    // has interface 0 only. Writers number the interfaces they are given.
    std::uint32_t index = 0;
    std::uint16_t linkType = kLinkTypeEthernet;
    // Frames are cut to this many bytes; 0 is no limit.
    std::uint32_t snapLength = kDefaultSnapLength;
    std::string name;         // pcapng if_name; empty when the file has none
    std::string description;  // pcapng if_description

    LinkKind Kind() const { return KindOf(linkType); }
};

// One captured frame. A reader's packet points into the reader's buffer and
// holds until its next call.
struct Packet {
    std::uint32_t interface = 0;
    // Nanoseconds since the epoch, as recorded.
    std::int64_t time = 0;
    std::uint32_t capturedLength = 0;  // bytes at `data`
    std::uint32_t originalLength = 0;  // bytes on the wire
    const std::uint8_t* data = nullptr;
    // From the pcapng packet flags; Rx where a file does not say.
    canlog::Direction direction = canlog::Direction::Rx;
    // Readers: on a CAN interface, the frame the bytes hold, with its time
    // in microseconds (rounded down), its channel the interface's index (255
    // for any above) and the packet's direction.
    canlog::CanFrame canFrame;
};

// A SocketCAN record of a CAN interface read into a frame.
enum class CanRecord {
    Frame,
    // An error frame (the ERR flag): the frame, with `error` set, holds the
    // error class bits as its identifier and the record's data bytes (up
    // to 8) with their length.
    ErrorFrame,
    Invalid,  // `why` says what is wrong
};

// Reads the record at `bytes`. FD frames carry the FD flag (0x04, as
// Wireshark wants it); a 72-byte record without it whose length only FD
// allows is taken for FD too, as older Linux captures hold them. Sets
// identifier, flags, length and data; the caller sets time and channel.
CanRecord DecodeSocketCan(const std::uint8_t* bytes, std::size_t size, canlog::CanFrame& frame, const char** why);

// The record of Linux: 16 bytes for a classic frame or an error frame (the
// ERR flag on its error class bits), 72 for an FD frame (with the FD flag
// set); the payload padded with zeros. Precondition: the frame passes
// canlog::CheckFrame.
constexpr std::size_t kSocketCanClassicSize = 16;
constexpr std::size_t kSocketCanFdSize = 72;
std::size_t EncodeSocketCan(const canlog::CanFrame& frame, std::uint8_t (&out)[kSocketCanFdSize]);

}  // namespace veldor::pcaplog

#endif
