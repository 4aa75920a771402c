// Reader of pcap files, through libpcap: microsecond and nanosecond files
// in both byte orders, and the variants libpcap knows. Times come as
// nanoseconds whatever the file holds.
#ifndef VELDOR_PCAP_LOG_PCAP_READER_H
#define VELDOR_PCAP_LOG_PCAP_READER_H

#include <cstdio>
#include <memory>

#include "pcap_log/PacketReader.h"

typedef struct pcap pcap_t;

namespace veldor::pcaplog {

class PcapReader : public PacketReader {
public:
    // Takes the stream, positioned at the file's start, and closes it.
    // `magic` is the file's first 4 bytes as they read on this machine.
    static std::unique_ptr<PacketReader> Open(std::FILE* file, std::uint32_t magic, const std::string& name,
                                              std::string& error);
    ~PcapReader() override;

    CaptureFormat Format() const override { return CaptureFormat::Pcap; }
    bool Nanoseconds() const override { return m_nanoseconds; }

private:
    PcapReader(pcap_t* pcap, std::unique_ptr<char[]> buffer, std::uint32_t magic, const std::string& name);

    Step Fetch(Packet& packet) override;

    pcap_t* m_pcap;
    std::unique_ptr<char[]> m_buffer;  // of the stream, which libpcap closes
    bool m_nanoseconds;
    std::uint32_t m_recordHeaderSize;  // 16, or 24 in the old variant with more fields
    std::uint64_t m_offset = 24;       // of the next packet's header
};

// Whether a file that begins with `magic` (its first 4 bytes as they read
// on this machine) is a pcap file, and of which kind.
bool IsPcapMagic(std::uint32_t magic);

}  // namespace veldor::pcaplog

#endif
