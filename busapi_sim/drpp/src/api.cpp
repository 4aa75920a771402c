// The six exported operations: argument checks, then the stage. No
// exception leaves the library.
#include <new>

#include "NxDRPreProcessing.h"
#include "stage.h"

struct NxDRPPStage : nxdrpp::Stage {
    using Stage::Stage;
};

extern "C" {

NxDRPPErrorCode NxDRPP_CreateHandle(NxDRPPHandle* handle, uint64_t minFillLevel, uint64_t maxBufferDepth,
                                    NxDRPPProtocolType protocol)
{
    if (handle == nullptr)
        return NXDRPP_NULL_POINTER_ERROR;
    *handle = nullptr;
    if (protocol != NXDRPP_SOMEIP && protocol != NXDRPP_TCP && protocol != NXDRPP_UDP && protocol != NXDRPP_GENERIC)
        return NXDRPP_NOT_SUPPORTED_PROTOCOL;
    if (maxBufferDepth == 0 || maxBufferDepth > NXDRPP_MAX_BUFFER_DEPTH)
        return NXDRPP_INVALID_MAX_BUFFER_DEPTH;
    if (minFillLevel == maxBufferDepth)
        return NXDRPP_MIN_FILL_LEVEL_EQUAL_MAX_BUFFER_DEPTH;
    if (minFillLevel == 0 || minFillLevel > maxBufferDepth)
        return NXDRPP_INVALID_MIN_FILL_LEVEL;
    try {
        *handle = new NxDRPPStage(static_cast<uint32_t>(minFillLevel), static_cast<uint32_t>(maxBufferDepth), protocol);
    } catch (...) {
        return NXDRPP_INVALID_MAX_BUFFER_DEPTH;  // more than this machine can hold
    }
    return NXDRPP_NO_ERROR;
}

NxDRPPErrorCode NxDRPP_DestroyHandle(NxDRPPHandle* handle)
{
    if (handle == nullptr || *handle == nullptr)
        return NXDRPP_NULL_POINTER_ERROR;
    delete *handle;
    *handle = nullptr;
    return NXDRPP_NO_ERROR;
}

NxDRPPErrorCode NxDRPP_InsertFrames(NxDRPPHandle handle, uint8_t* data, uint64_t size, bool* endOfStream,
                                    uint64_t* consumed)
{
    if (handle == nullptr || data == nullptr || endOfStream == nullptr || consumed == nullptr)
        return NXDRPP_NULL_POINTER_ERROR;
    try {
        return handle->Insert(data, size, *endOfStream, consumed);
    } catch (...) {
        return NXDRPP_BUFFER_FULL;  // out of memory
    }
}

NxDRPPErrorCode NxDRPP_GetFrames(NxDRPPHandle handle, uint8_t* destination, uint64_t room, bool drain,
                                 uint64_t* written)
{
    if (handle == nullptr || destination == nullptr || written == nullptr)
        return NXDRPP_NULL_POINTER_ERROR;
    return handle->Get(destination, room, drain, written);
}

NxDRPPErrorCode NxDRPP_FlushBuffers(NxDRPPHandle handle)
{
    if (handle == nullptr)
        return NXDRPP_NULL_POINTER_ERROR;
    handle->Flush();
    return NXDRPP_NO_ERROR;
}

NxDRPPErrorCode NxDRPP_GetStatistics(NxDRPPHandle handle, NxDRPPStatistics* statistics)
{
    if (handle == nullptr || statistics == nullptr)
        return NXDRPP_NULL_POINTER_ERROR;
    *statistics = handle->Statistics();
    return NXDRPP_NO_ERROR;
}

}  // extern "C"
