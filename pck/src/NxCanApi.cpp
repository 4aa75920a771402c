// Loading of the CAN bus access library and the table of its operations.
#include "NxCanApi.h"

#include <boost/dll/shared_library.hpp>

#include <mutex>
#include <vector>

#define NXCAN_DEFINE_POINTER(name) NXCANAPI_FUNC_PTR_##name pfnCan##name = nullptr;
NXCAN_API_OPERATIONS(NXCAN_DEFINE_POINTER)
#undef NXCAN_DEFINE_POINTER

#define NXCAN_SYMBOL_NAME(name) "NXCAN_" #name,
const char* const kNxCanApiSymbolNames[kNxCanApiOperationCount] = {NXCAN_API_OPERATIONS(NXCAN_SYMBOL_NAME)};
#undef NXCAN_SYMBOL_NAME

const char* const kNxCanApiLibraryPath = "/opt/norvex/common/busapi/2024-A/Deliverables/bin/libNXBusApiCan.so";

std::unique_ptr<NxCanLibraryObject> hNxCanApiDll;
std::uint32_t uCanApiWrapperCount = 0;

NxCanLibraryObject::~NxCanLibraryObject() = default;

namespace {

// Libraries that stay mapped until the process ends.
std::vector<boost::dll::shared_library>& KeptLibraries()
{
    static auto* kept = new std::vector<boost::dll::shared_library>;
    return *kept;
}

class NxCanSharedLibrary : public NxCanLibraryObject {
public:
    // The bus library runs threads of its own and keeps state for the whole
    // process; it is never unmapped, not even when the process-wide object
    // goes at exit, just as UnloadCanLibrary only clears the table.
    ~NxCanSharedLibrary() override
    {
        if (m_library.is_loaded()) KeptLibraries().push_back(std::move(m_library));
    }
    bool is_loaded() const override { return m_library.is_loaded(); }
    void load(const std::string& path) override { m_library.load(boost::dll::fs::path(path)); }
    void* get(const std::string& symbol) override
    {
        return reinterpret_cast<void*>(&m_library.get<void()>(symbol));
    }

private:
    boost::dll::shared_library m_library;
};

// Every event ever handed out, so that they stay reachable until the end.
struct EventKeeper {
    std::mutex mutex;
    std::vector<std::unique_ptr<EventHandle>> events;
};

EventKeeper& Events()
{
    static EventKeeper* keeper = new EventKeeper;
    return *keeper;
}

}  // namespace

std::unique_ptr<NxCanLibraryObject> MakeNxCanSharedLibrary() { return std::make_unique<NxCanSharedLibrary>(); }

HANDLE CreateEventB(bool signalled)
{
    auto event = std::make_unique<EventHandle>();
    event->m_signalled = signalled;
    pthread_mutex_init(&event->m_mutex, nullptr);
    pthread_cond_init(&event->m_cond, nullptr);
    EventHandle* raw = event.get();
    EventKeeper& keeper = Events();
    std::lock_guard<std::mutex> lock(keeper.mutex);
    keeper.events.push_back(std::move(event));
    return raw;
}

std::recursive_mutex& CanLibraryLock()
{
    static std::recursive_mutex* lock = new std::recursive_mutex;
    return *lock;
}

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
