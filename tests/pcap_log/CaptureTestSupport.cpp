#include "CaptureTestSupport.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <sstream>

using namespace veldor::pcaplog;
using veldor::canlog::CanFrame;
using veldor::canlog::Direction;

namespace pcaplog_test {

static Bytes Padded(Bytes b)
{
    b.resize((b.size() + 3) & ~std::size_t{3});
    return b;
}

static Bytes Options(const std::vector<Pcapng::Option>& options, bool big)
{
    Bytes out;
    for (const auto& o : options) out += U16(o.code, big) + U16(o.value.size(), big) + Padded(o.value);
    return options.empty() ? out : out + Bytes(4, '\0');
}

Pcapng& Pcapng::Block(std::uint32_t type, const Bytes& body)
{
    const Bytes padded = Padded(body);
    const auto length = static_cast<std::uint32_t>(padded.size() + 12);
    bytes += U32(type, big) + U32(length, big) + padded + U32(length, big);
    return *this;
}

Pcapng& Pcapng::Section(bool bigEndian, std::uint16_t major)
{
    big = bigEndian;
    return Block(0x0A0D0D0A, U32(0x1A2B3C4D, big) + U16(major, big) + U16(0, big) + U64(~0ull, big));
}

Pcapng& Pcapng::Interface(std::uint16_t linkType, std::vector<Option> options, std::uint32_t snapLength)
{
    return Block(1, U16(linkType, big) + U16(0, big) + U32(snapLength, big) + Options(options, big));
}

Pcapng& Pcapng::Packet(std::uint32_t interface, std::uint64_t ticks, const Bytes& data, std::vector<Option> options,
                       bool obsolete)
{
    const Bytes id = obsolete ? U16(interface, big) + U16(0, big) : U32(interface, big);
    return Block(obsolete ? 2 : 6, id + U32(ticks >> 32, big) + U32(ticks, big) + U32(data.size(), big) +
                                       U32(data.size(), big) + Padded(data) + Options(options, big));
}

Bytes PcapFile(std::uint32_t linkType, const std::vector<std::pair<std::uint64_t, Bytes>>& packets, bool nanoseconds,
               bool big)
{
    Bytes out = U32(nanoseconds ? 0xA1B23C4D : 0xA1B2C3D4, big) + U16(2, big) + U16(4, big) + U64(0, big) +
                U32(262144, big) + U32(linkType, big);
    for (const auto& [time, data] : packets) {
        const std::uint64_t fraction = nanoseconds ? time % 1000000000 : time % 1000000000 / 1000;
        out += U32(time / 1000000000, big) + U32(fraction, big) + U32(data.size(), big) + U32(data.size(), big) + data;
    }
    return out;
}

namespace {

ReadOutcome ReadFrom(std::unique_ptr<PacketReader> reader, const std::string& error)
{
    ReadOutcome out;
    if (!reader) {
        out.openError = error;
        return out;
    }
    Packet p;
    for (ReadResult r; (r = reader->Next(p)) != ReadResult::End;) {
        if (r == ReadResult::Issue) {
            const ReadIssue& i = reader->Issue();
            out.lines.push_back(std::string("issue ") + IssueKindName(i.kind) + (i.final ? " final" : "") + " @" +
                                std::to_string(i.offset) + ": " + i.message);
            continue;
        }
        const Interface& in = reader->InterfaceAt(p.interface);
        std::ostringstream line;
        line << p.interface << " " << (in.name.empty() ? "-" : in.name) << " " << p.time << " "
             << (p.direction == veldor::canlog::Direction::Tx ? "Tx " : "Rx ") << p.capturedLength << "/"
             << p.originalLength << " " << ToHex(p.data, p.capturedLength);
        if (in.Kind() == LinkKind::Can) line << " " << Describe(p.canFrame);
        out.lines.push_back(line.str());
        out.data.emplace_back(reinterpret_cast<const char*>(p.data), p.capturedLength);
        out.packets.push_back(p);
        out.packets.back().data = nullptr;
    }
    out.interfaces = reader->Interfaces();
    out.blocksSkipped = reader->BlocksSkipped();
    out.leftOut = reader->PacketsLeftOut();
    out.errorFrames = reader->ErrorFrames();
    out.format = reader->Format();
    return out;
}

}  // namespace

ReadOutcome ReadAll(const std::string& path, const ReaderOptions& options)
{
    std::string error;
    auto reader = OpenPacketReader(path, error, options);
    return ReadFrom(std::move(reader), error);
}

ReadOutcome ReadBytes(const Bytes& bytes)
{
    std::string error;
    auto reader = OpenPacketReader(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size(), "mem", error);
    return ReadFrom(std::move(reader), error);
}

void WriteFile(const std::string& path, const Bytes& bytes)
{
    std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

std::vector<std::string> TimesAndBytes(const ReadOutcome& outcome)
{
    std::vector<std::string> out;
    for (std::size_t i = 0; i < outcome.packets.size(); ++i) {
        out.push_back(std::to_string(outcome.packets[i].time) + " " + ToHex(outcome.data[i].data(), outcome.data[i].size()));
    }
    return out;
}

Interface Named(std::string name, std::uint16_t linkType)
{
    Interface i;
    i.name = std::move(name);
    i.linkType = linkType;
    return i;
}

Drive MakeDrive(bool multiBus, std::size_t count)
{
    Drive d;
    d.interfaces = {Named("eth0")};
    if (multiBus) {
        d.interfaces.push_back(Named("can0", kLinkTypeSocketCan));
        d.interfaces.push_back(Named("eth1"));
        d.interfaces.push_back(Named("can1", kLinkTypeSocketCan));
    }
    std::mt19937 random(11);
    const std::vector<CanFrame> frames = canlog_test::VariedFrames(1700000000000000, count, 5);
    for (std::size_t i = 0; i < count; ++i) {
        Packet p;
        p.interface = static_cast<std::uint32_t>(random() % d.interfaces.size());
        p.time = frames[i].timestamp * 1000 + static_cast<std::int64_t>(random() % 1000);
        p.direction = random() % 4 == 0 ? Direction::Tx : Direction::Rx;
        if (d.interfaces[p.interface].Kind() == LinkKind::Can) {
            p.canFrame = frames[i];
            p.canFrame.channel = static_cast<std::uint8_t>(p.interface);
            p.canFrame.direction = p.direction;
            p.time = frames[i].timestamp * 1000;
            d.data.emplace_back();
        } else {
            Bytes bytes(i % 50 == 0 ? 9000 : 14 + random() % 1500, '\0');
            for (char& c : bytes) c = static_cast<char>(random());
            p.capturedLength = static_cast<std::uint32_t>(bytes.size());
            p.originalLength = p.capturedLength + (i % 9 == 0 ? 4 : 0);
            d.data.push_back(bytes);
        }
        d.packets.push_back(p);
    }
    return d;
}

void WriteDrive(PacketWriter& writer, const Drive& d)
{
    for (std::size_t i = 0; i < d.packets.size(); ++i) {
        Packet p = d.packets[i];
        p.data = reinterpret_cast<const std::uint8_t*>(d.data[i].data());
        const WriteResult r = writer.Interfaces()[p.interface].Kind() == LinkKind::Can
                                  ? writer.Write(p.interface, p.canFrame)
                                  : writer.Write(p);
        ASSERT_EQ(r, WriteResult::Written) << writer.Error() << " (packet " << i << ")";
    }
}

void WriteDriveFile(const std::string& path, const Drive& drive, const WriterOptions& options)
{
    std::string error;
    std::unique_ptr<PacketWriter> writer = OpenPacketWriter(path, drive.interfaces, error, options);
    ASSERT_TRUE(writer) << error;
    WriteDrive(*writer, drive);
    ASSERT_TRUE(writer->Close()) << writer->Error();
}

}  // namespace pcaplog_test
