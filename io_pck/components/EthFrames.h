// Ethernet frames as the io package's components make and read them.
//
// EthTrafficMaker builds the frames of an EthGenerator, one after the other,
// in place. Every frame ends with its frame counter, 4 bytes little-endian:
// the last 4 bytes of the IPv4 packet for IPv4 frames (so that padding a
// short frame on the wire changes nothing), of the frame otherwise. A
// message (a UDP datagram, a SOME/IP message) carries its message number in
// the first 4 bytes of its payload; the other payload bytes hold their
// offset in the payload, & 0xFF (for plain Ethernet frames, their offset in
// the frame). The traffic kinds:
//
//   Ethernet        frames of EtherType 0x88B5 (local experimental)
//   UDP             one IPv4/UDP datagram per frame
//   Fragmented UDP  datagrams of message_size payload bytes, cut into IPv4
//                   fragments that fit the MTU (offsets in units of 8 bytes,
//                   more-fragments flag on all but the last)
//   SOME/IP TP      SOME/IP notifications of message_size payload bytes, cut
//                   into TP segments that fit the MTU, each a UDP datagram of
//                   its own: message type 0x22 (TP flag 0x20), TP header with
//                   the offset in units of 16 bytes and the more-segments bit
//
// A message that fits one frame goes unfragmented (and, for SOME/IP, without
// TP). A last piece too short for the counter takes one unit from the first.
//
// EthView reads what the printer and the statistics need from a frame:
// Ethernet (one VLAN tag skipped), IPv4, UDP, and SOME/IP recognised by its
// header (protocol version 1 and a length that matches the datagram).
#ifndef VELDOR_IO_ETH_FRAMES_H
#define VELDOR_IO_ETH_FRAMES_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace veldor_io {

enum EthTraffic { RawEthernet = 0, UdpTraffic = 1, FragmentedUdp = 2, SomeIpTp = 3 };
// "Ethernet|UDP|Fragmented UDP|SOME/IP TP"
extern const char* const kEthTraffic;

const std::uint16_t kGeneratorEtherType = 0x88B5;
const std::uint32_t kSomeIpMessageId = 0x12348001;  // service 0x1234, event 0x8001
const int kMinFrameSize = 60;                        // the shortest Ethernet frame, without its FCS
const int kMaxFrameSize = 9018;
const int kMinMtu = 576;
const int kMaxMtu = 9000;

struct EthTrafficSettings {
    int traffic = RawEthernet;
    int frameSize = kMinFrameSize;     // Ethernet, UDP: the first frame's length
    int frameSizeMax = kMinFrameSize;  // and the longest: lengths sweep up one byte a frame, then start again
    int messageSize = 4000;            // fragmented kinds: payload bytes of a message
    int mtu = 1500;                    // fragmented kinds: the largest IPv4 packet
    std::uint16_t udpPort = 30501;     // source and destination
};

class EthTrafficMaker {
public:
    // Settings outside their ranges are brought into them.
    explicit EthTrafficMaker(const EthTrafficSettings& settings);

    // The length of the next frame.
    std::uint32_t NextLength() const;
    // Writes the next frame, NextLength() bytes, ending with `counter`.
    void Next(std::uint8_t* frame, std::uint32_t counter);
    // The next frame begins a message (always true for plain frames).
    bool AtMessageStart() const { return m_piece == 0; }
    // Messages begun so far.
    std::uint64_t Messages() const { return m_message; }
    const EthTrafficSettings& Settings() const { return m_settings; }

private:
    // The bytes of a message's own data in piece `i`, after the first one's
    // headers for fragments.
    std::uint32_t PieceSize(std::size_t i) const { return m_pieces[i]; }
    std::uint32_t PieceOffset(std::size_t i) const { return m_offsets[i]; }
    void WriteIpv4(std::uint8_t* ip, std::uint32_t totalLength, std::uint16_t id, std::uint16_t fragment) const;
    void WriteUdp(std::uint8_t* udp, std::uint32_t length) const;

    EthTrafficSettings m_settings;
    std::vector<std::uint8_t> m_template;  // headers and pattern of the kind
    std::vector<std::uint32_t> m_pieces;   // fragmented kinds: own data per frame
    std::vector<std::uint32_t> m_offsets;  // and its offset in the message
    std::uint32_t m_messageBytes = 0;      // what is cut into pieces
    std::size_t m_piece = 0;               // next piece of the message
    std::uint64_t m_message = 0;           // number of the message under way
    std::uint64_t m_frame = 0;             // frames made
};

struct EthView {
    std::uint32_t caplen = 0;
    std::uint32_t len = 0;
    const std::uint8_t* frame = nullptr;
    std::uint16_t etherType = 0;
    bool ipv4 = false;
    std::uint32_t srcIp = 0, dstIp = 0;
    std::uint16_t ipId = 0;
    std::uint8_t protocol = 0;
    std::uint32_t fragmentOffset = 0;  // bytes
    bool moreFragments = false;
    std::uint32_t ipData = 0;  // frame offset of the IPv4 payload
    bool udp = false;          // a UDP header is in this frame (unfragmented or first fragment)
    std::uint16_t srcPort = 0, dstPort = 0;
    std::uint32_t udpLength = 0;  // as the header says
    bool someIp = false;          // unfragmented SOME/IP
    std::uint32_t messageId = 0, requestId = 0;
    std::uint8_t messageType = 0;
    bool tp = false;
    std::uint32_t tpOffset = 0;  // bytes
    bool tpMore = false;
    std::uint32_t payload = 0;  // frame offset of this frame's own data (after every header it has)
    std::uint32_t end = 0;      // frame offset where its own data ends

    bool IsFragment() const { return ipv4 && (moreFragments || fragmentOffset > 0); }
};

EthView ViewOfFrame(const std::uint8_t* frame, std::uint32_t caplen, std::uint32_t len);
// The frame counter of a generator's frame; false when the frame is too
// short to hold one.
bool EthCounterOf(const EthView& view, std::uint32_t& counter);
// "<src> > <dst> [<len>] <what>", as told in EthPrinter.cpp, with the first
// `dumpBytes` bytes (all with -1) in hex after " |".
std::string FormatEthFrame(const EthView& view, int dumpBytes);

// Tells whole messages from broken ones in a stream of a generator's
// frames, where the pieces of a message come in order and one message at a
// time: an unfragmented datagram is a message; a fragment set or a TP
// segment set is one when its pieces follow each other without gap from
// offset 0 to the last piece; a set that breaks off or goes out of order is
// broken (counted once).
class MessageCheck {
public:
    void Frame(const EthView& view);
    std::int64_t Messages() const { return m_messages; }
    std::int64_t Broken() const { return m_broken; }

private:
    void Break();
    std::int64_t m_messages = 0;
    std::int64_t m_broken = 0;
    bool m_open = false;
    std::uint64_t m_key = 0;
    std::uint32_t m_next = 0;
};

}  // namespace veldor_io

#endif
