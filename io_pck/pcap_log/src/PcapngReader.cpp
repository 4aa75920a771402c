#include "PcapngReader.h"

#include <cstdio>
#include <cstring>
#include <limits>

#include "PcapngFormat.h"

namespace veldor::pcaplog {

namespace {

using namespace pcapng;

constexpr std::uint64_t kNanosecondsPerSecond = 1000000000;

std::uint32_t Padded(std::uint32_t size) { return (size + 3u) & ~3u; }

std::string Hex(std::uint32_t value)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%X", value);
    return text;
}

std::string Text(const std::uint8_t* value, std::uint16_t size)
{
    std::string text(reinterpret_cast<const char*>(value), size);
    while (!text.empty() && text.back() == '\0') text.pop_back();
    return text;
}

}  // namespace

bool PcapngReader::Clock::ToNanoseconds(std::uint64_t ticks, std::int64_t& nanoseconds) const
{
    __int128 value = shift >= 0 ? (static_cast<__int128>(ticks) * kNanosecondsPerSecond) >> shift
                                : static_cast<__int128>(ticks) * multiplier / divisor;
    value += static_cast<__int128>(offsetSeconds) * kNanosecondsPerSecond;
    if (value > std::numeric_limits<std::int64_t>::max() || value < std::numeric_limits<std::int64_t>::min()) {
        return false;
    }
    nanoseconds = static_cast<std::int64_t>(value);
    return true;
}

PcapngReader::PcapngReader(std::unique_ptr<ByteSource> source, const std::string& name)
    : PacketReader(name), m_source(std::move(source))
{
}

std::unique_ptr<PacketReader> PcapngReader::Open(std::unique_ptr<ByteSource> source, const std::string& name,
                                                 std::string& error)
{
    std::unique_ptr<PcapngReader> reader(new PcapngReader(std::move(source), name));
    if (!reader->ReadToFirstPlayed(error)) return nullptr;
    return reader;
}

std::uint16_t PcapngReader::Load16(const std::uint8_t* p) const
{
    std::uint16_t v;
    std::memcpy(&v, p, sizeof v);
    return m_swapped ? __builtin_bswap16(v) : v;
}

std::uint32_t PcapngReader::Load32(const std::uint8_t* p) const
{
    std::uint32_t v;
    std::memcpy(&v, p, sizeof v);
    return m_swapped ? __builtin_bswap32(v) : v;
}

std::uint64_t PcapngReader::Load64(const std::uint8_t* p) const
{
    std::uint64_t v;
    std::memcpy(&v, p, sizeof v);
    return m_swapped ? __builtin_bswap64(v) : v;
}

bool PcapngReader::TooShort(std::uint32_t length, std::uint32_t least, const char* what, std::uint64_t at)
{
    if (length >= least) return false;
    Tell(IssueKind::BadBlock, at,
         std::string(what) + " of " + std::to_string(length) + " bytes, shorter than its " + std::to_string(least));
    return true;
}

PacketReader::Step PcapngReader::Fetch(Packet& packet)
{
    ByteSource& in = *m_source;
    const std::uint64_t at = in.Offset();
    const auto cut = [&](const std::string& what) {
        if (!in.Error().empty()) {
            Tell(IssueKind::ReadFailed, at, in.Error(), true);
        } else {
            Tell(IssueKind::Truncated, at, "the file ends inside " + what, true);
        }
        return Step::End;
    };
    if (!in.Have(8)) return in.Available() == 0 && in.Error().empty() ? Step::End : cut("a block header");

    std::uint32_t type;
    std::memcpy(&type, in.Data(), 4);  // the section header's type reads alike in both orders
    if (type == kSectionHeader) {
        if (!in.Have(12)) return cut("a section header");
        std::uint32_t magic;
        std::memcpy(&magic, in.Data() + 8, 4);
        if (magic != kByteOrderMagic && magic != __builtin_bswap32(kByteOrderMagic)) {
            Tell(IssueKind::BadBlock, at, "section header with the byte-order magic " + Hex(magic), true);
            return Step::End;
        }
        m_swapped = magic != kByteOrderMagic;
    } else {
        type = Load32(in.Data());
    }
    const std::uint32_t length = Load32(in.Data() + 4);
    if (length < 12 || length % 4 != 0 || length > kMaxBlockLength) {
        const char* why = length % 4 != 0 ? " is not a multiple of 4"
                          : length < 12   ? " is shorter than a block's 12 bytes"
                                          : " is above the 16 MiB a block may have";
        Tell(IssueKind::BadBlock, at, "block length " + std::to_string(length) + why, true);
        return Step::End;
    }
    if (!in.Have(length)) {
        return cut("a block of " + std::to_string(length) + " bytes (" + std::to_string(in.Available()) +
                   " are there)");
    }
    const std::uint8_t* block = in.Data();
    const std::uint32_t trailer = Load32(block + length - 4);
    if (trailer != length) {
        Tell(IssueKind::BadBlock, at,
             "block of type " + Hex(type) + " is " + std::to_string(length) + " bytes long at its start but " +
                 std::to_string(trailer) + " at its end",
             true);
        return Step::End;
    }

    Step step = Step::Again;
    switch (type) {
    case kSectionHeader: step = SectionHeader(block, length, at); break;
    case kInterfaceDescription: step = InterfaceDescription(block, length, at); break;
    case kEnhancedPacket: step = TimedPacket(block, length, at, true, packet); break;
    case kObsoletePacket: step = TimedPacket(block, length, at, false, packet); break;
    case kSimplePacket: step = SimplePacket(block, length, at, packet); break;
    default: ++m_blocksSkipped; break;
    }
    in.Skip(length);  // the packet's bytes stay where they are until the next Have
    return step;
}

PacketReader::Step PcapngReader::SectionHeader(const std::uint8_t* block, std::uint32_t length, std::uint64_t at)
{
    if (length < 28) {
        Tell(IssueKind::BadBlock, at,
             "section header of " + std::to_string(length) + " bytes, shorter than its 28", true);
        return Step::End;
    }
    const std::uint16_t major = Load16(block + 12);
    if (major != 1) {
        Tell(IssueKind::BadBlock, at,
             "pcapng version " + std::to_string(major) + "." + std::to_string(Load16(block + 14)) +
                 ", which this reader cannot read",
             true);
        return Step::End;
    }
    m_section.clear();
    return Step::Again;
}

PacketReader::Step PcapngReader::InterfaceDescription(const std::uint8_t* block, std::uint32_t length,
                                                      std::uint64_t at)
{
    if (TooShort(length, 20, "interface description block", at)) return Step::Again;
    if (Interfaces().size() >= kMaxInterfaces) {
        Tell(IssueKind::BadBlock, at, "more than " + std::to_string(kMaxInterfaces) + " interfaces", true);
        return Step::End;
    }
    Interface interface;
    interface.linkType = Load16(block + 8);
    interface.snapLength = Load32(block + 12);
    Clock clock;
    const std::uint8_t* option = block + 16;
    const std::uint8_t* const end = block + length - 4;
    while (end - option >= 4) {
        const std::uint16_t code = Load16(option);
        const std::uint16_t size = Load16(option + 2);
        if (code == kEndOfOptions) break;
        if (static_cast<std::size_t>(end - option - 4) < Padded(size)) {
            Tell(IssueKind::BadOption, at + static_cast<std::uint64_t>(option - block),
                 "option " + std::to_string(code) + " of " + std::to_string(size) +
                     " bytes runs past the end of its interface block");
            break;
        }
        const std::uint8_t* value = option + 4;
        const auto wrongSize = [&](const char* name) {
            Tell(IssueKind::BadOption, at + static_cast<std::uint64_t>(option - block),
                 std::string(name) + " of " + std::to_string(size) + " bytes is ignored");
        };
        switch (code) {
        case kIfName: interface.name = Text(value, size); break;
        case kIfDescription: interface.description = Text(value, size); break;
        case kIfTsResol:
            if (size != 1) {
                wrongSize("if_tsresol");
            } else if (*value & 0x80) {
                clock.shift = *value & 0x7F;
            } else {
                // 10^-e seconds a tick: to nanoseconds by 10^(9-e), or by
                // a division where the ticks are finer; below 10^-28 s
                // every 64-bit count of ticks is less than a nanosecond.
                const int e = *value;
                clock.multiplier = 1;
                for (int i = e; i < 9; ++i) clock.multiplier *= 10;
                for (int i = 9; i < e && i < 28; ++i) clock.divisor *= 10;
                if (e >= 29) clock.multiplier = 0;
            }
            break;
        case kIfTsOffset:
            if (size != 8) {
                wrongSize("if_tsoffset");
            } else {
                clock.offsetSeconds = static_cast<std::int64_t>(Load64(value));
            }
            break;
        default: break;
        }
        option += 4 + Padded(size);
    }
    m_section.push_back(AddInterface(std::move(interface), at));
    m_clocks.push_back(clock);
    return Step::Again;
}

bool PcapngReader::FindInterface(std::uint32_t local, std::uint64_t at, std::uint32_t& index)
{
    if (local >= m_section.size()) {
        Tell(IssueKind::UnknownInterface, at,
             "packet of interface " + std::to_string(local) + ", but its section declares " +
                 std::to_string(m_section.size()) + (m_section.size() == 1 ? " interface" : " interfaces"));
        return false;
    }
    index = m_section[local];
    if (!Played(index)) {
        ++m_packetsLeftOut;
        return false;
    }
    return true;
}

PacketReader::Step PcapngReader::TimedPacket(const std::uint8_t* block, std::uint32_t length, std::uint64_t at,
                                             bool enhanced, Packet& packet)
{
    if (TooShort(length, 32, enhanced ? "enhanced packet block" : "packet block", at)) return Step::Again;
    const std::uint32_t local = enhanced ? Load32(block + 8) : Load16(block + 8);
    const std::uint64_t ticks = (std::uint64_t{Load32(block + 12)} << 32) | Load32(block + 16);
    const std::uint32_t captured = Load32(block + 20);
    if (captured > length - 32) {
        Tell(IssueKind::BadPacket, at,
             "captured length " + std::to_string(captured) + " runs past its block of " + std::to_string(length) +
                 " bytes");
        return Step::Again;
    }
    std::uint32_t index;
    if (!FindInterface(local, at, index)) return Step::Again;
    if (!m_clocks[index].ToNanoseconds(ticks, packet.time)) {
        Tell(IssueKind::BadTime, at, "the packet's time is beyond what 64 bits of nanoseconds hold");
        return Step::Again;
    }
    packet.interface = index;
    packet.capturedLength = captured;
    packet.originalLength = Load32(block + 24);
    packet.data = block + 28;
    packet.direction = canlog::Direction::Rx;
    // Only the direction is read of the options: bits 0-1 of the flags, 2
    // for outbound.
    const std::uint8_t* option = block + 28 + Padded(captured);
    const std::uint8_t* const end = block + length - 4;
    while (end - option >= 4) {
        const std::uint16_t code = Load16(option);
        const std::uint16_t size = Load16(option + 2);
        if (code == kEndOfOptions || static_cast<std::size_t>(end - option - 4) < Padded(size)) break;
        if (code == kPacketFlags && size == 4 && (Load32(option + 4) & 3u) == kOutbound) {
            packet.direction = canlog::Direction::Tx;
        }
        option += 4 + Padded(size);
    }
    m_lastTime = packet.time;
    m_packetOffset = at;
    return Step::Packet;
}

PacketReader::Step PcapngReader::SimplePacket(const std::uint8_t* block, std::uint32_t length, std::uint64_t at,
                                              Packet& packet)
{
    if (TooShort(length, 16, "simple packet block", at)) return Step::Again;
    std::uint32_t index;
    if (!FindInterface(0, at, index)) return Step::Again;
    // The bytes there are the packet cut to the snap length, and padding.
    const std::uint32_t original = Load32(block + 8);
    std::uint32_t captured = length - 16;
    if (original < captured) captured = original;
    const std::uint32_t snap = InterfaceAt(index).snapLength;
    if (snap != 0 && snap < captured) captured = snap;
    packet.interface = index;
    packet.time = m_lastTime;  // it has none: it comes right after the packet before
    packet.capturedLength = captured;
    packet.originalLength = original;
    packet.data = block + 12;
    packet.direction = canlog::Direction::Rx;
    m_packetOffset = at;
    return Step::Packet;
}

}  // namespace veldor::pcaplog
