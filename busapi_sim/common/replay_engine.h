// Hardware-timed replay of one channel or interface, whatever the bus: a
// queue of frames taken from the replay stream, and a thread that emits
// each at start + (T - offset) hardware ticks, paced by a DeadlinePacer.
// The bus reads its own records and puts its own frames on the wire
// through ReplayBus; the rules of times, states and counters live here once.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "deadline_pacer.h"
#include "hardware_clock.h"

namespace nxsim {

// The values of both libraries' replay state enumerations.
enum class ReplayState : uint32_t { Unknown = 0, Scheduled = 1, Started = 2, Stop = 3, End = 4, Flush = 5 };
enum class ReplayStartOption : uint32_t { None = 0, ForceApply = 1, ApplyOffsetOnly = 2 };
enum class ReplayResult { Ok, InvalidRecord, AlreadyStarted, InvalidArgument };

// One record of a replay stream as the bus reads it.
struct StreamRecord {
    enum class Kind {
        Frame,            // to be emitted
        EndOfStream,      // the closing record
        InvalidContents,  // well formed, but no frame the bus can send: consumed and counted
        Corrupt,          // not a record of this stream: the stream stops before it
        Incomplete        // runs past the bytes offered: the rest comes later
    };
    Kind kind = Kind::Corrupt;
    uint32_t size = 0;       // bytes the record takes in the stream
    uint64_t timestamp = 0;  // T, in hardware ticks
    const void* payload = nullptr;  // Frame: what EmitFrame is given when it is due
    uint32_t payloadSize = 0;
};

class ReplayBus {
public:
    virtual ~ReplayBus() = default;
    // Reads the record that starts at `data`, `available` bytes from there.
    // Called on one thread at a time; the payload must stay valid until the
    // next call.
    virtual StreamRecord ReadRecord(const uint8_t* data, uint32_t available) = 0;
    // Puts one frame on the wire now; false if it could not be sent. May
    // wait for room as long as `abandon` answers false.
    virtual bool EmitFrame(const uint8_t* payload, uint32_t size, const std::function<bool()>& abandon) = 0;
};

struct ReplaySettings {
    uint32_t recordLimit = 0;  // frames and end records queued at most; 0: no limit but the bytes
    size_t byteLimit = 0;      // room of the queue, payloads and their bookkeeping
    bool highSpeed = false;
    int64_t lateThresholdNs = 1000000;
    int realtimePriority = 0;  // of the emitting thread, where the system allows it
};

struct ReplayStatus {
    ReplayState state = ReplayState::Unknown;
    uint64_t timestamp = 0;  // T of the last frame emitted
    uint64_t sent = 0;
    uint64_t errorData = 0;
    uint64_t failed = 0;
    uint64_t dropped = 0;
    uint64_t late = 0;
    uint64_t queued = 0;  // records waiting
    bool highSpeed = false;
    uint64_t spunNs = 0;  // the emitting thread's time spent spinning to deadlines
};

// Fills a library's status record (both have the same fields): Reserved[0]
// late frames, [1] records waiting, [2] 1 on the high-speed path, [3]
// microseconds the emitting thread spent spinning (low 32 bits).
template <class Info>
void FillReplayStatus(const ReplayStatus& s, uint32_t validFlags, Info* info)
{
    *info = Info{};
    info->ulValidInfoFlags = validFlags;
    info->tReplayState = static_cast<decltype(info->tReplayState)>(s.state);
    info->ui64Timestamp = s.timestamp;
    info->ui64SentFrames = s.sent;
    info->ui64ErrorData = s.errorData;
    info->ui64SendFailed = s.failed;
    info->ui64Dropped = s.dropped;
    info->Reserved[0] = static_cast<uint32_t>(s.late);
    info->Reserved[1] = static_cast<uint32_t>(s.queued);
    info->Reserved[2] = s.highSpeed ? 1 : 0;
    info->Reserved[3] = static_cast<uint32_t>(s.spunNs / 1000);
}

// Frames waiting for their time, back to back in one block of memory.
class RecordQueue {
public:
    struct Entry {
        uint64_t timestamp;
        bool endOfStream;
        const uint8_t* payload;
        uint32_t size;
    };
    explicit RecordQueue(size_t capacityBytes);
    bool Push(uint64_t timestamp, bool endOfStream, const void* payload, uint32_t size);
    Entry Front() const;
    void Pop();
    void Clear();
    size_t Count() const { return m_count; }
    size_t Frames() const { return m_frames; }
    static size_t Footprint(uint32_t payloadSize);

private:
    struct Head {
        uint64_t timestamp;
        uint32_t size;
        uint32_t flags;
    };
    void SkipWrap();

    std::vector<uint8_t> m_bytes;
    size_t m_head = 0;
    size_t m_tail = 0;
    size_t m_used = 0;
    size_t m_count = 0;
    size_t m_frames = 0;
};

class ReplayEngine {
public:
    ReplayEngine(ReplayBus& bus, const HardwareClock& clock, const ReplaySettings& settings);
    ~ReplayEngine();

    ReplayEngine(const ReplayEngine&) = delete;
    ReplayEngine& operator=(const ReplayEngine&) = delete;

    // Takes whole records from `data`; *size is in: bytes offered, out: bytes
    // consumed. maxRecords 0 means no limit besides the queue.
    ReplayResult Stream(uint32_t* size, const uint8_t* data, uint32_t maxRecords);
    ReplayResult SetStartTime(uint64_t startTime, uint64_t offset, uint32_t option);
    void SetStopTime(uint64_t stopTime);
    void Flush();
    ReplayStatus Status();
    bool HighSpeed() const { return m_settings.highSpeed; }

private:
    void Run();
    bool StartedLocked(uint64_t nowTicks) const;
    void DropQueuedLocked();

    ReplayBus& m_bus;
    const HardwareClock m_clock;
    const ReplaySettings m_settings;

    std::mutex m_streamMutex;  // one Stream at a time: records keep their order
    std::mutex m_mutex;
    std::condition_variable m_wake;
    RecordQueue m_queue;
    bool m_stopping = false;

    bool m_startKnown = false;
    int64_t m_start = 0;
    int64_t m_offset = 0;
    uint64_t m_stop = 0;  // 0: none
    bool m_emittedAny = false;
    ReplayState m_final = ReplayState::Unknown;  // End, Stop or Flush once reached

    uint64_t m_lastTimestamp = 0;
    uint64_t m_sent = 0;
    uint64_t m_failed = 0;
    uint64_t m_dropped = 0;
    uint64_t m_errorData = 0;
    uint64_t m_late = 0;

    DeadlinePacer m_pacer;
    std::vector<uint8_t> m_emitting;
    std::thread m_thread;
};

}  // namespace nxsim
