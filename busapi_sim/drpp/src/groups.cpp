// Groups: IPv4 datagrams in fragments, SOME/IP TP messages in segments, TCP
// connection directions. A group is remembered under its key (the index
// map) for as long as it may still receive records; its records may still
// wait in the window after it is forgotten.
#include <algorithm>
#include <cstring>

#include "stage.h"

namespace nxdrpp {
namespace {

constexpr uint32_t kMaxIpPayloadEnd = 65535;

uint64_t Mix(uint64_t lane, const uint8_t* p)
{
    uint64_t word;
    std::memcpy(&word, p, sizeof word);
    lane = (lane ^ word) * 0xBF58476D1CE4E5B9ull;
    return lane ^ (lane >> 31);
}

// A 64-bit hash of a payload, in four independent lanes of 8 bytes (kept
// scalar: 64-bit products do not vectorise on plain x86-64).
#if defined(__GNUC__) && !defined(__clang__)
__attribute__((optimize("no-tree-vectorize")))
#endif
uint64_t HashBytes(const uint8_t* p, uint32_t length)
{
    uint64_t a = 0x9E3779B97F4A7C15ull ^ length, b = 0x94D049BB133111EBull, c = 0x2545F4914F6CDD1Dull,
             d = 0xD6E8FEB86659FD93ull;
    uint32_t i = 0;
    for (; i + 32 <= length; i += 32) {
        a = Mix(a, p + i);
        b = Mix(b, p + i + 8);
        c = Mix(c, p + i + 16);
        d = Mix(d, p + i + 24);
    }
    uint64_t h = a ^ (b * 3) ^ (c * 5) ^ (d * 7);
    for (; i < length; ++i)
        h = (h ^ p[i]) * 0x100000001B3ull;
    h = (h ^ (h >> 29)) * 0xBF58476D1CE4E5B9ull;
    return h ^ (h >> 32);
}

// TCP sequence numbers compare in serial-number arithmetic.
bool SequenceBefore(uint32_t a, uint32_t b) { return static_cast<int32_t>(a - b) < 0; }

}  // namespace

Stage::Placement Stage::Classify(const uint8_t* record, const FrameInfo& info, uint64_t time, uint64_t* hash)
{
    switch (info.kind) {
    case FrameKind::IpFragment:
        return AddFragment(record, info, time);
    case FrameKind::TpSegment:
        return AddSegment(record, info, time);
    case FrameKind::TcpSegment:
        return AddTcp(record, info, time, hash);
    case FrameKind::Plain:
        break;
    }
    return {};
}

Stage::Placement Stage::Dropped(uint32_t group, DropCause cause)
{
    Drop(cause);
    return {group, true};
}

// An IPv4 fragment: kept while its datagram is consistent; an overlap or a
// fragment that does not fit discards the datagram whole.
Stage::Placement Stage::AddFragment(const uint8_t* record, const FrameInfo& info, uint64_t time)
{
    const uint32_t begin = info.position;
    const uint32_t finish = begin + info.payloadLength;
    const uint8_t* payload = record + info.payloadOffset;
    bool bad = info.payloadLength == 0 || (info.more && info.payloadLength % 8 != 0) || finish > kMaxIpPayloadEnd;
    uint32_t group = FindGroup(info.key);
    if (group == kNone) {
        group = NewGroup(info.key, bad ? GroupState::Dead : GroupState::Open, time);
    } else {
        Group& g = m_groups[group];
        if (g.state != GroupState::Open)
            return Dropped(group, DropCause::Duplicate);
        if (!bad && !info.more)
            bad = (g.end != kNone && g.end != finish) || g.maxEnd > finish;
        else if (!bad)
            bad = g.end != kNone && finish > g.end;
        if (!bad) {
            const auto next = std::lower_bound(g.members.begin(), g.members.end(), begin,
                                               [this](uint32_t slot, uint32_t at) { return m_slots[slot].position < at; });
            if (next != g.members.end()) {
                const Slot& s = m_slots[*next];
                if (s.position == begin && s.payloadLength == info.payloadLength && s.more == info.more &&
                    std::memcmp(Payload(*next), payload, info.payloadLength) == 0) {
                    return Dropped(group, DropCause::Duplicate);
                }
                bad = s.position < finish;
            }
            if (next != g.members.begin()) {
                const Slot& s = m_slots[*(next - 1)];
                bad = bad || s.position + s.payloadLength > begin;
            }
        }
        if (bad)
            Doom(group, DropCause::Malformed);
    }
    if (bad)
        return Dropped(group, DropCause::Malformed);
    Group& g = m_groups[group];
    g.bytes += info.payloadLength;
    g.maxEnd = std::max(g.maxEnd, finish);
    if (!info.more)
        g.end = finish;
    return {group, false};
}

// A SOME/IP TP segment: the bytes and the end received first win. Each
// session is a message of its own. A message must be complete with what is
// stamped before a later session began: a segment of it stamped after that
// cancels it, as the receiver has moved on by then. In recorded time, not in
// order of arrival, so that a slightly disordered recording keeps both.
Stage::Placement Stage::AddSegment(const uint8_t* record, const FrameInfo& info, uint64_t time)
{
    const uint32_t begin = info.position;
    const uint32_t finish = begin + info.payloadLength;
    const uint8_t* payload = record + info.payloadOffset;
    uint32_t group = FindGroup(info.key);
    GroupKey base = info.key;
    base.session = 0;
    uint64_t supersededAt = UINT64_MAX;
    const auto latest = m_latestSession.find(base);
    if (latest == m_latestSession.end()) {
        if (m_latestSession.size() >= size_t(m_depth) * 2)
            m_latestSession.erase(m_latestSession.begin());
        m_latestSession.emplace(base, SessionStart{info.key.session, time});
    } else if (latest->second.session != info.key.session) {
        SessionStart& last = latest->second;
        if (group == kNone && time >= last.time) {
            GroupKey previousKey = base;
            previousKey.session = last.session;
            const uint32_t previous = FindGroup(previousKey);
            if (previous != kNone)
                m_groups[previous].supersededAt = std::min(m_groups[previous].supersededAt, time);
            last = {info.key.session, time};
        } else {
            supersededAt = last.time;
        }
    }
    const bool breaks = info.payloadLength == 0 || (info.more && info.payloadLength % 16 != 0);
    if (group == kNone) {
        group = NewGroup(info.key, breaks ? GroupState::Dead : GroupState::Open, time);
        m_groups[group].supersededAt = supersededAt;
    } else {
        Group& g = m_groups[group];
        if (g.state != GroupState::Open)
            return Dropped(group, DropCause::Duplicate);
        g.supersededAt = std::min(g.supersededAt, supersededAt);
        if (time >= g.supersededAt) {
            Doom(group, DropCause::Incomplete);
            return Dropped(group, DropCause::Incomplete);
        }
        if (breaks)
            Doom(group, DropCause::Malformed);
    }
    if (breaks)
        return Dropped(group, DropCause::Malformed);
    Group& g = m_groups[group];
    const bool endDisagrees = info.more ? g.end != kNone && finish > g.end
                                        : (g.end != kNone && g.end != finish) || g.maxEnd > finish;
    bool agrees = !endDisagrees;
    uint32_t covered = begin;
    for (uint32_t i = 0; agrees && i < g.members.size(); ++i) {
        const Slot& s = m_slots[g.members[i]];
        const uint32_t memberEnd = s.position + s.payloadLength;
        if (s.position <= covered)
            covered = std::max(covered, memberEnd);
        const uint32_t from = std::max(begin, s.position);
        const uint32_t to = std::min(finish, memberEnd);
        if (from < to)
            agrees = std::memcmp(Payload(g.members[i]) + (from - s.position), payload + (from - begin), to - from) == 0;
    }
    if (!agrees)
        return Dropped(group, DropCause::Contradicting);
    if (covered >= finish)
        return Dropped(group, DropCause::Duplicate);
    g.maxEnd = std::max(g.maxEnd, finish);
    if (!info.more)
        g.end = finish;
    return {group, false};
}

// A TCP segment: an exact retransmission of one in the window or given out
// lately is dropped.
Stage::Placement Stage::AddTcp(const uint8_t* record, const FrameInfo& info, uint64_t time, uint64_t* hash)
{
    uint32_t group = FindGroup(info.key);
    if (group == kNone)
        group = NewGroup(info.key, GroupState::Flow, time);
    else
        Touch(group);
    if (info.payloadLength == 0 && info.tcpFlags == 0)
        return {group, false};
    const uint8_t* payload = record + info.payloadOffset;
    *hash = HashBytes(payload, info.payloadLength);
    const Group& g = m_groups[group];
    for (uint32_t member : g.members) {
        const Slot& s = m_slots[member];
        if (s.position == info.position && s.payloadLength == info.payloadLength && s.tcpFlags == info.tcpFlags &&
            s.payloadHash == *hash && std::memcmp(Payload(member), payload, info.payloadLength) == 0) {
            return Dropped(group, DropCause::Retransmission);
        }
    }
    // Only a segment that starts before the furthest one given out can repeat one.
    if (!g.sent || !SequenceBefore(info.position, g.sentEnd))
        return {group, false};
    for (const SentSegment& sent : g.recent) {
        if (sent.sequence == info.position && sent.length == info.payloadLength && sent.flags == info.tcpFlags &&
            sent.hash == *hash) {
            return Dropped(group, DropCause::Retransmission);
        }
    }
    return {group, false};
}

void Stage::AddMember(uint32_t group, uint32_t slot, uint64_t time)
{
    Group& g = m_groups[group];
    const uint32_t position = m_slots[slot].position;
    auto at = g.state == GroupState::Flow
                  ? std::upper_bound(g.members.begin(), g.members.end(), position,
                                     [this](uint32_t p, uint32_t member) { return SequenceBefore(p, m_slots[member].position); })
                  : std::upper_bound(g.members.begin(), g.members.end(), position,
                                     [this](uint32_t p, uint32_t member) { return p < m_slots[member].position; });
    g.members.insert(at, slot);
    if (g.state != GroupState::Open)
        return;
    if (time >= g.newestTime) {
        g.newestTime = time;
        g.later = 0;
    }
    const bool complete = g.key.kind == FrameKind::IpFragment ? g.end != kNone && g.bytes == g.end : SegmentComplete(g);
    if (complete) {
        g.state = GroupState::Complete;
        g.later = 0;  // remembered for a time-out from now on
    }
}

bool Stage::SegmentComplete(const Group& group) const
{
    if (group.end == kNone)
        return false;
    uint32_t covered = 0;
    for (uint32_t member : group.members) {
        const Slot& s = m_slots[member];
        if (s.position > covered)
            return false;
        covered = std::max(covered, s.position + s.payloadLength);
    }
    return covered >= group.end;
}

// Drops the records of a message and keeps it as remembered (Dead), so that
// its stragglers are dropped for one more time-out.
void Stage::Doom(uint32_t group, DropCause cause)
{
    Group& g = m_groups[group];
    for (uint32_t member : g.members)
        DropSlot(member, cause);
    g.members.clear();
    g.state = GroupState::Dead;
    g.later = 0;
    FreeIfUnused(group);
}

// Every record taken ages the remembered messages it does not belong to; a
// message that has seen the window's worth of later records since its
// newest fragment has had its chance.
void Stage::Age(uint64_t time, uint32_t ownGroup)
{
    for (size_t i = m_aging.size(); i-- > 0;) {
        const uint32_t group = m_aging[i];
        Group& g = m_groups[group];
        if (group != ownGroup && time > g.newestTime && ++g.later >= m_fillLevel)
            Expire(group);
    }
}

void Stage::Expire(uint32_t group)
{
    if (m_groups[group].state == GroupState::Open)
        Doom(group, DropCause::Incomplete);
    else
        Forget(group);
}

uint32_t Stage::FindGroup(const GroupKey& key)
{
    const auto found = m_groupIndex.find(key);
    return found == m_groupIndex.end() ? kNone : found->second;
}

uint32_t Stage::NewGroup(const GroupKey& key, GroupState state, uint64_t time)
{
    if (m_groupIndex.size() >= size_t(m_depth) * 2)
        EvictOne();
    uint32_t group;
    if (!m_freeGroups.empty()) {
        group = m_freeGroups.back();
        m_freeGroups.pop_back();
    } else {
        group = static_cast<uint32_t>(m_groups.size());
        m_groups.emplace_back();
    }
    Group& g = m_groups[group];
    g.key = key;
    g.state = state;
    g.inMap = true;
    g.newestTime = time;
    g.later = 0;
    g.supersededAt = UINT64_MAX;
    g.end = kNone;
    g.bytes = 0;
    g.maxEnd = 0;
    g.recent.clear();
    g.recentNext = 0;
    g.sent = false;
    m_groupIndex.emplace(key, group);
    g.lruPrev = kNone;
    g.lruNext = m_lruHead;
    if (m_lruHead != kNone)
        m_groups[m_lruHead].lruPrev = group;
    m_lruHead = group;
    if (m_lruTail == kNone)
        m_lruTail = group;
    g.agingIndex = kNone;
    if (state != GroupState::Flow) {
        g.agingIndex = static_cast<uint32_t>(m_aging.size());
        m_aging.push_back(group);
    }
    return group;
}

// The least recently seen group that holds no record is forgotten. At
// most D groups hold records, so one of the 2 D remembered ones holds none.
void Stage::EvictOne()
{
    for (uint32_t group = m_lruTail; group != kNone; group = m_groups[group].lruPrev) {
        if (m_groups[group].members.empty()) {
            Forget(group);
            return;
        }
    }
}

void Stage::Touch(uint32_t group)
{
    if (m_lruHead == group)
        return;
    LruUnlink(group);
    Group& g = m_groups[group];
    g.lruPrev = kNone;
    g.lruNext = m_lruHead;
    m_groups[m_lruHead].lruPrev = group;
    m_lruHead = group;
    if (m_lruTail == kNone)
        m_lruTail = group;
}

void Stage::LruUnlink(uint32_t group)
{
    Group& g = m_groups[group];
    if (g.lruPrev != kNone)
        m_groups[g.lruPrev].lruNext = g.lruNext;
    else
        m_lruHead = g.lruNext;
    if (g.lruNext != kNone)
        m_groups[g.lruNext].lruPrev = g.lruPrev;
    else
        m_lruTail = g.lruPrev;
    g.lruPrev = g.lruNext = kNone;
}

void Stage::Forget(uint32_t group)
{
    Group& g = m_groups[group];
    if (!g.inMap)
        return;
    m_groupIndex.erase(g.key);
    LruUnlink(group);
    if (g.agingIndex != kNone) {
        const uint32_t moved = m_aging.back();
        m_aging[g.agingIndex] = moved;
        m_groups[moved].agingIndex = g.agingIndex;
        m_aging.pop_back();
        g.agingIndex = kNone;
    }
    g.inMap = false;
    FreeIfUnused(group);
}

void Stage::FreeIfUnused(uint32_t group)
{
    Group& g = m_groups[group];
    if (!g.inMap && g.members.empty())
        m_freeGroups.push_back(group);
}

// Between streams nothing is remembered; no group holds a record then.
void Stage::ForgetAllGroups()
{
    m_groupIndex.clear();
    m_latestSession.clear();
    m_aging.clear();
    m_freeGroups.clear();
    for (uint32_t group = 0; group < m_groups.size(); ++group) {
        Group& g = m_groups[group];
        g.inMap = false;
        g.agingIndex = g.lruPrev = g.lruNext = kNone;
        m_freeGroups.push_back(group);
    }
    m_lruHead = m_lruTail = kNone;
}

}  // namespace nxdrpp
