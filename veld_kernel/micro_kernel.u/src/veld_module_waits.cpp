#include "veld_module_waits.h"

#include <vector>

#include "veld.h"
#include "veld_constants.h"
#include "veld_event.h"
#include "veld_private.h"

using VELDPrivate::MinimumWaitTime;

namespace {

bool Dying(const VELDModuleContext& owner) { return owner.state && (owner.state->load() & VELD::DyingState); }

[[noreturn]] void Fail(const VELDModuleContext& owner, const char* text)
{
    owner.error(owner.module, text);
    throw VELD::ErrorException;  // an error that returns still ends the wait
}

// The time-state condition's event, taken under the time-state lock, which
// WaitX releases. Whatever happens, the event goes back to the pool and the
// lock is released.
class TimeStateConditionGuard {
public:
    // Appends the condition's event at `slot` and releases the lock.
    explicit TimeStateConditionGuard(VELDEvent** slot) : m_condition(VELDPrivate::GetTimeStateCondition())
    {
        m_handle = (m_condition->*m_condition->WaitX)(slot);
    }
    TimeStateConditionGuard(const TimeStateConditionGuard&) = delete;
    TimeStateConditionGuard& operator=(const TimeStateConditionGuard&) = delete;
    ~TimeStateConditionGuard() { Achieve(); }

    // Gives the event back; the lock is held again and then released.
    void Achieve()
    {
        if (!m_handle) return;
        (m_condition->*m_condition->AchieveWaitX)(m_handle);
        m_handle = nullptr;
        VELDPrivate::UnlockTimeState();
    }

private:
    VELDCondition* m_condition;
    void* m_handle;
};

// A wait on `events` (room for one more) and the time-state condition, which
// goes last; the time-state lock is held on entry and released on return.
int WaitWithCondition(std::vector<VELDEvent*>& events, long real)
{
    size_t conditionIndex = events.size();
    events.push_back(nullptr);
    int result;
    {
        TimeStateConditionGuard guard(&events[conditionIndex]);
        result = VELDEvent::Wait(static_cast<int>(events.size()), events.data(), real);
        guard.Achieve();
    }
    events.pop_back();
    return result;
}

long RealDelay(long clockDelay, int speed) { return clockDelay * 1000 / speed; }

// The clock loop shared by Wait4Event and Wait4Events: `events` are waited
// on with the condition after them. Returns the index of the event set, or
// VELD::TimeOut.
int WaitOnClock(std::vector<VELDEvent*>& events, long timeout)
{
    VELDTimestamp now0 = VELD::CurrentTime(true, true);
    VELDTimestamp deadline = now0 + timeout;
    VELDTimestamp last = now0;
    const int conditionIndex = static_cast<int>(events.size());
    for (;;) {
        VELDPrivate::LockTimeState();
        int speed = VELDPrivate::GetAbsoluteTimeSpeed();
        VELDTimestamp now = VELD::CurrentTime(false, false);
        long remaining;
        if (last > now) {  // time jumped backwards: the whole wait starts again
            deadline = now + timeout;
            remaining = timeout;
        } else {
            remaining = deadline - now;
        }
        long real = -1;
        if (speed > 0 && !VELD::IsPaused()) {
            real = RealDelay(remaining > 0 ? remaining : 0, speed);
            if (real <= MinimumWaitTime) {
                VELDPrivate::UnlockTimeState();
                return VELD::TimeOut;
            }
        }
        int result = WaitWithCondition(events, real);
        if (result == conditionIndex) {
            last = now;
            continue;
        }
        if (result == VELD::TimeOut) {
            if (deadline - VELD::CurrentTime(true, true) > MinimumWaitTime) {
                last = now;
                continue;
            }
            return VELD::TimeOut;
        }
        return result;
    }
}

}  // namespace

// ---------------------------------------------------------------------------
// Waits on events

bool VELDModuleWaits::Wait4Event(const VELDModuleContext& owner, VELDEvent* event, long timeout)
{
    std::vector<VELDEvent*> events{owner.dieEvent};
    if (event != owner.dieEvent) events.push_back(event);
    if (timeout == VELD::Infinite) {
        int result = VELDEvent::Wait(static_cast<int>(events.size()), events.data(), VELD::Infinite);
        if (Dying(owner)) throw VELD::ModuleDied;
        return result != VELD::TimeOut;
    }
    int result = WaitOnClock(events, timeout);
    if (result == 0) throw VELD::ModuleDied;
    return result != VELD::TimeOut;
}

int VELDModuleWaits::Wait4Events(const VELDModuleContext& owner, int n, VELDEvent** list, long timeout,
                                 bool addDeathEvent)
{
    if (n > 254) VELDPrivate::KernelError("Wait4Events can't wait for more than 254 events simultaneously.", 1);
    std::vector<VELDEvent*> events(list, list + (n > 0 ? n : 0));
    if (addDeathEvent) events.push_back(owner.dieEvent);
    int result;
    if (timeout == VELD::Infinite) {
        result = VELDEvent::Wait(static_cast<int>(events.size()), events.data(), VELD::Infinite);
        if (Dying(owner)) throw VELD::ModuleDied;
    } else {
        result = WaitOnClock(events, timeout);
    }
    if (addDeathEvent && result == n) throw VELD::ModuleDied;
    return result;
}

bool VELDModuleWaits::MsgWait4Event(const VELDModuleContext& owner, VELDEvent* event, long timeout)
{
    VELDEvent* events[2] = {event, owner.dieEvent};
    int result = VELDEvent::MsgWait(event == owner.dieEvent ? 1 : 2, events, timeout);
    if (Dying(owner)) throw VELD::ModuleDied;
    return result == 0;
}

int VELDModuleWaits::MsgWait4Events(const VELDModuleContext& owner, int n, VELDEvent** list, long timeout)
{
    if (n > 255) VELDPrivate::KernelError("MsgWait4Events can't wait for more than 255 events simultaneously.", 1);
    std::vector<VELDEvent*> events(list, list + (n > 0 ? n : 0));
    events.push_back(owner.dieEvent);
    int result = VELDEvent::MsgWait(static_cast<int>(events.size()), events.data(), timeout);
    if (Dying(owner) || result == n) throw VELD::ModuleDied;
    return result;
}

// ---------------------------------------------------------------------------
// Waits on the clock

bool VELDModuleWaits::Rest(const VELDModuleContext& owner, long delay, VELDEvent* abortEvent)
{
    VELDEvent timer(false, nullptr);
    bool recompute = true;
    int previousSpeed = 1000;
    VELDTimestamp t0 = 0, target = 0;
    for (;;) {
        VELDPrivate::LockTimeState();
        int speed = VELDPrivate::GetAbsoluteTimeSpeed();
        if (recompute || (speed < 0) != (previousSpeed < 0)) {
            t0 = VELD::CurrentTime(false, false);
            target = speed < 0 ? t0 - delay : t0 + delay;
            recompute = false;
        }
        previousSpeed = speed;

        if (speed == 0 || VELD::TimeState() == VELD::Paused) {
            // Time stands still: only a change of state, death or the abort
            // event can end this.
            std::vector<VELDEvent*> events{owner.dieEvent};
            if (abortEvent) events.push_back(abortEvent);
            int result = WaitWithCondition(events, VELD::Infinite);
            if (result == static_cast<int>(events.size())) {
                recompute = true;
                continue;
            }
            if (result == 0) throw VELD::ModuleDied;
            return false;
        }

        long real = RealDelay(target - VELD::CurrentTime(false, false), speed);
        if (real <= MinimumWaitTime) {
            VELDPrivate::UnlockTimeState();
            VELD::ReleaseCurrentThread();
            return true;
        }
        if (!timer.SetTrigger(real)) {
            VELDPrivate::UnlockTimeState();
            Fail(owner, "Rest function : Too many multimedia timers used. No more available. Contact technical "
                        "support for help.");
        }
        std::vector<VELDEvent*> events{owner.dieEvent, &timer};
        if (abortEvent) events.push_back(abortEvent);
        int result = WaitWithCondition(events, VELD::Infinite);
        if (result == static_cast<int>(events.size())) {
            // A change of speed or time: what was spent stays spent.
            timer.ResetTrigger();
            VELDTimestamp spent = VELD::CurrentTime(true, true) - t0;
            delay -= spent < 0 ? -spent : spent;
            recompute = true;
            continue;
        }
        if (result == 1) {
            VELDTimestamp now = VELD::CurrentTime(true, true);
            if ((speed > 0 ? target - now : now - target) > MinimumWaitTime) continue;
            return true;
        }
        timer.ResetTrigger();
        if (result == 0) throw VELD::ModuleDied;
        return false;
    }
}

bool VELDModuleWaits::Wait(const VELDModuleContext& owner, long timestamp, VELDEvent* abortEvent)
{
    VELDEvent timer(false, nullptr);
    for (;;) {
        VELDPrivate::LockTimeState();
        int speed = VELDPrivate::GetAbsoluteTimeSpeed();
        if (speed <= 0 || VELD::TimeState() == VELD::Paused) {
            std::vector<VELDEvent*> events{owner.dieEvent};
            if (abortEvent) events.push_back(abortEvent);
            int result = WaitWithCondition(events, VELD::Infinite);
            if (result == static_cast<int>(events.size())) continue;
            if (result == 0) throw VELD::ModuleDied;
            if (result == 1) return false;
            VELDStreamedString text("VELDEvent::Wait [line:2020] Failed [result: ");
            text << result << "]";
            owner.report(owner.module, text, VELD::Error, 0);
            return true;
        }
        long real = RealDelay(timestamp - VELD::CurrentTime(false, false), speed);
        if (real <= MinimumWaitTime) {
            VELDPrivate::UnlockTimeState();
            return true;
        }
        if (!timer.SetTrigger(real)) {
            VELDPrivate::UnlockTimeState();
            Fail(owner, "VELDEvent::Wait [line:2029] Too many multimedia timers used. No more available. Contact "
                        "technical support for help.");
        }
        std::vector<VELDEvent*> events{owner.dieEvent, &timer};
        if (abortEvent) events.push_back(abortEvent);
        int result = WaitWithCondition(events, VELD::Infinite);
        if (result == static_cast<int>(events.size())) {
            timer.ResetTrigger();
            continue;
        }
        if (result == 1) {
            if (timestamp - VELD::CurrentTime(true, true) > MinimumWaitTime) continue;
            return true;
        }
        timer.ResetTrigger();
        if (result == 0) throw VELD::ModuleDied;
        if (result == 2) return false;
        VELDStreamedString text("VELDEvent::Wait [line:2063] Failed [result: ");
        text << result << "]";
        owner.report(owner.module, text, VELD::Error, 0);
        return true;
    }
}

int VELDModuleWaits::WaitForTimestamp(const VELDModuleContext& owner, long t, VELDEvent* abortEvent,
                                      bool* timeStateChanged)
{
    VELDEvent* events[2] = {owner.dieEvent, abortEvent};
    int cancelled = -1;
    int result = VELD::WaitForTimestamp(t, abortEvent ? 2 : 1, events, &cancelled, timeStateChanged);
    if (result == 1) return 1;
    if (cancelled == 0) throw VELD::ModuleDied;
    if (cancelled == 1) return 0;
    Fail(owner, "VELDModule::WaitForTimestamp [line:2096] Failed");
}

int VELDModuleWaits::WaitForTimestamp(const VELDModuleContext& owner, long t, int n, VELDEvent** list, int* cancelled,
                                      bool* timeStateChanged)
{
    // Up to 30 events stay on the stack.
    VELDEvent* local[31];
    std::vector<VELDEvent*> heap;
    VELDEvent** events = local;
    if (n > 30) {
        heap.resize(static_cast<size_t>(n) + 1);
        events = heap.data();
    }
    events[0] = owner.dieEvent;
    for (int i = 0; i < n; ++i) events[i + 1] = list[i];
    int index = -1;
    int result = VELD::WaitForTimestamp(t, n + 1, events, &index, timeStateChanged);
    if (cancelled) *cancelled = -1;
    if (result == 1) return 1;
    if (index == 0) throw VELD::ModuleDied;
    if (index > 0 && index <= n) {
        if (cancelled) *cancelled = index - 1;
        return 0;
    }
    Fail(owner, "VELDModule::WaitForTimestamp [line:2153] Failed");
}

// ---------------------------------------------------------------------------
// Outside any module

namespace {

[[noreturn]] void Broken(const char* text)
{
    VELD::ReportError(text, 0);
    throw VELD::ModuleDied;
}

[[noreturn]] void UnknownProblem(int line, int result)
{
    VELDStreamedString text("VELD::WaitForTimestamp [line:");
    text << line << "] Failed due to an unknown problem [result:" << result << "]";
    Broken(text);
}

}  // namespace

int VELD::WaitForTimestamp(long t, int n, VELDEvent** cancelEvents, int* cancelled, bool* changed)
{
    if (n < 0) {
        VELDStreamedString text("VELD::WaitForTimestamp [line:751] [nbCancelEvents:");
        text << n << "] < 0";
        Broken(text);
    }
    if (changed) *changed = false;
    if (cancelled) *cancelled = -1;
    const int nbCancel = n >= 1 && cancelEvents ? n : 0;
    for (;;) {
        VELDPrivate::LockTimeState();
        int speed = VELDPrivate::GetAbsoluteTimeSpeed();
        if (speed == 0 || VELD::TimeState() == VELD::Paused) {
            // [condition, cancel events...]
            std::vector<VELDEvent*> events(static_cast<size_t>(nbCancel) + 1);
            for (int i = 0; i < nbCancel; ++i) events[static_cast<size_t>(i) + 1] = cancelEvents[i];
            TimeStateConditionGuard guard(&events[0]);
            int result = VELDEvent::Wait(static_cast<int>(events.size()), events.data(), VELD::Infinite);
            guard.Achieve();
            if (result == 0) {
                if (changed) *changed = true;
                continue;
            }
            if (result < 0) UnknownProblem(806, result);
            if (result > nbCancel) UnknownProblem(824, result);
            if (cancelled) *cancelled = result - 1;
            return 0;
        }
        long real = RealDelay(t - VELD::CurrentTime(false, false), speed);
        if (real <= 1) {
            VELDPrivate::UnlockTimeState();
            return 1;
        }
        VELDEvent timer(false, nullptr);
        if (!timer.SetTrigger(real)) {
            VELDPrivate::UnlockTimeState();
            Broken("VELD::WaitForTimestamp [line:848] Failed to set the time trigger");
        }
        // [condition, timer, cancel events...]
        std::vector<VELDEvent*> events(static_cast<size_t>(nbCancel) + 2);
        events[1] = &timer;
        for (int i = 0; i < nbCancel; ++i) events[static_cast<size_t>(i) + 2] = cancelEvents[i];
        for (;;) {
            int result;
            {
                TimeStateConditionGuard guard(&events[0]);
                result = VELDEvent::Wait(static_cast<int>(events.size()), events.data(), VELD::Infinite);
                guard.Achieve();
            }
            if (result == 0) {
                if (changed) *changed = true;
                timer.ResetTrigger();
                break;  // recompute from the new state
            }
            if (result == 1) {
                VELDPrivate::LockTimeState();
                real = RealDelay(t - VELD::CurrentTime(false, false), VELDPrivate::GetAbsoluteTimeSpeed());
                VELDPrivate::UnlockTimeState();
                if (real <= 1) return 1;
                break;
            }
            if (result < 0) UnknownProblem(874, result);
            if (result > nbCancel + 1) UnknownProblem(910, result);
            timer.ResetTrigger();
            if (cancelled) *cancelled = result - 2;
            return 0;
        }
    }
}

int VELD::WaitForTimestamp(long t, VELDEvent* cancelEvent, bool* timeStateChanged)
{
    VELDEvent* events[1] = {cancelEvent};
    int cancelled = -1;
    return WaitForTimestamp(t, cancelEvent ? 1 : 0, events, &cancelled, timeStateChanged);
}
