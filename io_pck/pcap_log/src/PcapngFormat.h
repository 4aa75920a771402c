// The numbers of the pcapng format that its reader and writer share: block
// types, the byte-order magic, option codes.
#ifndef VELDOR_PCAP_LOG_PCAPNG_FORMAT_H
#define VELDOR_PCAP_LOG_PCAPNG_FORMAT_H

#include <cstdint>

namespace veldor::pcaplog::pcapng {

// Reads alike in both byte orders, so that a reader finds it before it
// knows the order.
constexpr std::uint32_t kSectionHeader = 0x0A0D0D0A;
constexpr std::uint32_t kInterfaceDescription = 1;
constexpr std::uint32_t kObsoletePacket = 2;
constexpr std::uint32_t kSimplePacket = 3;
constexpr std::uint32_t kEnhancedPacket = 6;
constexpr std::uint32_t kByteOrderMagic = 0x1A2B3C4D;

constexpr std::uint16_t kEndOfOptions = 0;
constexpr std::uint16_t kShbUserApplication = 4;
constexpr std::uint16_t kIfName = 2;
constexpr std::uint16_t kIfDescription = 3;
constexpr std::uint16_t kIfTsResol = 9;
constexpr std::uint16_t kIfTsOffset = 14;
// epb_flags, and pack_flags of the obsolete block: bits 0-1 the direction.
constexpr std::uint16_t kPacketFlags = 2;
constexpr std::uint32_t kOutbound = 2;

}  // namespace veldor::pcaplog::pcapng

#endif
