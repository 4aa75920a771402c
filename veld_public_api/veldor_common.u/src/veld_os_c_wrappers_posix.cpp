#include "veld_os_c_wrappers_posix.h"

#include <errno.h>
#include <linux/futex.h>
#include <linux/membarrier.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace VELD {
std::atomic<bool> g_fencelessRelease(false);

namespace {
long Membarrier(int command) { return syscall(SYS_membarrier, command, 0, 0); }

// Registration is for the whole process: every copy of this code in it (a
// package carries its own) finds the barrier usable once one registered.
bool RegisterBarrier()
{
    const bool usable = Membarrier(MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED) == 0;
    if (usable) g_fencelessRelease.store(true, std::memory_order_relaxed);
    return usable;
}
const bool g_registered = RegisterBarrier();
}  // namespace

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

VELDMutex::VELDMutex() : m_state(kFree), m_sleepers(0)
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

// A thread that gives up spinning counts itself among the sleepers before it
// tests the lock for the last time, and a release reads that count after
// its store: either the releaser sees the sleeper and wakes it, or the
// sleeper sees the lock free (the futex tests the word before it sleeps).
// The releaser's side of that needs its store and its load kept in order;
// with no fence there, the sleeper has every running thread of the process
// pass a barrier, which orders a release that straddles the count, and
// every later release reads the count after it was made.
void VELDMutex::LockContended()
{
    for (int i = 0; i < kSpins; ++i) {
        int expected = kFree;
        if (m_state.load(std::memory_order_relaxed) == kFree &&
            m_state.compare_exchange_weak(expected, kHeld, std::memory_order_acquire, std::memory_order_relaxed))
            return;
        if (i >= kTightSpins) VELD::SpinPause();
    }
    m_sleepers.fetch_add(1, std::memory_order_seq_cst);
    // Whichever copy of this code the releaser runs: the barrier is there
    // as soon as anyone in the process registered, and a releaser that
    // doesn't know about it fences.
    VELD::Membarrier(MEMBARRIER_CMD_PRIVATE_EXPEDITED);
    for (;;) {
        int expected = kFree;
        if (m_state.compare_exchange_strong(expected, kHeld, std::memory_order_acquire, std::memory_order_relaxed))
            break;
        VELD::FutexWait(&m_state, kHeld, nullptr);
    }
    m_sleepers.fetch_sub(1, std::memory_order_relaxed);
}

void VELDMutex::WakeOne() { VELD::FutexWake(&m_state, 1); }

void VELDMutex::Reset() { m_state.store(kFree, std::memory_order_release); }
