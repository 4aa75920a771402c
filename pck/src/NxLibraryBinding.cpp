#include "NxLibraryBinding.h"

#include <dlfcn.h>

#include <boost/dll/shared_library.hpp>
#include <boost/filesystem/operations.hpp>

#include <vector>

NxLibraryObject::~NxLibraryObject() = default;

namespace {

class NxSharedLibrary : public NxLibraryObject {
public:
    explicit NxSharedLibrary(bool pinned) : m_pinned(pinned) {}

    bool exists(const std::string& path) const override
    {
        boost::system::error_code ignored;
        return boost::filesystem::exists(boost::filesystem::path(path), ignored);
    }
    bool is_loaded() const override { return m_library.is_loaded(); }
    // A first opening with RTLD_NODELETE marks a pinned library so; the
    // handle that Boost keeps is then released as usual when this object is
    // destroyed or unloads, and the library stays. A path that can't be
    // opened is left to Boost, which says why.
    void load(const std::string& path) override
    {
        if (m_pinned) {
            if (void* pinned = dlopen(path.c_str(), RTLD_NOW | RTLD_NODELETE)) dlclose(pinned);
        }
        m_library.load(boost::dll::fs::path(path));
    }
    void unload() override { m_library.unload(); }
    void* get(const std::string& symbol) override
    {
        return reinterpret_cast<void*>(&m_library.get<void()>(symbol));
    }

private:
    const bool m_pinned;
    boost::dll::shared_library m_library;
};

}  // namespace

std::unique_ptr<NxLibraryObject> MakeNxSharedLibrary(bool pinned) { return std::make_unique<NxSharedLibrary>(pinned); }

NxLibraryObject& NxLibraryBinding::Object()
{
    if (!object) object = MakeNxSharedLibrary(m_pinned);
    return *object;
}

int NxLibraryBinding::Load(const std::string& path, bool testExists, const NxTableEntry* table, std::size_t count,
                           void (*unloadTable)())
{
    std::lock_guard<std::recursive_mutex> guard(lock);
    NxLibraryObject& library = Object();
    if (!library.is_loaded()) {
        if (testExists && !library.exists(path)) return 1;
        library.load(path);
    }
    if (!library.is_loaded()) return 1;
    std::vector<void*> addresses(count);
    bool complete = true;
    for (std::size_t i = 0; i < count; ++i) {
        addresses[i] = library.get(table[i].symbol);
        complete = complete && addresses[i] != nullptr;
    }
    if (!complete) {
        unloadTable();
        return 1;
    }
    for (std::size_t i = 0; i < count; ++i) table[i].bind(addresses[i]);
    return 0;
}

bool NxLibraryBinding::Available(const std::string& path)
{
    std::lock_guard<std::recursive_mutex> guard(lock);
    NxLibraryObject& library = Object();
    return library.is_loaded() || library.exists(path);
}

void NxLibraryBinding::Unload()
{
    std::lock_guard<std::recursive_mutex> guard(lock);
    if (IsLoaded()) object->unload();
}
