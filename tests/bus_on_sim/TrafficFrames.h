// The traffic that the bus tests send through the package's wrapper, in this
// process and from the helper program: classic CAN and CAN FD frames of every
// length, standard and extended identifiers, handed over as each of the three
// frame records.
#ifndef NXBUS_ON_SIM_TRAFFIC_FRAMES_H
#define NXBUS_ON_SIM_TRAFFIC_FRAMES_H

#include <cstdint>
#include <vector>

#include "NxCanApiWrapper.h"

namespace nxbus_on_sim {

// The record through which a frame reaches the wrapper.
enum class Record { Classic, Fd, Universal };

struct FrameFields {
    Record record;
    std::uint32_t id;
    bool extended;
    int length;  // bytes of payload
    bool fd;     // CAN FD format; a CAN FD record is always sent with bit rate switch
    bool brs;
    std::uint8_t seed;  // payload byte i is seed + i
    VELDTimestamp ts;   // replay time, in microseconds
};

// The frames, built from their description.
VELDCANFrame ClassicRecord(const FrameFields& fields);
VELDCANFDFrame FdRecord(const FrameFields& fields);
VELDCANUniFrame UniversalRecord(const FrameFields& fields);

// Every classic length and every CAN FD length with and without bit rate
// switch, from all three records; identifiers up to both limits.
std::vector<FrameFields> MixedTraffic();

// The message that the wrapper's CopyFrame makes of the frame.
NXSCanMessage ToMessage(const FrameFields& fields);
std::vector<NXSCanMessage> ToMessages(const std::vector<FrameFields>& fieldSets);

// Stages the frame for replay with the wrapper's CopyFrame2, through its record.
NxBusError Stage(NxCanApiWrapper& wrapper, const FrameFields& fields);

}  // namespace nxbus_on_sim

#endif
