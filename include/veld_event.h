// Everything that blocks in the runtime blocks on VELDEvent: a manual-reset
// event that a thread can wait on alone or together with others. On top of
// it stand the recursive mutex, the guard, and the two conditions: the
// kernel's time-state condition (VELDCondition, a pool of events) and the
// FIFO's reader wake-up (VELDCondition2, one event per reader).
//
// An event knows whether anyone waits on it: setting or resetting an event
// that nobody waits on is one atomic operation, with no lock and no system
// call. A waiting thread sleeps on a futex word of its own, which every
// event that it waits on bumps and wakes when set.
//
// Lock order: the time-state lock before event mutexes; a FIFO's mutex
// before event mutexes. An event's mutex guards only its list of waiting
// threads, and nothing is taken under it.
#ifndef VELD_EVENT_H
#define VELD_EVENT_H

#include <atomic>

#include "veld_containers.h"
#include "veld_os_c_wrappers_posix.h"
#include "veld_types.h"

class VELDEvent;

// The record of one thread inside a wait. The kernel's event service
// registers it in every event waited on; Set wakes it through its word.
class VELDPosixWaitingThread {
public:
    VELDPosixWaitingThread() : m_wakeups(0) {}
    VELDPosixWaitingThread(const VELDPosixWaitingThread&) = delete;
    VELDPosixWaitingThread& operator=(const VELDPosixWaitingThread&) = delete;

    // The multi-event wait itself, for the kernel's event service: registers
    // the calling thread's record in every event, tests the states in array
    // order and returns the first index set, or VELD::TimeOut. An event
    // already set answers at once; without a time limit, one that is set
    // within a short spin answers without a registration or a system call.
    static int WaitForAny(int n, VELDEvent** events, long timeout);

    // Bumped by each Set of an event that the thread waits on; the thread
    // sleeps on it (a futex) while it stays what it was when the states
    // were tested.
    std::atomic<int> m_wakeups;
};

class VELDEvent {
public:
    explicit VELDEvent(bool initialState = false, const char* name = nullptr);
    VELDEvent(const VELDEvent&) = delete;
    VELDEvent& operator=(const VELDEvent&) = delete;
    ~VELDEvent();

    // Sets the event and wakes every thread waiting on it; it stays set until
    // Reset. Setting a set event does nothing. With nobody waiting, no lock
    // and no system call.
    void Set()
    {
        if (!(m_state.load(std::memory_order_relaxed) & kSetBit)) SetClear();
    }
    void Reset()
    {
        if (m_state.load(std::memory_order_relaxed) & kSetBit) m_state.fetch_and(~kSetBit, std::memory_order_relaxed);
    }
    bool IsSet() const { return (m_state.load(std::memory_order_acquire) & kSetBit) != 0; }

    // Waits on this event alone: 0 when set, VELD::TimeOut after `timeout`
    // microseconds (VELD::Infinite: no limit). The state wins a tie.
    int Wait(long timeout);
    // Waits on several events through the kernel's event service: the index
    // of the first event set, in array order, or VELD::TimeOut.
    static int Wait(int n, VELDEvent** events, long timeout);
    static int MsgWait(int n, VELDEvent** events, long timeout);
    // Resets the event and has the kernel set it `delay` microseconds from
    // now. True in every case: callers keep their failure branch for a
    // service with a limit.
    bool SetTrigger(long delay);
    void ResetTrigger();
    bool MsgInQueue() const { return false; }

    // For the wait: a thread's record is registered once however often the
    // event stands in its array, and removed under the event's mutex, so
    // that a Set that wakes it is over before the thread leaves its wait.
    void AddWaitingThread(VELDPosixWaitingThread* thread);
    void RemoveWaitingThread(VELDPosixWaitingThread* thread);
    // The timer flag, under the event service's lock.
    bool IsInTimerList() const { return m_isInTimerList.load(std::memory_order_acquire); }
    void SetInTimerList(bool on) { m_isInTimerList.store(on, std::memory_order_release); }

    // Bit 0 of m_state: the event is set. The rest counts the registered
    // waiting threads, in steps of kWaiterStep: one word, so that a Set sees
    // in one atomic operation whether anyone may sleep.
    static const int kSetBit = 1;
    static const int kWaiterStep = 2;

    VELDMutex m_mutex;  // guards m_waitingThreads
    std::atomic<int> m_state;
    VELDArray<VELDPosixWaitingThread*> m_waitingThreads;
    std::atomic<bool> m_isInTimerList;

private:
    void SetClear();
    void SetAndWake();
};

// A recursive mutex: the base is the lock proper, hlMutex guards the owner and
// the count.
class VELDMutex2 : public VELDMutex {
public:
    VELDMutex2();
    void Lock();
    bool TryLock();
    void Release();
    // True when the calling thread holds the lock.
    bool IsLockedByCurrentThread();

    VELDMutex hlMutex;
    volatile VELDThreadId owner;
    volatile int nbRef;
    volatile bool requested;
};

// Holds a VELDMutex or a VELDMutex2 for a scope; the lock can be given up
// and taken again inside it.
class VELDMutexGuard {
public:
    explicit VELDMutexGuard(VELDMutex& mutex);
    explicit VELDMutexGuard(VELDMutex2& mutex);
    VELDMutexGuard(const VELDMutexGuard&) = delete;
    VELDMutexGuard& operator=(const VELDMutexGuard&) = delete;
    ~VELDMutexGuard();

    // Each does nothing when the lock is already in the state asked for; the
    // result tells whether something changed.
    bool unlock_mtx();
    bool relock_mtx();

private:
    void (VELDMutexGuard::*m_unlock_fun)();
    void (VELDMutexGuard::*m_relock_fun)();
    VELDMutex* m_mtx;
    VELDMutex2* m_mtx2;
    bool m_locked;

    void UnlockPlain() { m_mtx->Release(); }
    void RelockPlain() { m_mtx->Lock(); }
    void UnlockRecursive() { m_mtx2->Release(); }
    void RelockRecursive() { m_mtx2->Lock(); }
};

// The kernel's time-state condition: the engine builds it on its time-state
// lock and signals it after every change of time, speed or pause. A waiter
// takes an event from the pool (busy items at the head, free ones at the
// tail), so that signalling stops at the first free item. Every call is made
// with `mutex` held; the operations go through the member pointers that the
// constructor sets, so that they run the code of whoever built the object.
class VELDCondition {
public:
    class VELDEventInPool : public VELDEvent {
    public:
        VELDEventInPool() : VELDEvent(false, nullptr), free(true) {}
        bool free;
    };

    VELDCondition(VELDMutex* mutex, VELDEvent* abortEvent, VELDInt64 timeout = -1);
    VELDCondition(const VELDCondition&) = delete;
    VELDCondition& operator=(const VELDCondition&) = delete;
    ~VELDCondition();

    VELDMutex* mutex;
    VELDEvent* abortEvent;
    VELDList<VELDEventInPool*> pool;
    VELDInt64 timeout;

    // Releases `mutex`, waits for a signal, takes `mutex` again. Throws
    // VELD::ModuleDied on the abort event, VELD::TimeOut after `timeout`.
    void (VELDCondition::*Wait)();
    // The split form: releases `mutex` and hands out the event to wait on
    // together with others; returns the handle for AchieveWaitX.
    void* (VELDCondition::*WaitX)(VELDEvent** event);
    // Takes `mutex` again and gives the event back; `mutex` stays taken.
    void (VELDCondition::*AchieveWaitX)(void* handle);
    // Wakes every waiter.
    void (VELDCondition::*Signal)();
    void (VELDCondition::*Abort)();

    void InternalWait();
    void* InternalWaitX(VELDEvent** event);
    void InternalAchieveWaitX(void* handle);
    void InternalSignal();
    void InternalAbort();

private:
    VELDListItem<VELDEventInPool*>* TakeFromPool();
    void GiveBack(VELDListItem<VELDEventInPool*>* item);
};

// The wake-up of a FIFO's readers: one event per reader number, guarded by
// the FIFO's mutex.
class VELDCondition2 {
public:
    static const int kMaxReaders = 32;

    VELDCondition2(VELDMutex* mutex, VELDEvent* abortEvent, int timeout = -1);
    VELDCondition2(const VELDCondition2&) = delete;
    VELDCondition2& operator=(const VELDCondition2&) = delete;
    ~VELDCondition2();

    // A new reader number.
    int Subscribe();
    // Makes reader number r usable, resetting its event if it exists.
    void Subscribe(int r);
    // With `mutex` held: waits until signalled; `mutex` is held again on
    // return. Throws VELD::ModuleDied on the abort event, VELD::TimeOut.
    void Wait(int r);
    // The split form, with `mutex` held: resets r's event, hands it out with
    // the abort event, marks r waiting and releases `mutex`.
    void WaitX(int r, VELDEvent** wake, VELDEvent** abort);
    // Takes `mutex` again after a split wait; result 0 (woken) clears the
    // waiting mark, 1 (aborted) throws VELD::ModuleDied, anything else
    // VELD::FatalKernelError, both with `mutex` released.
    void AchieveWaitX(int r, int result);
    // Takes `mutex` and clears r's waiting mark; the caller releases it.
    void AbortWaitX(int r);
    // With `mutex` held: sets the event of every waiting reader; numbers at
    // or past nbEvents were never subscribed. A reader that waits but does
    // not sleep yet costs one atomic operation, one already woken none.
    void Signal()
    {
        for (int r = 0; r < nbEvents; ++r)
            if (waiting[r] && events[r]) events[r]->Set();
    }
    // Sets the abort event: every waiter leaves.
    void CutConnection();

    VELDMutex* mutex;
    VELDEvent* abortEvent;
    VELDEvent* events[kMaxReaders];
    bool waiting[kMaxReaders];
    int nbEvents;
    int timeout;
};

#endif
