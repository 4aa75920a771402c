// The engine's event service: the multi-event wait and timed triggers. One
// timer thread sets every trigger at its time, in time order; no thread is
// made per trigger.
#ifndef VELDOR_ENGINE_EVENT_SERVICE_H
#define VELDOR_ENGINE_EVENT_SERVICE_H

#include <pthread.h>

#include <map>
#include <thread>
#include <unordered_map>

#include "veld_kernel_services.h"

namespace veldor {

// A mutex that lends its waiters' priority to its holder: the timer thread
// runs at real-time priority, and a component thread that holds the lock
// while it sets a trigger must not keep it waiting a time slice when the
// machine is busy. With the condition the timer thread sleeps on.
class InheritingMutex {
public:
    InheritingMutex();
    InheritingMutex(const InheritingMutex&) = delete;
    InheritingMutex& operator=(const InheritingMutex&) = delete;
    ~InheritingMutex();
    void lock() { pthread_mutex_lock(&m_mutex); }
    void unlock() { pthread_mutex_unlock(&m_mutex); }
    // With the mutex held: sleeps until notified or until `deadline` (the
    // monotonic clock, microseconds; 0: no limit).
    void Wait(VELDTimestamp deadline);
    void Notify() { pthread_cond_signal(&m_condition); }

private:
    pthread_mutex_t m_mutex;
    pthread_cond_t m_condition;
};

class EventService : public VELDEventService {
public:
    EventService();
    EventService(const EventService&) = delete;
    EventService& operator=(const EventService&) = delete;
    ~EventService();

    // `when` is an absolute time of the monotonic clock, in microseconds. A
    // new trigger of an event replaces its pending one.
    bool SetTrigger(VELDEvent* event, VELDTimestamp when) override;
    // Cancels the pending trigger of an event; once it returns the event is
    // never touched again by the timer thread.
    void ResetTrigger(VELDEvent* event) override;
    int WaitForEvents(int count, VELDEvent** events, VELDDelay timeout) override;

    size_t PendingTriggers();

private:
    typedef std::multimap<VELDTimestamp, VELDEvent*> Schedule;

    void TimerThread();
    void RemoveLocked(VELDEvent* event);

    InheritingMutex m_mutex;
    Schedule m_schedule;
    std::unordered_map<VELDEvent*, Schedule::iterator> m_pending;
    bool m_stop;
    std::thread m_thread;
};

}  // namespace veldor

#endif
