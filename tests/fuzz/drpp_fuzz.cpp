// The replay pre-processing stage under arbitrary records and call
// sequences, in each protocol. It must never crash, never hold more than its
// depth, never give out a record or a time it was not given, never let a
// record of a stream leave after that stream's closing record, and keep its
// statistics and its answers true.
//
// Input: protocol, fill level, depth (a byte each), then operations, a byte
// each, low four bits:
//   0-9  a frame: length (2 bytes), time step (2 bytes, signed), its bytes
//   10,11 take frames into a room of (next byte) * 64 + 56 bytes
//   12   take frames with drain
//   13   closing record (bit 4: with the end-of-stream flag)
//   14   a raw block: length (2 bytes) and its bytes as they are (bit 4: flag)
//   15   flush (0xFF), otherwise take frames with room enough
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <algorithm>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "DrppRecords.h"

using namespace drpp_test;

namespace {

#define FUZZ_CHECK(condition)                                                           \
    do {                                                                                \
        if (!(condition)) {                                                             \
            std::fprintf(stderr, "drpp_fuzz: %s failed at line %d\n", #condition, __LINE__); \
            std::abort();                                                               \
        }                                                                               \
    } while (0)

class Reader {
public:
    Reader(const uint8_t* data, size_t size) : m_data(data), m_size(size) {}
    bool Empty() const { return m_at >= m_size; }
    uint8_t Byte() { return m_at < m_size ? m_data[m_at++] : 0; }
    uint16_t Word()
    {
        const uint16_t low = Byte();
        return static_cast<uint16_t>(low | Byte() << 8);
    }
    const uint8_t* Take(size_t* n)
    {
        *n = std::min(*n, m_size - std::min(m_at, m_size));
        const uint8_t* p = m_data + m_at;
        m_at += *n;
        return p;
    }

private:
    const uint8_t* m_data;
    size_t m_size;
    size_t m_at = 0;
};

// What the stage was given and may still give out, per stream (a closing
// record ends one): record bytes with the time blanked, and the times.
struct Given {
    std::map<std::string, int> records;
    std::map<uint64_t, int> times;
    bool ordered = true;  // its times never went back: it must leave in time order
    uint64_t newest = 0;
};

template <typename Key>
bool TakeOne(std::map<Key, int>& from, const Key& key)
{
    auto found = from.find(key);
    if (found == from.end())
        return false;
    if (--found->second == 0)
        from.erase(found);
    return true;
}

std::string WithoutTime(const RecordView& record)
{
    std::string bytes(reinterpret_cast<const char*>(record.bytes), record.size);
    std::memset(&bytes[offsetof(NxDRPPRecord, tHeader.ui64Timestamp)], 0, 8);
    return bytes;
}

constexpr uint64_t kRoomEnough = 1 << 23;

class Harness {
public:
    Harness(NxDRPPProtocolType protocol, uint64_t fill, uint64_t depth)
        : m_stage(fill, depth, protocol), m_fill(fill), m_depth(depth)
    {
        FUZZ_CHECK(m_stage.code == NXDRPP_NO_ERROR);
        m_streams.emplace_back();
    }

    void Insert(std::vector<uint8_t> block, bool end)
    {
        uint64_t consumed = 0;
        NxDRPPErrorCode code;
        for (bool emptied = false;; emptied = true) {
            code = m_stage.Insert(block, &consumed, end);
            Register(block.data(), consumed);
            if (code != NXDRPP_BUFFER_FULL)
                break;
            // Full means D records held, or a closing record still held; and
            // once emptied, the stage takes at least the next record.
            const NxDRPPStatistics full = m_stage.Statistics();
            FUZZ_CHECK(m_closingHeld || full.numOfFramesInOutputQueue == m_depth);
            FUZZ_CHECK(!emptied || consumed > 0);
            Get(kRoomEnough, false);
            block.erase(block.begin(), block.begin() + static_cast<ptrdiff_t>(consumed));
        }
        FUZZ_CHECK(code == NXDRPP_NO_ERROR || code == NXDRPP_CORRUPTED_DATA || code == NXDRPP_INCOMPLETE_FRAME);
        FUZZ_CHECK((code == NXDRPP_NO_ERROR) == (consumed == block.size()));
        if (code == NXDRPP_NO_ERROR && end && !m_lastWasClosing)
            m_endedWithoutClosing = true;
        Check();
    }

    void Get(uint64_t room, bool drain)
    {
        const NxDRPPStatistics before = m_stage.Statistics();
        std::vector<uint8_t> out;
        const NxDRPPErrorCode code = m_stage.Get(out, room, drain);
        if (code == NXDRPP_NOT_REACHED_MIN_FILL_LEVEL) {
            FUZZ_CHECK(!drain && out.empty() && !m_closingHeld && before.numOfFramesInOutputQueue < m_fill);
        } else {
            FUZZ_CHECK(code == NXDRPP_NO_ERROR);
            FUZZ_CHECK(drain || m_closingHeld || m_endedWithoutClosing || before.numOfFramesInOutputQueue >= m_fill);
        }
        FUZZ_CHECK(out.size() <= room);
        bool whole = false;
        for (const RecordView& record : SplitRecords(out.data(), out.size(), &whole)) {
            ++m_givenOut;
            if (record.closing) {
                // It leaves last: nothing of its stream may follow it.
                FUZZ_CHECK(m_closingHeld && m_streams.size() > 1);
                m_closingHeld = false;
                m_streams.pop_front();
                m_lastTime = 0;
                continue;
            }
            Given& stream = m_streams.front();
            FUZZ_CHECK(TakeOne(stream.records, WithoutTime(record)));
            FUZZ_CHECK(TakeOne(stream.times, record.time));
            FUZZ_CHECK(!stream.ordered || record.time >= m_lastTime);
            m_lastTime = record.time;
        }
        FUZZ_CHECK(whole);
        if (room >= kRoomEnough && code == NXDRPP_NO_ERROR)
            m_endedWithoutClosing = false;
        Check();
    }

    void Flush()
    {
        FUZZ_CHECK(NxDRPP_FlushBuffers(m_stage.handle) == NXDRPP_NO_ERROR);
        m_streams.clear();
        m_streams.emplace_back();
        m_closingHeld = m_endedWithoutClosing = false;
        m_lastTime = 0;
        const NxDRPPStatistics s = m_stage.Statistics();
        FUZZ_CHECK(s.numOfFramesInOutputQueue == 0 && s.numOfBytesInOutputQueue == 0);
        Check();
    }

private:
    // The records a call took: by contract whole, valid and back to back.
    void Register(const uint8_t* data, uint64_t consumed)
    {
        bool whole = false;
        for (const RecordView& record : SplitRecords(data, consumed, &whole)) {
            ++m_taken;
            m_lastWasClosing = record.closing;
            if (record.closing) {
                FUZZ_CHECK(!m_closingHeld);
                m_closingHeld = true;
                m_streams.emplace_back();
                continue;
            }
            Given& stream = m_streams.back();
            ++stream.records[WithoutTime(record)];
            ++stream.times[record.time];
            stream.ordered = stream.ordered && record.time >= stream.newest;
            stream.newest = std::max(stream.newest, record.time);
        }
        FUZZ_CHECK(whole);
    }

    void Check() const
    {
        const NxDRPPStatistics s = m_stage.Statistics();
        FUZZ_CHECK(s.numOfFramesInOutputQueue <= m_depth + 1);
        FUZZ_CHECK(s.numOfTotalFrames == m_taken);
        FUZZ_CHECK(s.numOfProcessedFrames == m_givenOut);
        FUZZ_CHECK(s.numOfProcessedFrames + s.numOfFramesInOutputQueue <= s.numOfTotalFrames);
        FUZZ_CHECK(s.numOfFramesReadyToRead <= s.numOfFramesInOutputQueue);
        FUZZ_CHECK(s.numOfBytesInOutputQueue <= s.numOfFramesInOutputQueue * uint64_t(NXDRPP_RECORD_SIZE(65535u)));
    }

    StageHandle m_stage;
    const uint64_t m_fill, m_depth;
    std::deque<Given> m_streams;  // front: the stream being given out; back: the one being taken
    bool m_closingHeld = false;
    bool m_endedWithoutClosing = false;
    bool m_lastWasClosing = false;
    uint64_t m_lastTime = 0;
    uint64_t m_taken = 0, m_givenOut = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const NxDRPPProtocolType kProtocols[] = {NXDRPP_GENERIC, NXDRPP_UDP, NXDRPP_SOMEIP, NXDRPP_TCP};
    Reader in(data, size);
    const NxDRPPProtocolType protocol = kProtocols[in.Byte() % 4];
    const uint64_t fill = 1 + in.Byte() % 16;
    const uint64_t depth = fill + 1 + in.Byte() % 48;
    Harness harness(protocol, fill, depth);
    uint64_t time = 1000000;
    while (!in.Empty()) {
        const uint8_t op = in.Byte();
        switch (op % 16) {
        case 10:
        case 11:
            harness.Get(in.Byte() * 64u + 56u, false);
            break;
        case 12:
            harness.Get(kRoomEnough, true);
            break;
        case 13: {
            std::vector<uint8_t> block;
            AppendClosing(block);
            harness.Insert(block, (op & 0x10) != 0);
            break;
        }
        case 14: {
            size_t n = in.Word();
            const uint8_t* raw = in.Take(&n);
            harness.Insert(std::vector<uint8_t>(raw, raw + n), (op & 0x10) != 0);
            break;
        }
        case 15:
            if (op == 0xFF)
                harness.Flush();
            else
                harness.Get(kRoomEnough, false);
            break;
        default: {
            size_t n = in.Word();
            time += static_cast<int16_t>(in.Word());
            const uint8_t* frame = in.Take(&n);
            std::vector<uint8_t> block;
            AppendRecord(block, frame, static_cast<uint32_t>(n), time);
            harness.Insert(block, false);
        }
        }
    }
    return 0;
}
