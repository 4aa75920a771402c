// Replay progress as the bus access libraries report it, the record of the
// replay state output.
#ifndef NX_BUS_REPLAY_STATE_INFO_H
#define NX_BUS_REPLAY_STATE_INFO_H

#include <cstddef>
#include <cstdint>

struct NxBusReplayStateInfo {
    std::uint64_t ui64Timestamp;   // the library's replay time, in its ticks
    std::uint64_t ui64SentFrames;
    std::uint64_t ui64ErrorData;
    std::uint64_t ui64SendFailed;
    std::uint64_t ui64Dropped;
    std::uint8_t tReplayState;     // the library's replay state, cut to 8 bits
};

static_assert(sizeof(NxBusReplayStateInfo) == 48, "NxBusReplayStateInfo layout");
static_assert(offsetof(NxBusReplayStateInfo, ui64SentFrames) == 8, "NxBusReplayStateInfo layout");
static_assert(offsetof(NxBusReplayStateInfo, ui64ErrorData) == 16, "NxBusReplayStateInfo layout");
static_assert(offsetof(NxBusReplayStateInfo, ui64SendFailed) == 24, "NxBusReplayStateInfo layout");
static_assert(offsetof(NxBusReplayStateInfo, ui64Dropped) == 32, "NxBusReplayStateInfo layout");
static_assert(offsetof(NxBusReplayStateInfo, tReplayState) == 40, "NxBusReplayStateInfo layout");

#endif
