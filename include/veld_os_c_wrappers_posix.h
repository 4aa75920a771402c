// Thin wrappers of the POSIX thread primitives the foundation needs.
#ifndef VELD_OS_C_WRAPPERS_POSIX_H
#define VELD_OS_C_WRAPPERS_POSIX_H

#include <pthread.h>
#include <time.h>

#include <atomic>

#if defined(__SANITIZE_THREAD__)
#define VELD_TSAN 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define VELD_TSAN 1
#endif
#endif
#ifdef VELD_TSAN
#include <sanitizer/tsan_interface.h>
#endif

typedef pthread_t VELDThreadId;

namespace VELD {
VELDThreadId CurrentThreadId();
bool SameThread(VELDThreadId a, VELDThreadId b);

// The futex of a 32-bit word of this process. FutexWait sleeps while
// `*word` is `expected`, until woken or, with a non-null `deadline`, until
// that absolute time of CLOCK_MONOTONIC; false when the deadline passed.
// It may also return early for no reason: callers test their condition
// again. FutexWake wakes up to `count` sleepers of the word.
bool FutexWait(std::atomic<int>* word, int expected, const timespec* deadline);
void FutexWake(std::atomic<int>* word, int count);
// A short pause in a spin that waits for another processor.
inline void SpinPause() { __builtin_ia32_pause(); }
// Set once the process may make every running thread pass a memory barrier
// (the kernel's private expedited membarrier): mutex releases then need no
// fence of their own.
extern std::atomic<bool> g_fencelessRelease;
}  // namespace VELD

// A plain, non-recursive mutex on a futex. Uncontended, taking it is one
// compare-and-swap and releasing it a store and a load: no system call, and
// no fence where the kernel offers process-wide barriers (a releaser that
// stalls on its fence until the lock's line comes back costs the next
// holder as much as the walk it guards). A thread that finds it taken spins
// a little (the holders of the data plane keep it for a short walk) before
// it sleeps; a release makes a system call only when a thread may sleep on
// it.
class VELDMutex {
public:
    VELDMutex();
    VELDMutex(const VELDMutex&) = delete;
    VELDMutex& operator=(const VELDMutex&) = delete;
    virtual ~VELDMutex();

    void Lock()
    {
#ifdef VELD_TSAN
        __tsan_mutex_pre_lock(this, 0);
#endif
        int expected = kFree;
        if (!m_state.compare_exchange_strong(expected, kHeld, std::memory_order_acquire, std::memory_order_relaxed))
            LockContended();
#ifdef VELD_TSAN
        __tsan_mutex_post_lock(this, 0, 0);
#endif
    }
    // True when the lock was taken.
    bool TryLock();
    void Release()
    {
#ifdef VELD_TSAN
        __tsan_mutex_pre_unlock(this, 0);
#endif
        m_state.store(kFree, std::memory_order_release);
        // The store must be seen before the count of sleepers is read. A
        // thread about to sleep makes every running thread pass a full
        // barrier after it counted itself; until the process has asked for
        // that, the releaser fences here.
        if (VELD::g_fencelessRelease.load(std::memory_order_relaxed))
            std::atomic_signal_fence(std::memory_order_seq_cst);
        else
            std::atomic_thread_fence(std::memory_order_seq_cst);
        if (m_sleepers.load(std::memory_order_relaxed)) WakeOne();
#ifdef VELD_TSAN
        __tsan_mutex_post_unlock(this, 0);
#endif
    }
    // Makes the mutex free again; only for a mutex nobody holds.
    void Reset();

private:
    enum { kFree = 0, kHeld = 1 };
    void LockContended();
    void WakeOne();

    std::atomic<int> m_state;
    std::atomic<int> m_sleepers;  // threads between counting themselves and taking the lock
};

#endif
