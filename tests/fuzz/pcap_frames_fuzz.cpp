// A PCAP stream record over arbitrary bytes, and the frames in it as the io
// package reads them: the reader either hands out packets that lie inside
// the data or stops with its owner's FatalError, and reading a frame
// (Ethernet, IPv4, UDP, SOME/IP) never looks outside it.
//
// Input: 2 bytes nb_packets, 2 bytes of data_size cut from the end, 1 byte
// packet_header_size, the data.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "EthFrames.h"
#include "pcap_data.h"

namespace {

class Thrower : public VELDpcap_class {
public:
    void FatalError(const char*) override { throw 1; }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* input, std::size_t size)
{
    if (size < 5) return 0;
    std::uint16_t packets, cut;
    std::memcpy(&packets, input, 2);
    std::memcpy(&cut, input + 2, 2);
    // A copy of its own, so that reading past the data is caught.
    std::vector<std::uint8_t> data(input + 5, input + size);
    VELDpcap_data_t record{};
    record.link_type = 1;
    record.nb_packets = packets;
    record.packet_header_size = input[4];
    record.data = data.data();
    record.data_size = data.size() - std::min<std::size_t>(cut, data.size());

    Thrower owner;
    veldor_io::MessageCheck check;
    try {
        pcap_data_reader reader(&owner, &record);
        pkthdr header;
        const std::uint8_t* frame;
        const VELDpcap_packet_header_t* packet;
        while (reader.get_next_packet(header, frame, packet) == 0) {
            if (frame < record.data || frame + header.caplen > record.data + record.data_size) __builtin_trap();
            const veldor_io::EthView view = veldor_io::ViewOfFrame(frame, header.caplen, header.len);
            std::uint32_t counter;
            veldor_io::EthCounterOf(view, counter);
            check.Frame(view);
            veldor_io::FormatEthFrame(view, 64);
        }
    } catch (int) {
    }
    return 0;
}
