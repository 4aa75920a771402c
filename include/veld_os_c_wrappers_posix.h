// Thin wrappers of the POSIX thread primitives the foundation needs.
#ifndef VELD_OS_C_WRAPPERS_POSIX_H
#define VELD_OS_C_WRAPPERS_POSIX_H

#include <pthread.h>

typedef pthread_t VELDThreadId;

namespace VELD {
VELDThreadId CurrentThreadId();
bool SameThread(VELDThreadId a, VELDThreadId b);
}  // namespace VELD

// A plain, non-recursive mutex.
class VELDMutex {
public:
    VELDMutex();
    VELDMutex(const VELDMutex&) = delete;
    VELDMutex& operator=(const VELDMutex&) = delete;
    virtual ~VELDMutex();

    void Lock();
    // True when the lock was taken.
    bool TryLock();
    void Release();
    // Destroys and re-creates the mutex; only for a mutex nobody holds.
    void Reset();

    pthread_mutex_t* Native() { return &m_mutex; }

protected:
    pthread_mutex_t m_mutex;
};

#endif
