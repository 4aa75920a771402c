// The binding to the replay pre-processing library: its types and codes, the
// table of its 6 operations, and the loading of the table.
//
// A synchronised Ethernet replay passes every record through this stage
// (NxDRPP_InsertFrames) before the records that it gives back
// (NxDRPP_GetFrames) are streamed to the interface. The records are those of
// NXETH_ReplayInitHeader, in and out.
//
// The library is not at a fixed install path: it is found in the folder
// "bin" beside the code that runs, the package. Unlike the bus libraries it
// is not pinned: the last replay wrapper unloads it for real.
//
// These declarations are the package's own copy of the library's contract,
// as NxCanApi.h and NxEthApi.h are for the bus libraries.
#ifndef NX_DR_PRE_API_H
#define NX_DR_PRE_API_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "NxLibraryBinding.h"

typedef void* NxDRPPHandle;

enum NxDRPPProtocolType : std::int32_t {
    NXDRPP_UNDEFINED_PROTOCOL = 0,
    NXDRPP_SOMEIP = 1,
    NXDRPP_TCP = 2,
    NXDRPP_UDP = 3,
    NXDRPP_GENERIC = 4
};

enum NxDRPPErrorCode : std::int32_t {
    NXDRPP_NO_ERROR = 0,
    NXDRPP_NULL_POINTER_ERROR = 1,
    NXDRPP_NOT_SUPPORTED_PROTOCOL = 2,
    NXDRPP_INVALID_MIN_FILL_LEVEL = 3,
    NXDRPP_NOT_REACHED_MIN_FILL_LEVEL = 4,  // GetFrames: too little held to give out, not an error
    NXDRPP_INVALID_MAX_BUFFER_DEPTH = 5,
    NXDRPP_BUFFER_FULL = 6,                 // InsertFrames: nothing taken, try again later
    NXDRPP_MIN_FILL_LEVEL_EQUAL_MAX_BUFFER_DEPTH = 7,
    NXDRPP_CORRUPTED_DATA = 8,
    NXDRPP_INCOMPLETE_FRAME = 9
};

struct NxDRPPStatistics {
    std::uint64_t numOfTotalFrames;
    std::uint64_t numOfProcessedFrames;
    std::uint64_t numOfProcessedBytes;
    std::uint64_t numOfFramesInOutputQueue;
    std::uint64_t numOfBytesInOutputQueue;
    std::uint64_t numOfFramesReadyToRead;
};

static_assert(sizeof(NxDRPPStatistics) == 48, "NxDRPPStatistics layout");
static_assert(offsetof(NxDRPPStatistics, numOfFramesReadyToRead) == 40, "NxDRPPStatistics layout");
static_assert(sizeof(NxDRPPProtocolType) == 4 && sizeof(NxDRPPErrorCode) == 4, "32-bit enumerations");

// --- the operations --------------------------------------------------------------
// The typedefs and the table speak of initialising a stage, the symbols of
// creating a handle.
typedef NxDRPPErrorCode (*NXDRPP_FUN_PTR_PREPROCESSING_INITIALIZE)(NxDRPPHandle* handle, std::uint64_t minFillLevel,
                                                                    std::uint64_t maxBufferDepth,
                                                                    NxDRPPProtocolType protocol);
typedef NxDRPPErrorCode (*NXDRPP_FUN_PTR_PREPROCESSING_UNINITIALIZE)(NxDRPPHandle* handle);
typedef NxDRPPErrorCode (*NXDRPP_FUN_PTR_PREPROCESSING_INSERT_FRAMES)(NxDRPPHandle handle, std::uint8_t* data,
                                                                      std::uint64_t size, bool* endOfStream,
                                                                      std::uint64_t* consumed);
typedef NxDRPPErrorCode (*NXDRPP_FUN_PTR_PREPROCESSING_GET_FRAMES)(NxDRPPHandle handle, std::uint8_t* destination,
                                                                   std::uint64_t room, bool flag,
                                                                   std::uint64_t* written);
typedef NxDRPPErrorCode (*NXDRPP_FUN_PTR_PREPROCESSING_FLUSH)(NxDRPPHandle handle);
typedef NxDRPPErrorCode (*NXDRPP_FUN_PTR_PREPROCESSING_GET_STATISTICS)(NxDRPPHandle handle,
                                                                       NxDRPPStatistics* statistics);

// The 6 operations in the order of resolution: X(table name, typedef
// suffix, exported symbol).
#define NXDRPP_OPERATIONS(X)                                   \
    X(Initialize, INITIALIZE, NxDRPP_CreateHandle)             \
    X(Uninitialize, UNINITIALIZE, NxDRPP_DestroyHandle)        \
    X(InsertFrames, INSERT_FRAMES, NxDRPP_InsertFrames)        \
    X(GetFrames, GET_FRAMES, NxDRPP_GetFrames)                 \
    X(Flush, FLUSH, NxDRPP_FlushBuffers)                       \
    X(GetStatistics, GET_STATISTICS, NxDRPP_GetStatistics)

#define NXDRPP_DECLARE_POINTER(name, type, symbol) extern NXDRPP_FUN_PTR_PREPROCESSING_##type pfnPreprocessing##name;
NXDRPP_OPERATIONS(NXDRPP_DECLARE_POINTER)
#undef NXDRPP_DECLARE_POINTER

const std::size_t kNxDrPreOperationCount = 6;

// The binding of the pre-processing library: its object, its lock and its
// count of replay wrappers.
NxLibraryBinding& DrPreLibrary();
extern std::unique_ptr<NxLibraryObject>& hNxDrPreDll;
// Raised by each replay wrapper's Initialize, lowered by its destructor; the
// destructor that finds it at 1 destroys its handle and unloads.
extern std::uint32_t& uDrPreApiWrapperCount;

// Where the library is looked for: the folder of the running code (the
// package), "/", and "bin/libNxDRPreProcessing.so".
std::string DrPreLibraryPath();
// All 6 pointers to null.
void InitDrPreFunctionPointers();
// 0 when the table is ready, 1 when not: no file there, or a symbol that
// resolves to null. Errors of loading a file that is there, and of a missing
// symbol, are Boost's system_error and pass through.
int LoadDrPreLibrary();
// Unloads the library for real, if it is loaded, and clears the table.
void UnloadDrPreLibrary();

#endif
