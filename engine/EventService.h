// The engine's event service: the multi-event wait and timed triggers. One
// timer thread sets every trigger at its time, in time order; no thread is
// made per trigger.
#ifndef VELDOR_ENGINE_EVENT_SERVICE_H
#define VELDOR_ENGINE_EVENT_SERVICE_H

#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>
#include <unordered_map>

#include "veld_kernel_services.h"

namespace veldor {

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

    std::mutex m_mutex;
    std::condition_variable m_wake;
    Schedule m_schedule;
    std::unordered_map<VELDEvent*, Schedule::iterator> m_pending;
    bool m_stop;
    std::thread m_thread;
};

}  // namespace veldor

#endif
