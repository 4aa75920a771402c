// The frames of the bus tests.
#ifndef VELDOR_TESTS_BUS_FRAMES_H
#define VELDOR_TESTS_BUS_FRAMES_H

#include <cstdint>

#include "veld_can_frames.h"

// A CAN frame of any of the three kinds; payload byte i is id + i.
template <class Frame = VELDCANFrame>
Frame MakeCanFrame(std::uint32_t id, int length = 8, VELDTimestamp ts = 0, bool extended = false)
{
    Frame frame{};
    extended ? frame.SetExtendedId(id) : frame.SetStandardId(id);
    frame.SetDataLength(static_cast<std::size_t>(length));
    for (std::size_t i = 0; i < sizeof frame.data; ++i) frame.data[i] = static_cast<VELDUInt8>(id + i);
    frame.SetTimestamp(ts);
    return frame;
}

#endif
