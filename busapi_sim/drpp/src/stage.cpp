// The window, its heap of ordering keys and the output queue.
#include "stage.h"

#include <algorithm>

#include "record.h"

namespace nxdrpp {

Stage::Stage(uint32_t minFillLevel, uint32_t maxDepth, NxDRPPProtocolType protocol)
    : m_fillLevel(minFillLevel), m_depth(maxDepth), m_protocol(protocol)
{
    m_slots.resize(maxDepth);
    m_bytes.resize(maxDepth);
    m_freeSlots.reserve(maxDepth);
    for (uint32_t slot = maxDepth; slot-- > 0;)
        m_freeSlots.push_back(slot);
    m_heap.reserve(maxDepth);
    m_ready.resize(size_t(maxDepth) + 1);
    if (protocol != NXDRPP_GENERIC) {
        m_groups.reserve(size_t(maxDepth) * 2 + 1);
        m_groupIndex.reserve(size_t(maxDepth) * 2 + 1);
    }
}

NxDRPPErrorCode Stage::Insert(const uint8_t* data, uint64_t size, bool endOfStream, uint64_t* consumed)
{
    *consumed = 0;
    bool closed = false;
    for (uint64_t at = 0; at < size;) {
        const uint8_t* record = data + at;
        const RecordCheck check = CheckRecord(record, size - at);
        if (check.code != NXDRPP_NO_ERROR)
            return check.code;
        if (check.closing) {
            if (m_closingHeld)
                return NXDRPP_BUFFER_FULL;
            EndStream();
            std::memcpy(m_closing.data(), record, NXDRPP_RECORD_HEAD_SIZE);
            m_closingHeld = true;
            ReadyPush(kClosingEntry);
            ++m_endedEntries;
            ++m_taken;
        } else {
            if (!MakeRoom())
                return NXDRPP_BUFFER_FULL;
            // The copy's room first, so that nothing below fails half-way.
            m_bytes[m_freeSlots.back()].reserve(check.size);
            const FrameInfo info = ParseRecord(record, m_protocol);
            const uint64_t time = ReadLe64(record + kTimestampOffset);
            uint64_t hash = 0;
            const Placement placement = Classify(record, info, time, &hash);
            ++m_taken;
            if (!placement.dropped)
                Take(record, check.size, info, placement.group, time, hash);
            if (!m_aging.empty())
                Age(time, placement.group);
            ReleaseWhile(m_fillLevel);
        }
        closed = check.closing;
        at += check.size;
        *consumed = at;
    }
    if (endOfStream && !closed)
        EndStream();
    return NXDRPP_NO_ERROR;
}

void Stage::Take(const uint8_t* record, uint32_t size, const FrameInfo& info, uint32_t group, uint64_t time,
                 uint64_t hash)
{
    const uint32_t slot = m_freeSlots.back();
    m_freeSlots.pop_back();
    m_bytes[slot].assign(record, record + size);
    Slot& s = m_slots[slot];
    s.group = group;
    s.size = size;
    s.position = info.position;
    s.payloadOffset = info.payloadOffset;
    s.payloadLength = info.payloadLength;
    s.payloadHash = hash;
    s.more = info.more;
    s.tcpFlags = info.tcpFlags;
    m_heldBytes += size;
    HeapPush({time, m_arrivals++, slot});
    if (group != kNone)
        AddMember(group, slot, time);
}

void Stage::DropSlot(uint32_t slot, DropCause cause)
{
    Slot& s = m_slots[slot];
    HeapRemove(s.heapIndex);
    s.heapIndex = kNone;
    s.group = kNone;
    m_heldBytes -= s.size;
    m_freeSlots.push_back(slot);
    Drop(cause);
}

// The window holds D records and none waits for output: only a message that
// is not complete can be holding it, and it is given up.
bool Stage::MakeRoom()
{
    if (m_heap.size() + m_readyRecords < m_depth)
        return true;
    if (m_readyRecords > 0)
        return false;
    const uint32_t group = m_slots[m_heap[0].slot].group;
    if (group != kNone && m_groups[group].state == GroupState::Open)
        Doom(group, DropCause::GivenUp);
    else
        Release();
    ReleaseWhile(m_fillLevel);
    return m_heap.size() + m_readyRecords < m_depth;
}

// Releases the window's earliest key, unless a message that is not complete
// owns it. A group's records leave in the group's own order, each with the
// earliest key the group holds: the record that leaves hands its own key to
// the one whose key it takes.
bool Stage::Release()
{
    if (m_heap.empty())
        return false;
    const HeapEntry top = m_heap[0];
    uint32_t leaving = top.slot;
    const uint32_t group = m_slots[leaving].group;
    if (group != kNone) {
        Group& g = m_groups[group];
        if (g.state == GroupState::Open)
            return false;
        leaving = g.members.front();
        g.members.erase(g.members.begin());
    }
    HeapPopTop();
    if (leaving != top.slot) {
        const uint32_t index = m_slots[leaving].heapIndex;
        m_heap[index].slot = top.slot;
        m_slots[top.slot].heapIndex = index;
    }
    Slot& s = m_slots[leaving];
    s.heapIndex = kNone;
    uint8_t* bytes = m_bytes[leaving].data();
    if (ReadLe64(bytes + kTimestampOffset) != top.time)
        WriteLe64(bytes + kTimestampOffset, top.time);
    if (group != kNone) {
        Group& g = m_groups[group];
        if (g.state == GroupState::Flow && (s.payloadLength > 0 || s.tcpFlags != 0)) {
            const SentSegment sent{s.position, s.payloadLength, s.payloadHash, s.tcpFlags};
            if (g.recent.size() < kRecentSegments)
                g.recent.push_back(sent);
            else
                g.recent[g.recentNext] = sent;
            g.recentNext = (g.recentNext + 1) % kRecentSegments;
            const uint32_t end = s.position + s.payloadLength + ((s.tcpFlags & kTcpSyn) ? 1 : 0) +
                                 ((s.tcpFlags & kTcpFin) ? 1 : 0);
            if (!g.sent || static_cast<int32_t>(end - g.sentEnd) > 0)
                g.sentEnd = end;
            g.sent = true;
        }
        s.group = kNone;
        FreeIfUnused(group);
    }
    ReadyPush(leaving);
    ++m_readyRecords;
    return true;
}

void Stage::ReleaseWhile(uint32_t fillLevel)
{
    while (m_heap.size() >= fillLevel && Release()) {
    }
}

// Everything that can leave is released, the messages that can no longer
// complete are dropped, and the next record starts a new stream.
void Stage::EndStream()
{
    while (!m_heap.empty()) {
        const uint32_t group = m_slots[m_heap[0].slot].group;
        if (group != kNone && m_groups[group].state == GroupState::Open)
            Doom(group, DropCause::Incomplete);
        else
            Release();
    }
    ForgetAllGroups();
    m_endedEntries = m_readyCount;
}

NxDRPPErrorCode Stage::Get(uint8_t* destination, uint64_t room, bool drain, uint64_t* written)
{
    *written = 0;
    if (drain)
        ReleaseWhile(1);
    else if (m_endedEntries == 0 && m_heap.size() + m_readyRecords < m_fillLevel)
        return NXDRPP_NOT_REACHED_MIN_FILL_LEVEL;
    uint64_t at = 0;
    while (m_readyCount > 0) {
        const uint32_t entry = m_ready[m_readyHead];
        const bool closing = entry == kClosingEntry;
        const uint32_t size = closing ? NXDRPP_RECORD_HEAD_SIZE : m_slots[entry].size;
        if (size > room - at)
            break;
        std::memcpy(destination + at, closing ? m_closing.data() : m_bytes[entry].data(), size);
        at += size;
        m_readyHead = m_readyHead + 1 == m_ready.size() ? 0 : m_readyHead + 1;
        --m_readyCount;
        ++m_givenOut;
        m_givenOutBytes += size;
        if (m_endedEntries > 0)
            --m_endedEntries;
        if (closing) {
            m_closingHeld = false;
        } else {
            --m_readyRecords;
            m_heldBytes -= size;
            m_freeSlots.push_back(entry);
        }
    }
    *written = at;
    return NXDRPP_NO_ERROR;
}

void Stage::Flush()
{
    for (const HeapEntry& entry : m_heap) {
        m_slots[entry.slot] = Slot{};
        m_freeSlots.push_back(entry.slot);
    }
    Drop(DropCause::Flushed, m_heap.size() + m_readyCount);
    m_heap.clear();
    for (; m_readyCount > 0; --m_readyCount) {
        const uint32_t entry = m_ready[m_readyHead];
        if (entry != kClosingEntry)
            m_freeSlots.push_back(entry);
        m_readyHead = m_readyHead + 1 == m_ready.size() ? 0 : m_readyHead + 1;
    }
    for (Group& group : m_groups)
        group.members.clear();
    ForgetAllGroups();
    m_readyRecords = 0;
    m_endedEntries = 0;
    m_closingHeld = false;
    m_heldBytes = 0;
}

NxDRPPStatistics Stage::Statistics() const
{
    const uint64_t records = m_heap.size() + m_readyRecords;
    NxDRPPStatistics statistics{};
    statistics.numOfTotalFrames = m_taken;
    statistics.numOfProcessedFrames = m_givenOut;
    statistics.numOfProcessedBytes = m_givenOutBytes;
    statistics.numOfFramesInOutputQueue = records + (m_closingHeld ? 1 : 0);
    statistics.numOfBytesInOutputQueue = m_heldBytes + (m_closingHeld ? NXDRPP_RECORD_HEAD_SIZE : 0);
    statistics.numOfFramesReadyToRead = m_endedEntries > 0 || records >= m_fillLevel ? m_readyCount : 0;
    return statistics;
}

void Stage::Drop(DropCause cause, uint64_t records) { m_drops[static_cast<size_t>(cause)] += records; }

void Stage::ReadyPush(uint32_t entry)
{
    uint32_t tail = m_readyHead + m_readyCount;
    if (tail >= m_ready.size())
        tail -= static_cast<uint32_t>(m_ready.size());
    m_ready[tail] = entry;
    ++m_readyCount;
}

// ---- heap of ordering keys --------------------------------------------------

void Stage::HeapPlace(uint32_t index, const HeapEntry& entry)
{
    m_heap[index] = entry;
    m_slots[entry.slot].heapIndex = index;
}

void Stage::SiftUp(uint32_t index)
{
    const HeapEntry entry = m_heap[index];
    while (index > 0) {
        const uint32_t parent = (index - 1) / 2;
        if (!Earlier(entry, m_heap[parent]))
            break;
        HeapPlace(index, m_heap[parent]);
        index = parent;
    }
    HeapPlace(index, entry);
}

void Stage::SiftDown(uint32_t index)
{
    const HeapEntry entry = m_heap[index];
    const uint32_t size = static_cast<uint32_t>(m_heap.size());
    for (;;) {
        uint32_t child = 2 * index + 1;
        if (child >= size)
            break;
        if (child + 1 < size && Earlier(m_heap[child + 1], m_heap[child]))
            ++child;
        if (!Earlier(m_heap[child], entry))
            break;
        HeapPlace(index, m_heap[child]);
        index = child;
    }
    HeapPlace(index, entry);
}

void Stage::HeapPush(const HeapEntry& entry)
{
    m_heap.push_back(entry);
    SiftUp(static_cast<uint32_t>(m_heap.size() - 1));
}

// Removes the top entry; the slot it named keeps its heapIndex untouched.
Stage::HeapEntry Stage::HeapPopTop()
{
    const HeapEntry top = m_heap[0];
    const HeapEntry last = m_heap.back();
    m_heap.pop_back();
    if (!m_heap.empty()) {
        m_heap[0] = last;
        SiftDown(0);
    }
    return top;
}

void Stage::HeapRemove(uint32_t index)
{
    const HeapEntry last = m_heap.back();
    m_heap.pop_back();
    if (index == m_heap.size())
        return;
    m_heap[index] = last;
    if (index > 0 && Earlier(last, m_heap[(index - 1) / 2]))
        SiftUp(index);
    else
        SiftDown(index);
}

}  // namespace nxdrpp
