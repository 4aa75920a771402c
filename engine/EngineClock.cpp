#include "EngineClock.h"

#include <algorithm>
#include <exception>

#include "veld_clock.h"
#include "veld_constants.h"
#include "veld_private.h"
#include "veld_string.h"

namespace veldor {

EngineClock::EngineClock()
    : m_sequence(0), m_baseTime(Monotonic()), m_baseMonotonic(m_baseTime.load()), m_speed(1000), m_paused(false),
      m_condition(&m_timeStateLock, nullptr), m_calling(nullptr), m_busy(false), m_stop(false)
{
    m_thread = std::thread(&EngineClock::TimeThread, this);
}

EngineClock::~EngineClock()
{
    {
        std::lock_guard<std::mutex> lock(m_newsMutex);
        m_stop = true;
    }
    m_newsReady.notify_all();
    m_thread.join();
}

void EngineClock::WriteBase(const Base& base)
{
    m_sequence.fetch_add(1);
    m_baseTime.store(base.time);
    m_baseMonotonic.store(base.monotonic);
    m_speed.store(base.speed);
    m_paused.store(base.paused);
    m_sequence.fetch_add(1);
}

int EngineClock::Speed() const { return m_speed.load(); }
bool EngineClock::IsPaused() const { return m_paused.load(); }

template <class Change>
void EngineClock::ChangeState(Change change, const News& news)
{
    m_timeStateLock.Lock();
    Base base = ReadBase();
    VELDTimestamp monotonic = Monotonic();
    base.time = At(base, monotonic);
    base.monotonic = monotonic;
    change(base);
    WriteBase(base);
    (m_condition.*m_condition.Signal)();
    m_timeStateLock.Release();
    {
        std::lock_guard<std::mutex> lock(m_newsMutex);
        m_news.push_back(news);
    }
    m_newsReady.notify_all();
}

void EngineClock::SetTime(VELDTimestamp time)
{
    ChangeState([&](Base& base) { base.time = time; }, News{Jumped, time, 0, false});
}

void EngineClock::SetSpeed(int speed)
{
    ChangeState([&](Base& base) { base.speed = speed; }, News{SpeedChanged, 0, speed, false});
}

void EngineClock::SetPaused(bool paused)
{
    ChangeState([&](Base& base) { base.paused = paused; }, News{PausedChanged, 0, 0, paused});
}

void EngineClock::AddListener(VELDTimeStateListener* listener)
{
    std::lock_guard<std::mutex> lock(m_newsMutex);
    if (std::find(m_listeners.begin(), m_listeners.end(), listener) == m_listeners.end())
        m_listeners.push_back(listener);
}

void EngineClock::RemoveListener(VELDTimeStateListener* listener)
{
    std::unique_lock<std::mutex> lock(m_newsMutex);
    m_listeners.erase(std::remove(m_listeners.begin(), m_listeners.end(), listener), m_listeners.end());
    if (std::this_thread::get_id() == m_timeThreadId) return;
    m_callDone.wait(lock, [&] { return m_calling != listener; });
}

void EngineClock::Flush()
{
    std::unique_lock<std::mutex> lock(m_newsMutex);
    m_callDone.wait(lock, [&] { return (m_news.empty() && !m_busy) || m_stop; });
}

// A listener's callback may end by throwing: a component's handshake with
// its worker leaves with VELD::ModuleDied when the component dies. That ends
// the call, not the time thread.
void EngineClock::Tell(VELDTimeStateListener* listener, const News& news)
{
    try {
        switch (news.kind) {
        case Jumped:
            listener->CallbackTimeJumped(news.time);
            break;
        case SpeedChanged:
            listener->CallbackTimeSpeedChanged(news.speed);
            break;
        case PausedChanged:
            listener->CallbackTimePaused(news.paused);
            break;
        }
    } catch (int code) {
        if (code != VELD::ModuleDied) {
            VELDStreamedString text("A time-state listener failed with the code ");
            text << code << " while being told of a change of time.";
            VELDPrivate::Report(text, VELD::Warning, 1, true);
        }
    } catch (const std::exception& e) {
        VELDStreamedString text("A time-state listener failed while being told of a change of time: ");
        text << e.what();
        VELDPrivate::Report(text, VELD::Warning, 1, true);
    } catch (...) {
        VELDPrivate::Report("A time-state listener failed while being told of a change of time.", VELD::Warning, 1,
                            true);
    }
}

// Listeners are called one news after the other, in the order of the
// changes. The list is read anew for each call, so that a listener removed
// meanwhile is not called.
void EngineClock::TimeThread()
{
    std::unique_lock<std::mutex> lock(m_newsMutex);
    m_timeThreadId = std::this_thread::get_id();
    for (;;) {
        m_newsReady.wait(lock, [&] { return m_stop || !m_news.empty(); });
        if (m_stop) break;
        News news = m_news.front();
        m_news.pop_front();
        m_busy = true;
        std::vector<VELDTimeStateListener*> snapshot = m_listeners;
        for (VELDTimeStateListener* listener : snapshot) {
            if (std::find(m_listeners.begin(), m_listeners.end(), listener) == m_listeners.end()) continue;
            m_calling = listener;
            lock.unlock();
            Tell(listener, news);
            lock.lock();
            m_calling = nullptr;
            m_callDone.notify_all();
        }
        m_busy = false;
        m_callDone.notify_all();
    }
    m_callDone.notify_all();
}

unsigned char EngineClock::RegisterClock(VELDBaseClock* clock)
{
    std::lock_guard<std::mutex> lock(m_clocksMutex);
    auto known = m_clocks.find(clock);
    if (known != m_clocks.end()) return known->second;
    for (int id = 1; id < 256; ++id) {
        bool used = false;
        for (const auto& entry : m_clocks) used = used || entry.second == id;
        if (!used) {
            m_clocks[clock] = static_cast<unsigned char>(id);
            return static_cast<unsigned char>(id);
        }
    }
    return 0;
}

void EngineClock::UnregisterClock(VELDBaseClock* clock)
{
    std::lock_guard<std::mutex> lock(m_clocksMutex);
    m_clocks.erase(clock);
}

}  // namespace veldor
