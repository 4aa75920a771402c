// The replay records that the CAN and the Ethernet library lay out alike:
// the head of every record of a replay stream, and the replay status, which
// differ only in the enumeration of the state.
#ifndef NX_REPLAY_RECORDS_H
#define NX_REPLAY_RECORDS_H

#include <cstddef>
#include <cstdint>

struct NxReplayHeader {
    std::uint32_t reserved1;
    std::uint32_t reserved2;
    std::uint32_t reserved3;
    std::uint32_t ulSize;         // the record's whole size, filled by the library
    std::uint64_t ui64Timestamp;  // hardware ticks
    std::uint64_t reserved4;
};

template <class State>
struct NxReplayStatus {
    std::uint32_t ulValidInfoFlags;
    State tReplayState;
    std::uint64_t ui64Timestamp;
    std::uint64_t ui64SentFrames;
    std::uint64_t ui64ErrorData;
    std::uint64_t ui64SendFailed;
    std::uint64_t ui64Dropped;
    std::uint32_t Reserved[6];
};

static_assert(sizeof(NxReplayHeader) == 32, "replay header layout");
static_assert(offsetof(NxReplayHeader, ulSize) == 12, "replay header layout");
static_assert(offsetof(NxReplayHeader, ui64Timestamp) == 16, "replay header layout");
static_assert(offsetof(NxReplayHeader, reserved4) == 24, "replay header layout");

// The layout of a status, for a state of 32 bits.
template <class State>
constexpr bool NxReplayStatusLayoutHolds()
{
    using S = NxReplayStatus<State>;
    return sizeof(State) == 4 && sizeof(S) == 72 && offsetof(S, tReplayState) == 4 && offsetof(S, ui64Timestamp) == 8 &&
           offsetof(S, ui64SentFrames) == 16 && offsetof(S, ui64ErrorData) == 24 && offsetof(S, ui64SendFailed) == 32 &&
           offsetof(S, ui64Dropped) == 40 && offsetof(S, Reserved) == 48;
}

#endif
