#include "EventService.h"

#include <sys/prctl.h>
#include <time.h>

#include <chrono>

#include "veld_event.h"

namespace veldor {

namespace {

VELDTimestamp Now()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<VELDTimestamp>(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
}

}  // namespace

EventService::EventService() : m_stop(false), m_thread(&EventService::TimerThread, this) {}

EventService::~EventService()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
        for (auto& entry : m_schedule) entry.second->SetInTimerList(false);
        m_schedule.clear();
        m_pending.clear();
    }
    m_wake.notify_all();
    m_thread.join();
}

void EventService::RemoveLocked(VELDEvent* event)
{
    auto it = m_pending.find(event);
    if (it == m_pending.end()) return;
    m_schedule.erase(it->second);
    m_pending.erase(it);
    event->SetInTimerList(false);
}

bool EventService::SetTrigger(VELDEvent* event, VELDTimestamp when)
{
    if (!event) return false;
    bool first;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        RemoveLocked(event);
        m_pending[event] = m_schedule.emplace(when, event);
        event->SetInTimerList(true);
        first = m_schedule.begin()->second == event;
    }
    if (first) m_wake.notify_one();
    return true;
}

void EventService::ResetTrigger(VELDEvent* event)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    RemoveLocked(event);
}

int EventService::WaitForEvents(int count, VELDEvent** events, VELDDelay timeout)
{
    return VELDPosixWaitingThread::WaitForAny(count, events, timeout);
}

size_t EventService::PendingTriggers()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_schedule.size();
}

// An event is set while the lock is held and only then leaves the timer list:
// a destructor that sees it in the list waits here, in ResetTrigger, until
// the Set is over.
void EventService::TimerThread()
{
    // The default slack of 50 microseconds would make every trigger late.
    prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_stop) {
        if (m_schedule.empty()) {
            m_wake.wait(lock);
            continue;
        }
        auto first = m_schedule.begin();
        VELDTimestamp now = Now();
        if (first->first <= now) {
            VELDEvent* event = first->second;
            m_pending.erase(event);
            m_schedule.erase(first);
            event->Set();
            event->SetInTimerList(false);
            continue;
        }
        m_wake.wait_for(lock, std::chrono::microseconds(first->first - now));
    }
}

}  // namespace veldor
