// How long the simulated bus holds a frame: its worst-case bit count at
// 500 kbit/s and 2 Mbit/s, as the simulator reckons it. For the programs
// that load the simulated bus to a given share (they link the simulator's
// frame code).
#pragma once

#include "LoadedBus.h"
#include "sim_frame.h"

namespace veldor::sample {

inline FrameDuration SimulatedDuration()
{
    return [](const canlog::CanFrame& f) {
        nxsim::FrameShape shape;
        shape.extended = f.extended;
        shape.fd = f.fd;
        shape.brs = f.bitRateSwitch;
        shape.remote = f.remote;
        shape.length = f.length;
        return static_cast<std::int64_t>(nxsim::FrameDurationNs(shape, 500000, 2000000));
    };
}

}  // namespace veldor::sample
