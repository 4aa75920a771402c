// pcapng of our own: a section header, an interface description block per
// interface (its name, its description if any, nanoseconds), then an
// enhanced packet block per packet, in this machine's byte order, which the
// section header's magic tells readers. A packet sent by the recording side
// carries the outbound flag; one received carries no flags, which readers
// take for received.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>

#include "CaptureStream.h"
#include "PcapngFormat.h"
#include "Writers.h"

namespace veldor::pcaplog {

namespace {

using namespace pcapng;

// A block built in memory: the header blocks, written once.
class Block {
public:
    explicit Block(std::uint32_t type) { Put32(type), Put32(0); }
    void Put16(std::uint16_t v) { Put(&v, 2); }
    void Put32(std::uint32_t v) { Put(&v, 4); }
    void Put64(std::uint64_t v) { Put(&v, 8); }
    void Put(const void* bytes, std::size_t size)
    {
        const auto* p = static_cast<const std::uint8_t*>(bytes);
        m_bytes.insert(m_bytes.end(), p, p + size);
    }
    void Option(std::uint16_t code, const void* value, std::size_t size)
    {
        Put16(code);
        Put16(static_cast<std::uint16_t>(size));
        Put(value, size);
        m_bytes.resize((m_bytes.size() + 3) & ~std::size_t{3});
    }
    void Option(std::uint16_t code, const std::string& text)
    {
        if (!text.empty()) Option(code, text.data(), std::min<std::size_t>(text.size(), 0xFFFC));
    }
    // Ends the options and the block.
    void WriteTo(CaptureStream& out)
    {
        Put32(0);  // opt_endofopt
        const auto length = static_cast<std::uint32_t>(m_bytes.size() + 4);
        Put32(length);
        std::memcpy(m_bytes.data() + 4, &length, 4);
        out.Put(m_bytes.data(), m_bytes.size());
    }

private:
    std::vector<std::uint8_t> m_bytes;
};

class PcapngWriter : public PacketWriter {
public:
    explicit PcapngWriter(std::vector<Interface> interfaces) : PacketWriter(std::move(interfaces)) {}

    bool Open(const std::string& path, std::string& error)
    {
        if (!OpenFile(path, error)) return false;
        Block section(kSectionHeader);
        section.Put32(kByteOrderMagic);
        section.Put16(1);  // version 1.0
        section.Put16(0);
        section.Put64(~std::uint64_t{0});  // section length not given
        section.Option(kShbUserApplication, std::string("veldor"));
        section.WriteTo(Out());
        for (const Interface& interface : Interfaces()) {
            Block block(kInterfaceDescription);
            block.Put16(interface.linkType);
            block.Put16(0);
            block.Put32(interface.snapLength);
            block.Option(kIfName, interface.name);
            block.Option(kIfDescription, interface.description);
            const std::uint8_t nanoseconds = 9;
            block.Option(kIfTsResol, &nanoseconds, 1);
            block.WriteTo(Out());
        }
        return true;
    }

    CaptureFormat Format() const override { return CaptureFormat::Pcapng; }

private:
    void Put(const Packet& packet) override
    {
        const std::uint32_t captured = packet.capturedLength;
        const std::uint32_t padding = (4 - captured % 4) % 4;
        const bool outbound = packet.direction == canlog::Direction::Tx;
        const std::uint32_t options = outbound ? 12 : 0;
        const std::uint32_t length = 32 + captured + padding + options;
        const auto time = static_cast<std::uint64_t>(packet.time);
        const std::uint32_t header[7] = {kEnhancedPacket,
                                         length,
                                         packet.interface,
                                         static_cast<std::uint32_t>(time >> 32),
                                         static_cast<std::uint32_t>(time),
                                         captured,
                                         packet.originalLength != 0 ? packet.originalLength : captured};
        Out().Put(header, sizeof header);
        Out().Put(packet.data, captured);
        // Padding, the flags option and the end of options when outbound,
        // the length again.
        std::uint8_t tail[3 + 12 + 4] = {};
        std::size_t size = padding;
        if (outbound) {
            const std::uint16_t option[2] = {kPacketFlags, 4};
            const std::uint32_t flags = kOutbound;
            std::memcpy(tail + size, option, 4);
            std::memcpy(tail + size + 4, &flags, 4);
            size += 12;
        }
        std::memcpy(tail + size, &length, 4);
        Out().Put(tail, size + 4);
    }

    std::int64_t LatestTime() const override { return std::numeric_limits<std::int64_t>::max(); }
};

}  // namespace

std::unique_ptr<PacketWriter> OpenPcapngWriter(const std::string& path, std::vector<Interface> interfaces,
                                               std::string& error)
{
    auto writer = std::make_unique<PcapngWriter>(std::move(interfaces));
    if (!writer->Open(path, error)) return nullptr;
    return writer;
}

}  // namespace veldor::pcaplog
