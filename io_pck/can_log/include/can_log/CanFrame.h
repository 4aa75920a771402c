// One CAN or CAN FD frame as a log file holds it: a plain value, copied
// freely, with no allocation of its own.
#ifndef VELDOR_CAN_LOG_CAN_FRAME_H
#define VELDOR_CAN_LOG_CAN_FRAME_H

#include <array>
#include <cstddef>
#include <cstdint>

namespace veldor::canlog {

enum class Direction : std::uint8_t { Rx, Tx };

struct CanFrame {
    static constexpr std::uint32_t kMaxStandardId = 0x7FF;
    static constexpr std::uint32_t kMaxExtendedId = 0x1FFFFFFF;
    static constexpr std::size_t kMaxClassicLength = 8;
    static constexpr std::size_t kMaxFdLength = 64;

    // Microseconds. Files written by this library keep it exactly.
    std::int64_t timestamp = 0;
    // The plain identifier, 11 or 29 bits, without marker bits.
    std::uint32_t id = 0;
    bool extended = false;
    bool remote = false;
    bool fd = false;
    bool bitRateSwitch = false;        // FD only
    bool errorStateIndicator = false;  // FD only
    // An error frame, which readers hand on only when asked
    // (ReaderOptions::errorFrames): its time, channel and direction, and the
    // identifier, length (0..8) and data that the file gives it, if any.
    bool error = false;
    // Payload bytes: 0..8 for classic frames, a value of the FD length table
    // for FD frames. A remote frame carries no payload; its length is the one
    // it asks for.
    std::uint8_t length = 0;
    // Counted from 0: the first channel is ASC channel 1 and can0.
    std::uint8_t channel = 0;
    Direction direction = Direction::Rx;
    std::array<std::uint8_t, kMaxFdLength> data{};
};

// Equal in every field and in the payload bytes in use; what lies past the
// length, or in the buffer of a remote frame, does not count.
bool operator==(const CanFrame& a, const CanFrame& b);
inline bool operator!=(const CanFrame& a, const CanFrame& b) { return !(a == b); }

// The byte count a DLC stands for: 0..8 as they are; 9..15 mean 8 bytes in
// a classic frame and 12, 16, 20, 24, 32, 48, 64 in an FD frame.
// Precondition: dlc <= 15.
std::uint8_t DlcToLength(std::uint8_t dlc, bool fd);

// The smallest DLC whose byte count holds `length` bytes (64 and more: 15).
std::uint8_t LengthToDlc(std::size_t length);

// Whether a frame of this kind can carry exactly `length` bytes.
bool IsValidLength(std::size_t length, bool fd);

// Why the frame cannot be stored in a log file, or nullptr if it can: an
// identifier out of range, a length the frame kind cannot have, a remote FD
// frame, FD flags on a classic frame, an error frame that is FD or remote.
const char* CheckFrame(const CanFrame& frame);

}  // namespace veldor::canlog

#endif
