#include "EventService.h"

#include <pthread.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <mutex>

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

InheritingMutex::InheritingMutex()
{
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_setprotocol(&attributes, PTHREAD_PRIO_INHERIT);
    pthread_mutex_init(&m_mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
    pthread_condattr_t condition;
    pthread_condattr_init(&condition);
    pthread_condattr_setclock(&condition, CLOCK_MONOTONIC);
    pthread_cond_init(&m_condition, &condition);
    pthread_condattr_destroy(&condition);
}

InheritingMutex::~InheritingMutex()
{
    pthread_cond_destroy(&m_condition);
    pthread_mutex_destroy(&m_mutex);
}

void InheritingMutex::Wait(VELDTimestamp deadline)
{
    if (deadline == 0) {
        pthread_cond_wait(&m_condition, &m_mutex);
        return;
    }
    const timespec until = {static_cast<time_t>(deadline / 1000000), static_cast<long>(deadline % 1000000) * 1000};
    pthread_cond_timedwait(&m_condition, &m_mutex, &until);
}

EventService::EventService() : m_stop(false), m_thread(&EventService::TimerThread, this) {}

EventService::~EventService()
{
    {
        std::lock_guard<InheritingMutex> lock(m_mutex);
        m_stop = true;
        for (auto& entry : m_schedule) entry.second->SetInTimerList(false);
        m_schedule.clear();
        m_pending.clear();
    }
    m_mutex.Notify();
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
        std::lock_guard<InheritingMutex> lock(m_mutex);
        RemoveLocked(event);
        m_pending[event] = m_schedule.emplace(when, event);
        event->SetInTimerList(true);
        first = m_schedule.begin()->second == event;
    }
    if (first) m_mutex.Notify();
    return true;
}

void EventService::ResetTrigger(VELDEvent* event)
{
    std::lock_guard<InheritingMutex> lock(m_mutex);
    RemoveLocked(event);
}

int EventService::WaitForEvents(int count, VELDEvent** events, VELDDelay timeout)
{
    return VELDPosixWaitingThread::WaitForAny(count, events, timeout);
}

size_t EventService::PendingTriggers()
{
    std::lock_guard<InheritingMutex> lock(m_mutex);
    return m_schedule.size();
}

// An event is set while the lock is held and only then leaves the timer list:
// a destructor that sees it in the list waits here, in ResetTrigger, until
// the Set is over.
void EventService::TimerThread()
{
    // The default slack of 50 microseconds would make every trigger late.
    prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
    pthread_setname_np(pthread_self(), "veldor-timer");
    // Every timed wait of every module ends here: where the system allows
    // it, this thread runs as soon as a trigger is due, one real-time level
    // above the components that take real time, else at the lowest nice
    // value allowed.
    sched_param param{};
    param.sched_priority = 2;
    if (pthread_setschedparam(pthread_self(), SCHED_FIFO, &param) != 0)
        setpriority(PRIO_PROCESS, static_cast<id_t>(syscall(SYS_gettid)), -20);
    std::lock_guard<InheritingMutex> lock(m_mutex);
    while (!m_stop) {
        if (m_schedule.empty()) {
            m_mutex.Wait(0);
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
        m_mutex.Wait(first->first);
    }
}

}  // namespace veldor
