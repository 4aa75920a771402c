#include "PcapReader.h"

#include <pcap/pcap.h>

namespace veldor::pcaplog {

namespace {

constexpr std::uint32_t kMicroseconds = 0xA1B2C3D4;
constexpr std::uint32_t kNanoseconds = 0xA1B23C4D;
// An old variant of libpcap's own, with 8 more bytes in each record header.
constexpr std::uint32_t kModified = 0xA1B2CD34;

constexpr std::size_t kBufferSize = 1 << 20;

bool Is(std::uint32_t magic, std::uint32_t kind) { return magic == kind || magic == __builtin_bswap32(kind); }

}  // namespace

bool IsPcapMagic(std::uint32_t magic)
{
    return Is(magic, kMicroseconds) || Is(magic, kNanoseconds) || Is(magic, kModified);
}

PcapReader::PcapReader(pcap_t* pcap, std::unique_ptr<char[]> buffer, std::uint32_t magic, const std::string& name)
    : PacketReader(name),
      m_pcap(pcap),
      m_buffer(std::move(buffer)),
      m_nanoseconds(Is(magic, kNanoseconds)),
      m_recordHeaderSize(Is(magic, kModified) ? 24 : 16)
{
}

PcapReader::~PcapReader() { pcap_close(m_pcap); }

std::unique_ptr<PacketReader> PcapReader::Open(std::FILE* file, std::uint32_t magic, const std::string& name,
                                               std::string& error)
{
    // libpcap reads a record at a time, its header and then its bytes; a
    // large buffer makes that a read of the system now and then.
    std::unique_ptr<char[]> buffer(new char[kBufferSize]);
    std::setvbuf(file, buffer.get(), _IOFBF, kBufferSize);
    char message[PCAP_ERRBUF_SIZE] = "";
    pcap_t* pcap = pcap_fopen_offline_with_tstamp_precision(file, PCAP_TSTAMP_PRECISION_NANO, message);
    if (pcap == nullptr) {
        std::fclose(file);
        error = name + ": " + message;
        return nullptr;
    }
    std::unique_ptr<PcapReader> reader(new PcapReader(pcap, std::move(buffer), magic, name));
    Interface interface;
    interface.linkType = static_cast<std::uint16_t>(pcap_datalink(pcap));
    interface.snapLength = static_cast<std::uint32_t>(pcap_snapshot(pcap));
    reader->AddInterface(std::move(interface), 0);
    if (!reader->ReadToFirstPlayed(error)) return nullptr;
    return reader;
}

PacketReader::Step PcapReader::Fetch(Packet& packet)
{
    if (!Played(0)) return Step::End;  // the file has nothing more to declare
    pcap_pkthdr* header;
    const u_char* data;
    switch (pcap_next_ex(m_pcap, &header, &data)) {
    case 1: break;
    case PCAP_ERROR_BREAK: return Step::End;
    default: {
        // A file libpcap cannot read on: cut off, or a length it refuses.
        const std::string message = pcap_geterr(m_pcap);
        Tell(message.rfind("truncated", 0) == 0 ? IssueKind::Truncated : IssueKind::BadPacket, m_offset, message,
             true);
        return Step::End;
    }
    }
    // Opened for nanoseconds, libpcap gives them in the field named for
    // microseconds, whatever the file holds.
    packet.interface = 0;
    packet.time = static_cast<std::int64_t>(header->ts.tv_sec) * 1000000000 + header->ts.tv_usec;
    packet.capturedLength = header->caplen;
    packet.originalLength = header->len;
    packet.data = data;
    packet.direction = canlog::Direction::Rx;
    m_packetOffset = m_offset;
    m_offset += m_recordHeaderSize + header->caplen;
    return Step::Packet;
}

}  // namespace veldor::pcaplog
