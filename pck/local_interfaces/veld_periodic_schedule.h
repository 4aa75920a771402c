// The schedule of a periodic thread of a bus component, and the handshake by
// which the host's time thread hands it a jump of the engine's clock.
//
// The thread runs at due times a period apart: each is the period after the
// last due time, not after the end of the last run, so that a slow cycle
// does not shift the ones after it. A jump comes from a time callback: it
// sets `jumped` and waits, without limit, until the thread has started its
// schedule again at the present time and set `handled`.
//
//     VELDPeriodicSchedule schedule(*this, m_readTs, m_timeJumped, m_timeJumpedHandled);
//     while (!IsDying()) {
//         if (schedule.WaitDue()) ReadOnce();   // false: a jump was taken in
//         schedule.Advance(period);
//     }
//
// The schedule works on the component's own members, which it is given: a
// schedule object is only a view of them, made where it is needed.
#ifndef VELD_PERIODIC_SCHEDULE_H
#define VELD_PERIODIC_SCHEDULE_H

#include "veld.h"
#include "veld_constants.h"
#include "veld_event.h"
#include "veld_module.h"

class VELDPeriodicSchedule {
public:
    VELDPeriodicSchedule(VELDModule& module, VELDTimestamp& due, VELDEvent& jumped, VELDEvent& handled)
        : m_module(module), m_due(due), m_jumped(jumped), m_handled(handled)
    {
    }

    // Before the thread starts: the first due time is now, no jump pending.
    void Begin()
    {
        m_due = VELD::CurrentTime(true, true);
        m_jumped.Reset();
        m_handled.Reset();
    }

    // The thread: waits until the due time, true when it came. False when a
    // jump came first: the schedule starts again at the present time, or at
    // `restart` where the thread says so, and the jump is acknowledged. A
    // dying module ends the wait with VELD::ModuleDied.
    bool WaitDue() { return WaitDue(nullptr); }
    bool WaitDue(VELDTimestamp restart) { return WaitDue(&restart); }

    // The next due time, one period after the last.
    void Advance(VELDDelay period) { m_due += period; }

    // The time callback: tells the thread of a jump and waits until it has
    // taken it in. Without a thread to answer, it waits until the module dies.
    void HandOverJump()
    {
        m_jumped.Set();
        m_module.Wait4Event(m_handled, VELD::Infinite);
        m_handled.Reset();
    }

private:
    bool WaitDue(const VELDTimestamp* restart)
    {
        if (m_module.Wait(m_due, &m_jumped)) return true;
        m_due = restart ? *restart : VELD::CurrentTime(true, true);
        m_jumped.Reset();
        m_handled.Set();
        return false;
    }

    VELDModule& m_module;
    VELDTimestamp& m_due;
    VELDEvent& m_jumped;
    VELDEvent& m_handled;
};

#endif
