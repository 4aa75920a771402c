#include "sim_bus.h"

#include <algorithm>
#include <chrono>

#include "deadline_pacer.h"
#include "sim_channel.h"
#include "sim_frame.h"

namespace nxsim {

namespace {

size_t AlignUp(size_t v)
{
    return (v + 63) & ~size_t{63};
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
         const HardwareClock& clock, int realtimePriority)
    : m_config(config),
      m_realtimePriority(realtimePriority),
      m_clock(clock),
      m_shmName("/nxbusapi-sim." + nameSpace + "." + config.name),
      m_txLimit(config.txQueueLimit)
{
    const uint32_t channelCount = static_cast<uint32_t>(config.channels.size());
    // Room for every frame that can be scheduled ahead, four times over, so
    // that a frame is long delivered before its slot is used again.
    m_ringCapacity = RoundUpPow2(std::max<uint64_t>(16384, 4ull * channelCount * m_txLimit));
    m_layout.slots = channelCount;
    m_layout.payloadBytes = AlignUp(sizeof(BusState)) + AlignUp(sizeof(PendingEntry) * channelCount * m_txLimit) +
                            sizeof(WireFrame) * m_ringCapacity;
    uint64_t key = kHashSeed;
    key = HashBytes(key, config.name.data(), config.name.size());
    key = HashBytes(key, &config.bitrate, sizeof config.bitrate);
    key = HashBytes(key, &config.dataBitrate, sizeof config.dataBitrate);
    key = HashBytes(key, &m_txLimit, sizeof m_txLimit);
    key = HashBytes(key, &m_ringCapacity, sizeof m_ringCapacity);
    for (size_t index : config.channels) {
        const std::string& id = channels[index].id;
        key = HashBytes(key, id.c_str(), id.size() + 1);
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
    if (!SharedSegment::Attach(m_shmName, m_layout, &m_segment, error))
        return NXCAN_ERR_BUS_UNAVAILABLE;
    auto* bytes = static_cast<uint8_t*>(m_segment->Payload());
    m_state = reinterpret_cast<BusState*>(bytes);
    m_pending = reinterpret_cast<PendingEntry*>(bytes + AlignUp(sizeof(BusState)));
    m_ring = reinterpret_cast<WireFrame*>(bytes + AlignUp(sizeof(BusState)) +
                                          AlignUp(sizeof(PendingEntry) * m_layout.slots * m_txLimit));
    // Deliver from the frames that are still on their way; computed here, so
    // that nothing placed after the attachment can be missed.
    SharedSegment& seg = *m_segment;
    seg.Lock();
    uint64_t first = m_state->nextSeq;
    const int64_t now = MonotonicNs();
    const uint64_t oldest = first > m_ringCapacity ? first - m_ringCapacity : 0;
    while (first > oldest && Ring(first - 1).seq == first - 1 && Ring(first - 1).endNs > now)
        --first;
    seg.Unlock();
    m_delivery = std::thread([this, first] { DeliveryLoop(first); });
    return NXCAN_SUCCESS;
}

NXTCanError Bus::Claim(uint32_t channel, std::string* error)
{
    SharedSegment& seg = *m_segment;
    seg.Lock();
    ProcessId owner;
    const bool claimed = seg.ClaimLocked(channel, &owner);
    if (claimed)
        m_state->pending[channel] = PendingQueue{0, 0};
    seg.Unlock();
    if (claimed)
        return NXCAN_SUCCESS;
    *error = "channel in use by process " + std::to_string(owner.pid);
    return NXCAN_ERR_CHANNEL_IN_USE;
}

void Bus::Release(uint32_t channel)
{
    SharedSegment& seg = *m_segment;
    seg.Lock();
    seg.ReleaseLocked(channel);
    seg.Unlock();
}

void Bus::PrunePendingLocked(uint32_t source, int64_t now)
{
    PendingQueue& queue = m_state->pending[source];
    const PendingEntry* pending = Pending(source);
    while (queue.count > 0 && pending[queue.head].endNs <= now) {
        queue.head = (queue.head + 1) % m_txLimit;
        --queue.count;
    }
}

void Bus::PlaceLocked(uint32_t source, bool takesNoBusTime, WireFrame* frames, size_t count, int64_t now)
{
    BusState* h = m_state;
    PendingQueue& queue = h->pending[source];
    PendingEntry* pending = Pending(source);
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
        Ring(f.seq) = f;
        pending[(queue.head + queue.count) % m_txLimit] = PendingEntry{f.seq, start, end};
        ++queue.count;
    }
}

NXTCanError Bus::Transmit(uint32_t source, bool takesNoBusTime, WireFrame* frames, size_t count)
{
    SharedSegment& seg = *m_segment;
    seg.Lock();
    const int64_t now = MonotonicNs();
    PrunePendingLocked(source, now);
    if (m_state->pending[source].count + count > m_txLimit) {
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
    SharedSegment& seg = *m_segment;
    for (;;) {
        seg.Lock();
        const int64_t now = MonotonicNs();
        PrunePendingLocked(source, now);
        const PendingQueue& queue = m_state->pending[source];
        if (queue.count < m_txLimit) {
            PlaceLocked(source, takesNoBusTime, &frame, 1, now);
            seg.Unlock();
            seg.WakeAll();
            return NXCAN_SUCCESS;
        }
        const int64_t due = Pending(source)[queue.head].endNs;
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
    SharedSegment& seg = *m_segment;
    seg.Lock();
    const int64_t now = MonotonicNs();
    PrunePendingLocked(source, now);
    PendingQueue& queue = m_state->pending[source];
    const PendingEntry* pending = Pending(source);
    BusState* h = m_state;
    // The withdrawn frames at the very end of the wire schedule give their
    // wire time back; wire time reserved before other frames stays idle.
    uint64_t tail = h->nextSeq;
    int64_t freedFrom = -1;
    while (queue.count > 0) {
        const PendingEntry& last = pending[(queue.head + queue.count - 1) % m_txLimit];
        if (last.startNs <= now)
            break;  // already on the wire
        WireFrame& f = Ring(last.seq);
        if (f.seq == last.seq)
            f.cancelled = 1;
        if (last.seq + 1 == tail) {
            tail = last.seq;
            freedFrom = last.startNs;
        }
        --queue.count;
    }
    if (freedFrom >= 0) {
        h->busyUntilNs = freedFrom;
        h->lastEndNs = freedFrom;
    }
    seg.Unlock();
}

void Bus::AccountLoadLocked(int64_t start, int64_t end, int64_t now)
{
    BusState* h = m_state;
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
    const BusState* h = m_state;
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
    // The wire hands frames to the receivers whatever else the machine does,
    // as a controller's memory access would.
    PrepareTimingThread("nxsim-delivery", m_realtimePriority);
    SharedSegment& seg = *m_segment;
    const uint64_t capacity = m_ringCapacity;
    std::vector<WireFrame> batch;
    batch.reserve(kDeliveryBatch);
    std::vector<std::shared_ptr<Channel>> receivers;

    uint64_t cursor = firstSeq;
    // Like a controller that moderates its interrupts: after a delivery,
    // the frames that end within the interval wait for its end and go
    // together, so that a busy bus wakes its receivers some thousand times a
    // second, not once a frame. The frames keep their own stamps.
    const int64_t interval = static_cast<int64_t>(m_config.deliveryIntervalUs) * 1000;
    int64_t heldUntil = 0;

    while (!m_stop) {
        seg.Lock();
        const int64_t now = MonotonicNs();
        const uint64_t next = m_state->nextSeq;
        uint64_t lost = 0;
        if (next - cursor > capacity) {
            lost = next - capacity - cursor;
            cursor = next - capacity;
        }
        int64_t deadline = now + kIdleWaitNs;
        while (cursor < next && batch.size() < kDeliveryBatch) {
            const WireFrame& f = Ring(cursor);
            if (f.seq != cursor) {  // overwritten: this process fell behind
                ++lost;
                ++cursor;
                continue;
            }
            if (f.cancelled) {  // withdrawn: its time no longer counts
                ++cursor;
                continue;
            }
            if (f.endNs > now || heldUntil > now) {
                deadline = std::min(deadline, std::max(f.endNs, heldUntil));
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
            if (!batch.empty())
                heldUntil = now + interval;
            batch.clear();
            continue;
        }
        seg.WaitForChange(seen, deadline - now);
    }
}

}  // namespace nxsim
