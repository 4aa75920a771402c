// The registry of full names of the graph: inputs, outputs, properties and
// actions of every module, by "<module>.<short name>".
//
// Two locks. The table's own is held only inside each operation below. The
// symbols lock (Lock, the kernel's LockSymbols) is held by whoever looks a
// property up and reads it through its owner, which takes the owner's locks
// afterwards; Unregister waits for it. The engine takes it before it
// creates, sets up or destroys components, so that the unregistering that
// these do under a module's structure lock finds it held already. Order:
// symbols lock, configuration lock, a module's locks, the table's lock.
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

    // Held around a look-up and the use of what it found; re-entrant.
    // Unregister waits for it, so that what was found stays. Register does
    // not: a module registers its elements under its own locks, which a
    // user of a symbol may take next.
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
    std::mutex m_mapMutex;  // the map alone; nothing is taken under it
    std::unordered_map<std::string, std::unique_ptr<Entry>> m_symbols;
};

}  // namespace veldor

#endif
