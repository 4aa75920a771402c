#include <sched.h>
#include <time.h>

#include "veld.h"
#include "veld_constants.h"
#include "veld_event.h"
#include "veld_private.h"

namespace {

// The absolute monotonic time `timeout` microseconds from now.
timespec DeadlineIn(long timeout)
{
    timespec deadline;
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    deadline.tv_sec += timeout / 1000000;
    deadline.tv_nsec += (timeout % 1000000) * 1000;
    if (deadline.tv_nsec >= 1000000000) {
        deadline.tv_nsec -= 1000000000;
        ++deadline.tv_sec;
    }
    return deadline;
}

// How long a wait without a time limit looks at its events before it
// registers and sleeps: first a few pauses, for a partner that runs on
// another processor, then a few yields of the processor, for a partner that
// waits for this one's. Both cost less than going to sleep and being woken,
// and a writer and its readers then hand elements over in batches, without
// a system call for each. A yield that gave the processor away for long
// (other programs are busy) ends the yields: a sleeper is woken sooner than
// a thread that queues for the processor. A wait with a time limit is
// mostly a pause in time: it sleeps at once.
const int kSpins = 10;
const int kYields = 16;
const long kYieldsForAtMostNs = 50000;

long NanosecondsSince(const timespec& start)
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (now.tv_sec - start.tv_sec) * 1000000000L + (now.tv_nsec - start.tv_nsec);
}

int FirstSet(int n, VELDEvent** events)
{
    for (int i = 0; i < n; ++i)
        if (events[i]->IsSet()) return i;
    return VELD::TimeOut;
}

}  // namespace

// ---------------------------------------------------------------------------
// VELDEvent

VELDEvent::VELDEvent(bool initialState, const char*) : m_state(initialState ? kSetBit : 0), m_isInTimerList(false) {}

VELDEvent::~VELDEvent()
{
    // A pending trigger must never fire on an event that is gone.
    if (IsInTimerList() && VELDPrivate::kernel)
        if (VELDEventService* service = VELDPrivate::kernel->GetEventService()) service->ResetTrigger(this);
}

void VELDEvent::SetClear()
{
    int state = m_state.load(std::memory_order_relaxed);
    // Nobody registered: one compare-and-swap. A thread that registers
    // after it finds the event set when it tests the states.
    while (state == 0)
        if (m_state.compare_exchange_weak(state, kSetBit, std::memory_order_release, std::memory_order_relaxed)) return;
    if (state & kSetBit) return;
    SetAndWake();
}

// Under the mutex: a waiting thread that sees the state change cannot
// leave its wait, and perhaps destroy the event, before the wake-ups are
// over. Each waiting thread's word moves before the wake, so that a thread
// about to sleep on the old value does not sleep.
void VELDEvent::SetAndWake()
{
    m_mutex.Lock();
    if (!(m_state.fetch_or(kSetBit, std::memory_order_release) & kSetBit)) {
        const int n = m_waitingThreads.Size();
        for (int i = 0; i < n; ++i) {
            VELDPosixWaitingThread* thread = m_waitingThreads[i];
            thread->m_wakeups.fetch_add(1, std::memory_order_release);
            VELD::FutexWake(&thread->m_wakeups, 1);
        }
    }
    m_mutex.Release();
}

int VELDEvent::Wait(long timeout)
{
    VELDEvent* self = this;
    return VELDPosixWaitingThread::WaitForAny(1, &self, timeout);
}

namespace {

VELDEventService* Service() { return VELDPrivate::kernel ? VELDPrivate::kernel->GetEventService() : nullptr; }

}  // namespace

int VELDEvent::Wait(int n, VELDEvent** events, long timeout)
{
    VELDEventService* service = Service();
    return service ? service->WaitForEvents(n, events, timeout) : VELDPosixWaitingThread::WaitForAny(n, events, timeout);
}

int VELDEvent::MsgWait(int n, VELDEvent** events, long timeout) { return Wait(n, events, timeout); }

bool VELDEvent::SetTrigger(long delay)
{
    Reset();
    if (VELDEventService* service = Service()) service->SetTrigger(this, VELD::GetSystemAccurateTiming() + delay);
    return true;
}

void VELDEvent::ResetTrigger()
{
    if (VELDEventService* service = Service()) service->ResetTrigger(this);
}

void VELDEvent::AddWaitingThread(VELDPosixWaitingThread* thread)
{
    m_mutex.Lock();
    if (m_waitingThreads.IndexOf(thread) < 0) {
        m_waitingThreads.Append(thread);
        m_state.fetch_add(kWaiterStep, std::memory_order_acq_rel);
    }
    m_mutex.Release();
}

void VELDEvent::RemoveWaitingThread(VELDPosixWaitingThread* thread)
{
    m_mutex.Lock();
    int i = m_waitingThreads.IndexOf(thread);
    if (i >= 0) {
        m_waitingThreads.Remove(i);
        m_state.fetch_sub(kWaiterStep, std::memory_order_relaxed);
    }
    m_mutex.Release();
}

// ---------------------------------------------------------------------------
// The wait

int VELDPosixWaitingThread::WaitForAny(int n, VELDEvent** events, long timeout)
{
    if (n <= 0 || !events) return VELD::TimeOut;
    int result = FirstSet(n, events);
    const bool infinite = timeout == VELD::Infinite;
    if (result != VELD::TimeOut || (!infinite && timeout <= 0)) return result;
    timespec deadline = {0, 0};
    if (infinite) {
        for (int i = 0; i < kSpins && result == VELD::TimeOut; ++i) {
            VELD::SpinPause();
            result = FirstSet(n, events);
        }
        if (result != VELD::TimeOut) return result;
        timespec start;
        clock_gettime(CLOCK_MONOTONIC, &start);
        for (int i = 0; i < kYields && result == VELD::TimeOut; ++i) {
            sched_yield();
            result = FirstSet(n, events);
            if (NanosecondsSince(start) > kYieldsForAtMostNs) break;
        }
        if (result != VELD::TimeOut) return result;
    } else {
        deadline = DeadlineIn(timeout);
    }

    // One record per thread, made on its first wait.
    thread_local VELDPosixWaitingThread record;
    for (int i = 0; i < n; ++i) events[i]->AddWaitingThread(&record);
    const timespec* limit = infinite ? nullptr : &deadline;
    for (;;) {
        // A Set moves the word after it changed the state: if the word is
        // still what it is here when the futex looks, no Set has come since
        // the states were tested.
        const int wakeups = record.m_wakeups.load(std::memory_order_acquire);
        result = FirstSet(n, events);
        if (result != VELD::TimeOut) break;
        if (!VELD::FutexWait(&record.m_wakeups, wakeups, limit)) {
            result = FirstSet(n, events);
            break;
        }
    }
    for (int i = 0; i < n; ++i) events[i]->RemoveWaitingThread(&record);
    return result;
}

// ---------------------------------------------------------------------------
// VELDMutex2

VELDMutex2::VELDMutex2() : owner(VELDThreadId()), nbRef(0), requested(false) {}

void VELDMutex2::Lock()
{
    hlMutex.Lock();
    if (nbRef != 0 && VELD::SameThread(owner, VELD::CurrentThreadId())) {
        ++nbRef;
        hlMutex.Release();
        return;
    }
    requested = true;
    hlMutex.Release();
    VELDMutex::Lock();
    hlMutex.Lock();
    requested = false;
    owner = VELD::CurrentThreadId();
    nbRef = 1;
    hlMutex.Release();
}

bool VELDMutex2::TryLock()
{
    hlMutex.Lock();
    if (nbRef != 0 && VELD::SameThread(owner, VELD::CurrentThreadId())) {
        ++nbRef;
        hlMutex.Release();
        return true;
    }
    bool taken = VELDMutex::TryLock();
    if (taken) {
        owner = VELD::CurrentThreadId();
        nbRef = 1;
    }
    hlMutex.Release();
    return taken;
}

void VELDMutex2::Release()
{
    hlMutex.Lock();
    if (nbRef > 0 && --nbRef == 0) VELDMutex::Release();
    hlMutex.Release();
}

bool VELDMutex2::IsLockedByCurrentThread()
{
    hlMutex.Lock();
    bool mine = nbRef != 0 && VELD::SameThread(owner, VELD::CurrentThreadId());
    hlMutex.Release();
    return mine;
}

// ---------------------------------------------------------------------------
// VELDMutexGuard

VELDMutexGuard::VELDMutexGuard(VELDMutex& mutex)
    : m_unlock_fun(&VELDMutexGuard::UnlockPlain), m_relock_fun(&VELDMutexGuard::RelockPlain), m_mtx(&mutex),
      m_mtx2(nullptr), m_locked(false)
{
    relock_mtx();
}

VELDMutexGuard::VELDMutexGuard(VELDMutex2& mutex)
    : m_unlock_fun(&VELDMutexGuard::UnlockRecursive), m_relock_fun(&VELDMutexGuard::RelockRecursive),
      m_mtx(nullptr), m_mtx2(&mutex), m_locked(false)
{
    relock_mtx();
}

VELDMutexGuard::~VELDMutexGuard() { unlock_mtx(); }

bool VELDMutexGuard::unlock_mtx()
{
    if (!m_locked) return false;
    (this->*m_unlock_fun)();
    m_locked = false;
    return true;
}

bool VELDMutexGuard::relock_mtx()
{
    if (m_locked) return false;
    (this->*m_relock_fun)();
    m_locked = true;
    return true;
}

// ---------------------------------------------------------------------------
// VELDCondition

VELDCondition::VELDCondition(VELDMutex* m, VELDEvent* abort, VELDInt64 t)
    : mutex(m), abortEvent(abort), timeout(t), Wait(&VELDCondition::InternalWait),
      WaitX(&VELDCondition::InternalWaitX), AchieveWaitX(&VELDCondition::InternalAchieveWaitX),
      Signal(&VELDCondition::InternalSignal), Abort(&VELDCondition::InternalAbort)
{
}

VELDCondition::~VELDCondition()
{
    for (VELDBasicListItem* it = pool.First(); it; it = it->successor) delete VELDList<VELDEventInPool*>::Value(it);
}

VELDListItem<VELDCondition::VELDEventInPool*>* VELDCondition::TakeFromPool()
{
    VELDListItem<VELDEventInPool*>* item = pool.LastItem();
    if (item && item->value->free) {
        pool.MoveToFirst(item);
        item->value->Reset();
    } else {
        item = pool.Prepend(new VELDEventInPool());
    }
    item->value->free = false;
    return item;
}

void VELDCondition::GiveBack(VELDListItem<VELDEventInPool*>* item)
{
    item->value->free = true;
    pool.MoveToLast(item);
}

void VELDCondition::InternalWait()
{
    VELDListItem<VELDEventInPool*>* item = TakeFromPool();
    mutex->Release();
    VELDEvent* events[2] = {item->value, abortEvent};
    int result = VELDEvent::Wait(abortEvent ? 2 : 1, events, static_cast<long>(timeout));
    mutex->Lock();
    GiveBack(item);
    if (result == 0) return;
    mutex->Release();
    if (result == 1) throw VELD::ModuleDied;
    if (result == VELD::TimeOut) throw VELD::TimeOut;
    throw VELD::FatalKernelError;
}

void* VELDCondition::InternalWaitX(VELDEvent** event)
{
    VELDListItem<VELDEventInPool*>* item = TakeFromPool();
    mutex->Release();
    *event = item->value;
    return item;
}

void VELDCondition::InternalAchieveWaitX(void* handle)
{
    mutex->Lock();
    GiveBack(static_cast<VELDListItem<VELDEventInPool*>*>(handle));
}

// Busy items are at the head: signalling stops at the first free one.
void VELDCondition::InternalSignal()
{
    for (VELDBasicListItem* it = pool.First(); it; it = it->successor) {
        VELDEventInPool* event = VELDList<VELDEventInPool*>::Value(it);
        if (event->free) break;
        event->Set();
    }
}

void VELDCondition::InternalAbort()
{
    if (abortEvent) abortEvent->Set();
}
