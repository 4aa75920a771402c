// Replay records as the package makes them, and reading them back, for the
// pre-processing tests, its fuzz target and its benchmark.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "NxDRPreProcessing.h"

namespace drpp_test {

// Appends a record of `frame` (type 3, no check sequence) stamped `time`.
inline void AppendRecord(std::vector<uint8_t>& out, const uint8_t* frame, uint32_t length, uint64_t time)
{
    const size_t at = out.size();
    out.resize(at + NXDRPP_RECORD_SIZE(length));
    NxDRPPRecord head{};
    head.tHeader.reserved1 = NXDRPP_RECORD_MARK;
    head.tHeader.ulSize = NXDRPP_RECORD_SIZE(length);
    head.tHeader.ui64Timestamp = time;
    head.tMsgHeader.tFrameType = NXDRPP_FRAME_WITHOUT_FCS;
    head.tMsgHeader.ulRawDataLength = length;
    std::memcpy(out.data() + at, &head, NXDRPP_RECORD_FRAME_OFFSET);
    if (length > 0)
        std::memcpy(out.data() + at + NXDRPP_RECORD_FRAME_OFFSET, frame, length);
}

inline void AppendClosing(std::vector<uint8_t>& out)
{
    const size_t at = out.size();
    out.resize(at + NXDRPP_RECORD_HEAD_SIZE);
    NxDRPPRecord head{};
    head.tHeader.reserved1 = NXDRPP_RECORD_MARK_CLOSING;
    head.tHeader.ulSize = NXDRPP_RECORD_HEAD_SIZE;
    std::memcpy(out.data() + at, &head, sizeof head);
}

struct RecordView {
    const uint8_t* bytes;
    uint32_t size;
    uint64_t time;
    bool closing;
};

// The records of a block that the stage gave out (whole and valid by
// contract; a block that is not stops the split, and `whole` says so).
inline std::vector<RecordView> SplitRecords(const uint8_t* p, size_t n, bool* whole = nullptr)
{
    std::vector<RecordView> records;
    size_t at = 0;
    while (n - at >= NXDRPP_RECORD_HEAD_SIZE) {
        NxDRPPRecord head;
        std::memcpy(&head, p + at, sizeof head);
        const uint32_t mark = head.tHeader.reserved1;
        if ((mark != NXDRPP_RECORD_MARK && mark != NXDRPP_RECORD_MARK_CLOSING) ||
            head.tMsgHeader.ulRawDataLength > NXDRPP_MAX_FRAME_LENGTH ||
            head.tHeader.ulSize != NXDRPP_RECORD_SIZE(head.tMsgHeader.ulRawDataLength) || head.tHeader.ulSize > n - at)
            break;
        records.push_back({p + at, head.tHeader.ulSize, head.tHeader.ui64Timestamp, mark == NXDRPP_RECORD_MARK_CLOSING});
        at += head.tHeader.ulSize;
    }
    if (whole != nullptr)
        *whole = at == n;
    return records;
}

// One stage, destroyed with its scope.
class StageHandle {
public:
    StageHandle(uint64_t fillLevel, uint64_t depth, NxDRPPProtocolType protocol)
    {
        code = NxDRPP_CreateHandle(&handle, fillLevel, depth, protocol);
    }
    ~StageHandle()
    {
        if (handle != nullptr)
            NxDRPP_DestroyHandle(&handle);
    }
    StageHandle(const StageHandle&) = delete;
    StageHandle& operator=(const StageHandle&) = delete;

    NxDRPPErrorCode Insert(std::vector<uint8_t> block, uint64_t* consumed = nullptr, bool end = false)
    {
        uint64_t taken = 0;
        uint8_t nothing = 0;  // an empty block is still a block, not a null pointer
        uint8_t* data = block.empty() ? &nothing : block.data();
        const NxDRPPErrorCode result = NxDRPP_InsertFrames(handle, data, block.size(), &end, &taken);
        if (consumed != nullptr)
            *consumed = taken;
        return result;
    }
    // Gives out into `out`; the answer of the stage. The buffer behind
    // `room` is only as large as what the stage holds, which is all it can
    // write (a stage that wrote more would overrun it, to the sanitizers).
    NxDRPPErrorCode Get(std::vector<uint8_t>& out, uint64_t room = 1 << 21, bool drain = false)
    {
        std::vector<uint8_t> buffer(std::max<uint64_t>(1, std::min(room, Statistics().numOfBytesInOutputQueue)));
        uint64_t written = 0;
        const NxDRPPErrorCode result = NxDRPP_GetFrames(handle, buffer.data(), room, drain, &written);
        out.insert(out.end(), buffer.begin(), buffer.begin() + static_cast<ptrdiff_t>(written));
        return result;
    }
    NxDRPPStatistics Statistics() const
    {
        NxDRPPStatistics statistics{};
        NxDRPP_GetStatistics(handle, &statistics);
        return statistics;
    }

    NxDRPPHandle handle = nullptr;
    NxDRPPErrorCode code;
};

}  // namespace drpp_test
