// pcap through libpcap: the dumper writes into our stream, which we flush
// and close ourselves so that no failure goes unseen (libpcap's close
// reports none). libpcap's dumper is that stream and holds nothing else.
#include <pcap/pcap.h>

#include "CaptureStream.h"
#include "Writers.h"

namespace veldor::pcaplog {

namespace {

class PcapWriter : public PacketWriter {
public:
    PcapWriter(const Interface& interface, bool nanoseconds)
        : PacketWriter({interface}),
          m_nanoseconds(nanoseconds),
          m_pcap(pcap_open_dead_with_tstamp_precision(interface.linkType, static_cast<int>(interface.snapLength),
                                                       nanoseconds ? PCAP_TSTAMP_PRECISION_NANO
                                                                   : PCAP_TSTAMP_PRECISION_MICRO))
    {
    }
    ~PcapWriter() override
    {
        if (m_pcap != nullptr) pcap_close(m_pcap);
    }

    bool Open(const std::string& path, std::string& error)
    {
        if (m_pcap == nullptr) {
            error = "libpcap cannot make a capture of " + LinkTypeName(Interfaces()[0].linkType);
            return false;
        }
        if (!OpenFile(path, error)) return false;
        m_dumper = pcap_dump_fopen(m_pcap, Out().File());
        if (m_dumper == nullptr) {
            error = "cannot write " + path + ": " + pcap_geterr(m_pcap);
            return false;
        }
        return true;
    }

    CaptureFormat Format() const override { return CaptureFormat::Pcap; }

private:
    void Put(const Packet& packet) override
    {
        pcap_pkthdr header{};
        header.ts.tv_sec = packet.time / 1000000000;
        const std::int64_t fraction = packet.time % 1000000000;
        header.ts.tv_usec = m_nanoseconds ? fraction : fraction / 1000;
        header.caplen = packet.capturedLength;
        header.len = packet.originalLength != 0 ? packet.originalLength : packet.capturedLength;
        pcap_dump(reinterpret_cast<u_char*>(m_dumper), &header, packet.data);
    }

    // The file's seconds are 32 bits without sign.
    std::int64_t LatestTime() const override { return 0xFFFFFFFFll * 1000000000 + 999999999; }

    bool m_nanoseconds;
    pcap_t* m_pcap;
    pcap_dumper_t* m_dumper = nullptr;
};

}  // namespace

std::unique_ptr<PacketWriter> OpenPcapWriter(const std::string& path, const Interface& interface, bool nanoseconds,
                                             std::string& error)
{
    auto writer = std::make_unique<PcapWriter>(interface, nanoseconds);
    if (!writer->Open(path, error)) return nullptr;
    return writer;
}

}  // namespace veldor::pcaplog
