// A packet writer writes a capture file of the interfaces it is opened
// with: pcap through libpcap (one interface), or pcapng with a writer of
// its own (any mix of Ethernet and CAN interfaces, each with its name and
// nanoseconds). It buffers, hands the buffer to the file when full, on
// Flush() and on Close(); the destructor closes. Everything written before
// a close is in the file once the close returns.
//
//     Interface eth, can;
//     eth.name = "eth0";
//     can.name = "can0";
//     can.linkType = kLinkTypeSocketCan;
//     std::string error;
//     auto writer = OpenPacketWriter("drive.pcapng", {eth, can}, error);
//     if (!writer) return Fail(error);
//     writer->Write(packet);          // packet.interface 0
//     writer->Write(1, canFrame);     // a frame of the CAN log library
//     ...
//     if (!writer->Close()) return Fail(writer->Error());
#ifndef VELDOR_PCAP_LOG_PACKET_WRITER_H
#define VELDOR_PCAP_LOG_PACKET_WRITER_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "can_log/FrameWriter.h"
#include "pcap_log/Packet.h"
#include "pcap_log/PacketReader.h"

namespace veldor::pcaplog {

using canlog::WriteResult;

class CaptureStream;

struct WriterOptions {
    // pcap: the file's time unit. pcapng files always hold nanoseconds.
    bool pcapNanoseconds = false;
};

class PacketWriter {
public:
    virtual ~PacketWriter();
    PacketWriter(const PacketWriter&) = delete;
    PacketWriter& operator=(const PacketWriter&) = delete;

    // The packet's bytes, as they are, on its interface. An original length
    // of 0 stands for the captured one. Refused: an interface the writer
    // was not opened with, a time before 1970 (or, in pcap, after 2106), a
    // packet longer than the snap length or its original length.
    WriteResult Write(const Packet& packet);
    // A CAN frame, at its time in microseconds, as a SocketCAN record on a
    // CAN interface; refused where canlog::CheckFrame refuses it. The frame's
    // channel is not looked at: the interface is the channel.
    WriteResult Write(std::uint32_t interface, const canlog::CanFrame& frame);
    // Hands what is buffered to the file.
    bool Flush();
    // Flushes and closes the file; later calls return the same.
    bool Close();
    // Why the last write was refused, or why the file failed.
    const std::string& Error() const { return m_error; }
    std::uint64_t PacketsWritten() const { return m_packetsWritten; }
    const std::vector<Interface>& Interfaces() const { return m_interfaces; }
    virtual CaptureFormat Format() const = 0;

protected:
    explicit PacketWriter(std::vector<Interface> interfaces);
    bool OpenFile(const std::string& path, std::string& error);
    CaptureStream& Out() { return *m_out; }

    // Writes a checked packet into the stream.
    virtual void Put(const Packet& packet) = 0;
    // The latest time the format holds, in nanoseconds.
    virtual std::int64_t LatestTime() const = 0;

private:
    WriteResult Refuse(std::string why);
    bool TakeFailure();

    std::unique_ptr<CaptureStream> m_out;
    std::vector<Interface> m_interfaces;
    std::string m_error;
    bool m_closed = false;
    std::uint64_t m_packetsWritten = 0;
};

// By the extension, in any letter case: ".pcap", ".pcapng".
std::optional<CaptureFormat> CaptureFormatOf(std::string_view path);

// Null if the extension is unknown, the interfaces do not suit the format
// (pcap: exactly one; both: Ethernet or SocketCAN, names free), or the file
// cannot be created; `error` says which. The writer numbers the interfaces
// in the order given.
std::unique_ptr<PacketWriter> OpenPacketWriter(const std::string& path, std::vector<Interface> interfaces,
                                               std::string& error, const WriterOptions& options = WriterOptions());

}  // namespace veldor::pcaplog

#endif
