#include "pcap_log/PacketWriter.h"

#include "CaptureStream.h"

namespace veldor::pcaplog {

PacketWriter::PacketWriter(std::vector<Interface> interfaces)
    : m_out(std::make_unique<CaptureStream>()), m_interfaces(std::move(interfaces))
{
    for (std::size_t i = 0; i < m_interfaces.size(); ++i) m_interfaces[i].index = static_cast<std::uint32_t>(i);
}

PacketWriter::~PacketWriter() { Close(); }

bool PacketWriter::OpenFile(const std::string& path, std::string& error) { return m_out->Open(path, error); }

WriteResult PacketWriter::Refuse(std::string why)
{
    m_error = "packet refused: " + std::move(why);
    return WriteResult::Refused;
}

bool PacketWriter::TakeFailure()
{
    if (!m_out->Failed()) return false;
    m_error = m_out->Error();
    return true;
}

WriteResult PacketWriter::Write(const Packet& packet)
{
    if (m_closed) {
        m_error = "the writer is closed";
        return WriteResult::Failed;
    }
    if (packet.interface >= m_interfaces.size()) {
        return Refuse("no interface " + std::to_string(packet.interface) + " in the file");
    }
    if (packet.time < 0 || packet.time > LatestTime()) {
        return Refuse("time " + std::to_string(packet.time) + " ns is outside what the file holds");
    }
    const std::uint32_t snap = m_interfaces[packet.interface].snapLength;
    if (snap != 0 && packet.capturedLength > snap) {
        return Refuse(std::to_string(packet.capturedLength) + " bytes, above the snap length " + std::to_string(snap));
    }
    if (packet.originalLength != 0 && packet.originalLength < packet.capturedLength) {
        return Refuse("captured length above the original length");
    }
    if (TakeFailure()) return WriteResult::Failed;
    Put(packet);
    if (TakeFailure()) return WriteResult::Failed;
    ++m_packetsWritten;
    return WriteResult::Written;
}

WriteResult PacketWriter::Write(std::uint32_t interface, const canlog::CanFrame& frame)
{
    if (interface >= m_interfaces.size()) return Refuse("no interface " + std::to_string(interface) + " in the file");
    if (m_interfaces[interface].Kind() != LinkKind::Can) {
        return Refuse("interface " + std::to_string(interface) + " is no CAN interface");
    }
    if (const char* why = canlog::CheckFrame(frame)) return Refuse(why);
    if (frame.timestamp < 0 || frame.timestamp > LatestTime() / 1000) {
        return Refuse("time " + std::to_string(frame.timestamp) + " us is outside what the file holds");
    }
    std::uint8_t record[kSocketCanFdSize];
    Packet packet;
    packet.interface = interface;
    packet.time = frame.timestamp * 1000;
    packet.capturedLength = packet.originalLength = static_cast<std::uint32_t>(EncodeSocketCan(frame, record));
    packet.data = record;
    packet.direction = frame.direction;
    return Write(packet);
}

bool PacketWriter::Flush()
{
    if (!m_closed) m_out->Flush();
    return !TakeFailure();
}

bool PacketWriter::Close()
{
    if (!m_closed) {
        m_closed = true;
        m_out->Close();
    }
    return !TakeFailure();
}

}  // namespace veldor::pcaplog
