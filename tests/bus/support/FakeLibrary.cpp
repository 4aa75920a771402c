#include "FakeLibrary.h"

#include <boost/system/system_error.hpp>

#include <cerrno>
#include <map>

namespace nxtest {

namespace {

struct Log {
    std::mutex mutex;
    std::vector<FakeCall> calls;
    std::map<std::string, std::int32_t> results;
    std::map<std::string, std::deque<std::int32_t>> scripted;
    std::map<std::string, void*> symbols;
};

// Never destroyed: threads of a library's users may still call in while the
// process ends.
Log& TheLog()
{
    static Log* log = new Log;
    return *log;
}

}  // namespace

std::mutex& FakeLibrary::Mutex() { return TheLog().mutex; }

void FakeLibrary::ResetLog()
{
    std::lock_guard<std::mutex> lock(Mutex());
    TheLog().calls.clear();
    TheLog().results.clear();
    TheLog().scripted.clear();
}

void FakeLibrary::SetResult(const std::string& symbol, std::int32_t code)
{
    std::lock_guard<std::mutex> lock(Mutex());
    TheLog().results[symbol] = code;
}

void FakeLibrary::ScriptResults(const std::string& symbol, std::vector<std::int32_t> codes)
{
    std::lock_guard<std::mutex> lock(Mutex());
    TheLog().scripted[symbol].assign(codes.begin(), codes.end());
}

std::vector<FakeCall> FakeLibrary::Calls() const { return Copy(TheLog().calls); }

std::vector<std::string> FakeLibrary::CallNames() const
{
    std::vector<std::string> names;
    for (const FakeCall& call : Calls()) names.push_back(call.name);
    return names;
}

std::vector<FakeCall> FakeLibrary::CallsTo(const std::string& symbol) const
{
    std::vector<FakeCall> calls;
    for (const FakeCall& call : Calls())
        if (call.name == symbol) calls.push_back(call);
    return calls;
}

void* FakeLibrary::Symbol(const std::string& symbol)
{
    std::lock_guard<std::mutex> lock(Mutex());
    auto found = TheLog().symbols.find(symbol);
    return found == TheLog().symbols.end() ? nullptr : found->second;
}

void FakeLibrary::Define(const std::string& symbol, void* function)
{
    std::lock_guard<std::mutex> lock(Mutex());
    TheLog().symbols[symbol] = function;
}

std::int32_t FakeLibrary::Record(const std::string& symbol, std::vector<std::uint64_t> args)
{
    Log& log = TheLog();
    log.calls.push_back({symbol, std::move(args)});
    auto script = log.scripted.find(symbol);
    if (script != log.scripted.end() && !script->second.empty()) {
        std::int32_t code = script->second.front();
        script->second.pop_front();
        return code;
    }
    auto result = log.results.find(symbol);
    return result == log.results.end() ? 0 : result->second;
}

std::int32_t FakeLibrary::Simple(const std::string& symbol, std::vector<std::uint64_t> args)
{
    std::lock_guard<std::mutex> lock(Mutex());
    return Record(symbol, std::move(args));
}

// ---------------------------------------------------------------------------
// The library object and its guard

bool FakeLibraryObject::exists(const std::string& path) const
{
    probed.push_back(path);
    return !absent;
}

void FakeLibraryObject::load(const std::string& path)
{
    loads.push_back(path);
    if (failLoad || absent)
        throw boost::system::system_error(ENOENT, boost::system::generic_category(), "load " + path);
    m_loaded = true;
}

void FakeLibraryObject::unload()
{
    ++unloads;
    m_loaded = false;
}

void* FakeLibraryObject::get(const std::string& symbol)
{
    requested.push_back(symbol);
    if (throwing.count(symbol))
        throw boost::system::system_error(ENOENT, boost::system::generic_category(), symbol);
    if (missing.count(symbol)) return nullptr;
    return FakeLibrary::Symbol(symbol);
}

ScopedFakeLibrary::ScopedFakeLibrary(NxLibraryBinding& binding, void (*clearTable)())
    : m_binding(binding), m_clearTable(clearTable)
{
    std::lock_guard<std::recursive_mutex> lock(m_binding.lock);
    m_saved = std::move(m_binding.object);
    m_savedUsers = m_binding.users;
    auto object = std::make_unique<FakeLibraryObject>();
    m_object = object.get();
    m_binding.object = std::move(object);
    m_binding.users = 0;
    m_clearTable();
}

ScopedFakeLibrary::~ScopedFakeLibrary()
{
    std::lock_guard<std::recursive_mutex> lock(m_binding.lock);
    m_clearTable();
    m_binding.object = std::move(m_saved);
    m_binding.users = m_savedUsers;
}

}  // namespace nxtest
