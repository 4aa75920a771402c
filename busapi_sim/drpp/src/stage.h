// The pre-processing stage behind one handle: a window of records ordered
// by recorded time, the groups that hold fragments and segments, and the
// output queue of released records (see the public header for the rules).
#pragma once

#include <array>
#include <cstdint>
#include <unordered_map>
#include <vector>

#include "NxDRPreProcessing.h"
#include "frame_parser.h"

namespace nxdrpp {

// Why the stage dropped records: each drop is counted under one cause.
enum class DropCause : uint8_t {
    Incomplete,      // message timed out, cut by a new session or by the end of the stream
    Malformed,       // datagram with overlaps or a bad fragment, TP message breaking the 16-byte rule
    GivenUp,         // message that held the full window
    Duplicate,       // exact or redundant copy, straggler of a message already settled
    Contradicting,   // SOME/IP TP segment disagreeing with bytes received first
    Retransmission,  // exact TCP retransmission
    Flushed,         // NxDRPP_FlushBuffers
    Count
};

using DropCounts = std::array<uint64_t, static_cast<size_t>(DropCause::Count)>;

class Stage {
public:
    Stage(uint32_t minFillLevel, uint32_t maxDepth, NxDRPPProtocolType protocol);

    NxDRPPErrorCode Insert(const uint8_t* data, uint64_t size, bool endOfStream, uint64_t* consumed);
    NxDRPPErrorCode Get(uint8_t* destination, uint64_t room, bool drain, uint64_t* written);
    void Flush();
    NxDRPPStatistics Statistics() const;
    const DropCounts& Drops() const { return m_drops; }

private:
    static constexpr uint32_t kNone = UINT32_MAX;
    static constexpr uint32_t kClosingEntry = UINT32_MAX;

    // A record held by the stage. Its ordering key lives in the heap; a
    // group's records swap keys among themselves (see Release).
    struct Slot {
        uint32_t heapIndex = kNone;
        uint32_t group = kNone;
        uint32_t size = 0;
        uint32_t position = 0;
        uint32_t payloadOffset = 0;
        uint32_t payloadLength = 0;
        uint64_t payloadHash = 0;  // TCP segments
        bool more = false;
        uint8_t tcpFlags = 0;
    };
    struct HeapEntry {
        uint64_t time;
        uint64_t arrival;
        uint32_t slot;
    };
    enum class GroupState : uint8_t { Open, Complete, Dead, Flow };
    // A TCP segment already given out, for telling retransmissions.
    struct SentSegment {
        uint32_t sequence;
        uint32_t length;
        uint64_t hash;
        uint8_t flags;
    };
    static constexpr uint32_t kRecentSegments = 64;
    struct Group {
        GroupKey key;
        GroupState state = GroupState::Open;
        bool inMap = false;
        std::vector<uint32_t> members;  // slots, in the group's order
        uint64_t newestTime = 0;
        uint32_t later = 0;             // records stamped after newestTime since
        uint32_t agingIndex = kNone;
        uint32_t lruPrev = kNone, lruNext = kNone;
        uint64_t supersededAt = UINT64_MAX;  // TP: when a later session began
        uint32_t end = kNone;           // length of the whole message, once known
        uint32_t bytes = 0;             // payload held (datagrams)
        uint32_t maxEnd = 0;            // furthest byte held
        std::vector<SentSegment> recent;
        uint32_t recentNext = 0;
        uint32_t sentEnd = 0;  // TCP: sequence number after the furthest segment given out
        bool sent = false;
    };

    // Records and the window.
    void Take(const uint8_t* record, uint32_t size, const FrameInfo& info, uint32_t group, uint64_t time,
              uint64_t hash);
    void Drop(DropCause cause, uint64_t records = 1);
    void DropSlot(uint32_t slot, DropCause cause);
    bool Release();
    void ReleaseWhile(uint32_t fillLevel);
    void EndStream();
    bool MakeRoom();

    // Heap of ordering keys.
    bool Earlier(const HeapEntry& a, const HeapEntry& b) const
    {
        return a.time < b.time || (a.time == b.time && a.arrival < b.arrival);
    }
    void HeapPush(const HeapEntry& entry);
    HeapEntry HeapPopTop();
    void HeapRemove(uint32_t index);
    void SiftUp(uint32_t index);
    void SiftDown(uint32_t index);
    void HeapPlace(uint32_t index, const HeapEntry& entry);

    // Output queue.
    void ReadyPush(uint32_t entry);

    // Groups. A record goes to its group, or is dropped (and then still
    // belongs to the group it was dropped from, if any).
    struct Placement {
        uint32_t group = kNone;
        bool dropped = false;
    };
    Placement Classify(const uint8_t* record, const FrameInfo& info, uint64_t time, uint64_t* hash);
    Placement AddFragment(const uint8_t* record, const FrameInfo& info, uint64_t time);
    Placement AddSegment(const uint8_t* record, const FrameInfo& info, uint64_t time);
    Placement AddTcp(const uint8_t* record, const FrameInfo& info, uint64_t time, uint64_t* hash);
    Placement Dropped(uint32_t group, DropCause cause);
    uint32_t FindGroup(const GroupKey& key);
    uint32_t NewGroup(const GroupKey& key, GroupState state, uint64_t time);
    void Forget(uint32_t group);
    void FreeIfUnused(uint32_t group);
    void Doom(uint32_t group, DropCause cause);
    void AddMember(uint32_t group, uint32_t slot, uint64_t time);
    void Age(uint64_t time, uint32_t ownGroup);
    void Expire(uint32_t group);
    void Touch(uint32_t group);
    void EvictOne();
    void LruUnlink(uint32_t group);
    void ForgetAllGroups();
    bool SegmentComplete(const Group& group) const;
    const uint8_t* Payload(uint32_t slot) const { return m_bytes[slot].data() + m_slots[slot].payloadOffset; }

    const uint32_t m_fillLevel;
    const uint32_t m_depth;
    const NxDRPPProtocolType m_protocol;

    std::vector<Slot> m_slots;
    std::vector<std::vector<uint8_t>> m_bytes;
    std::vector<uint32_t> m_freeSlots;
    std::vector<HeapEntry> m_heap;
    uint64_t m_arrivals = 0;

    // The output queue: slots, and at most one closing record.
    std::vector<uint32_t> m_ready;
    uint32_t m_readyHead = 0;
    uint32_t m_readyCount = 0;
    uint32_t m_readyRecords = 0;  // slots among them
    uint32_t m_endedEntries = 0;  // entries at the front released by an end of stream
    bool m_closingHeld = false;
    std::array<uint8_t, NXDRPP_RECORD_HEAD_SIZE> m_closing{};

    std::vector<Group> m_groups;
    std::vector<uint32_t> m_freeGroups;
    std::unordered_map<GroupKey, uint32_t, GroupKeyHash> m_groupIndex;
    std::vector<uint32_t> m_aging;  // groups that time out: datagrams and TP messages
    // SOME/IP TP: per message key without the session, the session that
    // began last in recorded time, and when.
    struct SessionStart {
        uint16_t session;
        uint64_t time;
    };
    std::unordered_map<GroupKey, SessionStart, GroupKeyHash> m_latestSession;
    uint32_t m_lruHead = kNone, m_lruTail = kNone;

    uint64_t m_taken = 0;
    uint64_t m_givenOut = 0;
    uint64_t m_givenOutBytes = 0;
    uint64_t m_heldBytes = 0;
    DropCounts m_drops{};
};

}  // namespace nxdrpp
