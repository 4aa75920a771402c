// The PCAP stream elements of this package's Ethernet components: their
// input and output, and the walk over the frames of one element.
#ifndef VELDOR_IO_PCAP_ELEMENTS_H
#define VELDOR_IO_PCAP_ELEMENTS_H

#include <string>

#include "EthFrames.h"
#include "pcap_data.h"
#include "veld_definitions.h"
#include "veld_io_access.h"

namespace veldor_io {

inline VELDInputDefinition PcapInput(const char* name)
{
    return VELDInputDefinition{name, 0, &VELDFilterPCAPStructure, VELD::NeverSkippingReader, 1};
}

inline VELDOutputDefinition PcapOutput(const char* name)
{
    return VELDOutputDefinition{name, 0, VELDTypeInfo(VELDpcapTypeValue, VELDpcapTypeName, nullptr),
                                static_cast<int>(sizeof(VELDpcap_data_t)), 16, 1, 1};
}

// A packet's time in microseconds.
inline VELDTimestamp PacketTime(const pkthdr& header)
{
    return static_cast<VELDTimestamp>(header.ts.tv_sec) * 1000000 + header.ts.tv_usec;
}

// The frame of packet `index` of an element of `count`.
struct PcapFrame {
    EthView view;
    VELDTimestamp time;         // the packet's
    VELDTimestamp elementTime;  // the element's
    VELDTimestamp arrival;      // the engine's time when the element was read
    int index;
    int count;
};

// Reads the next element of `input` and calls each(const PcapFrame&) for
// each of its frames; the number of frames, or -1 when no element came. An
// element of another link type than Ethernet is reported (once, with
// `linkTypeTold`) and passed over.
template <class Each>
int ReadPcapElement(VELDpcap_component& component, VELDInput& input, bool& linkTypeTold, Each each)
{
    VELD::InputGuard<VELDpcap_data_t> guard(&component, input, true);
    if (!guard.IsValid()) return -1;
    const VELDTimestamp arrival = VELD::CurrentTime(true, true);
    const VELDpcap_data_t& record = guard.Data(0);
    if (record.link_type != VELDpcapLinkTypeEthernet) {
        if (!linkTypeTold)
            component.ReportError(("unsupported link type " + std::to_string(record.link_type) +
                                   ": its elements are passed over")
                                      .c_str(),
                                  0);
        linkTypeTold = true;
        return 0;
    }
    pcap_data_reader reader(&component, &record);
    pkthdr header;
    const uint8_t* data;
    const VELDpcap_packet_header_t* packet;
    PcapFrame frame{EthView(), 0, guard.Timestamp(), arrival, 0, record.nb_packets};
    while (reader.get_next_packet(header, data, packet) == 0) {
        frame.view = ViewOfFrame(data, header.caplen, header.len);
        frame.time = PacketTime(header);
        each(static_cast<const PcapFrame&>(frame));
        ++frame.index;
    }
    return frame.index;
}

}  // namespace veldor_io

#endif
