// The header of one packet in the PCAP form in which Ethernet frames move
// through a diagram: 24 bytes before each packet's bytes, a format whose
// offsets stay. Packed: in an element's buffer a header stands at any byte.
#ifndef VELD_PCAP_PACKET_HEADER_H
#define VELD_PCAP_PACKET_HEADER_H

#include <cstddef>
#include <cstdint>

#pragma pack(push, 1)
struct VELDpcap_packet_header_t {
    std::uint32_t caplen;           // bytes of payload stored
    std::uint32_t len;              // length of the packet on the wire
    std::uint64_t ts_seconds;       // whole seconds of the packet time
    std::uint64_t ts_microseconds;  // the rest, below 1000000
};
#pragma pack(pop)

static_assert(sizeof(VELDpcap_packet_header_t) == 24, "VELDpcap_packet_header_t layout");
static_assert(offsetof(VELDpcap_packet_header_t, len) == 4, "VELDpcap_packet_header_t layout");
static_assert(offsetof(VELDpcap_packet_header_t, ts_seconds) == 8, "VELDpcap_packet_header_t layout");
static_assert(offsetof(VELDpcap_packet_header_t, ts_microseconds) == 16, "VELDpcap_packet_header_t layout");

#endif
