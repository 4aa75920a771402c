#include "sim_replay.h"

#include <sys/prctl.h>

#include <chrono>
#include <cstring>

#include "sim_channel.h"
#include "sim_frame.h"

namespace nxsim {

namespace {

constexpr int64_t kSpinNs = 200000;  // high-speed path: spin through the last 200 us

std::chrono::steady_clock::time_point SteadyAt(int64_t monoNs)
{
    // steady_clock is CLOCK_MONOTONIC on this platform.
    return std::chrono::steady_clock::time_point(std::chrono::nanoseconds(monoNs));
}

}  // namespace

Replay::Replay(Channel& channel, const HardwareClock& clock, uint32_t queueLimit, bool highSpeed,
               int64_t lateThresholdNs)
    : m_channel(channel),
      m_clock(clock),
      m_queueLimit(highSpeed ? queueLimit * 4 : queueLimit),
      m_highSpeed(highSpeed),
      m_lateThresholdNs(lateThresholdNs)
{
    m_thread = std::thread([this] { Run(); });
}

Replay::~Replay()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stopping = true;
    }
    m_wake.notify_all();
    m_thread.join();
}

NXTCanError Replay::Stream(uint32_t* size, const uint8_t* data, uint32_t maxRecords)
{
    const uint32_t offered = *size;
    uint32_t consumed = 0;
    uint32_t records = 0;
    NXTCanError result = NXCAN_SUCCESS;
    bool queued = false;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        while (offered - consumed >= sizeof(NXSCanReplayData) && (maxRecords == 0 || records < maxRecords) &&
               m_queue.size() < m_queueLimit) {
            NXSCanReplayData head;
            std::memcpy(&head, data + consumed, sizeof head);
            const uint32_t expected = ReplayRecordSize(head.tMsgHeader.usDLC);
            if ((head.tHeader.reserved1 & 0xFFFFFF00u) != NXCAN_REPLAY_RECORD_MARK || expected == 0 ||
                head.tHeader.ulSize != expected) {
                result = NXCAN_ERR_INVALID_RECORD;
                break;
            }
            if (offered - consumed < expected)
                break;  // the rest of this record comes with the next call
            const bool endOfStream = (head.tHeader.reserved1 & NXCAN_REPLAY_RECORD_END_OF_STREAM) != 0;
            Item item{};
            item.timestamp = head.tHeader.ui64Timestamp;
            item.endOfStream = endOfStream;
            bool keep = true;
            if (!endOfStream) {
                const NXSCanReplayMsgHeader& msg = head.tMsgHeader;
                const char* reason = nullptr;
                if (MakeWireFrame(msg.tMessageType, msg.ulCanId, msg.tMsgFormat, msg.ulFlags, msg.usDLC,
                                  data + consumed + offsetof(NXSCanReplayData, ui64StartOfMsgData), item.frame,
                                  &reason) != NXCAN_SUCCESS) {
                    ++m_errorData;
                    keep = false;
                } else if (m_final == NXCAN_REPLAY_STATE_STOP) {
                    ++m_dropped;
                    keep = false;
                }
            }
            if (keep) {
                m_queue.push_back(item);
                queued = true;
                if (!endOfStream && m_final != NXCAN_REPLAY_STATE_STOP)
                    m_final = NXCAN_REPLAY_STATE_UNKNOWN;  // END and FLUSH end with new data
            }
            consumed += expected;
            ++records;
        }
    }
    if (queued)
        m_wake.notify_all();
    *size = consumed;
    return result;
}

bool Replay::StartedLocked(uint64_t nowTicks) const
{
    return m_emittedAny || (m_startKnown && static_cast<int64_t>(nowTicks) >= m_start);
}

NXTCanError Replay::SetStartTime(uint64_t startTime, uint64_t offset, NXECanReplayStartOptions option)
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        const uint64_t now = m_clock.NowTicks();
        switch (option) {
        case NXCAN_REPLAY_OPTION_NONE:
            if (StartedLocked(now))
                return NXCAN_ERR_REPLAY_ALREADY_STARTED;
            m_start = static_cast<int64_t>(startTime);
            break;
        case NXCAN_REPLAY_OPTION_FORCE_APPLY:
            m_start = static_cast<int64_t>(startTime);
            break;
        case NXCAN_REPLAY_OPTION_APPLY_OFFSET_ONLY:
            if (!m_startKnown)
                m_start = static_cast<int64_t>(now);
            break;
        default:
            return NXCAN_ERR_INVALID_ARGUMENT;
        }
        m_offset = static_cast<int64_t>(offset);
        m_startKnown = true;
    }
    m_wake.notify_all();
    return NXCAN_SUCCESS;
}

NXTCanError Replay::SetStopTime(uint64_t stopTime)
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = stopTime;
        if (m_final == NXCAN_REPLAY_STATE_STOP && (stopTime == 0 || stopTime > m_clock.NowTicks()))
            m_final = NXCAN_REPLAY_STATE_UNKNOWN;
    }
    m_wake.notify_all();
    return NXCAN_SUCCESS;
}

void Replay::DropQueuedLocked()
{
    for (const Item& item : m_queue)
        if (!item.endOfStream)
            ++m_dropped;
    m_queue.clear();
}

void Replay::Flush()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        DropQueuedLocked();
        if (m_final != NXCAN_REPLAY_STATE_STOP)
            m_final = NXCAN_REPLAY_STATE_FLUSH;
    }
    m_wake.notify_all();
}

void Replay::Status(NXSCanReplayStatusInfo* info)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    std::memset(info, 0, sizeof *info);
    info->ulValidInfoFlags = NXCAN_REPLAY_INFO_VALID_ALL;
    const uint64_t now = m_clock.NowTicks();
    if (m_final != NXCAN_REPLAY_STATE_UNKNOWN)
        info->tReplayState = m_final;
    else if (!m_startKnown)
        info->tReplayState = NXCAN_REPLAY_STATE_UNKNOWN;
    else if (!StartedLocked(now))
        info->tReplayState = NXCAN_REPLAY_STATE_SCHEDULED;
    else
        info->tReplayState = NXCAN_REPLAY_STATE_STARTED;
    info->ui64Timestamp = m_lastTimestamp;
    info->ui64SentFrames = m_sent;
    info->ui64ErrorData = m_errorData;
    info->ui64SendFailed = m_failed;
    info->ui64Dropped = m_dropped;
    info->Reserved[0] = static_cast<uint32_t>(m_late);
    info->Reserved[1] = static_cast<uint32_t>(m_queue.size());
    info->Reserved[2] = m_highSpeed ? 1 : 0;
}

void Replay::Run()
{
    prctl(PR_SET_TIMERSLACK, 1000UL, 0, 0, 0);
    const auto abandon = [this] {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_stopping;
    };
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_stopping) {
        const int64_t nowNs = MonotonicNs();
        const uint64_t nowTicks = m_clock.TicksAt(nowNs);
        const bool stopSet = m_stop != 0 && m_final != NXCAN_REPLAY_STATE_STOP;
        if (stopSet && nowTicks >= m_stop) {
            m_final = NXCAN_REPLAY_STATE_STOP;
            DropQueuedLocked();
            continue;
        }
        if (m_queue.empty() || !m_startKnown) {
            if (stopSet && m_startKnown)
                m_wake.wait_until(lock, SteadyAt(m_clock.MonoNsAt(static_cast<int64_t>(m_stop))));
            else
                m_wake.wait(lock);
            continue;
        }
        Item& head = m_queue.front();
        if (head.endOfStream) {
            m_queue.pop_front();
            if (m_final != NXCAN_REPLAY_STATE_STOP)
                m_final = NXCAN_REPLAY_STATE_END;
            continue;
        }
        const int64_t emitTicks = m_start + (static_cast<int64_t>(head.timestamp) - m_offset);
        if (m_stop != 0 && emitTicks > static_cast<int64_t>(m_stop)) {
            m_queue.pop_front();
            ++m_dropped;
            continue;
        }
        const int64_t emitNs = m_clock.MonoNsAt(emitTicks);
        if (nowNs < emitNs) {
            if (m_highSpeed && emitNs - nowNs <= kSpinNs) {
                lock.unlock();
                while (MonotonicNs() < emitNs) {
                }
                lock.lock();
            } else {
                m_wake.wait_until(lock, SteadyAt(m_highSpeed ? emitNs - kSpinNs : emitNs));
            }
            continue;  // the queue or the times may have changed meanwhile
        }
        Item item = head;
        m_queue.pop_front();
        m_emittedAny = true;
        const bool late = nowNs - emitNs > m_lateThresholdNs;
        lock.unlock();
        const NXTCanError rc = m_channel.EmitReplayFrame(item.frame, abandon);
        lock.lock();
        if (rc == NXCAN_SUCCESS) {
            ++m_sent;
            m_late += late ? 1 : 0;
            m_lastTimestamp = item.timestamp;
        } else {
            ++m_failed;
        }
    }
}

}  // namespace nxsim
