#include "EthFrames.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>

namespace veldor_io {

const char* const kEthTraffic = "Ethernet|UDP|Fragmented UDP|SOME/IP TP";

namespace {

const std::uint8_t kDestination[6] = {0x02, 0x00, 0x00, 0x00, 0x00, 0x02};
const std::uint8_t kSource[6] = {0x02, 0x00, 0x00, 0x00, 0x00, 0x01};
const std::uint32_t kSourceIp = 0x0A000001;       // 10.0.0.1
const std::uint32_t kDestinationIp = 0x0A000002;  // 10.0.0.2
const std::uint16_t kEtherTypeIpv4 = 0x0800;
const std::uint16_t kEtherTypeVlan = 0x8100;
const std::uint8_t kUdp = 17;
const std::uint16_t kMoreFragments = 0x2000;
const std::uint8_t kSomeIpNotification = 0x02;
const std::uint8_t kSomeIpTpFlag = 0x20;
const std::uint16_t kSomeIpClient = 0x0001;

const std::uint32_t kEth = 14, kIp = 20, kUdpHeader = 8, kSomeIp = 16, kTp = 4;

void Put16(std::uint8_t* p, std::uint32_t v)
{
    p[0] = static_cast<std::uint8_t>(v >> 8);
    p[1] = static_cast<std::uint8_t>(v);
}
void Put32(std::uint8_t* p, std::uint32_t v)
{
    Put16(p, v >> 16);
    Put16(p + 2, v);
}
void PutLe32(std::uint8_t* p, std::uint32_t v) { std::memcpy(p, &v, 4); }  // x86-64 only, as the package
std::uint16_t Get16(const std::uint8_t* p) { return static_cast<std::uint16_t>(p[0] << 8 | p[1]); }
std::uint32_t Get32(const std::uint8_t* p) { return static_cast<std::uint32_t>(Get16(p)) << 16 | Get16(p + 2); }

int Clamp(int value, int low, int high) { return std::max(low, std::min(high, value)); }

// `total` bytes in pieces of at most `largest` (a multiple of `unit`); a
// last piece too short for a counter takes one unit from the first.
void Cut(std::uint32_t total, std::uint32_t largest, std::uint32_t unit, std::vector<std::uint32_t>& pieces,
         std::vector<std::uint32_t>& offsets)
{
    pieces.clear();
    for (std::uint32_t left = total; left > 0; left -= std::min(left, largest)) pieces.push_back(std::min(left, largest));
    if (pieces.size() > 1 && pieces.back() < 4) {
        pieces.front() -= unit;
        pieces.back() += unit;
    }
    offsets.assign(pieces.size(), 0);
    for (std::size_t i = 1; i < pieces.size(); ++i) offsets[i] = offsets[i - 1] + pieces[i - 1];
}

}  // namespace

EthTrafficMaker::EthTrafficMaker(const EthTrafficSettings& settings) : m_settings(settings)
{
    EthTrafficSettings& s = m_settings;
    s.traffic = Clamp(s.traffic, RawEthernet, SomeIpTp);
    s.frameSize = Clamp(s.frameSize, kMinFrameSize, kMaxFrameSize);
    s.frameSizeMax = Clamp(s.frameSizeMax, s.frameSize, kMaxFrameSize);
    s.mtu = Clamp(s.mtu, kMinMtu, kMaxMtu);
    s.messageSize = Clamp(s.messageSize, 8, 65507 - static_cast<int>(kSomeIp + kTp));

    // Headers: Ethernet, then IPv4, UDP and SOME/IP as far as the kind has them.
    m_template.assign(kEth + kIp + kUdpHeader + kSomeIp, 0);
    std::uint8_t* h = m_template.data();
    std::memcpy(h, kDestination, 6);
    std::memcpy(h + 6, kSource, 6);
    Put16(h + 12, s.traffic == RawEthernet ? kGeneratorEtherType : kEtherTypeIpv4);
    std::uint8_t* ip = h + kEth;
    ip[0] = 0x45;
    ip[8] = 64;  // TTL
    ip[9] = kUdp;
    Put32(ip + 12, kSourceIp);
    Put32(ip + 16, kDestinationIp);
    Put16(ip + kIp, s.udpPort);
    Put16(ip + kIp + 2, s.udpPort);
    std::uint8_t* someIp = ip + kIp + kUdpHeader;
    Put32(someIp, kSomeIpMessageId);
    someIp[12] = 1;  // protocol version
    someIp[13] = 1;  // interface version

    // The payload pattern, after the headers: the datagram's bytes for
    // fragmented UDP, the message's for SOME/IP, the frame's from byte 14
    // on for plain frames.
    std::uint32_t pattern = 0;
    switch (s.traffic) {
    case RawEthernet: pattern = static_cast<std::uint32_t>(s.frameSizeMax); break;
    case UdpTraffic: pattern = static_cast<std::uint32_t>(s.frameSizeMax) - (kEth + kIp + kUdpHeader); break;
    case FragmentedUdp:
        m_messageBytes = kUdpHeader + static_cast<std::uint32_t>(s.messageSize);
        pattern = m_messageBytes;
        Cut(m_messageBytes, (static_cast<std::uint32_t>(s.mtu) - kIp) / 8 * 8, 8, m_pieces, m_offsets);
        break;
    case SomeIpTp: {
        m_messageBytes = static_cast<std::uint32_t>(s.messageSize);
        pattern = m_messageBytes;
        const std::uint32_t room = static_cast<std::uint32_t>(s.mtu) - (kIp + kUdpHeader + kSomeIp);
        if (m_messageBytes <= room)
            Cut(m_messageBytes, m_messageBytes, 16, m_pieces, m_offsets);
        else
            Cut(m_messageBytes, (room - kTp) / 16 * 16, 16, m_pieces, m_offsets);
        break;
    }
    }
    const std::size_t headers = m_template.size();
    m_template.resize(headers + pattern);
    // Plain frames count from the frame's start, datagrams from their payload.
    const std::uint32_t first = s.traffic == RawEthernet ? kEth : s.traffic == FragmentedUdp ? 0u - kUdpHeader : 0u;
    for (std::uint32_t j = 0; j < pattern; ++j) m_template[headers + j] = static_cast<std::uint8_t>(first + j);
    if (s.traffic == FragmentedUdp) {
        // The datagram starts with its UDP header.
        std::uint8_t* udp = &m_template[headers];
        std::memcpy(udp, &m_template[kEth + kIp], 4);
        Put16(udp + 4, m_messageBytes);
        Put16(udp + 6, 0);  // no checksum
    }
}

std::uint32_t EthTrafficMaker::NextLength() const
{
    switch (m_settings.traffic) {
    case FragmentedUdp: return kEth + kIp + m_pieces[m_piece];
    case SomeIpTp: return kEth + kIp + kUdpHeader + kSomeIp + (m_pieces.size() > 1 ? kTp : 0) + m_pieces[m_piece];
    default: {
        const std::uint64_t span = static_cast<std::uint64_t>(m_settings.frameSizeMax - m_settings.frameSize) + 1;
        return static_cast<std::uint32_t>(m_settings.frameSize) + static_cast<std::uint32_t>(m_frame % span);
    }
    }
}

void EthTrafficMaker::WriteIpv4(std::uint8_t* ip, std::uint32_t totalLength, std::uint16_t id,
                                std::uint16_t fragment) const
{
    Put16(ip + 2, totalLength);
    Put16(ip + 4, id);
    Put16(ip + 6, fragment);
    Put16(ip + 10, 0);
    std::uint32_t sum = 0;
    for (int i = 0; i < 20; i += 2) sum += Get16(ip + i);
    while (sum >> 16) sum = (sum & 0xFFFF) + (sum >> 16);
    Put16(ip + 10, ~sum & 0xFFFF);
}

void EthTrafficMaker::WriteUdp(std::uint8_t* udp, std::uint32_t length) const
{
    Put16(udp + 4, length);
    Put16(udp + 6, 0);  // no checksum
}

void EthTrafficMaker::Next(std::uint8_t* frame, std::uint32_t counter)
{
    const std::uint32_t length = NextLength();
    const std::uint8_t* pattern = m_template.data() + kEth + kIp + kUdpHeader + kSomeIp;
    const std::uint32_t message = static_cast<std::uint32_t>(m_message);
    std::uint8_t* ip = frame + kEth;
    switch (m_settings.traffic) {
    case RawEthernet:
        std::memcpy(frame, m_template.data(), kEth);
        std::memcpy(frame + kEth, pattern, length - kEth);
        break;
    case UdpTraffic: {
        const std::uint32_t headers = kEth + kIp + kUdpHeader;
        std::memcpy(frame, m_template.data(), headers);
        WriteIpv4(ip, length - kEth, static_cast<std::uint16_t>(m_frame), 0);
        WriteUdp(ip + kIp, length - kEth - kIp);
        std::memcpy(frame + headers, pattern, length - headers);
        PutLe32(frame + headers, message);
        break;
    }
    case FragmentedUdp: {
        const std::uint32_t size = m_pieces[m_piece], offset = m_offsets[m_piece];
        const bool more = m_piece + 1 < m_pieces.size();
        std::memcpy(frame, m_template.data(), kEth + kIp);
        WriteIpv4(ip, kIp + size, static_cast<std::uint16_t>(m_message),
                  static_cast<std::uint16_t>((more ? kMoreFragments : 0) | offset / 8));
        std::memcpy(ip + kIp, pattern + offset, size);
        if (m_piece == 0) PutLe32(ip + kIp + kUdpHeader, message);
        break;
    }
    case SomeIpTp: {
        const std::uint32_t size = m_pieces[m_piece], offset = m_offsets[m_piece];
        const bool tp = m_pieces.size() > 1, more = m_piece + 1 < m_pieces.size();
        const std::uint32_t own = (tp ? kTp : 0) + size;
        std::memcpy(frame, m_template.data(), kEth + kIp + kUdpHeader + kSomeIp);
        WriteIpv4(ip, kIp + kUdpHeader + kSomeIp + own, static_cast<std::uint16_t>(m_frame), 0);
        WriteUdp(ip + kIp, kUdpHeader + kSomeIp + own);
        std::uint8_t* someIp = ip + kIp + kUdpHeader;
        Put32(someIp + 4, 8 + own);
        Put16(someIp + 8, kSomeIpClient);
        Put16(someIp + 10, static_cast<std::uint32_t>(m_message % 0xFFFF) + 1);  // session 0 means none
        someIp[14] = static_cast<std::uint8_t>(kSomeIpNotification | (tp ? kSomeIpTpFlag : 0));
        std::uint8_t* data = someIp + kSomeIp;
        if (tp) {
            Put32(data, offset | (more ? 1u : 0u));  // offset in units of 16 bytes, in the upper 28 bits
            data += kTp;
        }
        std::memcpy(data, pattern + offset, size);
        if (m_piece == 0) PutLe32(data, message);
        break;
    }
    }
    PutLe32(frame + length - 4, counter);

    ++m_frame;
    if (m_settings.traffic == FragmentedUdp || m_settings.traffic == SomeIpTp) {
        if (++m_piece == m_pieces.size()) {
            m_piece = 0;
            ++m_message;
        }
    } else {
        ++m_message;
    }
}

EthView ViewOfFrame(const std::uint8_t* frame, std::uint32_t caplen, std::uint32_t len)
{
    EthView v;
    v.frame = frame;
    v.caplen = caplen;
    v.len = len;
    v.end = caplen;
    if (caplen < kEth) return v;
    std::uint32_t at = kEth;
    v.etherType = Get16(frame + 12);
    if (v.etherType == kEtherTypeVlan && caplen >= kEth + 4) {
        v.etherType = Get16(frame + 16);
        at += 4;
    }
    v.payload = at;
    if (v.etherType != kEtherTypeIpv4 || caplen < at + kIp || frame[at] >> 4 != 4) return v;
    const std::uint8_t* ip = frame + at;
    const std::uint32_t ihl = (ip[0] & 0x0F) * 4u, total = Get16(ip + 2);
    if (ihl < kIp || total < ihl || caplen < at + ihl) return v;
    v.ipv4 = true;
    v.end = std::min(at + total, caplen);
    v.ipId = Get16(ip + 4);
    v.moreFragments = (Get16(ip + 6) & kMoreFragments) != 0;
    v.fragmentOffset = (Get16(ip + 6) & 0x1FFFu) * 8;
    v.protocol = ip[9];
    v.srcIp = Get32(ip + 12);
    v.dstIp = Get32(ip + 16);
    v.ipData = v.payload = at + ihl;
    if (v.protocol != kUdp || v.fragmentOffset != 0 || v.end < v.ipData + kUdpHeader) return v;
    const std::uint8_t* udp = frame + v.ipData;
    v.udp = true;
    v.srcPort = Get16(udp);
    v.dstPort = Get16(udp + 2);
    v.udpLength = Get16(udp + 4);
    v.payload = v.ipData + kUdpHeader;
    const std::uint32_t s = v.payload;
    if (v.moreFragments || v.end < s + kSomeIp) return v;
    const std::uint8_t* someIp = frame + s;
    if (someIp[12] != 1 || Get32(someIp + 4) != v.end - s - 8) return v;
    v.someIp = true;
    v.messageId = Get32(someIp);
    v.requestId = Get32(someIp + 8);
    v.messageType = someIp[14];
    v.payload = s + kSomeIp;
    if ((v.messageType & kSomeIpTpFlag) && v.end >= v.payload + kTp) {
        const std::uint32_t word = Get32(frame + v.payload);
        v.tp = true;
        v.tpOffset = word & 0xFFFFFFF0u;
        v.tpMore = (word & 1) != 0;
        v.payload += kTp;
    }
    return v;
}

bool EthCounterOf(const EthView& view, std::uint32_t& counter)
{
    if (view.end < view.payload + 4 || view.end > view.caplen) return false;
    std::memcpy(&counter, view.frame + view.end - 4, 4);
    return true;
}

namespace {

std::string Mac(const std::uint8_t* p)
{
    char text[18];
    std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", p[0], p[1], p[2], p[3], p[4], p[5]);
    return text;
}

std::string Ip(std::uint32_t a, bool withPort, std::uint16_t port)
{
    char text[24];
    int n = std::snprintf(text, sizeof text, "%u.%u.%u.%u", a >> 24, (a >> 16) & 0xFF, (a >> 8) & 0xFF, a & 0xFF);
    if (withPort) std::snprintf(text + n, sizeof text - n, ":%u", port);
    return text;
}

}  // namespace

std::string FormatEthFrame(const EthView& v, int dumpBytes)
{
    char field[64];
    std::string line;
    if (v.caplen >= kEth) line = Mac(v.frame + 6) + " > " + Mac(v.frame) + " ";
    if (v.caplen == v.len)
        std::snprintf(field, sizeof field, "[%" PRIu32 "]", v.len);
    else
        std::snprintf(field, sizeof field, "[%" PRIu32 "/%" PRIu32 "]", v.caplen, v.len);
    line += field;
    if (!v.ipv4) {
        if (v.caplen >= kEth) {
            std::snprintf(field, sizeof field, " ethertype 0x%04X", v.etherType);
            line += field;
        }
    } else {
        line += " IPv4 " + Ip(v.srcIp, v.udp, v.srcPort) + " > " + Ip(v.dstIp, v.udp, v.dstPort);
        if (v.udp)
            std::snprintf(field, sizeof field, " UDP %u", v.udpLength >= kUdpHeader ? v.udpLength - kUdpHeader : 0);
        else
            std::snprintf(field, sizeof field, " proto %u", v.protocol);
        line += field;
        if (v.IsFragment()) {
            std::snprintf(field, sizeof field, " id %u frag %" PRIu32 "+%" PRIu32 "%s", v.ipId, v.fragmentOffset,
                          v.end - v.ipData, v.moreFragments ? " MF" : "");
            line += field;
        }
        if (v.someIp) {
            std::snprintf(field, sizeof field, " SOME/IP 0x%08" PRIX32 " session %" PRIu32 " type 0x%02X",
                          v.messageId, v.requestId & 0xFFFF, v.messageType);
            line += field;
            if (v.tp) {
                std::snprintf(field, sizeof field, " TP %" PRIu32 "+%" PRIu32 "%s", v.tpOffset, v.end - v.payload,
                              v.tpMore ? " more" : "");
                line += field;
            }
        }
    }
    const std::uint32_t dump = dumpBytes < 0 ? v.caplen : std::min<std::uint32_t>(v.caplen, static_cast<std::uint32_t>(dumpBytes));
    if (dump > 0) {
        static const char kHex[] = "0123456789ABCDEF";
        std::size_t at = line.size();
        line.resize(at + 2 + 3 * static_cast<std::size_t>(dump));
        line[at++] = ' ';
        line[at++] = '|';
        for (std::uint32_t i = 0; i < dump; ++i) {
            line[at++] = ' ';
            line[at++] = kHex[v.frame[i] >> 4];
            line[at++] = kHex[v.frame[i] & 0x0F];
        }
    }
    return line;
}

void MessageCheck::Break()
{
    ++m_broken;
    m_open = false;
}

void MessageCheck::Frame(const EthView& v)
{
    std::uint64_t key;
    std::uint32_t offset, size;
    bool last;
    if (v.IsFragment()) {
        key = 1ull << 32 | v.ipId;
        offset = v.fragmentOffset;
        size = v.end - v.ipData;
        last = !v.moreFragments;
    } else if (v.tp) {
        key = 2ull << 62 | static_cast<std::uint64_t>(v.messageId) << 32 | v.requestId;
        offset = v.tpOffset;
        size = v.end - v.payload;
        last = !v.tpMore;
    } else {
        if (!v.udp) return;
        if (m_open) Break();
        ++m_messages;
        return;
    }
    if (offset == 0) {
        if (m_open) Break();
        m_open = true;
        m_key = key;
        m_next = 0;
    } else if (key != m_key) {
        // A set that began without its first piece.
        if (m_open) Break();
        m_key = key;
        Break();
        return;
    } else if (!m_open) {
        return;  // the rest of a set already told broken
    }
    if (offset != m_next) {
        Break();
        return;
    }
    m_next += size;
    if (last) {
        ++m_messages;
        m_open = false;
    }
}

}  // namespace veldor_io
