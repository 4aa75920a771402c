#include "sim_segment.h"

#include <fcntl.h>
#include <linux/futex.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <fstream>
#include <sstream>

namespace nxsim {

namespace {

constexpr uint32_t kMagic = 0x4E585342;  // "NXSB"
constexpr uint32_t kVersion = 1;

size_t AlignUp(size_t v)
{
    return (v + 63) & ~size_t{63};
}

// State letter and start time from /proc/<pid>/stat; false if there is none.
bool ReadProcStat(int32_t pid, char& state, uint64_t& startTime)
{
    std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
    std::string text;
    if (!in || !std::getline(in, text))
        return false;
    const auto close = text.rfind(')');
    if (close == std::string::npos)
        return false;
    std::istringstream fields(text.substr(close + 1));
    std::string field;
    // Fields after the command: 3 is the state, 22 the start time.
    for (int index = 3; fields >> field; ++index) {
        if (index == 3)
            state = field.empty() ? '?' : field[0];
        if (index == 22) {
            startTime = std::strtoull(field.c_str(), nullptr, 10);
            return true;
        }
    }
    return false;
}

}  // namespace

ProcessId SelfProcessId()
{
    ProcessId id;
    id.pid = static_cast<int32_t>(getpid());
    char state = 0;
    ReadProcStat(id.pid, state, id.startTime);
    return id;
}

bool ProcessAlive(const ProcessId& id)
{
    if (id.pid <= 0)
        return false;
    char state = 0;
    uint64_t startTime = 0;
    if (!ReadProcStat(id.pid, state, startTime))
        return kill(id.pid, 0) == 0 || errno == EPERM;
    if (state == 'Z' || state == 'X' || state == 'x')
        return false;
    return startTime == id.startTime;
}

size_t SegmentLayout::Bytes() const
{
    return AlignUp(sizeof(SegmentHeader)) + AlignUp(sizeof(ChannelSlot) * channelCount) +
           AlignUp(sizeof(PendingEntry) * channelCount * txLimit) + sizeof(WireFrame) * ringCapacity;
}

BusSegment::BusSegment(std::string name, int fd, void* base, const SegmentLayout& layout)
    : m_name(std::move(name)), m_fd(fd), m_base(base), m_layout(layout), m_self(SelfProcessId())
{
    auto* bytes = static_cast<uint8_t*>(base);
    size_t offset = 0;
    m_header = reinterpret_cast<SegmentHeader*>(bytes + offset);
    offset += AlignUp(sizeof(SegmentHeader));
    m_slots = reinterpret_cast<ChannelSlot*>(bytes + offset);
    offset += AlignUp(sizeof(ChannelSlot) * layout.channelCount);
    m_pending = reinterpret_cast<PendingEntry*>(bytes + offset);
    offset += AlignUp(sizeof(PendingEntry) * layout.channelCount * layout.txLimit);
    m_ring = reinterpret_cast<WireFrame*>(bytes + offset);
}

NXTCanError BusSegment::Attach(const std::string& shmName, const SegmentLayout& layout,
                               std::unique_ptr<BusSegment>* out, std::string* error)
{
    const size_t bytes = layout.Bytes();
    auto fail = [&](const std::string& why) {
        *error = "bus segment " + shmName + ": " + why;
        return NXCAN_ERR_BUS_UNAVAILABLE;
    };
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
        struct stat mine {};
        struct stat current {};
        fstat(fd, &mine);
        const int check = shm_open(shmName.c_str(), O_RDONLY | O_CLOEXEC, 0);
        const bool same = check >= 0 && fstat(check, &current) == 0 && current.st_ino == mine.st_ino &&
                          current.st_dev == mine.st_dev;
        if (check >= 0)
            close(check);
        if (!same) {
            close(fd);
            continue;
        }

        // Reuse a segment of the same layout; re-create one that nobody uses.
        bool reuse = false;
        if (static_cast<size_t>(mine.st_size) >= sizeof(SegmentHeader)) {
            void* map = mmap(nullptr, sizeof(SegmentHeader), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
            if (map != MAP_FAILED) {
                BusSegment probe(shmName, -1, map, SegmentLayout{});
                SegmentHeader* h = probe.m_header;
                if (h->magic == kMagic && h->version == kVersion) {
                    const bool sameLayout = static_cast<size_t>(mine.st_size) == bytes && h->layoutKey == layout.key;
                    int live = 0;
                    probe.Lock();
                    for (const auto& p : h->processes)
                        live += ProcessAlive(p) ? 1 : 0;
                    probe.Unlock();
                    if (sameLayout)
                        reuse = true;
                    else if (live > 0) {
                        munmap(map, sizeof(SegmentHeader));
                        close(fd);
                        return fail("in use by another process with a different bus configuration");
                    }
                }
                munmap(map, sizeof(SegmentHeader));
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
        std::unique_ptr<BusSegment> segment(new BusSegment(shmName, fd, base, layout));
        SegmentHeader* h = segment->m_header;
        if (!reuse) {
            pthread_mutexattr_t attr;
            pthread_mutexattr_init(&attr);
            pthread_mutexattr_setpshared(&attr, PTHREAD_PROCESS_SHARED);
            pthread_mutexattr_setrobust(&attr, PTHREAD_MUTEX_ROBUST);
            pthread_mutex_init(&h->mutex, &attr);
            pthread_mutexattr_destroy(&attr);
            h->channelCount = layout.channelCount;
            h->txLimit = layout.txLimit;
            h->ringCapacity = layout.ringCapacity;
            h->layoutKey = layout.key;
            h->version = kVersion;
            __atomic_store_n(&h->magic, kMagic, __ATOMIC_RELEASE);
        }
        segment->Lock();
        segment->ReleaseDead();
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
            return fail("more than 64 processes use the bus");
        }
        flock(fd, LOCK_UN);
        *out = std::move(segment);
        return NXCAN_SUCCESS;
    }
    return fail("the shared-memory name keeps changing");
}

BusSegment::~BusSegment()
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
    for (uint32_t c = 0; c < m_layout.channelCount; ++c) {
        if (m_slots[c].owner == m_self) {
            m_slots[c].owner = ProcessId{};
            m_slots[c].pendingCount = 0;
        }
    }
    Unlock();
    if (live == 0) {
        struct stat mine {};
        struct stat current {};
        const int check = shm_open(m_name.c_str(), O_RDONLY | O_CLOEXEC, 0);
        if (check >= 0) {
            if (fstat(m_fd, &mine) == 0 && fstat(check, &current) == 0 && mine.st_ino == current.st_ino &&
                mine.st_dev == current.st_dev)
                shm_unlink(m_name.c_str());
            close(check);
        }
    }
    munmap(m_base, m_layout.Bytes());
    flock(m_fd, LOCK_UN);
    close(m_fd);
}

void BusSegment::Lock()
{
    const int rc = pthread_mutex_lock(&m_header->mutex);
    if (rc == EOWNERDEAD) {
        // The holder died in the middle of an update. The bus state is
        // simple enough to go on with; forget what the dead left behind.
        pthread_mutex_consistent(&m_header->mutex);
        ReleaseDead();
    }
}

void BusSegment::Unlock()
{
    pthread_mutex_unlock(&m_header->mutex);
}

void BusSegment::ReleaseDead()
{
    for (auto& p : m_header->processes)
        if (p.pid != 0 && !(p == m_self) && !ProcessAlive(p))
            p = ProcessId{};
    for (uint32_t c = 0; c < m_layout.channelCount; ++c) {
        ChannelSlot& slot = m_slots[c];
        if (slot.owner.pid != 0 && !(slot.owner == m_self) && !ProcessAlive(slot.owner)) {
            slot.owner = ProcessId{};
            slot.pendingCount = 0;
        }
    }
}

uint32_t BusSegment::WakeValue() const
{
    return __atomic_load_n(&m_header->wake, __ATOMIC_ACQUIRE);
}

void BusSegment::WakeAll()
{
    __atomic_add_fetch(&m_header->wake, 1, __ATOMIC_SEQ_CST);
    syscall(SYS_futex, &m_header->wake, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
}

void BusSegment::WaitForChange(uint32_t seen, int64_t timeoutNs) const
{
    if (timeoutNs <= 0)
        return;
    timespec ts;
    ts.tv_sec = static_cast<time_t>(timeoutNs / 1000000000);
    ts.tv_nsec = static_cast<long>(timeoutNs % 1000000000);
    syscall(SYS_futex, &m_header->wake, FUTEX_WAIT, seen, &ts, nullptr, 0);
}

}  // namespace nxsim
