#include "veld_os_c_wrappers_posix.h"

namespace VELD {
VELDThreadId CurrentThreadId() { return pthread_self(); }
bool SameThread(VELDThreadId a, VELDThreadId b) { return pthread_equal(a, b) != 0; }
}  // namespace VELD

VELDMutex::VELDMutex() { pthread_mutex_init(&m_mutex, nullptr); }
VELDMutex::~VELDMutex() { pthread_mutex_destroy(&m_mutex); }
void VELDMutex::Lock() { pthread_mutex_lock(&m_mutex); }
bool VELDMutex::TryLock() { return pthread_mutex_trylock(&m_mutex) == 0; }
void VELDMutex::Release() { pthread_mutex_unlock(&m_mutex); }

void VELDMutex::Reset()
{
    pthread_mutex_destroy(&m_mutex);
    pthread_mutex_init(&m_mutex, nullptr);
}
