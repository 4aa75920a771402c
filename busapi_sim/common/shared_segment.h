// The shared memory of one simulated network, as every process on the
// machine sees it: a robust process-shared lock, the table of the processes
// attached, the claims of its slots (CAN channels, Ethernet interfaces) by
// processes, a futex word that wakes waiters in all processes, and a payload
// that belongs to the network's own code.
//
// Layout: SegmentHeader, then the payload, 64-byte aligned.
#pragma once

#include <pthread.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "process_identity.h"

namespace nxsim {

constexpr uint32_t kMaxSlots = 64;
constexpr int kMaxProcesses = 64;

struct SegmentLayout {
    uint32_t slots = 0;       // at most kMaxSlots
    size_t payloadBytes = 0;
    uint64_t key = 0;         // all processes of a segment must agree on it
};

// FNV-1a, for layout keys.
uint64_t HashBytes(uint64_t hash, const void* data, size_t size);
constexpr uint64_t kHashSeed = 1469598103934665603ull;

class SharedSegment {
public:
    // Attaches to the named segment, creating or re-creating it when no live
    // process uses it. False with a text when it cannot be used.
    static bool Attach(const std::string& shmName, const SegmentLayout& layout, std::unique_ptr<SharedSegment>* out,
                       std::string* error);
    ~SharedSegment();  // releases this process's claims; the last process removes the name

    SharedSegment(const SharedSegment&) = delete;
    SharedSegment& operator=(const SharedSegment&) = delete;

    // Robust lock: a holder that died is repaired over (its claims released).
    void Lock();
    void Unlock();

    // With the lock held. Claims `slot` for this process unless a live
    // process (this one included) holds it; then *owner tells which.
    bool ClaimLocked(uint32_t slot, ProcessId* owner);
    void ReleaseLocked(uint32_t slot);
    // Releases the claims and process entries of processes that have ended.
    void ReleaseDeadLocked();

    void* Payload() const { return m_payload; }
    const SegmentLayout& Layout() const { return m_layout; }

    // The futex word: read it under the lock, wait for it to change unlocked.
    uint32_t WakeValue() const;
    void WakeAll();  // lock held or not
    void WaitForChange(uint32_t seen, int64_t timeoutNs) const;

private:
    struct Header;
    SharedSegment(std::string name, int fd, void* base, size_t bytes, const SegmentLayout& layout);
    static size_t Bytes(const SegmentLayout& layout);

    std::string m_name;
    int m_fd;
    void* m_base;
    size_t m_bytes;
    SegmentLayout m_layout;
    Header* m_header;
    void* m_payload;
    ProcessId m_self;
};

}  // namespace nxsim
