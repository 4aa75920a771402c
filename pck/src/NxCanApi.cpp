// Loading of the CAN bus access library and the table of its operations.
#include "NxCanApi.h"

#include "NxBusLibraryPaths.h"

#include <dlfcn.h>
#include <sys/mman.h>

#include <boost/dll/shared_library.hpp>

#include <mutex>
#include <new>

#define NXCAN_DEFINE_POINTER(name) NXCANAPI_FUNC_PTR_##name pfnCan##name = nullptr;
NXCAN_API_OPERATIONS(NXCAN_DEFINE_POINTER)
#undef NXCAN_DEFINE_POINTER

#define NXCAN_SYMBOL_NAME(name) "NXCAN_" #name,
const char* const kNxCanApiSymbolNames[kNxCanApiOperationCount] = {NXCAN_API_OPERATIONS(NXCAN_SYMBOL_NAME)};
#undef NXCAN_SYMBOL_NAME

const char* const kNxCanApiLibraryPath = NX_BUSAPI_CAN_LIBRARY_PATH;

std::unique_ptr<NxCanLibraryObject> hNxCanApiDll;
std::uint32_t uCanApiWrapperCount = 0;

NxCanLibraryObject::~NxCanLibraryObject() = default;

namespace {

class NxCanSharedLibrary : public NxCanLibraryObject {
public:
    bool is_loaded() const override { return m_library.is_loaded(); }
    // The bus library runs threads of its own and keeps state for the whole
    // process, so it must never be unmapped, not even when this object or
    // the package goes. A first opening with RTLD_NODELETE marks it so; the
    // handle that Boost keeps is then released as usual when this object is
    // destroyed, and the library stays. A path that can't be opened is left
    // to Boost, which says why.
    void load(const std::string& path) override
    {
        if (void* pinned = dlopen(path.c_str(), RTLD_NOW | RTLD_NODELETE)) dlclose(pinned);
        m_library.load(boost::dll::fs::path(path));
    }
    void* get(const std::string& symbol) override
    {
        return reinterpret_cast<void*>(&m_library.get<void()>(symbol));
    }

private:
    boost::dll::shared_library m_library;
};

// Events are handed to the library, which may signal one after its wrapper,
// and even this package, is gone; so they live in pages mapped for the rest
// of the process, which no unloading takes away. An event is never freed.
class EventPages {
public:
    EventHandle* Make()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_page || m_used + sizeof(EventHandle) > kPageBytes) {
            void* page = mmap(nullptr, kPageBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
            if (page == MAP_FAILED) throw std::bad_alloc();
            m_page = static_cast<unsigned char*>(page);
            m_used = 0;
        }
        void* place = m_page + m_used;
        m_used += sizeof(EventHandle);
        return new (place) EventHandle();
    }

private:
    static constexpr std::size_t kPageBytes = 4096;
    static_assert(sizeof(EventHandle) % alignof(EventHandle) == 0, "events follow each other aligned");

    std::mutex m_mutex;
    unsigned char* m_page = nullptr;
    std::size_t m_used = 0;
};

EventPages g_eventPages;
std::recursive_mutex g_canLibraryLock;

}  // namespace

std::unique_ptr<NxCanLibraryObject> MakeNxCanSharedLibrary() { return std::make_unique<NxCanSharedLibrary>(); }

HANDLE CreateEventB(bool signalled)
{
    EventHandle* event = g_eventPages.Make();
    event->m_signalled = signalled;
    pthread_mutex_init(&event->m_mutex, nullptr);
    pthread_cond_init(&event->m_cond, nullptr);
    return event;
}

std::recursive_mutex& CanLibraryLock() { return g_canLibraryLock; }

void InitCanFunctionPointers()
{
#define NXCAN_CLEAR_POINTER(name) pfnCan##name = nullptr;
    NXCAN_API_OPERATIONS(NXCAN_CLEAR_POINTER)
#undef NXCAN_CLEAR_POINTER
}

int LoadCanLibrary()
{
    std::lock_guard<std::recursive_mutex> lock(CanLibraryLock());
    if (!hNxCanApiDll) hNxCanApiDll = MakeNxCanSharedLibrary();
    NxCanLibraryObject& library = *hNxCanApiDll;
    if (!library.is_loaded()) library.load(kNxCanApiLibraryPath);
    if (!library.is_loaded()) return 1;

#define NXCAN_RESOLVE_POINTER(name)                                                                    \
    {                                                                                                  \
        auto resolved = reinterpret_cast<NXCANAPI_FUNC_PTR_##name>(library.get("NXCAN_" #name));     \
        if (pfnCan##name != resolved) pfnCan##name = resolved;                                         \
    }
    NXCAN_API_OPERATIONS(NXCAN_RESOLVE_POINTER)
#undef NXCAN_RESOLVE_POINTER

    bool complete = true;
#define NXCAN_CHECK_POINTER(name) complete = complete && pfnCan##name != nullptr;
    NXCAN_API_OPERATIONS(NXCAN_CHECK_POINTER)
#undef NXCAN_CHECK_POINTER
    if (complete) return 0;
    UnloadCanLibrary();
    return 1;
}

void UnloadCanLibrary()
{
    std::lock_guard<std::recursive_mutex> lock(CanLibraryLock());
    if (hNxCanApiDll && hNxCanApiDll->is_loaded()) InitCanFunctionPointers();
}
