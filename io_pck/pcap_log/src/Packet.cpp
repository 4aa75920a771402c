#include "pcap_log/Packet.h"

#include <cstring>

namespace veldor::pcaplog {

namespace {

// The identifier word's flags, and the FD flags byte.
constexpr std::uint32_t kExtendedFlag = 0x80000000;
constexpr std::uint32_t kRemoteFlag = 0x40000000;
constexpr std::uint32_t kErrorFlag = 0x20000000;
constexpr std::uint8_t kBitRateSwitch = 0x01;
constexpr std::uint8_t kErrorStateIndicator = 0x02;
constexpr std::uint8_t kFdFrame = 0x04;
// In a CAN XL record the byte where CAN and CAN FD hold the length has
// this bit set; no CAN length has.
constexpr std::uint8_t kXlFrame = 0x80;
constexpr std::size_t kHeaderSize = 8;

}  // namespace

LinkKind KindOf(std::uint16_t linkType)
{
    if (linkType == kLinkTypeEthernet) return LinkKind::Ethernet;
    if (linkType == kLinkTypeSocketCan) return LinkKind::Can;
    return LinkKind::Other;
}

std::string LinkTypeName(std::uint16_t linkType)
{
    if (linkType == kLinkTypeEthernet) return "Ethernet";
    if (linkType == kLinkTypeSocketCan) return "SocketCAN";
    return "link type " + std::to_string(linkType);
}

CanRecord DecodeSocketCan(const std::uint8_t* bytes, std::size_t size, canlog::CanFrame& frame, const char** why)
{
    const auto invalid = [why](const char* text) {
        if (why != nullptr) *why = text;
        return CanRecord::Invalid;
    };
    if (size < kHeaderSize) return invalid("shorter than the 8 bytes of its header");
    const std::uint32_t word = (std::uint32_t{bytes[0]} << 24) | (std::uint32_t{bytes[1]} << 16) |
                               (std::uint32_t{bytes[2]} << 8) | bytes[3];
    const std::uint8_t length = bytes[4];
    const std::uint8_t flags = bytes[5];
    if (length & kXlFrame) return invalid("a CAN XL frame, which is not played");

    frame.error = false;
    frame.extended = (word & kExtendedFlag) != 0;
    frame.remote = (word & kRemoteFlag) != 0;
    frame.id = word & (frame.extended ? canlog::CanFrame::kMaxExtendedId : 0x1FFFFFFF);
    frame.fd = (flags & kFdFrame) != 0 ||
               (size == kSocketCanFdSize && length > canlog::CanFrame::kMaxClassicLength);
    frame.bitRateSwitch = frame.fd && (flags & kBitRateSwitch) != 0;
    frame.errorStateIndicator = frame.fd && (flags & kErrorStateIndicator) != 0;
    frame.length = length;
    if (word & kErrorFlag) {
        // The error class sits in the identifier's bits, the details in
        // (up to) 8 data bytes.
        frame.error = true;
        frame.extended = frame.remote = frame.fd = frame.bitRateSwitch = frame.errorStateIndicator = false;
        frame.id = word & canlog::CanFrame::kMaxExtendedId;
        std::size_t n = length < canlog::CanFrame::kMaxClassicLength ? length : canlog::CanFrame::kMaxClassicLength;
        if (n > size - kHeaderSize) n = size - kHeaderSize;
        frame.length = static_cast<std::uint8_t>(n);
        std::memcpy(frame.data.data(), bytes + kHeaderSize, n);
        return CanRecord::ErrorFrame;
    }
    if (!frame.extended && frame.id > canlog::CanFrame::kMaxStandardId) {
        return invalid("a standard identifier above 0x7FF");
    }
    if (frame.fd && frame.remote) return invalid("a remote frame marked FD");
    if (!canlog::IsValidLength(length, frame.fd)) {
        return invalid(frame.fd ? "a length not in the FD length table" : "a classic frame longer than 8 bytes");
    }
    if (frame.remote) return CanRecord::Frame;
    if (size - kHeaderSize < length) return invalid("fewer data bytes captured than its length");
    std::memcpy(frame.data.data(), bytes + kHeaderSize, length);
    return CanRecord::Frame;
}

std::size_t EncodeSocketCan(const canlog::CanFrame& frame, std::uint8_t (&out)[kSocketCanFdSize])
{
    const std::size_t size = frame.fd ? kSocketCanFdSize : kSocketCanClassicSize;
    const std::uint32_t word = frame.id | (frame.extended ? kExtendedFlag : 0) | (frame.remote ? kRemoteFlag : 0) |
                               (frame.error ? kErrorFlag : 0);
    out[0] = static_cast<std::uint8_t>(word >> 24);
    out[1] = static_cast<std::uint8_t>(word >> 16);
    out[2] = static_cast<std::uint8_t>(word >> 8);
    out[3] = static_cast<std::uint8_t>(word);
    out[4] = frame.length;
    out[5] = frame.fd ? static_cast<std::uint8_t>(kFdFrame | (frame.bitRateSwitch ? kBitRateSwitch : 0) |
                                                  (frame.errorStateIndicator ? kErrorStateIndicator : 0))
                      : 0;
    out[6] = out[7] = 0;
    const std::size_t payload = frame.remote ? 0 : frame.length;
    std::memcpy(out + kHeaderSize, frame.data.data(), payload);
    std::memset(out + kHeaderSize + payload, 0, size - kHeaderSize - payload);
    return size;
}

}  // namespace veldor::pcaplog
