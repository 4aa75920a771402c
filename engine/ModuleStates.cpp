#include "ModuleStates.h"

#include <chrono>

namespace veldor {

void ModuleStates::Changed(const char* moduleName, int state)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_states[moduleName ? moduleName : ""] = state;
    m_changed.notify_all();
}

bool ModuleStates::Get(const std::string& moduleName, int* state) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = m_states.find(moduleName);
    if (it == m_states.end()) return false;
    if (state) *state = it->second;
    return true;
}

bool ModuleStates::WaitFor(const std::string& moduleName, int bits, long timeoutMicroseconds) const
{
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, std::chrono::microseconds(timeoutMicroseconds), [&] {
        auto it = m_states.find(moduleName);
        return it != m_states.end() && (it->second & bits) == bits;
    });
}

void ModuleStates::Forget(const std::string& moduleName)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_states.erase(moduleName);
}

void ModuleStates::Rename(const std::string& oldName, const std::string& newName)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = m_states.find(oldName);
    if (it == m_states.end()) return;
    const int state = it->second;
    m_states.erase(it);
    m_states[newName] = state;
}

}  // namespace veldor
