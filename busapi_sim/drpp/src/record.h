// The record as bytes: reading its head and telling whether it is whole.
#pragma once

#include <cstdint>
#include <cstring>

#include "NxDRPreProcessing.h"

namespace nxdrpp {

constexpr uint32_t kSizeOffset = offsetof(NxDRPPRecord, tHeader.ulSize);
constexpr uint32_t kTimestampOffset = offsetof(NxDRPPRecord, tHeader.ui64Timestamp);
constexpr uint32_t kFrameTypeOffset = offsetof(NxDRPPRecord, tMsgHeader.tFrameType);
constexpr uint32_t kFrameLengthOffset = offsetof(NxDRPPRecord, tMsgHeader.ulRawDataLength);

inline uint32_t ReadLe32(const uint8_t* p)
{
    uint32_t v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

inline uint64_t ReadLe64(const uint8_t* p)
{
    uint64_t v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

inline void WriteLe64(uint8_t* p, uint64_t v) { std::memcpy(p, &v, sizeof v); }

struct RecordCheck {
    NxDRPPErrorCode code;
    uint32_t size;
    bool closing;
};

// Checks the record at the start of `remaining` offered bytes.
inline RecordCheck CheckRecord(const uint8_t* p, uint64_t remaining)
{
    if (remaining < 4)
        return {NXDRPP_INCOMPLETE_FRAME, 0, false};
    const uint32_t mark = ReadLe32(p);
    if (mark != NXDRPP_RECORD_MARK && mark != NXDRPP_RECORD_MARK_CLOSING)
        return {NXDRPP_CORRUPTED_DATA, 0, false};
    if (remaining < NXDRPP_RECORD_HEAD_SIZE)
        return {NXDRPP_INCOMPLETE_FRAME, 0, false};
    const bool closing = mark == NXDRPP_RECORD_MARK_CLOSING;
    const uint32_t size = ReadLe32(p + kSizeOffset);
    const uint32_t length = ReadLe32(p + kFrameLengthOffset);
    if (length > NXDRPP_MAX_FRAME_LENGTH || size != NXDRPP_RECORD_SIZE(length) || (closing && length != 0))
        return {NXDRPP_CORRUPTED_DATA, 0, false};
    if (size > remaining)
        return {NXDRPP_INCOMPLETE_FRAME, 0, false};
    return {NXDRPP_NO_ERROR, size, closing};
}

}  // namespace nxdrpp
