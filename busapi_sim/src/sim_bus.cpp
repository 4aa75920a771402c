#include "sim_bus.h"

#include <sys/prctl.h>

#include <algorithm>
#include <chrono>

#include "sim_channel.h"
#include "sim_frame.h"

namespace nxsim {

namespace {

uint64_t Fnv1a(uint64_t hash, const void* data, size_t size)
{
    const auto* bytes = static_cast<const uint8_t*>(data);
    for (size_t i = 0; i < size; ++i) {
        hash ^= bytes[i];
        hash *= 1099511628211ull;
    }
    return hash;
}

uint64_t RoundUpPow2(uint64_t v)
{
    uint64_t p = 1;
    while (p < v)
        p <<= 1;
    return p;
}

constexpr size_t kDeliveryBatch = 1024;
constexpr int64_t kIdleWaitNs = 50000000;  // re-check at least this often

}  // namespace

Bus::Bus(const BusConfig& config, const std::vector<ChannelConfig>& channels, const std::string& nameSpace,
         const HardwareClock& clock)
    : m_config(config), m_clock(clock), m_shmName("/nxbusapi-sim." + nameSpace + "." + config.name)
{
    m_layout.channelCount = static_cast<uint32_t>(config.channels.size());
    m_layout.txLimit = config.txQueueLimit;
    // Room for every frame that can be scheduled ahead, four times over, so
    // that a frame is long delivered before its slot is used again.
    m_layout.ringCapacity =
        RoundUpPow2(std::max<uint64_t>(16384, 4ull * m_layout.channelCount * m_layout.txLimit));
    uint64_t key = 1469598103934665603ull;
    key = Fnv1a(key, config.name.data(), config.name.size());
    key = Fnv1a(key, &config.bitrate, sizeof config.bitrate);
    key = Fnv1a(key, &config.dataBitrate, sizeof config.dataBitrate);
    key = Fnv1a(key, &m_layout.txLimit, sizeof m_layout.txLimit);
    key = Fnv1a(key, &m_layout.ringCapacity, sizeof m_layout.ringCapacity);
    for (size_t index : config.channels) {
        const std::string& id = channels[index].id;
        key = Fnv1a(key, id.c_str(), id.size() + 1);
    }
    m_layout.key = key;
}

Bus::~Bus()
{
    if (m_delivery.joinable()) {
        m_stop = true;
        m_segment->WakeAll();
        m_delivery.join();
    }
    m_segment.reset();
}

NXTCanError Bus::EnsureAttached(std::string* error)
{
    std::lock_guard<std::mutex> lock(m_attachMutex);
    if (m_segment)
        return NXCAN_SUCCESS;
    const NXTCanError rc = BusSegment::Attach(m_shmName, m_layout, &m_segment, error);
    if (rc != NXCAN_SUCCESS)
        return rc;
    // Deliver from the frames that are still on their way; computed here, so
    // that nothing placed after the attachment can be missed.
    BusSegment& seg = *m_segment;
    seg.Lock();
    uint64_t first = seg.Header()->nextSeq;
    const int64_t now = MonotonicNs();
    const uint64_t oldest = first > m_layout.ringCapacity ? first - m_layout.ringCapacity : 0;
    while (first > oldest && seg.Ring(first - 1).seq == first - 1 && seg.Ring(first - 1).endNs > now)
        --first;
    seg.Unlock();
    m_delivery = std::thread([this, first] { DeliveryLoop(first); });
    return NXCAN_SUCCESS;
}

NXTCanError Bus::Claim(uint32_t channel, std::string* error)
{
    BusSegment& seg = *m_segment;
    seg.Lock();
    ChannelSlot& slot = seg.Slot(channel);
    if (slot.owner.pid != 0 && !ProcessAlive(slot.owner))
        seg.ReleaseDead();
    const ProcessId owner = slot.owner;
    if (owner.pid == 0) {
        slot.owner = SelfProcessId();
        slot.pendingHead = 0;
        slot.pendingCount = 0;
    }
    seg.Unlock();
    if (owner.pid == 0)
        return NXCAN_SUCCESS;
    *error = "channel in use by process " + std::to_string(owner.pid);
    return NXCAN_ERR_CHANNEL_IN_USE;
}

void Bus::Release(uint32_t channel)
{
    BusSegment& seg = *m_segment;
    seg.Lock();
    seg.Slot(channel).owner = ProcessId{};
    seg.Unlock();
}

void Bus::PrunePendingLocked(uint32_t source, int64_t now)
{
    ChannelSlot& slot = m_segment->Slot(source);
    const PendingEntry* pending = m_segment->Pending(source);
    while (slot.pendingCount > 0 && pending[slot.pendingHead].endNs <= now) {
        slot.pendingHead = (slot.pendingHead + 1) % m_layout.txLimit;
        --slot.pendingCount;
    }
}

void Bus::PlaceLocked(uint32_t source, bool takesNoBusTime, WireFrame* frames, size_t count, int64_t now)
{
    SegmentHeader* h = m_segment->Header();
    ChannelSlot& slot = m_segment->Slot(source);
    PendingEntry* pending = m_segment->Pending(source);
    for (size_t i = 0; i < count; ++i) {
        WireFrame& f = frames[i];
        FrameShape shape;
        shape.extended = f.extended != 0;
        shape.fd = f.fd != 0;
        shape.brs = f.brs != 0;
        shape.remote = f.remote != 0;
        shape.length = static_cast<unsigned>(DlcToLength(f.dlc));
        const int64_t duration =
            takesNoBusTime ? 0 : FrameDurationNs(shape, m_config.bitrate, m_config.dataBitrate);
        // A frame waits for all frames offered before it: the wire is served
        // in the order of offering.
        const int64_t start = std::max(now, takesNoBusTime ? h->lastEndNs : h->busyUntilNs);
        const int64_t end = std::max(start + duration, h->lastEndNs);
        if (!takesNoBusTime) {
            h->busyUntilNs = end;
            AccountLoadLocked(start, end, now);
        }
        h->lastEndNs = end;
        f.seq = h->nextSeq++;
        f.startNs = start;
        f.endNs = end;
        f.source = source;
        f.cancelled = 0;
        m_segment->Ring(f.seq) = f;
        pending[(slot.pendingHead + slot.pendingCount) % m_layout.txLimit] = PendingEntry{f.seq, start, end};
        ++slot.pendingCount;
    }
}

NXTCanError Bus::Transmit(uint32_t source, bool takesNoBusTime, WireFrame* frames, size_t count)
{
    BusSegment& seg = *m_segment;
    seg.Lock();
    const int64_t now = MonotonicNs();
    PrunePendingLocked(source, now);
    if (seg.Slot(source).pendingCount + count > m_layout.txLimit) {
        seg.Unlock();
        return NXCAN_ERR_TX_QUEUE_FULL;
    }
    PlaceLocked(source, takesNoBusTime, frames, count, now);
    seg.Unlock();
    seg.WakeAll();
    return NXCAN_SUCCESS;
}

NXTCanError Bus::TransmitWaiting(uint32_t source, bool takesNoBusTime, WireFrame& frame,
                                 const std::function<bool()>& abandon)
{
    BusSegment& seg = *m_segment;
    for (;;) {
        seg.Lock();
        const int64_t now = MonotonicNs();
        PrunePendingLocked(source, now);
        const ChannelSlot& slot = seg.Slot(source);
        if (slot.pendingCount < m_layout.txLimit) {
            PlaceLocked(source, takesNoBusTime, &frame, 1, now);
            seg.Unlock();
            seg.WakeAll();
            return NXCAN_SUCCESS;
        }
        const int64_t due = seg.Pending(source)[slot.pendingHead].endNs;
        seg.Unlock();
        if (abandon())
            return NXCAN_ERR_WRONG_STATE;
        std::this_thread::sleep_for(std::chrono::nanoseconds(std::clamp<int64_t>(due - now, 1000, 10000000)));
    }
}

void Bus::WithdrawPending(uint32_t source)
{
    if (!m_segment)
        return;
    BusSegment& seg = *m_segment;
    seg.Lock();
    const int64_t now = MonotonicNs();
    PrunePendingLocked(source, now);
    ChannelSlot& slot = seg.Slot(source);
    const PendingEntry* pending = seg.Pending(source);
    SegmentHeader* h = seg.Header();
    // The withdrawn frames at the very end of the wire schedule give their
    // wire time back; wire time reserved before other frames stays idle.
    uint64_t tail = h->nextSeq;
    int64_t freedFrom = -1;
    while (slot.pendingCount > 0) {
        const PendingEntry& last = pending[(slot.pendingHead + slot.pendingCount - 1) % m_layout.txLimit];
        if (last.startNs <= now)
            break;  // already on the wire
        WireFrame& f = seg.Ring(last.seq);
        if (f.seq == last.seq)
            f.cancelled = 1;
        if (last.seq + 1 == tail) {
            tail = last.seq;
            freedFrom = last.startNs;
        }
        --slot.pendingCount;
    }
    if (freedFrom >= 0) {
        h->busyUntilNs = freedFrom;
        h->lastEndNs = freedFrom;
    }
    seg.Unlock();
}

void Bus::AccountLoadLocked(int64_t start, int64_t end, int64_t now)
{
    SegmentHeader* h = m_segment->Header();
    const int64_t horizon = now / kLoadBucketNs + (kLoadBuckets - kLoadWindowBuckets - 4);
    for (int64_t e = start / kLoadBucketNs; e <= (end - 1) / kLoadBucketNs && e <= horizon; ++e) {
        LoadBucket& b = h->load[e % kLoadBuckets];
        if (b.epoch != e) {
            b.epoch = e;
            b.busyNs = 0;
        }
        b.busyNs += std::min(end, (e + 1) * kLoadBucketNs) - std::max(start, e * kLoadBucketNs);
    }
}

uint8_t Bus::LoadPercentLocked(int64_t now) const
{
    const SegmentHeader* h = m_segment->Header();
    const int64_t current = now / kLoadBucketNs;
    int64_t busy = 0;
    for (int64_t e = current - kLoadWindowBuckets; e < current; ++e) {
        const LoadBucket& b = h->load[e % kLoadBuckets];
        if (b.epoch == e)
            busy += b.busyNs;
    }
    return static_cast<uint8_t>(std::min<int64_t>(100, busy * 100 / (kLoadBucketNs * kLoadWindowBuckets)));
}

void Bus::AddReceiver(const std::shared_ptr<Channel>& channel)
{
    std::lock_guard<std::mutex> lock(m_receiversMutex);
    m_receivers.push_back(channel);
}

void Bus::RemoveReceiver(const Channel* channel)
{
    std::lock_guard<std::mutex> lock(m_receiversMutex);
    m_receivers.erase(std::remove_if(m_receivers.begin(), m_receivers.end(),
                                     [channel](const auto& c) { return c.get() == channel; }),
                      m_receivers.end());
}

void Bus::DeliveryLoop(uint64_t firstSeq)
{
    prctl(PR_SET_TIMERSLACK, 1000UL, 0, 0, 0);  // deliver close to the end of frame
    BusSegment& seg = *m_segment;
    const uint64_t capacity = m_layout.ringCapacity;
    std::vector<WireFrame> batch;
    batch.reserve(kDeliveryBatch);
    std::vector<std::shared_ptr<Channel>> receivers;

    uint64_t cursor = firstSeq;

    while (!m_stop) {
        seg.Lock();
        const int64_t now = MonotonicNs();
        const uint64_t next = seg.Header()->nextSeq;
        uint64_t lost = 0;
        if (next - cursor > capacity) {
            lost = next - capacity - cursor;
            cursor = next - capacity;
        }
        int64_t deadline = now + kIdleWaitNs;
        while (cursor < next && batch.size() < kDeliveryBatch) {
            const WireFrame& f = seg.Ring(cursor);
            if (f.seq != cursor) {  // overwritten: this process fell behind
                ++lost;
                ++cursor;
                continue;
            }
            if (f.cancelled) {  // withdrawn: its time no longer counts
                ++cursor;
                continue;
            }
            if (f.endNs > now) {
                deadline = std::min(deadline, f.endNs);
                break;
            }
            batch.push_back(f);
            ++cursor;
        }
        const uint8_t load = LoadPercentLocked(now);
        const uint32_t seen = seg.WakeValue();
        seg.Unlock();

        if (!batch.empty() || lost > 0) {
            {
                std::lock_guard<std::mutex> lock(m_receiversMutex);
                receivers = m_receivers;
            }
            for (const auto& channel : receivers)
                channel->Deliver(batch.data(), batch.size(), load, lost);
            receivers.clear();
            batch.clear();
            continue;
        }
        seg.WaitForChange(seen, deadline - now);
    }
}

}  // namespace nxsim
