#include "replay_engine.h"

#include <algorithm>
#include <chrono>
#include <cstring>

namespace nxsim {

namespace {

constexpr uint32_t kEndOfStream = 1;
constexpr uint32_t kWrap = 2;
constexpr int64_t kLongestSleepNs = 1000000000;  // times are looked at again at least this often
constexpr size_t kEmittingRoom = 16384;          // the largest frame, that emission never allocates

std::chrono::steady_clock::time_point SteadyAt(int64_t monoNs)
{
    // steady_clock is CLOCK_MONOTONIC on this platform.
    return std::chrono::steady_clock::time_point(std::chrono::nanoseconds(monoNs));
}

size_t Round8(size_t v)
{
    return (v + 7) & ~size_t{7};
}

}  // namespace

// ---------------------------------------------------------------------------
// RecordQueue: entries (a head and the payload, 8-byte aligned) one after
// the other; one that does not fit before the end of the block starts again
// at its beginning, behind a wrap mark (or, with less than a head left,
// without one).

RecordQueue::RecordQueue(size_t capacityBytes) : m_bytes(Round8(capacityBytes)) {}

size_t RecordQueue::Footprint(uint32_t payloadSize)
{
    return sizeof(Head) + Round8(payloadSize);
}

bool RecordQueue::Push(uint64_t timestamp, bool endOfStream, const void* payload, uint32_t size)
{
    const size_t need = Footprint(size);
    const size_t capacity = m_bytes.size();
    if (m_used == 0)
        m_head = m_tail = 0;
    size_t at = m_tail;
    if (m_used == capacity)
        return false;
    if (m_tail >= m_head) {
        if (capacity - m_tail < need) {
            if (m_head < need)
                return false;
            if (capacity - m_tail >= sizeof(Head)) {
                Head wrap{0, 0, kWrap};
                std::memcpy(&m_bytes[m_tail], &wrap, sizeof wrap);
            }
            m_used += capacity - m_tail;
            at = 0;
        }
    } else if (m_head - m_tail < need) {
        return false;
    }
    Head head{timestamp, size, endOfStream ? kEndOfStream : 0u};
    std::memcpy(&m_bytes[at], &head, sizeof head);
    if (size > 0)
        std::memcpy(&m_bytes[at + sizeof head], payload, size);
    m_tail = at + need;
    if (m_tail == capacity)
        m_tail = 0;
    m_used += need;
    ++m_count;
    m_frames += endOfStream ? 0 : 1;
    return true;
}

RecordQueue::Entry RecordQueue::Front() const
{
    Head head;
    std::memcpy(&head, &m_bytes[m_head], sizeof head);
    return Entry{head.timestamp, (head.flags & kEndOfStream) != 0, &m_bytes[m_head + sizeof head], head.size};
}

void RecordQueue::SkipWrap()
{
    const size_t capacity = m_bytes.size();
    if (m_used == 0 || m_head >= capacity)
        return;
    bool wrap = capacity - m_head < sizeof(Head);
    if (!wrap) {
        Head head;
        std::memcpy(&head, &m_bytes[m_head], sizeof head);
        wrap = (head.flags & kWrap) != 0;
    }
    if (wrap) {
        m_used -= capacity - m_head;
        m_head = 0;
    }
}

void RecordQueue::Pop()
{
    const Entry entry = Front();
    const size_t footprint = Footprint(entry.size);
    m_head += footprint;
    if (m_head == m_bytes.size())
        m_head = 0;
    m_used -= footprint;
    --m_count;
    m_frames -= entry.endOfStream ? 0 : 1;
    SkipWrap();
}

void RecordQueue::Clear()
{
    m_head = m_tail = m_used = m_count = m_frames = 0;
}

// ---------------------------------------------------------------------------
// ReplayEngine

ReplayEngine::ReplayEngine(ReplayBus& bus, const HardwareClock& clock, const ReplaySettings& settings)
    : m_bus(bus), m_clock(clock), m_settings(settings), m_queue(settings.byteLimit)
{
    m_emitting.resize(kEmittingRoom);  // touched now, not at the first frame
    m_emitting.clear();
    m_thread = std::thread([this] { Run(); });
}

ReplayEngine::~ReplayEngine()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stopping = true;
    }
    m_wake.notify_all();
    m_thread.join();
}

ReplayResult ReplayEngine::Stream(uint32_t* size, const uint8_t* data, uint32_t maxRecords)
{
    std::lock_guard<std::mutex> streamLock(m_streamMutex);
    const uint32_t offered = *size;
    uint32_t consumed = 0;
    uint32_t records = 0;
    ReplayResult result = ReplayResult::Ok;
    // The lock is taken per record, never for the whole block: the emitting
    // thread waits at most for one record to be queued.
    while (consumed < offered && (maxRecords == 0 || records < maxRecords)) {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (m_settings.recordLimit != 0 && m_queue.Count() >= m_settings.recordLimit)
                break;
        }
        const StreamRecord record = m_bus.ReadRecord(data + consumed, offered - consumed);
        if (record.kind == StreamRecord::Kind::Corrupt) {
            result = ReplayResult::InvalidRecord;
            break;
        }
        if (record.kind == StreamRecord::Kind::Incomplete)
            break;
        bool wake = false;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (record.kind == StreamRecord::Kind::InvalidContents) {
                ++m_errorData;
            } else if (record.kind == StreamRecord::Kind::Frame && m_final == ReplayState::Stop) {
                ++m_dropped;
            } else {
                const bool endOfStream = record.kind == StreamRecord::Kind::EndOfStream;
                wake = m_queue.Count() == 0;  // else the head and its deadline stay
                if (!m_queue.Push(record.timestamp, endOfStream, record.payload,
                                  endOfStream ? 0 : record.payloadSize))
                    break;
                if (!endOfStream && m_final != ReplayState::Stop)
                    m_final = ReplayState::Unknown;  // End and Flush end with new data
            }
        }
        if (wake)
            m_wake.notify_all();
        consumed += record.size;
        ++records;
    }
    *size = consumed;
    return result;
}

bool ReplayEngine::StartedLocked(uint64_t nowTicks) const
{
    return m_emittedAny || (m_startKnown && static_cast<int64_t>(nowTicks) >= m_start);
}

ReplayResult ReplayEngine::SetStartTime(uint64_t startTime, uint64_t offset, uint32_t option)
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        const uint64_t now = m_clock.NowTicks();
        switch (static_cast<ReplayStartOption>(option)) {
        case ReplayStartOption::None:
            if (StartedLocked(now))
                return ReplayResult::AlreadyStarted;
            m_start = static_cast<int64_t>(startTime);
            break;
        case ReplayStartOption::ForceApply:
            m_start = static_cast<int64_t>(startTime);
            break;
        case ReplayStartOption::ApplyOffsetOnly:
            if (!m_startKnown)
                m_start = static_cast<int64_t>(now);
            break;
        default:
            return ReplayResult::InvalidArgument;
        }
        m_offset = static_cast<int64_t>(offset);
        m_startKnown = true;
    }
    m_wake.notify_all();
    return ReplayResult::Ok;
}

void ReplayEngine::SetStopTime(uint64_t stopTime)
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = stopTime;
        if (m_final == ReplayState::Stop && (stopTime == 0 || stopTime > m_clock.NowTicks()))
            m_final = ReplayState::Unknown;
    }
    m_wake.notify_all();
}

void ReplayEngine::DropQueuedLocked()
{
    m_dropped += m_queue.Frames();
    m_queue.Clear();
}

void ReplayEngine::Flush()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        DropQueuedLocked();
        if (m_final != ReplayState::Stop)
            m_final = ReplayState::Flush;
    }
    m_wake.notify_all();
}

ReplayStatus ReplayEngine::Status()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    ReplayStatus s;
    if (m_final != ReplayState::Unknown)
        s.state = m_final;
    else if (!m_startKnown)
        s.state = ReplayState::Unknown;
    else if (!StartedLocked(m_clock.NowTicks()))
        s.state = ReplayState::Scheduled;
    else
        s.state = ReplayState::Started;
    s.timestamp = m_lastTimestamp;
    s.sent = m_sent;
    s.errorData = m_errorData;
    s.failed = m_failed;
    s.dropped = m_dropped;
    s.late = m_late;
    s.queued = m_queue.Count();
    s.highSpeed = m_settings.highSpeed;
    s.spunNs = m_pacer.SpunNs();
    return s;
}

void ReplayEngine::Run()
{
    PrepareTimingThread("nxsim-replay", m_settings.realtimePriority);
    const auto abandon = [this] {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_stopping;
    };
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_stopping) {
        const int64_t nowNs = MonotonicNs();
        const uint64_t nowTicks = m_clock.TicksAt(nowNs);
        const bool stopSet = m_stop != 0 && m_final != ReplayState::Stop;
        if (stopSet && nowTicks >= m_stop) {
            m_final = ReplayState::Stop;
            DropQueuedLocked();
            continue;
        }
        if (m_queue.Count() == 0 || !m_startKnown) {
            if (stopSet && m_startKnown) {
                const int64_t stopNs = m_clock.MonoNsAt(static_cast<int64_t>(std::min<uint64_t>(m_stop, INT64_MAX / 1000)));
                m_wake.wait_until(lock, SteadyAt(std::min(stopNs, nowNs + kLongestSleepNs)));
            } else {
                m_wake.wait(lock);
            }
            continue;
        }
        const RecordQueue::Entry head = m_queue.Front();
        if (head.endOfStream) {
            m_queue.Pop();
            if (m_final != ReplayState::Stop)
                m_final = ReplayState::End;
            continue;
        }
        const int64_t emitTicks = m_start + (static_cast<int64_t>(head.timestamp) - m_offset);
        if (m_stop != 0 && emitTicks > static_cast<int64_t>(m_stop)) {
            m_queue.Pop();
            ++m_dropped;
            continue;
        }
        const int64_t emitNs = m_clock.MonoNsAt(emitTicks);
        if (nowNs < emitNs) {
            // Sleep to shortly before the deadline, then spin to it. Anything
            // that changes the queue or the times wakes the sleep, and all
            // is looked at again.
            const int64_t wake = m_pacer.WakeFor(emitNs, nowNs);
            if (nowNs < wake) {
                const int64_t until = std::min(wake, nowNs + kLongestSleepNs);
                if (m_wake.wait_until(lock, SteadyAt(until)) == std::cv_status::timeout && until == wake)
                    m_pacer.NoteWake(wake, MonotonicNs());
                continue;
            }
            lock.unlock();
            m_pacer.SpinUntil(emitNs);
            lock.lock();
            continue;
        }
        m_emitting.assign(head.payload, head.payload + head.size);  // room kept from the first frames on
        const uint64_t timestamp = head.timestamp;
        m_queue.Pop();
        m_emittedAny = true;
        const bool late = nowNs - emitNs > m_settings.lateThresholdNs;
        lock.unlock();
        const bool sent = m_bus.EmitFrame(m_emitting.data(), static_cast<uint32_t>(m_emitting.size()), abandon);
        lock.lock();
        if (sent) {
            ++m_sent;
            m_late += late ? 1 : 0;
            m_lastTimestamp = timestamp;
        } else {
            ++m_failed;
        }
    }
}

}  // namespace nxsim
