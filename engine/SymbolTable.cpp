#include "SymbolTable.h"

namespace veldor {

bool SymbolTable::Register(const char* fullName, VELDSymbol::Kind kind, VELDModule* module, void* object)
{
    if (!fullName || !*fullName) return false;
    std::lock_guard<std::mutex> lock(m_mapMutex);
    std::unique_ptr<Entry>& slot = m_symbols[fullName];
    if (slot) return false;
    slot.reset(new Entry{fullName, VELDSymbol{nullptr, kind, module, object}});
    slot->symbol.name = slot->name.c_str();
    return true;
}

void SymbolTable::Unregister(const char* fullName)
{
    if (!fullName) return;
    std::lock_guard<std::recursive_mutex> use(m_useMutex);
    std::lock_guard<std::mutex> lock(m_mapMutex);
    m_symbols.erase(fullName);
}

VELDSymbol* SymbolTable::Find(const char* fullName)
{
    if (!fullName) return nullptr;
    std::lock_guard<std::mutex> lock(m_mapMutex);
    auto it = m_symbols.find(fullName);
    return it == m_symbols.end() ? nullptr : &it->second->symbol;
}

size_t SymbolTable::Size()
{
    std::lock_guard<std::mutex> lock(m_mapMutex);
    return m_symbols.size();
}

}  // namespace veldor
