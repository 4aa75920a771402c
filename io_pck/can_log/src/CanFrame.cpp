#include "can_log/CanFrame.h"

#include <cstring>

namespace veldor::canlog {

namespace {

constexpr std::uint8_t kFdLengths[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 20, 24, 32, 48, 64};

}  // namespace

bool operator==(const CanFrame& a, const CanFrame& b)
{
    if (a.timestamp != b.timestamp || a.id != b.id || a.extended != b.extended || a.remote != b.remote ||
        a.fd != b.fd || a.bitRateSwitch != b.bitRateSwitch || a.errorStateIndicator != b.errorStateIndicator ||
        a.length != b.length || a.channel != b.channel || a.direction != b.direction || a.error != b.error) {
        return false;
    }
    if (a.remote) return true;
    const std::size_t used = a.length < CanFrame::kMaxFdLength ? a.length : CanFrame::kMaxFdLength;
    return std::memcmp(a.data.data(), b.data.data(), used) == 0;
}

std::uint8_t DlcToLength(std::uint8_t dlc, bool fd)
{
    if (!fd) return dlc > 8 ? 8 : dlc;
    return kFdLengths[dlc & 0x0F];
}

std::uint8_t LengthToDlc(std::size_t length)
{
    for (std::uint8_t dlc = 0; dlc < 16; ++dlc) {
        if (kFdLengths[dlc] >= length) return dlc;
    }
    return 15;
}

bool IsValidLength(std::size_t length, bool fd)
{
    if (!fd) return length <= CanFrame::kMaxClassicLength;
    return length <= CanFrame::kMaxFdLength && kFdLengths[LengthToDlc(length)] == length;
}

const char* CheckFrame(const CanFrame& frame)
{
    // An error frame's identifier is what the file says of the error: up to 29 bits.
    if (frame.id > (frame.extended || frame.error ? CanFrame::kMaxExtendedId : CanFrame::kMaxStandardId)) {
        return frame.extended ? "extended identifier above 0x1FFFFFFF" : "standard identifier above 0x7FF";
    }
    if (frame.error && (frame.fd || frame.remote)) return "an error frame is neither FD nor remote";
    if (frame.fd) {
        if (frame.remote) return "an FD frame cannot be a remote frame";
        if (!IsValidLength(frame.length, true)) return "length not in the FD length table";
    } else {
        if (frame.bitRateSwitch || frame.errorStateIndicator) return "bit rate switch or error state on a classic frame";
        if (frame.length > CanFrame::kMaxClassicLength) return "classic frame longer than 8 bytes";
    }
    return nullptr;
}

}  // namespace veldor::canlog
