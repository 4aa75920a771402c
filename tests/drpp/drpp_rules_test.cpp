// The pre-processing library's codes, fill level, depth and order, through
// its C interface. Reassembly is checked against tshark (reassembly_test.py).
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>

#include "DrppRecords.h"

using namespace drpp_test;

namespace {

// A frame that says which one it is.
std::vector<uint8_t> Frame(uint32_t id, uint32_t length = 60)
{
    std::vector<uint8_t> frame(length, 0xA5);
    std::memcpy(frame.data(), &id, sizeof id);
    return frame;
}

std::vector<uint8_t> Record(uint32_t id, uint64_t time, uint32_t length = 60)
{
    std::vector<uint8_t> block;
    AppendRecord(block, Frame(id, length).data(), length, time);
    return block;
}

std::vector<uint8_t> Closing()
{
    std::vector<uint8_t> block;
    AppendClosing(block);
    return block;
}

std::vector<uint8_t> operator+(std::vector<uint8_t> a, const std::vector<uint8_t>& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

uint32_t IdOf(const RecordView& record)
{
    uint32_t id;
    std::memcpy(&id, record.bytes + NXDRPP_RECORD_FRAME_OFFSET, sizeof id);
    return id;
}

// "t1 t2 c" for the records of a block: ids, and c for a closing record.
std::string Ids(const std::vector<uint8_t>& block)
{
    std::string text;
    for (const RecordView& record : SplitRecords(block.data(), block.size()))
        text += (text.empty() ? "" : " ") + (record.closing ? std::string("c") : std::to_string(IdOf(record)));
    return text;
}

// The figures in their order, and last the records dropped.
std::vector<uint64_t> Figures(const NxDRPPStatistics& s)
{
    return {s.numOfTotalFrames,         s.numOfProcessedFrames,    s.numOfProcessedBytes,
            s.numOfFramesInOutputQueue, s.numOfBytesInOutputQueue, s.numOfFramesReadyToRead,
            s.numOfTotalFrames - s.numOfProcessedFrames - s.numOfFramesInOutputQueue};
}

}  // namespace

TEST(DrppCreate, CodesForArguments)
{
    const auto invalidProtocol = static_cast<NxDRPPProtocolType>(99);
    const struct {
        uint64_t fill, depth;
        NxDRPPProtocolType protocol;
        NxDRPPErrorCode code;
    } cases[] = {
        {10, 1000, NXDRPP_GENERIC, NXDRPP_NO_ERROR},
        {10, 1000, NXDRPP_UDP, NXDRPP_NO_ERROR},
        {10, 1000, NXDRPP_SOMEIP, NXDRPP_NO_ERROR},
        {10, 1000, NXDRPP_TCP, NXDRPP_NO_ERROR},
        {1, 2, NXDRPP_GENERIC, NXDRPP_NO_ERROR},
        {1, NXDRPP_MAX_BUFFER_DEPTH, NXDRPP_UDP, NXDRPP_NO_ERROR},
        {10, 1000, NXDRPP_UNDEFINED_PROTOCOL, NXDRPP_NOT_SUPPORTED_PROTOCOL},
        {10, 1000, invalidProtocol, NXDRPP_NOT_SUPPORTED_PROTOCOL},
        {0, 0, invalidProtocol, NXDRPP_NOT_SUPPORTED_PROTOCOL},
        {0, 1000, NXDRPP_GENERIC, NXDRPP_INVALID_MIN_FILL_LEVEL},
        {1001, 1000, NXDRPP_GENERIC, NXDRPP_INVALID_MIN_FILL_LEVEL},
        {1000, 1000, NXDRPP_GENERIC, NXDRPP_MIN_FILL_LEVEL_EQUAL_MAX_BUFFER_DEPTH},
        {10, 0, NXDRPP_GENERIC, NXDRPP_INVALID_MAX_BUFFER_DEPTH},
        {0, 0, NXDRPP_GENERIC, NXDRPP_INVALID_MAX_BUFFER_DEPTH},
        {10, uint64_t(NXDRPP_MAX_BUFFER_DEPTH) + 1, NXDRPP_GENERIC, NXDRPP_INVALID_MAX_BUFFER_DEPTH},
        {10, UINT64_MAX, NXDRPP_GENERIC, NXDRPP_INVALID_MAX_BUFFER_DEPTH},
    };
    for (const auto& c : cases) {
        StageHandle stage(c.fill, c.depth, c.protocol);
        EXPECT_EQ(stage.code, c.code) << c.fill << "/" << c.depth << " protocol " << c.protocol;
        EXPECT_EQ(stage.handle == nullptr, c.code != NXDRPP_NO_ERROR);
    }
    EXPECT_EQ(NxDRPP_CreateHandle(nullptr, 10, 1000, NXDRPP_GENERIC), NXDRPP_NULL_POINTER_ERROR);
}

TEST(DrppCalls, NullPointersAreRefused)
{
    StageHandle stage(10, 1000, NXDRPP_GENERIC);
    std::vector<uint8_t> block = Record(1, 1);
    uint8_t buffer[64];
    uint64_t n = 0;
    bool end = false;
    NxDRPPStatistics statistics;
    NxDRPPHandle none = nullptr;
    const std::function<NxDRPPErrorCode()> calls[] = {
        [&] { return NxDRPP_InsertFrames(nullptr, block.data(), block.size(), &end, &n); },
        [&] { return NxDRPP_InsertFrames(stage.handle, nullptr, block.size(), &end, &n); },
        [&] { return NxDRPP_InsertFrames(stage.handle, block.data(), block.size(), nullptr, &n); },
        [&] { return NxDRPP_InsertFrames(stage.handle, block.data(), block.size(), &end, nullptr); },
        [&] { return NxDRPP_GetFrames(nullptr, buffer, sizeof buffer, false, &n); },
        [&] { return NxDRPP_GetFrames(stage.handle, nullptr, sizeof buffer, false, &n); },
        [&] { return NxDRPP_GetFrames(stage.handle, buffer, sizeof buffer, false, nullptr); },
        [&] { return NxDRPP_GetStatistics(nullptr, &statistics); },
        [&] { return NxDRPP_GetStatistics(stage.handle, nullptr); },
        [&] { return NxDRPP_FlushBuffers(nullptr); },
        [&] { return NxDRPP_DestroyHandle(nullptr); },
        [&] { return NxDRPP_DestroyHandle(&none); },
    };
    for (size_t i = 0; i < std::size(calls); ++i)
        EXPECT_EQ(calls[i](), NXDRPP_NULL_POINTER_ERROR) << "call " << i;
    EXPECT_EQ(stage.Statistics().numOfTotalFrames, 0u);
}

// A block of two good records, the second spoilt: the first is taken, the
// answer names what is wrong with the second.
TEST(DrppRecords, BrokenRecordsAreRefusedAtTheirStart)
{
    const std::vector<uint8_t> first = Record(1, 1, 60);
    const uint32_t second = static_cast<uint32_t>(first.size());
    const struct {
        const char* what;
        std::function<void(std::vector<uint8_t>&)> spoil;
        NxDRPPErrorCode code;
    } cases[] = {
        {"intact", [](std::vector<uint8_t>&) {}, NXDRPP_NO_ERROR},
        {"wrong mark", [&](std::vector<uint8_t>& b) { b[second] ^= 0x10; }, NXDRPP_CORRUPTED_DATA},
        {"mark with other bits", [&](std::vector<uint8_t>& b) { b[second] |= 0x02; }, NXDRPP_CORRUPTED_DATA},
        {"size 8 too small", [&](std::vector<uint8_t>& b) { b[second + 12] -= 8; }, NXDRPP_CORRUPTED_DATA},
        {"size 8 too big", [&](std::vector<uint8_t>& b) { b[second + 12] += 8; }, NXDRPP_CORRUPTED_DATA},
        {"length against size", [&](std::vector<uint8_t>& b) { b[second + 36] += 9; }, NXDRPP_CORRUPTED_DATA},
        {"length over 65535",
         [&](std::vector<uint8_t>& b) {
             const uint32_t length = 65536, size = NXDRPP_RECORD_SIZE(65536u);
             std::memcpy(&b[second + 36], &length, 4);
             std::memcpy(&b[second + 12], &size, 4);
         },
         NXDRPP_CORRUPTED_DATA},
        {"closing with a frame", [&](std::vector<uint8_t>& b) { b[second] |= 0x01; }, NXDRPP_CORRUPTED_DATA},
        {"cut by a byte", [](std::vector<uint8_t>& b) { b.pop_back(); }, NXDRPP_INCOMPLETE_FRAME},
        {"cut in the head", [&](std::vector<uint8_t>& b) { b.resize(second + 20); }, NXDRPP_INCOMPLETE_FRAME},
        {"cut in the mark", [&](std::vector<uint8_t>& b) { b.resize(second + 3); }, NXDRPP_INCOMPLETE_FRAME},
    };
    for (const auto& c : cases) {
        StageHandle stage(1, 10, NXDRPP_UDP);
        std::vector<uint8_t> block = first + Record(2, 2, 60);
        c.spoil(block);
        uint64_t consumed = 0;
        EXPECT_EQ(stage.Insert(block, &consumed), c.code) << c.what;
        EXPECT_EQ(consumed, c.code == NXDRPP_NO_ERROR ? block.size() : second) << c.what;
        EXPECT_EQ(stage.Statistics().numOfTotalFrames, c.code == NXDRPP_NO_ERROR ? 2u : 1u) << c.what;
    }
}

// Fill level 3, depth 5: a script of calls and what each answers.
TEST(DrppWindow, FillLevelDepthAndClosingRecord)
{
    enum Action { Insert, InsertClosing, Get };
    const struct {
        Action action;
        uint32_t id;  // inserted id and time
        NxDRPPErrorCode code;
        const char* out;  // what Get gives
    } script[] = {
        {Insert, 1, NXDRPP_NO_ERROR, ""},
        {Insert, 2, NXDRPP_NO_ERROR, ""},
        {Get, 0, NXDRPP_NOT_REACHED_MIN_FILL_LEVEL, ""},
        {Insert, 3, NXDRPP_NO_ERROR, ""},
        {Get, 0, NXDRPP_NO_ERROR, "1"},
        {Get, 0, NXDRPP_NOT_REACHED_MIN_FILL_LEVEL, ""},
        {Insert, 4, NXDRPP_NO_ERROR, ""},
        {Insert, 5, NXDRPP_NO_ERROR, ""},
        {Insert, 6, NXDRPP_NO_ERROR, ""},
        {Insert, 7, NXDRPP_BUFFER_FULL, ""},  // holds 5: three released, two in the window
        {Get, 0, NXDRPP_NO_ERROR, "2 3 4"},
        {Insert, 7, NXDRPP_NO_ERROR, ""},
        {Insert, 8, NXDRPP_NO_ERROR, ""},
        {Insert, 9, NXDRPP_NO_ERROR, ""},
        {InsertClosing, 0, NXDRPP_NO_ERROR, ""},  // at the depth, still taken
        {Insert, 20, NXDRPP_BUFFER_FULL, ""},
        {InsertClosing, 0, NXDRPP_BUFFER_FULL, ""},  // one closing record at a time
        {Get, 0, NXDRPP_NO_ERROR, "5 6 7 8 9 c"},
        {Insert, 20, NXDRPP_NO_ERROR, ""},  // a new stream
        {Get, 0, NXDRPP_NOT_REACHED_MIN_FILL_LEVEL, ""},
        {InsertClosing, 0, NXDRPP_NO_ERROR, ""},
        {Get, 0, NXDRPP_NO_ERROR, "20 c"},
        {Get, 0, NXDRPP_NOT_REACHED_MIN_FILL_LEVEL, ""},
    };
    StageHandle stage(3, 5, NXDRPP_GENERIC);
    for (size_t step = 0; step < std::size(script); ++step) {
        const auto& s = script[step];
        std::vector<uint8_t> out;
        uint64_t consumed = 99;
        NxDRPPErrorCode code;
        if (s.action == Get)
            code = stage.Get(out);
        else
            code = stage.Insert(s.action == Insert ? Record(s.id, s.id) : Closing(), &consumed);
        EXPECT_EQ(code, s.code) << "step " << step;
        EXPECT_EQ(Ids(out), s.out) << "step " << step;
        if (s.action != Get) {
            EXPECT_EQ(consumed, code == NXDRPP_NO_ERROR ? (s.action == Insert ? 112u : 56u) : 0u) << "step " << step;
        }
    }
    EXPECT_EQ(Figures(stage.Statistics()), (std::vector<uint64_t>{12, 12, 10 * 112 + 2 * 56, 0, 0, 0, 0}));
}

// Times in, times out; ids are the arrival order.
TEST(DrppWindow, RecordsLeaveInTimestampOrderWithinTheWindow)
{
    const struct {
        uint32_t fill;
        std::vector<uint64_t> times;
        const char* out;  // ids (1-based arrival) in the order they leave
    } cases[] = {
        {4, {3, 1, 2, 5, 4, 6}, "2 3 1 5 4 6 c"},
        {4, {1, 2, 3, 4, 5, 6}, "1 2 3 4 5 6 c"},
        {2, {5, 6, 1, 7}, "1 3 2 4 c"},            // 1 comes too late to go first, and is not lost
        {3, {7, 7, 5, 7, 8}, "3 1 2 4 5 c"},        // equal times keep their order of arrival
        {1, {9, 3, 4, 1}, "1 2 3 4 c"},             // fill level 1: no window at all
        {10, {4, 3, 2, 1}, "4 3 2 1 c"},            // a stream shorter than the window
    };
    for (const auto& c : cases) {
        StageHandle stage(c.fill, 100, NXDRPP_GENERIC);
        std::vector<uint8_t> out;
        for (size_t i = 0; i < c.times.size(); ++i) {
            ASSERT_EQ(stage.Insert(Record(static_cast<uint32_t>(i + 1), c.times[i])), NXDRPP_NO_ERROR);
            stage.Get(out);
        }
        ASSERT_EQ(stage.Insert(Closing(), nullptr, true), NXDRPP_NO_ERROR);
        stage.Get(out);
        // Give-out order by id; every record as it went in, time included.
        EXPECT_EQ(Ids(out), c.out) << "fill " << c.fill;
        for (const RecordView& record : SplitRecords(out.data(), out.size())) {
            if (!record.closing)
                EXPECT_EQ(std::vector<uint8_t>(record.bytes, record.bytes + record.size),
                          Record(IdOf(record), c.times[IdOf(record) - 1]));
        }
    }
}

TEST(DrppWindow, EndOfStreamDrainAndRoom)
{
    // The flag ends the stream without a closing record: all leaves, none
    // is made up. A drain does not wait for the fill level either.
    for (const bool drain : {false, true}) {
        StageHandle stage(10, 100, NXDRPP_GENERIC);
        ASSERT_EQ(stage.Insert(Record(1, 2) + Record(2, 1), nullptr, !drain), NXDRPP_NO_ERROR);
        std::vector<uint8_t> out;
        EXPECT_EQ(stage.Get(out, 1 << 20, drain), NXDRPP_NO_ERROR);
        EXPECT_EQ(Ids(out), "2 1") << "drain " << drain;
    }
    // Whole records only: a record that does not fit waits.
    StageHandle stage(1, 100, NXDRPP_GENERIC);
    stage.Insert(Record(1, 1, 100));  // 152 bytes
    stage.Insert(Record(2, 2, 100));
    std::vector<uint8_t> out;
    EXPECT_EQ(stage.Get(out, 151), NXDRPP_NO_ERROR);
    EXPECT_EQ(out.size(), 0u);
    EXPECT_EQ(stage.Statistics().numOfFramesReadyToRead, 2u);
    EXPECT_EQ(stage.Get(out, 303), NXDRPP_NO_ERROR);
    EXPECT_EQ(Ids(out), "1");
    EXPECT_EQ(stage.Get(out), NXDRPP_NO_ERROR);
    EXPECT_EQ(Ids(out), "1 2");
}

TEST(DrppStatistics, EveryRecordIsHeldGivenOutOrDropped)
{
    StageHandle stage(4, 100, NXDRPP_GENERIC);
    for (uint32_t id = 1; id <= 6; ++id) stage.Insert(Record(id, id));
    std::vector<uint8_t> out;
    stage.Get(out);
    EXPECT_EQ(Figures(stage.Statistics()), (std::vector<uint64_t>{6, 3, out.size(), 3, 3 * 112, 0, 0}));
    stage.Insert(Record(7, 7));
    EXPECT_EQ(stage.Statistics().numOfFramesReadyToRead, 1u);
    ASSERT_EQ(NxDRPP_FlushBuffers(stage.handle), NXDRPP_NO_ERROR);
    const std::vector<uint64_t> flushed = Figures(stage.Statistics());
    EXPECT_EQ(std::vector<uint64_t>(flushed.begin() + 3, flushed.end()), (std::vector<uint64_t>{0, 0, 0, 4}));
    EXPECT_EQ(stage.Get(out), NXDRPP_NOT_REACHED_MIN_FILL_LEVEL);
}
