#include "veld_constants.h"
#include "veld_event.h"

VELDCondition2::VELDCondition2(VELDMutex* m, VELDEvent* abort, int t)
    : mutex(m), abortEvent(abort), events(), waiting(), nbEvents(0), timeout(t)
{
}

VELDCondition2::~VELDCondition2()
{
    for (VELDEvent* event : events) delete event;
}

int VELDCondition2::Subscribe()
{
    int r = nbEvents;
    Subscribe(r);
    return r;
}

void VELDCondition2::Subscribe(int r)
{
    r &= kMaxReaders - 1;
    if (events[r])
        events[r]->Reset();
    else
        events[r] = new VELDEvent(false, nullptr);
    waiting[r] = false;
    if (nbEvents < r + 1) nbEvents = r + 1;
}

void VELDCondition2::WaitX(int r, VELDEvent** wake, VELDEvent** abort)
{
    events[r]->Reset();
    *wake = events[r];
    *abort = abortEvent;
    waiting[r] = true;
    mutex->Release();
}

void VELDCondition2::AchieveWaitX(int r, int result)
{
    mutex->Lock();
    waiting[r] = false;
    if (result == 0) return;
    mutex->Release();
    if (result == 1) throw VELD::ModuleDied;
    throw VELD::FatalKernelError;
}

void VELDCondition2::AbortWaitX(int r)
{
    mutex->Lock();
    waiting[r] = false;
}

void VELDCondition2::Wait(int r)
{
    VELDEvent* pair[2];
    WaitX(r, &pair[0], &pair[1]);
    int result = VELDEvent::Wait(pair[1] ? 2 : 1, pair, timeout);
    if (result == VELD::TimeOut) {
        AbortWaitX(r);
        mutex->Release();
        throw VELD::TimeOut;
    }
    AchieveWaitX(r, result);
}

void VELDCondition2::CutConnection()
{
    if (abortEvent) abortEvent->Set();
}
