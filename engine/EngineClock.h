// The engine's time: a clock in microseconds that runs at any speed, stops,
// pauses, jumps and runs backwards, with the time-state lock and condition
// that every wait of the framework relies on, and the time thread that tells
// listeners of each change.
//
// Origin. The clock starts equal to the system's monotonic clock
// (CLOCK_MONOTONIC, in microseconds) and, at speed 1000 with no jump, stays
// equal to it. The simulated bus hardware counts its ticks on the same
// monotonic clock, so a synchronised replay whose start time comes from this
// clock lines up with the hardware without any configuration; on real
// hardware the bus library's own clock applies.
//
// Current time = base time + (monotonic now - monotonic base) x speed / 1000,
// frozen while paused or at speed 0. Every change (SetTime, SetSpeed,
// SetPaused) rebases, takes the time-state lock, signals the time-state
// condition under it and queues the news for the listeners. Reading the time
// never takes the time-state lock, so it is safe under it.
#ifndef VELDOR_ENGINE_ENGINE_CLOCK_H
#define VELDOR_ENGINE_ENGINE_CLOCK_H

#include <time.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

#include "veld_event.h"
#include "veld_types.h"

class VELDBaseClock;
class VELDTimeStateListener;

namespace veldor {

class EngineClock {
public:
    EngineClock();
    EngineClock(const EngineClock&) = delete;
    EngineClock& operator=(const EngineClock&) = delete;
    ~EngineClock();

    static VELDTimestamp Monotonic()
    {
        timespec now;
        clock_gettime(CLOCK_MONOTONIC, &now);
        return static_cast<VELDTimestamp>(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
    }

    // One read of the monotonic clock and no lock: what stamps elements.
    VELDTimestamp Now() const { return At(ReadBase(), Monotonic()); }
    // In thousandths: 1000 real time, 0 stopped, negative backwards.
    int Speed() const;
    bool IsPaused() const;

    void SetTime(VELDTimestamp time);
    void SetSpeed(int speed);
    void SetPaused(bool paused);

    VELDMutex& TimeStateLock() { return m_timeStateLock; }
    VELDCondition& TimeStateCondition() { return m_condition; }

    void AddListener(VELDTimeStateListener* listener);
    // Once it returns, the listener is not called again; called from a
    // listener's own callback, it does not wait for that call to end.
    void RemoveListener(VELDTimeStateListener* listener);
    // Waits until the time thread has told everything queued so far.
    void Flush();

    // Ids 1 to 255 for clocks that packages supply; 0 when none is left.
    unsigned char RegisterClock(VELDBaseClock* clock);
    void UnregisterClock(VELDBaseClock* clock);

private:
    enum Kind { Jumped, SpeedChanged, PausedChanged };
    struct News {
        Kind kind;
        VELDTimestamp time;
        int speed;
        bool paused;
    };

    // Under the time-state lock: moves the base to now, applies `change` to
    // it, signals the condition; then queues the news.
    template <class Change>
    void ChangeState(Change change, const News& news);
    void Tell(VELDTimeStateListener* listener, const News& news);
    void TimeThread();

    // The base, read on every time stamp: a sequence lock, so that readers
    // never wait and never take the time-state lock. Writers are the changes,
    // one at a time under the time-state lock; an odd sequence means a write
    // is under way, and a reader that saw the sequence move reads again.
    struct Base {
        VELDTimestamp time;
        VELDTimestamp monotonic;
        int speed;
        bool paused;
    };
    Base ReadBase() const
    {
        for (;;) {
            const unsigned before = m_sequence.load();
            if (before & 1u) continue;
            Base base{m_baseTime.load(), m_baseMonotonic.load(), m_speed.load(), m_paused.load()};
            if (m_sequence.load() == before) return base;
        }
    }
    void WriteBase(const Base& base);
    static VELDTimestamp At(const Base& base, VELDTimestamp monotonic)
    {
        if (base.paused || base.speed == 0) return base.time;
        const VELDTimestamp elapsed = monotonic - base.monotonic;
        // Real time, the usual case, needs no division.
        return base.time + (base.speed == 1000 ? elapsed : elapsed * base.speed / 1000);
    }

    std::atomic<unsigned> m_sequence;
    std::atomic<VELDTimestamp> m_baseTime;
    std::atomic<VELDTimestamp> m_baseMonotonic;
    std::atomic<int> m_speed;
    std::atomic<bool> m_paused;

    VELDMutex m_timeStateLock;
    VELDCondition m_condition;

    std::mutex m_newsMutex;
    std::condition_variable m_newsReady;
    std::condition_variable m_callDone;
    std::deque<News> m_news;
    std::vector<VELDTimeStateListener*> m_listeners;
    VELDTimeStateListener* m_calling;
    bool m_busy;
    bool m_stop;
    std::thread::id m_timeThreadId;
    std::thread m_thread;

    std::mutex m_clocksMutex;
    std::map<VELDBaseClock*, unsigned char> m_clocks;
};

}  // namespace veldor

#endif
