// The shared-memory segment of one bus: what all processes on the machine
// see of it. A robust process-shared mutex guards everything in it; a futex
// word wakes the delivery threads of all attached processes.
//
// Layout: SegmentHeader, then ChannelSlot[channelCount], then
// PendingEntry[channelCount * txLimit], then WireFrame[ringCapacity].
#pragma once

#include <pthread.h>
#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <string>

#include "NXBusApiCan.h"

namespace nxsim {

// Identity of a process that survives pid reuse: pid and start time.
struct ProcessId {
    int32_t pid = 0;
    uint32_t reserved = 0;
    uint64_t startTime = 0;
    bool operator==(const ProcessId& o) const { return pid == o.pid && startTime == o.startTime; }
};
ProcessId SelfProcessId();
// False for a process that has ended, also while it is a zombie.
bool ProcessAlive(const ProcessId& id);

// One frame on the wire.
struct WireFrame {
    uint64_t seq;
    int64_t startNs;     // CLOCK_MONOTONIC
    int64_t endNs;       // end of frame: the reception time
    uint32_t source;     // channel index on the bus
    uint32_t cancelled;  // withdrawn before it began
    uint32_t id;
    uint32_t extended;
    uint32_t fd;
    uint32_t brs;
    uint32_t remote;
    uint16_t dlc;
    uint16_t reserved;
    uint8_t data[64];
};

struct PendingEntry {
    uint64_t seq;
    int64_t startNs;
    int64_t endNs;
};

struct ChannelSlot {
    ProcessId owner;        // pid 0: free
    uint32_t pendingHead;   // ring of txLimit PendingEntry
    uint32_t pendingCount;
};

struct LoadBucket {
    int64_t epoch;
    int64_t busyNs;
};

constexpr int kLoadBuckets = 64;
constexpr int64_t kLoadBucketNs = 50000000;  // 50 ms
constexpr int kLoadWindowBuckets = 20;       // one second
constexpr int kMaxProcesses = 64;

struct SegmentHeader {
    uint32_t wake;  // futex word
    uint32_t magic;
    uint32_t version;
    uint32_t channelCount;
    uint64_t layoutKey;
    uint64_t ringCapacity;
    uint32_t txLimit;
    uint32_t reserved;
    pthread_mutex_t mutex;
    uint64_t nextSeq;
    int64_t busyUntilNs;  // end of the last frame that took bus time
    int64_t lastEndNs;    // end of the last frame of any kind
    LoadBucket load[kLoadBuckets];
    ProcessId processes[kMaxProcesses];
};

struct SegmentLayout {
    uint32_t channelCount = 0;
    uint32_t txLimit = 0;
    uint64_t ringCapacity = 0;
    uint64_t key = 0;  // must agree between all processes
    size_t Bytes() const;
};

class BusSegment {
public:
    // Attaches to the named segment, creating or re-creating it when no live
    // process uses it. Fails with NXCAN_ERR_BUS_UNAVAILABLE and a text.
    static NXTCanError Attach(const std::string& shmName, const SegmentLayout& layout,
                              std::unique_ptr<BusSegment>* out, std::string* error);
    ~BusSegment();  // detaches; the last process removes the name

    BusSegment(const BusSegment&) = delete;
    BusSegment& operator=(const BusSegment&) = delete;

    // Robust lock: a holder that died is repaired over (its claims released).
    void Lock();
    void Unlock();

    SegmentHeader* Header() const { return m_header; }
    ChannelSlot& Slot(uint32_t channel) const { return m_slots[channel]; }
    PendingEntry* Pending(uint32_t channel) const { return m_pending + static_cast<size_t>(channel) * m_layout.txLimit; }
    WireFrame& Ring(uint64_t seq) const { return m_ring[seq & (m_layout.ringCapacity - 1)]; }
    const SegmentLayout& Layout() const { return m_layout; }

    // Called with the lock held: releases the claims and process slots of
    // processes that have ended.
    void ReleaseDead();

    // The futex word: read it under the lock, wait for it to change unlocked.
    uint32_t WakeValue() const;
    void WakeAll();                                   // lock held or not
    void WaitForChange(uint32_t seen, int64_t timeoutNs) const;

private:
    BusSegment(std::string name, int fd, void* base, const SegmentLayout& layout);

    std::string m_name;
    int m_fd;
    void* m_base;
    SegmentLayout m_layout;
    SegmentHeader* m_header;
    ChannelSlot* m_slots;
    PendingEntry* m_pending;
    WireFrame* m_ring;
    ProcessId m_self;
};

}  // namespace nxsim
