#include "SymbolTable.h"

#include <vector>

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

bool SymbolTable::RenameModule(const std::string& oldModule, const std::string& newModule)
{
    const std::string from = oldModule + ".", to = newModule + ".";
    std::lock_guard<std::mutex> lock(m_mapMutex);
    std::vector<std::string> moving;
    for (const auto& entry : m_symbols) {
        if (entry.first.compare(0, to.size(), to) == 0) return false;
        if (entry.first.compare(0, from.size(), from) == 0) moving.push_back(entry.first);
    }
    for (const std::string& name : moving) {
        auto node = m_symbols.extract(name);
        node.key() = to + name.substr(from.size());
        node.mapped()->name = node.key();
        node.mapped()->symbol.name = node.mapped()->name.c_str();
        m_symbols.insert(std::move(node));
    }
    return true;
}

size_t SymbolTable::Size()
{
    std::lock_guard<std::mutex> lock(m_mapMutex);
    return m_symbols.size();
}

}  // namespace veldor
