// Reader of pcapng files: sections in either byte order, one after the
// other; interface blocks with their name, description, time resolution
// (powers of 10 and of 2) and time offset; enhanced, simple and the
// obsolete packet blocks. Other blocks are skipped and counted.
//
// Every block is checked before it is read: its length at least the
// smallest the block type allows (12 for any), a multiple of 4, at most
// 16 MiB, and the same at its end as at its start. A length that fails ends
// the reading, since nothing tells where the next block begins; a block
// that is whole but wrong inside is told and skipped.
#ifndef VELDOR_PCAP_LOG_PCAPNG_READER_H
#define VELDOR_PCAP_LOG_PCAPNG_READER_H

#include <memory>

#include "ByteSource.h"
#include "pcap_log/PacketReader.h"

namespace veldor::pcaplog {

class PcapngReader : public PacketReader {
public:
    static constexpr std::uint32_t kMaxBlockLength = 16u << 20;
    static constexpr std::size_t kMaxInterfaces = 1u << 16;

    // Null if the file cannot be read up to its first played interface.
    static std::unique_ptr<PacketReader> Open(std::unique_ptr<ByteSource> source, const std::string& name,
                                              std::string& error);

    CaptureFormat Format() const override { return CaptureFormat::Pcapng; }
    bool Nanoseconds() const override { return true; }

private:
    // Ticks of an interface to nanoseconds since the epoch.
    struct Clock {
        std::uint64_t multiplier = 1000;  // 10^-6 s, the resolution when none is given
        std::uint64_t divisor = 1;
        int shift = -1;  // for a power of 2: ticks * 10^9 >> shift
        std::int64_t offsetSeconds = 0;

        bool ToNanoseconds(std::uint64_t ticks, std::int64_t& nanoseconds) const;
    };

    PcapngReader(std::unique_ptr<ByteSource> source, const std::string& name);

    Step Fetch(Packet& packet) override;
    Step SectionHeader(const std::uint8_t* block, std::uint32_t length, std::uint64_t at);
    Step InterfaceDescription(const std::uint8_t* block, std::uint32_t length, std::uint64_t at);
    // Enhanced and obsolete packet blocks, which differ in the width of the
    // interface number.
    Step TimedPacket(const std::uint8_t* block, std::uint32_t length, std::uint64_t at, bool enhanced,
                     Packet& packet);
    Step SimplePacket(const std::uint8_t* block, std::uint32_t length, std::uint64_t at, Packet& packet);
    // The file's interface of a section's interface number, if it is played.
    bool FindInterface(std::uint32_t local, std::uint64_t at, std::uint32_t& index);
    bool TooShort(std::uint32_t length, std::uint32_t least, const char* what, std::uint64_t at);

    std::uint16_t Load16(const std::uint8_t* p) const;
    std::uint32_t Load32(const std::uint8_t* p) const;
    std::uint64_t Load64(const std::uint8_t* p) const;

    std::unique_ptr<ByteSource> m_source;
    bool m_swapped = false;               // of the current section
    std::vector<std::uint32_t> m_section;  // the section's interfaces, by their number in it
    std::vector<Clock> m_clocks;           // by the file's interface index
    std::int64_t m_lastTime = 0;           // for simple packets, which have none
};

}  // namespace veldor::pcaplog

#endif
