// One bus as this process sees it: the attachment to the bus's shared
// segment, the wire (placing frames in time), and the delivery thread that
// hands frames to this process's channels when their end of frame is due.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "sim_clock.h"
#include "sim_config.h"
#include "sim_segment.h"

namespace nxsim {

class Channel;

class Bus {
public:
    Bus(const BusConfig& config, const std::vector<ChannelConfig>& channels, const std::string& nameSpace,
        const HardwareClock& clock);
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
    BusSegment* SegmentForTests() { return m_segment.get(); }

private:
    void DeliveryLoop(uint64_t firstSeq);
    void PrunePendingLocked(uint32_t source, int64_t now);
    void PlaceLocked(uint32_t source, bool takesNoBusTime, WireFrame* frames, size_t count, int64_t now);
    void AccountLoadLocked(int64_t start, int64_t end, int64_t now);
    uint8_t LoadPercentLocked(int64_t now) const;

    BusConfig m_config;
    HardwareClock m_clock;
    std::string m_shmName;
    SegmentLayout m_layout;

    std::mutex m_attachMutex;
    std::unique_ptr<BusSegment> m_segment;
    std::thread m_delivery;
    std::atomic<bool> m_stop{false};

    std::mutex m_receiversMutex;
    std::vector<std::shared_ptr<Channel>> m_receivers;
};

}  // namespace nxsim
