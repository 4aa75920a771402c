#include "ComponentThreads.h"

#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <exception>
#include <thread>

#include "veld.h"
#include "veld_component.h"
#include "veld_private.h"
#include "veld_property.h"
#include "veld_thread.h"

namespace veldor {

namespace {

// A model's failure, told as the lifecycle tells it: "<kind> <name>" and
// the text, as a message box and an error report.
void ReportFatal(VELDModule& module, const char* text)
{
    VELDString message(module.Kind());
    message += " ";
    message += module.Name();
    message += text;
    VELDPrivate::MessageBox(message, 2, 2, true);
    VELD::ReportError(message, 0);
}

// Runs `body` and reports what it throws; true when it ended in error.
template <class Body>
bool RunReporting(VELDModule& module, const char* diedText, Body body)
{
    try {
        body();
        return false;
    } catch (int code) {
        if (code == VELD::ModuleDied) return false;
        if (code == VELD::ErrorException) {
            VELDString text(module.Kind());
            text += " ";
            text += module.Name();
            text += diedText;
            VELD::ReportWarning(text, 1);
        } else {
            ReportFatal(module, VELDComponent::DescribeThrown(true));
        }
    } catch (...) {
        ReportFatal(module, VELDComponent::DescribeThrown(true));
    }
    return true;
}

// The thread takes the module's name (as far as the system keeps it, 15
// characters, so that top -H and a profiler tell the threads apart), its
// processor and, for a component, its priority.
void Configure(VELDModule& module, VELDThread& thread)
{
    char name[16] = {};
    std::strncpy(name, module.Name(), sizeof name - 1);
    pthread_setname_np(pthread_self(), name);
    if (module.HasProperty("priority")) thread.SetPriority(static_cast<int>(module.Property("priority").IntegerValue()));
    if (module.processor && module.processor->IntegerValue() >= 0)
        thread.SetProcessor(static_cast<int>(module.processor->IntegerValue()));
}

}  // namespace

void ComponentThreads::Enter(const VELDModule* module)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_running[module];
}

void ComponentThreads::Leave(const VELDModule* module)
{
    // Notified under the lock: once a waiter sees the module gone, the
    // engine may go too.
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = m_running.find(module);
    if (it != m_running.end() && --it->second <= 0) m_running.erase(it);
    m_leaving.push_back(static_cast<pid_t>(syscall(SYS_gettid)));
    m_left.notify_all();
}

bool ComponentThreads::WaitForExits(long timeoutMicroseconds)
{
    const auto until = std::chrono::steady_clock::now() + std::chrono::microseconds(timeoutMicroseconds);
    const pid_t process = getpid();
    for (;;) {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            // A thread that is gone no longer takes a signal.
            m_leaving.erase(std::remove_if(m_leaving.begin(), m_leaving.end(),
                                           [process](pid_t thread) {
                                               return syscall(SYS_tgkill, process, thread, 0) != 0 && errno == ESRCH;
                                           }),
                            m_leaving.end());
            if (m_leaving.empty()) return true;
        }
        if (std::chrono::steady_clock::now() > until) return false;
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
}

int ComponentThreads::Running(const VELDModule* module)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = m_running.find(module);
    return it == m_running.end() ? 0 : it->second;
}

bool ComponentThreads::WaitUntilLeft(const VELDModule* module, long timeoutMicroseconds)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_left.wait_for(lock, std::chrono::microseconds(timeoutMicroseconds),
                           [&] { return m_running.find(module) == m_running.end(); });
}

void* ComponentThreads::MainThread(VELDComponent& component)
{
    Enter(&component);
    component.OneMoreLife();
    VELDThread thread;
    Configure(component, thread);
    component.AddThread(&thread);
    component.DirectSet(component.Property("primaryThreadID"), static_cast<VELDInt64>(thread.SystemId()));

    const bool failed = RunReporting(component, " died due to an error.", [&] {
        component.Birth();
        component.BirthEvent().Set();
        component.TellState();
        // The die event stays set after a shutdown that gave up waiting,
        // which clears the dying state: a late Core still ends the loop.
        while (!component.IsDying() && !component.m_dieEvent.IsSet()) {
            component.PerformanceMonitoring();
            component.Core();
        }
    });
    if (failed) component.m_state |= VELD::ErrorState;

    // Dying: the component's other threads leave their waits too.
    component.m_state |= VELD::DyingState;
    component.m_dieEvent.Set();
    component.LoseOneLife();
    RunReporting(component, " died due to an error.", [&] { component.Banzai(); });
    component.Wait4Death();
    component.CallDeath();
    component.DirectSet(component.Property("primaryThreadID"), VELDInt64(-1));
    component.RemoveThread(&thread);
    component.Die4Good();
    Leave(&component);
    return nullptr;
}

void* ComponentThreads::FurtherThread(void* startRecord, bool component)
{
    void* const* words = static_cast<void* const*>(startRecord);
    const bool freeForm = words[0] == nullptr && reinterpret_cast<long>(words[1]) == 1;
    VELDModule* module;
    VELDThreadFunction member = nullptr;
    VELDThreadFreeFunction function = nullptr;
    void* arg = nullptr;
    std::atomic<bool>* started;
    if (freeForm) {
        const VELDFreeThreadStartRecord& record = *static_cast<const VELDFreeThreadStartRecord*>(startRecord);
        module = record.module;
        function = record.function;
        arg = record.arg;
        started = record.started;
        *record.success = true;
        *record.threadId = static_cast<unsigned long>(pthread_self());
    } else {
        const VELDThreadStartRecord& record = *static_cast<const VELDThreadStartRecord*>(startRecord);
        module = record.module;
        member = record.function;
        started = record.started;
    }
    Enter(module);
    module->OneMoreLife();
    VELDThread thread;
    Configure(*module, thread);
    module->AddThread(&thread);
    // The record lives on the creator's stack: nothing of it is read after.
    started->store(true);

    const char* diedText = component ? " : a thread of the component died due to an error."
                                     : " : a thread of the module died due to an error.";
    RunReporting(*module, diedText, [&] {
        if (function)
            function(arg);
        else
            (module->*member)();
    });
    module->RemoveThread(&thread);
    module->LoseOneLife();
    Leave(module);
    return nullptr;
}

void* ComponentThreads::ComponentThread(void* startRecord) { return FurtherThread(startRecord, true); }
void* ComponentThreads::ModuleThread(void* startRecord) { return FurtherThread(startRecord, false); }

}  // namespace veldor
