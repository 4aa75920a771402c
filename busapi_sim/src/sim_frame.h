// Frame arithmetic of the simulated bus: DLC codes, frame lengths in bits,
// bus time, replay record sizes and bit timing.
#pragma once

#include <cstdint>

#include "NXBusApiCan.h"

namespace nxsim {

// Payload bytes for a DLC code, or -1 for a code above 15.
int DlcToLength(unsigned dlc);

// What decides how long a frame occupies the wire.
struct FrameShape {
    bool extended = false;
    bool fd = false;
    bool brs = false;
    bool remote = false;
    unsigned length = 0;  // payload bytes (ignored for remote frames)
};

// Bits spent at the arbitration (nominal) rate and at the data-phase rate.
// Worst-case stuffing: one stuff bit per four bits of the dynamically
// stuffed region; CAN FD adds the fixed stuff bits of its CRC field. The
// 3-bit interframe space is included.
struct FrameBits {
    uint32_t nominal = 0;
    uint32_t data = 0;
};
FrameBits CountFrameBits(const FrameShape& shape);

// Time on the wire in nanoseconds. Data-phase bits go at dataBitrate only
// with bit rate switch; otherwise everything goes at bitrate.
int64_t FrameDurationNs(const FrameShape& shape, uint32_t bitrate, uint32_t dataBitrate);

// Total size of a replay record with this DLC: 64 + round_up_8(len - 8).
// 0 for a DLC above 15.
uint32_t ReplayRecordSize(unsigned dlc);

// Bit timing: bitrate = clock / (BRP * (1 + TSEG1 + TSEG2)).
NXTCanError BaudrateToTiming(uint32_t clockFrequency, uint32_t baudrate, NXSCanBitTimingParameters* timing);
NXTCanError TimingToBaudrate(uint32_t clockFrequency, const NXSCanBitTimingParameters& timing, uint32_t* baudrate);
bool TimingIsZero(const NXSCanBitTimingParameters& timing);

// Identifier limits.
constexpr uint32_t kMaxStandardId = 0x7FF;
constexpr uint32_t kMaxExtendedId = 0x1FFFFFFF;

}  // namespace nxsim
