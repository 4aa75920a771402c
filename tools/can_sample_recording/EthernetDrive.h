// The same drive seen on the vehicle's automotive Ethernet: one 100 Mbit/s
// link of the backbone, as a port mirror of its switch sees it. Four ECUs
// serve SOME/IP services with cyclic events, offer them by service
// discovery every second, send a camera's object list as SOME/IP-TP
// segments, and the gateway sends a map data datagram larger than the MTU,
// in IPv4 fragments. The payloads tell of the same vehicle as the CAN bus.
#ifndef VELDOR_TOOLS_ETHERNET_DRIVE_H
#define VELDOR_TOOLS_ETHERNET_DRIVE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "SampleDrive.h"

namespace veldor::sample {

struct EthernetFrame {
    std::int64_t time = 0;  // nanoseconds since the epoch, when the frame is complete
    std::vector<std::uint8_t> bytes;  // from the destination address, without the check sequence
};

struct EthernetStats {
    std::size_t frames = 0;
    std::size_t events = 0;      // SOME/IP notifications in one frame
    std::size_t offers = 0;      // service discovery messages
    std::size_t tpMessages = 0;  // SOME/IP messages cut into TP segments
    std::size_t tpSegments = 0;
    std::size_t datagrams = 0;   // UDP datagrams cut into IPv4 fragments
    std::size_t fragments = 0;
    double meanLoad = 0;         // share of the link's time it is busy
};

// The link's bit rate.
constexpr std::int64_t kEthernetBitRate = 100000000;

// The frames in the order they left the link.
std::vector<EthernetFrame> SimulateEthernet(const DriveSettings& settings, EthernetStats& stats);

// A link kept busy at `framesPerSecond` on average: frames of 60 to 1514
// bytes, from and to the veth pair's addresses, of the local experimental
// type 0x88B5, frame k carrying k (4 bytes, little-endian) after its
// header and a pattern after that; the gaps between them vary from a
// quarter of the mean to 1.75 times it. The first frame at `start`
// nanoseconds.
std::vector<EthernetFrame> LoadedLink(std::size_t count, double framesPerSecond, std::int64_t start,
                                      std::uint64_t seed = 1);

// A pcapng file of a drive: the CAN frames on interface "can0" (link type
// 227), the Ethernet frames on "eth0", in time order; either may be empty
// (and then its interface is left out). A .pcap file takes Ethernet alone.
bool WriteCapture(const std::string& path, const std::vector<canlog::CanFrame>& can,
                  const std::vector<EthernetFrame>& ethernet, std::string& error);

}  // namespace veldor::sample

#endif
