#include "frame_parser.h"

#include "record.h"

namespace nxdrpp {
namespace {

uint16_t Be16(const uint8_t* p) { return static_cast<uint16_t>(p[0] << 8 | p[1]); }
uint32_t Be32(const uint8_t* p) { return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3]; }

constexpr uint16_t kEtherTypeIpv4 = 0x0800;
constexpr uint8_t kIpProtocolTcp = 6;
constexpr uint8_t kIpProtocolUdp = 17;
constexpr uint8_t kSomeIpTpFlag = 0x20;

bool IsVlanTag(uint16_t type) { return type == 0x8100 || type == 0x88A8 || type == 0x9100; }

}  // namespace

FrameInfo ParseRecord(const uint8_t* record, NxDRPPProtocolType protocol)
{
    FrameInfo info;
    if (protocol == NXDRPP_GENERIC)
        return info;
    const uint32_t type = ReadLe32(record + kFrameTypeOffset);
    uint32_t length = ReadLe32(record + kFrameLengthOffset);
    if (type == NXDRPP_FRAME_WITH_FCS && length >= 4)
        length -= 4;
    else if (type != NXDRPP_FRAME_WITHOUT_FCS)
        return info;
    const uint8_t* frame = record + NXDRPP_RECORD_FRAME_OFFSET;

    // Ethernet II, up to two VLAN tags.
    if (length < 14)
        return info;
    GroupKey key;
    uint32_t at = 12;
    uint16_t etherType = Be16(frame + at);
    at += 2;
    while (IsVlanTag(etherType)) {
        if (key.vlanCount == 2 || length < at + 4)
            return info;
        key.vlan[key.vlanCount++] = Be16(frame + at) & 0x0FFF;
        etherType = Be16(frame + at + 2);
        at += 4;
    }
    if (etherType != kEtherTypeIpv4 || length < at + 20)
        return info;

    // IPv4; bytes past its total length are padding.
    const uint8_t* ip = frame + at;
    const uint32_t headerLength = (ip[0] & 0x0Fu) * 4;
    const uint32_t totalLength = Be16(ip + 2);
    if ((ip[0] >> 4) != 4 || headerLength < 20 || totalLength < headerLength || length - at < totalLength)
        return info;
    const uint16_t fragmentField = Be16(ip + 6);
    const bool moreFragments = (fragmentField & 0x2000) != 0;
    const uint32_t fragmentOffset = (fragmentField & 0x1FFFu) * 8;
    key.protocol = ip[9];
    key.source = Be32(ip + 12);
    key.destination = Be32(ip + 16);
    const uint32_t payloadAt = at + headerLength;
    const uint32_t payloadLength = totalLength - headerLength;
    const bool fragment = moreFragments || fragmentOffset != 0;

    if (protocol == NXDRPP_UDP) {
        if (!fragment)
            return info;
        key.kind = FrameKind::IpFragment;
        key.identification = Be16(ip + 4);
        info.kind = FrameKind::IpFragment;
        info.position = fragmentOffset;
        info.more = moreFragments;
        info.payloadOffset = NXDRPP_RECORD_FRAME_OFFSET + payloadAt;
        info.payloadLength = payloadLength;
        info.key = key;
        return info;
    }
    if (fragment)
        return info;
    const uint8_t* l4 = frame + payloadAt;

    if (protocol == NXDRPP_SOMEIP) {
        if (key.protocol != kIpProtocolUdp || payloadLength < 8)
            return info;
        const uint32_t udpLength = Be16(l4 + 4);
        if (udpLength < 8 + 20 || udpLength > payloadLength)
            return info;
        const uint8_t* someIp = l4 + 8;
        const uint32_t messageLength = udpLength - 8;
        const uint8_t messageType = someIp[14];
        if (Be32(someIp + 4) != messageLength - 8 || someIp[12] != 1 || (messageType & kSomeIpTpFlag) == 0)
            return info;
        key.kind = FrameKind::TpSegment;
        key.sourcePort = Be16(l4);
        key.destinationPort = Be16(l4 + 2);
        key.messageId = Be32(someIp);
        key.identification = Be16(someIp + 8);
        key.session = Be16(someIp + 10);
        key.interfaceVersion = someIp[13];
        key.protocol = messageType & ~kSomeIpTpFlag;
        const uint32_t tp = Be32(someIp + 16);
        info.kind = FrameKind::TpSegment;
        info.key = key;
        info.position = tp & ~0xFu;
        info.more = (tp & 1u) != 0;
        info.payloadOffset = NXDRPP_RECORD_FRAME_OFFSET + payloadAt + 8 + 20;
        info.payloadLength = messageLength - 20;
        return info;
    }

    if (protocol == NXDRPP_TCP) {
        if (key.protocol != kIpProtocolTcp || payloadLength < 20)
            return info;
        const uint32_t dataOffset = (l4[12] >> 4) * 4u;
        if (dataOffset < 20 || dataOffset > payloadLength)
            return info;
        key.kind = FrameKind::TcpSegment;
        key.sourcePort = Be16(l4);
        key.destinationPort = Be16(l4 + 2);
        info.kind = FrameKind::TcpSegment;
        info.key = key;
        info.position = Be32(l4 + 4);
        info.tcpFlags = l4[13] & (kTcpSyn | kTcpFin);
        info.payloadOffset = NXDRPP_RECORD_FRAME_OFFSET + payloadAt + dataOffset;
        info.payloadLength = payloadLength - dataOffset;
    }
    return info;
}

}  // namespace nxdrpp
