// The registry of full names of the graph: inputs, outputs, properties and
// actions of every module, by "<module>.<short name>".
//
// Two locks. The table's own is held only inside each operation below, so
// that a module may register and unregister its names under its structure
// lock. The symbols lock (Lock, the kernel's LockSymbols) is held by whoever
// looks a property up and reads it through its owner, which takes the
// owner's locks afterwards; the engine holds it as well while it creates,
// sets up or destroys components, so that what a reader found is not
// destroyed under it. Order: symbols lock, configuration lock, a module's
// locks, the table's lock.
#ifndef VELDOR_ENGINE_SYMBOL_TABLE_H
#define VELDOR_ENGINE_SYMBOL_TABLE_H

#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

#include "veld_kernel_services.h"

namespace veldor {

class SymbolTable {
public:
    // False when the name is already registered.
    bool Register(const char* fullName, VELDSymbol::Kind kind, VELDModule* module, void* object);
    // Forgets a name; unknown names are ignored.
    void Unregister(const char* fullName);
    // The record, or null. The record stays valid until the name is
    // unregistered.
    VELDSymbol* Find(const char* fullName);
    // Moves every name "<oldModule>.<rest>" to "<newModule>.<rest>". False,
    // with nothing moved, when a name of the new module exists already.
    bool RenameModule(const std::string& oldModule, const std::string& newModule);
    size_t Size();

    // The symbols lock; re-entrant.
    void Lock() { m_useMutex.lock(); }
    void Unlock() { m_useMutex.unlock(); }
    void lock() { Lock(); }
    void unlock() { Unlock(); }

private:
    struct Entry {
        std::string name;
        VELDSymbol symbol;
    };

    std::recursive_mutex m_useMutex;
    std::mutex m_mutex;
    std::unordered_map<std::string, std::unique_ptr<Entry>> m_symbols;
};

}  // namespace veldor

#endif
