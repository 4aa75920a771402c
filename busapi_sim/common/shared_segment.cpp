#include "shared_segment.h"

#include <fcntl.h>
#include <linux/futex.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>

namespace nxsim {

namespace {

constexpr uint32_t kMagic = 0x4E585342;  // "NXSB"
constexpr uint32_t kVersion = 2;

size_t AlignUp(size_t v)
{
    return (v + 63) & ~size_t{63};
}

bool SameObject(int fd, const std::string& name)
{
    struct stat mine {};
    struct stat current {};
    const int check = shm_open(name.c_str(), O_RDONLY | O_CLOEXEC, 0);
    const bool same = check >= 0 && fstat(fd, &mine) == 0 && fstat(check, &current) == 0 &&
                      current.st_ino == mine.st_ino && current.st_dev == mine.st_dev;
    if (check >= 0)
        close(check);
    return same;
}

}  // namespace

struct SharedSegment::Header {
    uint32_t wake;  // futex word
    uint32_t magic;
    uint32_t version;
    uint32_t slots;
    uint64_t layoutKey;
    uint64_t payloadBytes;
    pthread_mutex_t mutex;
    ProcessId processes[kMaxProcesses];
    ProcessId owners[kMaxSlots];  // pid 0: free
};

uint64_t HashBytes(uint64_t hash, const void* data, size_t size)
{
    const auto* bytes = static_cast<const uint8_t*>(data);
    for (size_t i = 0; i < size; ++i) {
        hash ^= bytes[i];
        hash *= 1099511628211ull;
    }
    return hash;
}

size_t SharedSegment::Bytes(const SegmentLayout& layout)
{
    return AlignUp(sizeof(Header)) + layout.payloadBytes;
}

SharedSegment::SharedSegment(std::string name, int fd, void* base, size_t bytes, const SegmentLayout& layout)
    : m_name(std::move(name)),
      m_fd(fd),
      m_base(base),
      m_bytes(bytes),
      m_layout(layout),
      m_header(static_cast<Header*>(base)),
      m_payload(static_cast<uint8_t*>(base) + AlignUp(sizeof(Header))),
      m_self(SelfProcessId())
{
}

bool SharedSegment::Attach(const std::string& shmName, const SegmentLayout& layout,
                           std::unique_ptr<SharedSegment>* out, std::string* error)
{
    const size_t bytes = Bytes(layout);
    auto fail = [&](const std::string& why) {
        *error = "shared segment " + shmName + ": " + why;
        return false;
    };
    if (layout.slots > kMaxSlots)
        return fail("more than " + std::to_string(kMaxSlots) + " slots");
    for (int attempt = 0; attempt < 100; ++attempt) {
        const int fd = shm_open(shmName.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        if (fd < 0)
            return fail(std::string("shm_open: ") + std::strerror(errno));
        if (flock(fd, LOCK_EX) != 0) {
            close(fd);
            return fail(std::string("flock: ") + std::strerror(errno));
        }
        // The name may have been removed, and perhaps made anew, since it was
        // opened: only the object that the name refers to now counts.
        if (!SameObject(fd, shmName)) {
            close(fd);
            continue;
        }
        struct stat mine {};
        fstat(fd, &mine);

        // Reuse a segment of the same layout; re-create one that nobody uses.
        bool reuse = false;
        if (static_cast<size_t>(mine.st_size) >= sizeof(Header)) {
            void* map = mmap(nullptr, sizeof(Header), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
            if (map != MAP_FAILED) {
                SharedSegment probe(shmName, -1, map, sizeof(Header), SegmentLayout{});
                Header* h = probe.m_header;
                if (h->magic == kMagic && h->version == kVersion) {
                    const bool sameLayout = static_cast<size_t>(mine.st_size) == bytes && h->layoutKey == layout.key &&
                                            h->slots == layout.slots;
                    int live = 0;
                    probe.Lock();
                    for (const auto& p : h->processes)
                        live += ProcessAlive(p) ? 1 : 0;
                    probe.Unlock();
                    if (sameLayout)
                        reuse = true;
                    else if (live > 0) {
                        munmap(map, sizeof(Header));
                        close(fd);
                        return fail("in use by another process with a different configuration");
                    }
                }
                munmap(map, sizeof(Header));
            }
        }
        if (!reuse && (ftruncate(fd, 0) != 0 || ftruncate(fd, static_cast<off_t>(bytes)) != 0)) {
            close(fd);
            return fail(std::string("ftruncate: ") + std::strerror(errno));
        }
        void* base = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        if (base == MAP_FAILED) {
            close(fd);
            return fail(std::string("mmap: ") + std::strerror(errno));
        }
        std::unique_ptr<SharedSegment> segment(new SharedSegment(shmName, fd, base, bytes, layout));
        Header* h = segment->m_header;
        if (!reuse) {
            // Priority inheritance: a real-time replay thread that waits for
            // the lock lifts the holder, wherever it runs.
            pthread_mutexattr_t attr;
            pthread_mutexattr_init(&attr);
            pthread_mutexattr_setpshared(&attr, PTHREAD_PROCESS_SHARED);
            pthread_mutexattr_setrobust(&attr, PTHREAD_MUTEX_ROBUST);
            pthread_mutexattr_setprotocol(&attr, PTHREAD_PRIO_INHERIT);
            pthread_mutex_init(&h->mutex, &attr);
            pthread_mutexattr_destroy(&attr);
            h->slots = layout.slots;
            h->payloadBytes = layout.payloadBytes;
            h->layoutKey = layout.key;
            h->version = kVersion;
            __atomic_store_n(&h->magic, kMagic, __ATOMIC_RELEASE);
        }
        segment->Lock();
        segment->ReleaseDeadLocked();
        bool placed = false;
        for (auto& p : h->processes) {
            if (p.pid == 0) {
                p = segment->m_self;
                placed = true;
                break;
            }
        }
        segment->Unlock();
        if (!placed) {
            segment.reset();
            return fail("more than " + std::to_string(kMaxProcesses) + " processes use it");
        }
        flock(fd, LOCK_UN);
        *out = std::move(segment);
        return true;
    }
    return fail("the shared-memory name keeps changing");
}

SharedSegment::~SharedSegment()
{
    if (m_fd < 0)
        return;  // a probe of the header only
    flock(m_fd, LOCK_EX);
    Lock();
    int live = 0;
    for (auto& p : m_header->processes) {
        if (p == m_self)
            p = ProcessId{};
        else if (ProcessAlive(p))
            ++live;
    }
    for (uint32_t s = 0; s < m_layout.slots; ++s)
        if (m_header->owners[s] == m_self)
            m_header->owners[s] = ProcessId{};
    Unlock();
    if (live == 0 && SameObject(m_fd, m_name))
        shm_unlink(m_name.c_str());
    munmap(m_base, m_bytes);
    flock(m_fd, LOCK_UN);
    close(m_fd);
}

void SharedSegment::Lock()
{
    const int rc = pthread_mutex_lock(&m_header->mutex);
    if (rc == EOWNERDEAD) {
        // The holder died in the middle of an update. The users' state is
        // simple enough to go on with; forget what the dead left behind.
        pthread_mutex_consistent(&m_header->mutex);
        ReleaseDeadLocked();
    }
}

void SharedSegment::Unlock()
{
    pthread_mutex_unlock(&m_header->mutex);
}

bool SharedSegment::ClaimLocked(uint32_t slot, ProcessId* owner)
{
    ProcessId& current = m_header->owners[slot];
    if (current.pid != 0 && !ProcessAlive(current))
        ReleaseDeadLocked();
    if (current.pid != 0) {
        *owner = current;
        return false;
    }
    current = m_self;
    return true;
}

void SharedSegment::ReleaseLocked(uint32_t slot)
{
    m_header->owners[slot] = ProcessId{};
}

void SharedSegment::ReleaseDeadLocked()
{
    for (auto& p : m_header->processes)
        if (p.pid != 0 && !(p == m_self) && !ProcessAlive(p))
            p = ProcessId{};
    for (uint32_t s = 0; s < m_layout.slots; ++s) {
        ProcessId& owner = m_header->owners[s];
        if (owner.pid != 0 && !(owner == m_self) && !ProcessAlive(owner))
            owner = ProcessId{};
    }
}

uint32_t SharedSegment::WakeValue() const
{
    return __atomic_load_n(&m_header->wake, __ATOMIC_ACQUIRE);
}

void SharedSegment::WakeAll()
{
    __atomic_add_fetch(&m_header->wake, 1, __ATOMIC_SEQ_CST);
    syscall(SYS_futex, &m_header->wake, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
}

void SharedSegment::WaitForChange(uint32_t seen, int64_t timeoutNs) const
{
    if (timeoutNs <= 0)
        return;
    timespec ts;
    ts.tv_sec = static_cast<time_t>(timeoutNs / 1000000000);
    ts.tv_nsec = static_cast<long>(timeoutNs % 1000000000);
    syscall(SYS_futex, &m_header->wake, FUTEX_WAIT, seen, &ts, nullptr, 0);
}

}  // namespace nxsim
