#include "pcap_log/PacketReader.h"

namespace veldor::pcaplog {

namespace {

// Issues that nobody collects (those met at the open) are kept up to this
// many; a hostile file cannot make the reader hoard them.
constexpr std::size_t kMaxWaitingIssues = 64;

// Microseconds, rounded down also before the epoch.
std::int64_t Microseconds(std::int64_t nanoseconds)
{
    std::int64_t us = nanoseconds / 1000;
    if (nanoseconds % 1000 < 0) --us;
    return us;
}

}  // namespace

const char* IssueKindName(IssueKind kind)
{
    switch (kind) {
    case IssueKind::ReadFailed: return "read failed";
    case IssueKind::Truncated: return "truncated";
    case IssueKind::BadBlock: return "bad block";
    case IssueKind::BadOption: return "bad option";
    case IssueKind::UnknownInterface: return "unknown interface";
    case IssueKind::OtherLinkType: return "other link type";
    case IssueKind::BadTime: return "bad time";
    case IssueKind::BadPacket: return "bad packet";
    }
    return "?";
}

std::string ReadIssue::Describe() const { return file + ", byte " + std::to_string(offset) + ": " + message; }

PacketReader::~PacketReader() = default;

std::uint32_t PacketReader::AddInterface(Interface interface, std::uint64_t offset)
{
    interface.index = static_cast<std::uint32_t>(m_interfaces.size());
    const bool played = interface.Kind() != LinkKind::Other;
    if (!played) {
        std::string message = "interface " + std::to_string(interface.index);
        if (!interface.name.empty()) message += " (" + interface.name + ")";
        Tell(IssueKind::OtherLinkType, offset,
             message + " is " + LinkTypeName(interface.linkType) + ", which is not played: its packets are left out");
    }
    m_interfaces.push_back(std::move(interface));
    m_played.push_back(played);
    m_playedCount += played;
    return m_interfaces.back().index;
}

void PacketReader::Tell(IssueKind kind, std::uint64_t offset, std::string message, bool final)
{
    if (final) m_finished = true;
    if (!final && m_told.size() >= kMaxWaitingIssues) return;
    ReadIssue issue;
    issue.kind = kind;
    issue.final = final;
    issue.file = m_file;
    issue.offset = offset;
    issue.message = std::move(message);
    m_told.push_back(std::move(issue));
}

bool PacketReader::ReadToFirstPlayed(std::string& error)
{
    Packet unused;
    while (m_playedCount == 0 && !m_finished) {
        if (Fetch(unused) == Step::End) m_finished = true;
    }
    if (m_playedCount > 0) return true;
    for (const ReadIssue& issue : m_told) {
        if (issue.final) {
            error = issue.Describe();
            return false;
        }
    }
    error = m_file + ": no interface to play: ";
    if (m_interfaces.empty()) {
        error += "the file declares none";
    } else {
        for (const Interface& i : m_interfaces) {
            error += (i.index == 0 ? "interface " : ", interface ") + std::to_string(i.index) + " is " +
                     LinkTypeName(i.linkType);
        }
        error += "; only Ethernet and SocketCAN are played";
    }
    return false;
}

ReadResult PacketReader::Next(Packet& packet)
{
    for (;;) {
        if (!m_told.empty()) {
            m_issue = std::move(m_told.front());
            m_told.pop_front();
            return ReadResult::Issue;
        }
        if (m_finished) return ReadResult::End;
        switch (Fetch(packet)) {
        case Step::Again: continue;
        case Step::End: m_finished = true; continue;
        case Step::Packet: break;
        }
        if (m_interfaces[packet.interface].Kind() == LinkKind::Can) {
            canlog::CanFrame& frame = packet.canFrame;
            const char* why = nullptr;
            switch (DecodeSocketCan(packet.data, packet.capturedLength, frame, &why)) {
            case CanRecord::Frame: break;
            case CanRecord::ErrorFrame:
                ++m_errorFrames;
                if (!m_options.errorFrames) continue;
                break;
            case CanRecord::Invalid:
                Tell(IssueKind::BadPacket, m_packetOffset, std::string("CAN record of interface ") +
                                                               std::to_string(packet.interface) + ": " + why);
                continue;
            }
            frame.timestamp = Microseconds(packet.time);
            frame.channel = static_cast<std::uint8_t>(packet.interface < 255 ? packet.interface : 255);
            frame.direction = packet.direction;
        }
        ++m_packetsRead;
        return ReadResult::Frame;
    }
}

}  // namespace veldor::pcaplog
