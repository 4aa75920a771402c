// One CAN bus as this process sees it: the attachment to the bus's shared
// segment, the wire (placing frames in time), and the delivery thread that
// hands frames to this process's channels when their end of frame is due.
//
// The bus's part of the segment: BusState, then PendingEntry[channels *
// txLimit], then WireFrame[ringCapacity]; a channel is a slot of the segment.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "NXBusApiCan.h"
#include "hardware_clock.h"
#include "shared_segment.h"
#include "sim_config.h"

namespace nxsim {

class Channel;

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

struct LoadBucket {
    int64_t epoch;
    int64_t busyNs;
};

constexpr int kLoadBuckets = 64;
constexpr int64_t kLoadBucketNs = 50000000;  // 50 ms
constexpr int kLoadWindowBuckets = 20;       // one second
constexpr uint32_t kMaxChannelsPerBus = 32;

struct PendingQueue {
    uint32_t head;  // ring of txLimit PendingEntry
    uint32_t count;
};

struct BusState {
    uint64_t nextSeq;
    int64_t busyUntilNs;  // end of the last frame that took bus time
    int64_t lastEndNs;    // end of the last frame of any kind
    LoadBucket load[kLoadBuckets];
    PendingQueue pending[kMaxChannelsPerBus];
};

class Bus {
public:
    // `realtimePriority`: of the delivery thread, where the system allows it.
    Bus(const BusConfig& config, const std::vector<ChannelConfig>& channels, const std::string& nameSpace,
        const HardwareClock& clock, int realtimePriority);
    ~Bus();

    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;

    const BusConfig& Config() const { return m_config; }
    const HardwareClock& Clock() const { return m_clock; }
    const std::string& ShmName() const { return m_shmName; }

    // Attaches to the shared segment and starts the delivery thread, once.
    NXTCanError EnsureAttached(std::string* error);

    // Claims a channel for this process; CHANNEL_IN_USE with a text if a live
    // process (this one included) holds it.
    NXTCanError Claim(uint32_t channel, std::string* error);
    void Release(uint32_t channel);

    // Puts all frames on the wire or none: TX_QUEUE_FULL when the channel
    // would have more than tx_queue_limit frames not yet through.
    NXTCanError Transmit(uint32_t source, bool takesNoBusTime, WireFrame* frames, size_t count);
    // One frame; waits while the channel is at its limit, until `abandon`.
    NXTCanError TransmitWaiting(uint32_t source, bool takesNoBusTime, WireFrame& frame,
                                const std::function<bool()>& abandon);
    // Withdraws the channel's frames whose transmission has not begun.
    void WithdrawPending(uint32_t source);

    void AddReceiver(const std::shared_ptr<Channel>& channel);
    void RemoveReceiver(const Channel* channel);

    // For tests that need the segment itself (e.g. to hold its lock).
    SharedSegment* SegmentForTests() { return m_segment.get(); }

private:
    void DeliveryLoop(uint64_t firstSeq);
    void PrunePendingLocked(uint32_t source, int64_t now);
    void PlaceLocked(uint32_t source, bool takesNoBusTime, WireFrame* frames, size_t count, int64_t now);
    void AccountLoadLocked(int64_t start, int64_t end, int64_t now);
    uint8_t LoadPercentLocked(int64_t now) const;

    PendingEntry* Pending(uint32_t channel) const { return m_pending + static_cast<size_t>(channel) * m_txLimit; }
    WireFrame& Ring(uint64_t seq) const { return m_ring[seq & (m_ringCapacity - 1)]; }

    BusConfig m_config;
    int m_realtimePriority;
    HardwareClock m_clock;
    std::string m_shmName;
    SegmentLayout m_layout;
    uint32_t m_txLimit;
    uint64_t m_ringCapacity;

    std::mutex m_attachMutex;
    std::unique_ptr<SharedSegment> m_segment;
    BusState* m_state = nullptr;
    PendingEntry* m_pending = nullptr;
    WireFrame* m_ring = nullptr;
    std::thread m_delivery;
    std::atomic<bool> m_stop{false};

    std::mutex m_receiversMutex;
    std::vector<std::shared_ptr<Channel>> m_receivers;
};

}  // namespace nxsim
