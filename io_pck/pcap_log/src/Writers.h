// The two writers behind OpenPacketWriter; the interfaces are checked.
#ifndef VELDOR_PCAP_LOG_WRITERS_H
#define VELDOR_PCAP_LOG_WRITERS_H

#include "pcap_log/PacketWriter.h"

namespace veldor::pcaplog {

std::unique_ptr<PacketWriter> OpenPcapWriter(const std::string& path, const Interface& interface, bool nanoseconds,
                                             std::string& error);
std::unique_ptr<PacketWriter> OpenPcapngWriter(const std::string& path, std::vector<Interface> interfaces,
                                               std::string& error);

}  // namespace veldor::pcaplog

#endif
