// A packet reader streams a capture file: pcap through libpcap, pcapng with
// a reader of its own, told apart by the file's first bytes whatever its
// name. Next() answers with a packet, with an issue, or with the end; all
// interfaces' packets come in file order, on one timeline.
//
//     std::string error;
//     auto reader = OpenPacketReader("drive.pcapng", error);
//     if (!reader) return Fail(error);   // one message: file and reason
//     Packet packet;
//     for (ReadResult r; (r = reader->Next(packet)) != ReadResult::End;) {
//         if (r == ReadResult::Issue) { Warn(reader->Issue().Describe()); continue; }
//         Use(reader->InterfaceAt(packet.interface), packet);
//     }
//
// Only Ethernet and SocketCAN interfaces are played: a file with none is
// refused at the open; another interface is told once, as an issue, and
// its packets are counted and left out. CAN error frames are counted, and
// handed on (a packet whose frame has `error` set) only when the options
// ask for them, as the CAN log readers do. After an issue the caller may call
// Next() again, which goes on after the block or packet; after a final
// issue (Issue().final: the file cannot be read on) it answers End.
#ifndef VELDOR_PCAP_LOG_PACKET_READER_H
#define VELDOR_PCAP_LOG_PACKET_READER_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "can_log/FrameReader.h"
#include "pcap_log/Packet.h"

namespace veldor::pcaplog {

using canlog::ReadResult;

enum class CaptureFormat { Pcap, Pcapng };

struct ReaderOptions {
    // CAN error frames handed on as packets; otherwise they are only counted.
    bool errorFrames = false;
};

enum class IssueKind {
    ReadFailed,        // the system refused to read on (final)
    Truncated,         // the file ends inside a block or packet (final)
    BadBlock,          // a block whose length or header cannot be trusted (final), or one
                       // too short for its type (skipped)
    BadOption,         // an option that runs past its block; the rest are ignored
    UnknownInterface,  // a packet of an interface the section has not declared
    OtherLinkType,     // an interface that is not played; told once
    BadTime,           // a time beyond what 64 bits of nanoseconds hold
    BadPacket,         // a captured length past its block, a CAN record that is no frame
};

const char* IssueKindName(IssueKind kind);

struct ReadIssue {
    IssueKind kind = IssueKind::BadBlock;
    bool final = false;
    std::string file;
    std::uint64_t offset = 0;  // of the block or packet, from the file's start
    std::string message;

    // "drive.pcapng, byte 1234: block length 13 is not a multiple of 4"
    std::string Describe() const;
};

class PacketReader {
public:
    virtual ~PacketReader();
    PacketReader(const PacketReader&) = delete;
    PacketReader& operator=(const PacketReader&) = delete;

    ReadResult Next(Packet& packet);
    const ReadIssue& Issue() const { return m_issue; }

    virtual CaptureFormat Format() const = 0;
    // pcap: whether the file holds nanoseconds; pcapng: always true, times
    // being kept to the nanosecond whatever each interface's resolution.
    virtual bool Nanoseconds() const = 0;
    // The interfaces declared so far; a pcapng file may declare more later.
    const std::vector<Interface>& Interfaces() const { return m_interfaces; }
    const Interface& InterfaceAt(std::uint32_t index) const { return m_interfaces.at(index); }
    const std::string& File() const { return m_file; }
    // Where the last packet given stands: its block's or record's offset
    // from the file's start.
    std::uint64_t PacketOffset() const { return m_packetOffset; }
    // As OpenPacketReader sets them; they may change between calls of Next.
    void SetOptions(const ReaderOptions& options) { m_options = options; }

    std::uint64_t PacketsRead() const { return m_packetsRead; }
    std::uint64_t ErrorFrames() const { return m_errorFrames; }
    // Packets of interfaces that are not played.
    std::uint64_t PacketsLeftOut() const { return m_packetsLeftOut; }
    // pcapng blocks that carry no packet and that the reader does not read:
    // name resolution, statistics, custom, decryption secrets...
    std::uint64_t BlocksSkipped() const { return m_blocksSkipped; }

protected:
    enum class Step {
        Packet,  // a packet of a played interface, with its bytes
        Again,   // a block that gave no packet; issues it had are told
        End,
    };

    explicit PacketReader(std::string file) : m_file(std::move(file)) { m_issue.file = m_file; }

    virtual Step Fetch(Packet& packet) = 0;

    // Declares an interface; an interface that is not played is told.
    std::uint32_t AddInterface(Interface interface, std::uint64_t offset);
    bool Played(std::uint32_t index) const { return m_played[index]; }
    // An issue, given by the next call of Next(); a final one ends reading.
    void Tell(IssueKind kind, std::uint64_t offset, std::string message, bool final = false);
    // Reads on (at the open) until a played interface is declared. False if
    // there is none up to the end, or a final issue comes first: `error`
    // says which.
    bool ReadToFirstPlayed(std::string& error);

    std::uint64_t m_packetsLeftOut = 0;
    std::uint64_t m_blocksSkipped = 0;
    // Where the packet that Fetch gave starts, for the issues of its bytes.
    std::uint64_t m_packetOffset = 0;

private:
    std::string m_file;
    std::vector<Interface> m_interfaces;
    std::vector<bool> m_played;
    std::size_t m_playedCount = 0;
    std::deque<ReadIssue> m_told;
    ReadIssue m_issue;
    bool m_finished = false;
    std::uint64_t m_packetsRead = 0;
    std::uint64_t m_errorFrames = 0;
    ReaderOptions m_options;
};

// Null if the file cannot be opened, is empty, is no capture file, cannot
// be read up to its first played interface, or has none; `error` says
// which, with the file's name.
std::unique_ptr<PacketReader> OpenPacketReader(const std::string& path, std::string& error,
                                               const ReaderOptions& options = ReaderOptions());
// The same over bytes in memory, which must outlive the reader; `name`
// stands for the file in messages.
std::unique_ptr<PacketReader> OpenPacketReader(const std::uint8_t* bytes, std::size_t size, const std::string& name,
                                               std::string& error, const ReaderOptions& options = ReaderOptions());

}  // namespace veldor::pcaplog

#endif
