// The last state mask that each module told the kernel (ModuleStateChanged),
// by module name, so that tests and tools can wait for a component to be
// alive or dead.
#ifndef VELDOR_ENGINE_MODULE_STATES_H
#define VELDOR_ENGINE_MODULE_STATES_H

#include <condition_variable>
#include <map>
#include <mutex>
#include <string>

namespace veldor {

class ModuleStates {
public:
    void Changed(const char* moduleName, int state);
    // False when the module never told its state.
    bool Get(const std::string& moduleName, int* state) const;
    // Waits until the module's state has every bit of `bits` set; false after
    // `timeoutMicroseconds`.
    bool WaitFor(const std::string& moduleName, int bits, long timeoutMicroseconds) const;
    void Forget(const std::string& moduleName);
    // A renamed module keeps its state.
    void Rename(const std::string& oldName, const std::string& newName);

private:
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    std::map<std::string, int> m_states;
};

}  // namespace veldor

#endif
