#include "veld_os_c_wrappers_posix.h"

#include <errno.h>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace VELD {
VELDThreadId CurrentThreadId() { return pthread_self(); }
bool SameThread(VELDThreadId a, VELDThreadId b) { return pthread_equal(a, b) != 0; }

bool FutexWait(std::atomic<int>* word, int expected, const timespec* deadline)
{
    // The bitset form takes an absolute time of CLOCK_MONOTONIC.
    long result = syscall(SYS_futex, reinterpret_cast<int*>(word), FUTEX_WAIT_BITSET_PRIVATE, expected, deadline,
                          nullptr, FUTEX_BITSET_MATCH_ANY);
    return result == 0 || errno != ETIMEDOUT;
}

void FutexWake(std::atomic<int>* word, int count)
{
    syscall(SYS_futex, reinterpret_cast<int*>(word), FUTEX_WAKE_PRIVATE, count, nullptr, nullptr, 0);
}
}  // namespace VELD

namespace {

// A thread that finds the mutex taken looks at it again and again for a
// while, the first times without a pause (the holders of the data plane
// keep it for a short walk, and a pause costs a good part of that walk),
// then with one: a microsecond or two in all before it sleeps, while a
// holder that lost its processor keeps it much longer.
const int kSpins = 140;
const int kTightSpins = 100;

}  // namespace

VELDMutex::VELDMutex() : m_state(kFree)
{
#ifdef VELD_TSAN
    __tsan_mutex_create(this, 0);
#endif
}

VELDMutex::~VELDMutex()
{
#ifdef VELD_TSAN
    __tsan_mutex_destroy(this, 0);
#endif
}

bool VELDMutex::TryLock()
{
#ifdef VELD_TSAN
    __tsan_mutex_pre_lock(this, __tsan_mutex_try_lock);
#endif
    int expected = kFree;
    const bool taken =
        m_state.compare_exchange_strong(expected, kHeld, std::memory_order_acquire, std::memory_order_relaxed);
#ifdef VELD_TSAN
    __tsan_mutex_post_lock(this, taken ? __tsan_mutex_try_lock : __tsan_mutex_try_lock | __tsan_mutex_try_lock_failed,
                           0);
#endif
    return taken;
}

// A sleeper marks the word kSleepers, so that the release that frees it
// wakes one; whoever takes the lock after sleeping keeps that mark, as
// another thread may still sleep.
void VELDMutex::LockContended()
{
    for (int i = 0; i < kSpins; ++i) {
        int expected = kFree;
        if (m_state.load(std::memory_order_relaxed) == kFree &&
            m_state.compare_exchange_weak(expected, kHeld, std::memory_order_acquire, std::memory_order_relaxed))
            return;
        if (i >= kTightSpins) VELD::SpinPause();
    }
    while (m_state.exchange(kSleepers, std::memory_order_acquire) != kFree) VELD::FutexWait(&m_state, kSleepers, nullptr);
}

void VELDMutex::WakeOne() { VELD::FutexWake(&m_state, 1); }

void VELDMutex::Reset() { m_state.store(kFree, std::memory_order_release); }
