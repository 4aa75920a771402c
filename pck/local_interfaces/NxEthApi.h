// The binding to the Ethernet bus access library: the records that cross
// into it, byte for byte, the table of its 24 operations, and the loading of
// the table.
//
// The library is loaded from a fixed path, through the binding that all
// closed libraries share (NxLibraryBinding.h). Unlike the CAN library, a
// missing file is a normal state here: the load says so without an error.
#ifndef NX_ETH_API_H
#define NX_ETH_API_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>

#include "NxLibraryBinding.h"
#include "NxReplayRecords.h"

typedef std::int32_t NXTEthError;   // 0 success, -1 provider-specific, else a code
typedef std::int32_t NXTEthHandle;  // -1: no interface

const NXTEthHandle NXETH_INVALID_HANDLE = -1;

enum NXEEthInterfacesSearchAttributeType : std::int32_t { NXETH_SEARCH_ARRTIBUTE_TYPE_IP_V4_ADDRESS = 1 };

enum NXEEthFrameType : std::int32_t {
    NXETH_FRAME_TYPE_ETHERNET_FRAME = 1,              // the last 4 bytes are the frame check sequence
    NXETH_FRAME_TYPE_LOOPBACK_FRAME = 2,
    NXETH_FRAME_TYPE_ETHERNET_FRAME_WITHOUT_FCS = 3   // every byte is frame data
};

enum NXEEthReplayStartOptions : std::int32_t {
    NXETH_REPLAY_OPTION_NONE = 0,
    NXETH_REPLAY_OPTION_FORCE_APPLY = 1,
    NXETH_REPLAY_OPTION_APPLY_OFFSET_ONLY = 2
};

enum NXEEthReplayState : std::int32_t {
    NXETH_REPLAY_STATE_UNKNOWN = 0,
    NXETH_REPLAY_STATE_SCHEDULED = 1,
    NXETH_REPLAY_STATE_STARTED = 2,
    NXETH_REPLAY_STATE_STOP = 3,
    NXETH_REPLAY_STATE_END = 4,
    NXETH_REPLAY_STATE_FLUSH = 5,
    NXETH_REPLAY_STATE_INVALID = 255
};

const std::uint32_t NXETH_CAPABILITY_HIGH_SPEED = 0x100;  // ulInterfaceCapabilities
const std::uint32_t NXETH_FCS_SIZE = 4;                   // bytes of a frame check sequence

struct NXSEthInterfaceInfo {
    char szAccessProviderName[256];
    char szInterfaceName[256];
    char szInterfaceSerialNumber[256];  // may be empty
    char szInterfaceIdentifier[256];    // the key by which an interface is selected
    std::uint8_t ucInterfaceMacAddress[6];
    std::uint32_t ulInterfaceCapabilities;
};

struct NXSEthInterfacesSearchAttribute {
    NXEEthInterfacesSearchAttributeType tSearchAttributeType;
    char szSearchAttribute[256];
};

struct NXSEthRawFrameHeader {
    NXEEthFrameType tFrameType;
    std::uint32_t ulFlags;
    std::uint64_t ui64Timestamp;            // ticks
    std::uint64_t ui64ControllerTimestamp;  // ticks
    std::uint32_t ulRawDataLength;          // frame bytes in the stream
    std::uint32_t reserved;
};

// One frame of a block of raw frames. In a block the frame's bytes begin at
// tRawData and run on past this structure; the next frame follows after
// 32 + ulRawDataLength bytes.
struct NXSEthRawFrame {
    NXSEthRawFrameHeader tHeader;
    std::uint8_t tRawData[8];
};

typedef NxReplayHeader NXSEthReplayHeader;  // the record mark in reserved1, bit 0 on the closing record

struct NXSEthReplayFrameHeader {
    NXEEthFrameType tFrameType;
    std::uint32_t ulRawDataLength;
    std::uint32_t ulFlags;
    std::uint32_t reserved;
};

// The head of one record of a replay stream; the frame starts at
// ui64StartOfFrameData and runs on past the end of this structure.
struct NXSEthReplayData {
    NXSEthReplayHeader tHeader;
    NXSEthReplayFrameHeader tMsgHeader;
    std::uint64_t ui64StartOfFrameData;
};

typedef NxReplayStatus<NXEEthReplayState> NXSEthReplayStatusInfo;

static_assert(sizeof(NXSEthInterfaceInfo) == 1036, "NXSEthInterfaceInfo layout");
static_assert(offsetof(NXSEthInterfaceInfo, szInterfaceName) == 256, "NXSEthInterfaceInfo layout");
static_assert(offsetof(NXSEthInterfaceInfo, szInterfaceSerialNumber) == 512, "NXSEthInterfaceInfo layout");
static_assert(offsetof(NXSEthInterfaceInfo, szInterfaceIdentifier) == 768, "NXSEthInterfaceInfo layout");
static_assert(offsetof(NXSEthInterfaceInfo, ucInterfaceMacAddress) == 1024, "NXSEthInterfaceInfo layout");
static_assert(offsetof(NXSEthInterfaceInfo, ulInterfaceCapabilities) == 1032, "NXSEthInterfaceInfo layout");

static_assert(sizeof(NXSEthInterfacesSearchAttribute) == 260, "NXSEthInterfacesSearchAttribute layout");
static_assert(offsetof(NXSEthInterfacesSearchAttribute, szSearchAttribute) == 4, "NXSEthInterfacesSearchAttribute layout");

static_assert(sizeof(NXSEthRawFrameHeader) == 32, "NXSEthRawFrameHeader layout");
static_assert(offsetof(NXSEthRawFrameHeader, ulFlags) == 4, "NXSEthRawFrameHeader layout");
static_assert(offsetof(NXSEthRawFrameHeader, ui64Timestamp) == 8, "NXSEthRawFrameHeader layout");
static_assert(offsetof(NXSEthRawFrameHeader, ui64ControllerTimestamp) == 16, "NXSEthRawFrameHeader layout");
static_assert(offsetof(NXSEthRawFrameHeader, ulRawDataLength) == 24, "NXSEthRawFrameHeader layout");
static_assert(offsetof(NXSEthRawFrameHeader, reserved) == 28, "NXSEthRawFrameHeader layout");

static_assert(sizeof(NXSEthRawFrame) == 40, "NXSEthRawFrame layout");
static_assert(offsetof(NXSEthRawFrame, tRawData) == 32, "NXSEthRawFrame layout");

static_assert(sizeof(NXSEthReplayFrameHeader) == 16, "NXSEthReplayFrameHeader layout");
static_assert(offsetof(NXSEthReplayFrameHeader, ulRawDataLength) == 4, "NXSEthReplayFrameHeader layout");
static_assert(offsetof(NXSEthReplayFrameHeader, ulFlags) == 8, "NXSEthReplayFrameHeader layout");
static_assert(offsetof(NXSEthReplayFrameHeader, reserved) == 12, "NXSEthReplayFrameHeader layout");

static_assert(sizeof(NXSEthReplayData) == 56, "NXSEthReplayData layout");
static_assert(offsetof(NXSEthReplayData, tMsgHeader) == 32, "NXSEthReplayData layout");
static_assert(offsetof(NXSEthReplayData, ui64StartOfFrameData) == 48, "NXSEthReplayData layout");

static_assert(NxReplayStatusLayoutHolds<NXEEthReplayState>(), "NXSEthReplayStatusInfo layout");

// --- the operations --------------------------------------------------------------
typedef NXTEthError (*NXETHAPI_FUNC_PTR_GetAvailableInterfacesCount)(std::uint32_t* count, std::uint32_t attributeCount,
                                                                     NXSEthInterfacesSearchAttribute* attributes);
typedef NXTEthError (*NXETHAPI_FUNC_PTR_GetAvailableInterfaces)(std::uint32_t* count, NXSEthInterfaceInfo* interfaces,
                                                                std::uint32_t attributeCount,
                                                                NXSEthInterfacesSearchAttribute* attributes);
typedef NXTEthError (*NXETHAPI_FUNC_PTR_RegisterInterface)(char* provider, char* interfaceName, char* serial,
                                                           char* identifier, NXTEthHandle* handle);
typedef NXTEthError (*NXETHAPI_FUNC_PTR_UnregisterInterface)(NXTEthHandle handle);
typedef NXTEthError (*NXETHAPI_FUNC_PTR_GetInterfaceBufferSize)(NXTEthHandle handle, std::uint32_t* size);
typedef NXTEthError (*NXETHAPI_FUNC_PTR_IsInterfaceAccessible)(NXTEthHandle handle, bool* accessible);
typedef NXTEthError (*NXETHAPI_FUNC_PTR_InitInterface)(NXTEthHandle handle);
typedef NXTEthError (*NXETHAPI_FUNC_PTR_ActivateInterface)(NXTEthHandle handle);
typedef NXTEthError (*NXETHAPI_FUNC_PTR_DeactivateInterface)(NXTEthHandle handle);
typedef NXTEthError (*NXETHAPI_FUNC_PTR_GetTimeResolution)(NXTEthHandle handle, std::uint64_t* ticksPerSecond,
                                                           std::uint64_t* second);
typedef NXTEthError (*NXETHAPI_FUNC_PTR_GetTime)(NXTEthHandle handle, std::uint64_t* ticks, std::uint64_t* second);
typedef NXTEthError (*NXETHAPI_FUNC_PTR_ReadFrames)(NXTEthHandle handle, std::uint32_t bufferSize,
                                                    std::uint8_t* buffer, std::uint32_t* third);
typedef NXTEthError (*NXETHAPI_FUNC_PTR_FlushReceiveQueue)(NXTEthHandle handle);
typedef NXTEthError (*NXETHAPI_FUNC_PTR_TransmitFrames)(NXTEthHandle handle, std::uint32_t size, std::uint8_t* frames,
                                                        std::uint32_t* fourth);
typedef NXTEthError (*NXETHAPI_FUNC_PTR_FlushTransmitQueue)(NXTEthHandle handle);
typedef NXTEthError (*NXETHAPI_FUNC_PTR_GetErrorText)(NXTEthError error, char* text);
typedef NXTEthError (*NXETHAPI_FUNC_PTR_GetLastAccessProviderSpecificError)(NXTEthHandle handle, std::int32_t* code,
                                                                            char* text);
typedef NXTEthError (*NXETHAPI_FUNC_PTR_SetFilter)(NXTEthHandle handle, char* filter);
typedef NXTEthError (*NXETHAPI_FUNC_PTR_SetReplayStartTime)(NXTEthHandle handle, std::uint64_t startTime,
                                                            std::uint64_t offset, NXEEthReplayStartOptions options,
                                                            std::uint64_t reserved);
typedef NXTEthError (*NXETHAPI_FUNC_PTR_SetReplayStopTime)(NXTEthHandle handle, std::uint64_t stopTime);
typedef NXTEthError (*NXETHAPI_FUNC_PTR_ReplayStreamData)(NXTEthHandle handle, std::uint32_t* size,
                                                          std::uint8_t* data);
typedef NXTEthError (*NXETHAPI_FUNC_PTR_ReplayInitHeader)(NXSEthReplayData* record, bool endOfFile,
                                                          std::uint16_t frameLength, std::uint32_t* size);
typedef NXTEthError (*NXETHAPI_FUNC_PTR_GetReplayStateInfo)(NXTEthHandle handle, NXSEthReplayStatusInfo* info);
typedef NXTEthError (*NXETHAPI_FUNC_PTR_RegisterReplayInterface)(char* provider, char* interfaceName, char* serial,
                                                                 char* identifier, NXTEthHandle* handle,
                                                                 bool highSpeed, std::uint64_t reserved);

// The 24 operations in the order of resolution. X(name) is given the name
// without the "NXETH_" prefix of the exported symbol.
#define NXETH_API_OPERATIONS(X)              \
    X(GetAvailableInterfacesCount)           \
    X(GetAvailableInterfaces)                \
    X(RegisterInterface)                     \
    X(UnregisterInterface)                   \
    X(GetInterfaceBufferSize)                \
    X(IsInterfaceAccessible)                 \
    X(InitInterface)                         \
    X(ActivateInterface)                     \
    X(DeactivateInterface)                   \
    X(GetTimeResolution)                     \
    X(GetTime)                               \
    X(ReadFrames)                            \
    X(FlushReceiveQueue)                     \
    X(TransmitFrames)                        \
    X(FlushTransmitQueue)                    \
    X(GetErrorText)                          \
    X(GetLastAccessProviderSpecificError)    \
    X(SetFilter)                             \
    X(SetReplayStartTime)                    \
    X(SetReplayStopTime)                     \
    X(ReplayStreamData)                      \
    X(ReplayInitHeader)                      \
    X(GetReplayStateInfo)                    \
    X(RegisterReplayInterface)

#define NXETH_DECLARE_POINTER(name) extern NXETHAPI_FUNC_PTR_##name pfnEth##name;
NXETH_API_OPERATIONS(NXETH_DECLARE_POINTER)
#undef NXETH_DECLARE_POINTER

const std::size_t kNxEthApiOperationCount = 24;

extern const char* const kNxEthApiLibraryPath;

// The binding of the Ethernet library: its object, its lock and its count of
// wrappers. The library is pinned: once loaded it stays mapped.
NxLibraryBinding& EthLibrary();
extern std::unique_ptr<NxLibraryObject>& hNxEthApiDll;
// Raised by each Initialize of a wrapper, lowered by each destructor; the
// destructor that finds it at 1 clears the table.
extern std::uint32_t& uEthApiWrapperCount;

// All 24 pointers to null.
void InitEthFunctionPointers();
// 0 when the table is ready, 1 when not: no file at the fixed path, or a
// symbol that resolves to null. Errors of loading a file that is there, and
// of a missing symbol, are Boost's system_error and pass through.
int LoadEthLibrary();
// Clears the table if the library is loaded; the library stays mapped.
void UnloadEthLibrary();

#endif
