// What the stage needs to know of a frame: whether it belongs to a group
// (an IPv4 datagram in fragments, a SOME/IP TP message in segments, a TCP
// connection direction), which one, and where its part lies.
#pragma once

#include <cstdint>
#include <cstring>

#include "NxDRPreProcessing.h"

namespace nxdrpp {

enum class FrameKind : uint8_t { Plain, IpFragment, TpSegment, TcpSegment };

// The identity of a group, 32 bytes with no padding, compared and hashed
// as four words. Fields that a kind does not use stay 0.
struct GroupKey {
    uint32_t source = 0;
    uint32_t destination = 0;
    uint32_t messageId = 0;       // SOME/IP message ID
    uint16_t sourcePort = 0;
    uint16_t destinationPort = 0;
    uint16_t identification = 0;  // IPv4 identification, SOME/IP client ID
    uint16_t vlan[2] = {0, 0};     // VLAN IDs, outer first
    FrameKind kind = FrameKind::Plain;
    uint8_t protocol = 0;          // IPv4 protocol, SOME/IP message type without TP
    uint8_t vlanCount = 0;
    uint8_t interfaceVersion = 0;  // SOME/IP
    uint16_t session = 0;          // SOME/IP session ID
    uint8_t unused[4] = {0, 0, 0, 0};

    bool operator==(const GroupKey& other) const { return std::memcmp(this, &other, sizeof *this) == 0; }
};
static_assert(sizeof(GroupKey) == 32, "GroupKey has no padding");

struct GroupKeyHash {
    size_t operator()(const GroupKey& key) const noexcept
    {
        uint64_t w[4];
        std::memcpy(w, &key, sizeof w);
        uint64_t h = w[0] * 0x9E3779B97F4A7C15ull;
        h = (h ^ (h >> 29) ^ w[1]) * 0xBF58476D1CE4E5B9ull;
        h = (h ^ (h >> 31) ^ w[2]) * 0x94D049BB133111EBull;
        h = (h ^ (h >> 29) ^ w[3]) * 0x9E3779B97F4A7C15ull;
        return static_cast<size_t>(h ^ (h >> 32));
    }
};

constexpr uint8_t kTcpFin = 0x01;
constexpr uint8_t kTcpSyn = 0x02;

struct FrameInfo {
    FrameKind kind = FrameKind::Plain;
    GroupKey key;
    uint32_t position = 0;       // byte offset of a fragment or segment; TCP sequence number
    uint32_t payloadOffset = 0;  // from the start of the record
    uint32_t payloadLength = 0;
    bool more = false;           // IPv4 MF, SOME/IP TP more segments
    uint8_t tcpFlags = 0;        // kTcpSyn | kTcpFin
};

// Looks into the frame of a valid record (head included) for what
// `protocol` groups. Anything it does not recognise, or that is cut short,
// is Plain.
FrameInfo ParseRecord(const uint8_t* record, NxDRPPProtocolType protocol);

}  // namespace nxdrpp
