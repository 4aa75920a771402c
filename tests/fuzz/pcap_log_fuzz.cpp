// The capture file readers on arbitrary bytes: pcapng read in place (so
// that any read outside the input is caught), pcap through libpcap. A
// reader either refuses with a message naming the file, or gives packets
// whose bytes all lie in the input and whose interfaces exist, and issues
// that say where; it ends, and holds no more than its bounds allow. CAN
// frames read, error frames among them, are written and read again
// unchanged.
#include <cstddef>
#include <cstdint>
#include <string>

#include "pcap_log/PacketReader.h"

using namespace veldor::pcaplog;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::string error;
    ReaderOptions options;
    options.errorFrames = true;
    std::unique_ptr<PacketReader> reader = OpenPacketReader(data, size, "fuzz", error, options);
    if (!reader) {
        if (error.rfind("fuzz", 0) != 0) __builtin_trap();
        return 0;
    }
    Packet packet;
    std::uint8_t sum = 0;
    for (ReadResult r; (r = reader->Next(packet)) != ReadResult::End;) {
        if (r == ReadResult::Issue) {
            if (reader->Issue().Describe().rfind("fuzz, byte ", 0) != 0) __builtin_trap();
            continue;
        }
        if (packet.interface >= reader->Interfaces().size()) __builtin_trap();
        for (std::uint32_t i = 0; i < packet.capturedLength; ++i) sum ^= packet.data[i];
        if (reader->InterfaceAt(packet.interface).Kind() == LinkKind::Can) {
            std::uint8_t record[kSocketCanFdSize];
            const std::size_t length = EncodeSocketCan(packet.canFrame, record);
            veldor::canlog::CanFrame again = packet.canFrame;
            const CanRecord kind = packet.canFrame.error ? CanRecord::ErrorFrame : CanRecord::Frame;
            if (DecodeSocketCan(record, length, again, nullptr) != kind || again != packet.canFrame) {
                __builtin_trap();
            }
        }
    }
    asm volatile("" : : "r"(sum));  // so that every byte is read
    return 0;
}
