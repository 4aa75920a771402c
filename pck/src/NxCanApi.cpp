// Loading of the CAN bus access library and the table of its operations.
#include "NxCanApi.h"

#include "NxBusLibraryPaths.h"

#include <sys/mman.h>

#include <mutex>
#include <new>

#define NXCAN_DEFINE_POINTER(name) NXCANAPI_FUNC_PTR_##name pfnCan##name = nullptr;
NXCAN_API_OPERATIONS(NXCAN_DEFINE_POINTER)
#undef NXCAN_DEFINE_POINTER

namespace {
#define NXCAN_TABLE_ENTRY(name) {"NXCAN_" #name, [](void* address) { NxBindOperation(pfnCan##name, address); }},
const NxTableEntry kCanTable[] = {NXCAN_API_OPERATIONS(NXCAN_TABLE_ENTRY)};
#undef NXCAN_TABLE_ENTRY
static_assert(sizeof kCanTable / sizeof kCanTable[0] == kNxCanApiOperationCount, "one entry per operation");
}  // namespace

const char* const kNxCanApiLibraryPath = NX_BUSAPI_CAN_LIBRARY_PATH;

namespace {
NxLibraryBinding g_canLibrary(true);
}  // namespace

std::unique_ptr<NxLibraryObject>& hNxCanApiDll = g_canLibrary.object;
std::uint32_t& uCanApiWrapperCount = g_canLibrary.users;

namespace {

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

}  // namespace

NxLibraryBinding& CanLibrary() { return g_canLibrary; }

HANDLE CreateEventB(bool signalled)
{
    EventHandle* event = g_eventPages.Make();
    event->m_signalled = signalled;
    pthread_mutex_init(&event->m_mutex, nullptr);
    pthread_cond_init(&event->m_cond, nullptr);
    return event;
}

std::recursive_mutex& CanLibraryLock() { return g_canLibrary.lock; }

void InitCanFunctionPointers() { NxLibraryBinding::Clear(kCanTable); }

int LoadCanLibrary()
{
    // No test that the file exists: a machine without it gets the loader's
    // error, where the Ethernet library says 1.
    return g_canLibrary.Load(kNxCanApiLibraryPath, false, kCanTable, UnloadCanLibrary);
}

void UnloadCanLibrary()
{
    std::lock_guard<std::recursive_mutex> lock(CanLibraryLock());
    if (g_canLibrary.IsLoaded()) InitCanFunctionPointers();
}
