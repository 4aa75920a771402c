// The bodies of the threads that run components and modules: the kernel's
// half of their lifecycle.
//
// MainThread runs a threaded component's life: a life counted, Birth, the
// birth event, PerformanceMonitoring and Core while the component lives,
// then the life given back, Banzai, the wait for the component's other
// threads, Death and Die4Good. What the model throws is caught and reported
// as the lifecycle's tables say; an error ends the component with ErrorState.
//
// ComponentThread and ModuleThread run a further thread from its start
// record (a member function of the module, or a free function with its
// argument), counted as a life of the module.
//
// Every thread is detached, and registers a VELDThread with its module while
// it runs. The engine counts the threads still inside a body for each
// module, so that a component is destroyed only once they have all left.
// A thread that has left a body still returns through the code of the
// package that started it: WaitForExits lets those threads end before the
// package files are unloaded.
#ifndef VELDOR_ENGINE_COMPONENT_THREADS_H
#define VELDOR_ENGINE_COMPONENT_THREADS_H

#include <condition_variable>
#include <sys/types.h>

#include <map>
#include <mutex>
#include <vector>

class VELDComponent;
class VELDModule;

namespace veldor {

class ComponentThreads {
public:
    ComponentThreads() = default;
    ComponentThreads(const ComponentThreads&) = delete;
    ComponentThreads& operator=(const ComponentThreads&) = delete;

    void* MainThread(VELDComponent& component);
    // `startRecord` is a VELDThreadStartRecord or a VELDFreeThreadStartRecord.
    void* ComponentThread(void* startRecord);
    void* ModuleThread(void* startRecord);

    // Threads of `module` still inside one of the bodies above.
    int Running(const VELDModule* module);
    // Waits until none remains; false after `timeoutMicroseconds`.
    bool WaitUntilLeft(const VELDModule* module, long timeoutMicroseconds);
    // Waits until every thread that has left a body has ended as a thread
    // of the system; false after `timeoutMicroseconds`.
    bool WaitForExits(long timeoutMicroseconds);

private:
    void* FurtherThread(void* startRecord, bool component);
    void Enter(const VELDModule* module);
    void Leave(const VELDModule* module);

    std::mutex m_mutex;
    std::condition_variable m_left;
    std::map<const VELDModule*, int> m_running;
    std::vector<pid_t> m_leaving;  // system ids of threads that have left a body
};

}  // namespace veldor

#endif
