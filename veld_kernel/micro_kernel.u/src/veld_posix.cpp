#include <time.h>

#include "veld.h"
#include "veld_constants.h"
#include "veld_event.h"
#include "veld_private.h"

namespace {

// Prepares a condition variable on the monotonic clock: a change of the wall
// clock never stretches or cuts a wait.
void InitMonotonicCondition(pthread_cond_t* condition, const char* failure)
{
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    if (pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC) != 0) VELD::ReportError(failure, 0);
    pthread_cond_init(condition, &attributes);
    pthread_condattr_destroy(&attributes);
}

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

}  // namespace

// ---------------------------------------------------------------------------
// VELDPosixWaitingThread

VELDPosixWaitingThread::VELDPosixWaitingThread()
{
    pthread_mutex_init(&m_mutex, nullptr);
    InitMonotonicCondition(&m_condvar,
                           "Could not initialize waiting thread with monotonic clock. Please contact the Veldor "
                           "technical support team.");
}

VELDPosixWaitingThread::~VELDPosixWaitingThread()
{
    pthread_cond_destroy(&m_condvar);
    pthread_mutex_destroy(&m_mutex);
}

// ---------------------------------------------------------------------------
// VELDEvent

VELDEvent::VELDEvent(bool initialState, const char*) : m_state(initialState), m_isInTimerList(false)
{
    pthread_mutex_init(&m_mutex, nullptr);
    InitMonotonicCondition(&m_condvar,
                           "Could not initialize event with monotonic clock. Please contact the Veldor technical "
                           "support team.");
}

VELDEvent::~VELDEvent()
{
    // A pending trigger must never fire on an event that is gone.
    if (IsInTimerList() && VELDPrivate::kernel)
        if (VELDEventService* service = VELDPrivate::kernel->GetEventService()) service->ResetTrigger(this);
    pthread_cond_destroy(&m_condvar);
    pthread_mutex_destroy(&m_mutex);
}

// Every waiting thread's mutex is held while the state changes: a waiter
// in the middle of testing its events cannot miss it.
void VELDEvent::Set()
{
    pthread_mutex_lock(&m_mutex);
    if (m_state.load(std::memory_order_relaxed)) {
        pthread_mutex_unlock(&m_mutex);
        return;
    }
    int n = m_waitingThreads.Size();
    for (int i = 0; i < n; ++i) pthread_mutex_lock(&m_waitingThreads[i]->m_mutex);
    m_state.store(true, std::memory_order_release);
    pthread_cond_broadcast(&m_condvar);
    for (int i = 0; i < n; ++i) {
        pthread_cond_broadcast(&m_waitingThreads[i]->m_condvar);
        pthread_mutex_unlock(&m_waitingThreads[i]->m_mutex);
    }
    pthread_mutex_unlock(&m_mutex);
}

void VELDEvent::Reset()
{
    pthread_mutex_lock(&m_mutex);
    m_state.store(false, std::memory_order_release);
    pthread_mutex_unlock(&m_mutex);
}

int VELDEvent::Wait(long timeout)
{
    int result = VELD::TimeOut;
    pthread_mutex_lock(&m_mutex);
    if (timeout == VELD::Infinite) {
        while (!m_state.load(std::memory_order_relaxed)) pthread_cond_wait(&m_condvar, &m_mutex);
        result = 0;
    } else {
        timespec deadline = DeadlineIn(timeout < 0 ? 0 : timeout);
        for (;;) {
            if (m_state.load(std::memory_order_relaxed)) {
                result = 0;
                break;
            }
            if (pthread_cond_timedwait(&m_condvar, &m_mutex, &deadline) == ETIMEDOUT) {
                result = m_state.load(std::memory_order_relaxed) ? 0 : VELD::TimeOut;
                break;
            }
        }
    }
    pthread_mutex_unlock(&m_mutex);
    return result;
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

// Registered once even when the event stands twice in a wait's array: Set
// takes each registered thread's mutex once.
void VELDEvent::AddWaitingThread(VELDPosixWaitingThread* thread)
{
    pthread_mutex_lock(&m_mutex);
    if (m_waitingThreads.IndexOf(thread) < 0) m_waitingThreads.Append(thread);
    pthread_mutex_unlock(&m_mutex);
}

void VELDEvent::RemoveWaitingThread(VELDPosixWaitingThread* thread)
{
    pthread_mutex_lock(&m_mutex);
    int i = m_waitingThreads.IndexOf(thread);
    if (i >= 0) m_waitingThreads.Remove(i);
    pthread_mutex_unlock(&m_mutex);
}

// ---------------------------------------------------------------------------
// The multi-event wait

int VELDPosixWaitingThread::WaitForAny(int n, VELDEvent** events, long timeout)
{
    if (n <= 0 || !events) return VELD::TimeOut;
    // An event already set answers without a registration.
    for (int i = 0; i < n; ++i)
        if (events[i]->IsSet()) return i;
    // One record per thread, made on its first multi-event wait.
    thread_local VELDPosixWaitingThread record;
    for (int i = 0; i < n; ++i) events[i]->AddWaitingThread(&record);

    int result = VELD::TimeOut;
    timespec deadline = DeadlineIn(timeout < 0 ? 0 : timeout);
    pthread_mutex_lock(&record.m_mutex);
    for (;;) {
        // A Set holds this record's mutex while it changes a state, so what
        // is read here cannot change unseen before the wait below starts.
        for (int i = 0; i < n && result == VELD::TimeOut; ++i)
            if (events[i]->IsSet()) result = i;
        if (result != VELD::TimeOut) break;
        if (timeout == VELD::Infinite) {
            pthread_cond_wait(&record.m_condvar, &record.m_mutex);
        } else if (pthread_cond_timedwait(&record.m_condvar, &record.m_mutex, &deadline) == ETIMEDOUT) {
            for (int i = 0; i < n && result == VELD::TimeOut; ++i)
                if (events[i]->IsSet()) result = i;
            break;
        }
    }
    pthread_mutex_unlock(&record.m_mutex);

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
