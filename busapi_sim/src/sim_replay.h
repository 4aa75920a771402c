// Hardware-timed replay of one channel: a queue of records taken from the
// replay stream and a thread that puts each frame on the wire at
// start + (T - offset) hardware ticks.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <thread>

#include "NXBusApiCan.h"
#include "sim_clock.h"
#include "sim_segment.h"

namespace nxsim {

class Channel;

class Replay {
public:
    Replay(Channel& channel, const HardwareClock& clock, uint32_t queueLimit, bool highSpeed,
           int64_t lateThresholdNs);
    ~Replay();

    Replay(const Replay&) = delete;
    Replay& operator=(const Replay&) = delete;

    // Takes whole records from `data`; *size is in: bytes offered, out: bytes
    // consumed. maxRecords 0 means no limit besides the queue.
    NXTCanError Stream(uint32_t* size, const uint8_t* data, uint32_t maxRecords);
    NXTCanError SetStartTime(uint64_t startTime, uint64_t offset, NXECanReplayStartOptions option);
    NXTCanError SetStopTime(uint64_t stopTime);
    void Flush();
    void Status(NXSCanReplayStatusInfo* info);

    bool HighSpeed() const { return m_highSpeed; }

private:
    struct Item {
        uint64_t timestamp;
        bool endOfStream;
        WireFrame frame;
    };

    void Run();
    bool StartedLocked(uint64_t nowTicks) const;
    void DropQueuedLocked();

    Channel& m_channel;
    const HardwareClock m_clock;
    const uint32_t m_queueLimit;
    const bool m_highSpeed;
    const int64_t m_lateThresholdNs;

    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::deque<Item> m_queue;
    bool m_stopping = false;

    bool m_startKnown = false;
    int64_t m_start = 0;
    int64_t m_offset = 0;
    uint64_t m_stop = 0;  // 0: none
    bool m_emittedAny = false;
    NXECanReplayState m_final = NXCAN_REPLAY_STATE_UNKNOWN;  // END, STOP or FLUSH once reached

    uint64_t m_lastTimestamp = 0;
    uint64_t m_sent = 0;
    uint64_t m_failed = 0;
    uint64_t m_dropped = 0;
    uint64_t m_errorData = 0;
    uint64_t m_late = 0;

    std::thread m_thread;
};

}  // namespace nxsim
