// The binding to the CAN bus access library: the records that cross into it,
// byte for byte, the table of its 28 operations, and the loading of the table.
//
// The library is loaded at run time from a fixed path, through the binding
// that all closed libraries share (NxLibraryBinding.h): any other object that
// resolves the same 28 names can be put in its place through hNxCanApiDll.
#ifndef NX_CAN_API_H
#define NX_CAN_API_H

#include <pthread.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "NxLibraryBinding.h"
#include "NxReplayRecords.h"

typedef std::int32_t NXTCanError;   // 0 success, -1 vendor-specific, else a code
typedef std::int32_t NXTCanHandle;  // -1: no channel
typedef void* NXTEventHandle;
typedef void* HANDLE;

const NXTCanHandle NXCAN_INVALID_HANDLE = -1;

enum NXECanChannelsSearchAttributeType : std::int32_t { NXCAN_SEARCH_ARRTIBUTE_TYPE_IP_V4_ADDRESS = 1 };

enum NXECanBusStatus : std::int32_t {
    NXCAN_BUS_STATUS_UNKNOWN = 0,
    NXCAN_BUS_STATUS_ACTIVE = 1,
    NXCAN_BUS_STATUS_PASSIVE = 2,
    NXCAN_BUS_STATUS_WARNING = 3,
    NXCAN_BUS_STATUS_BUS_OFF = 4
};

enum NXECanMessageType : std::int32_t {
    NXCAN_MESSAGE_TYPE_DATA = 1,
    NXCAN_MESSAGE_TYPE_REMOTE = 2,
    NXCAN_MESSAGE_TYPE_ERROR = 3,
    NXCAN_MESSAGE_TYPE_BUS_INFO = 4,
    NXCAN_MESSAGE_TYPE_BUS_STATISTICS = 5
};

enum NXECanIdentifierType : std::int32_t {
    NXCAN_IDENTIFIER_TYPE_STD = 1,
    NXCAN_IDENTIFIER_TYPE_XTD = 2,
    NXCAN_IDENTIFIER_TYPE_STD_XTD = 3
};

enum NXECanReplayStartOptions : std::int32_t {
    NXCAN_REPLAY_OPTION_NONE = 0,
    NXCAN_REPLAY_OPTION_FORCE_APPLY = 1,
    NXCAN_REPLAY_OPTION_APPLY_OFFSET_ONLY = 2
};

enum NXECanReplayState : std::int32_t {
    NXCAN_REPLAY_STATE_UNKNOWN = 0,
    NXCAN_REPLAY_STATE_SCHEDULED = 1,
    NXCAN_REPLAY_STATE_STARTED = 2,
    NXCAN_REPLAY_STATE_STOP = 3,
    NXCAN_REPLAY_STATE_END = 4,
    NXCAN_REPLAY_STATE_FLUSH = 5,
    NXCAN_REPLAY_STATE_INVALID = 255
};

// Bits of NXSCanMessage::ulFlags and NXSCanReplayMsgHeader::ulFlags.
const std::uint32_t NXCAN_FLAG_FD = 0x1;             // transmit: FD format
const std::uint32_t NXCAN_FLAG_BRS = 0x2;            // transmit: bit rate switch
const std::uint32_t NXCAN_FLAG_RX_BRS = 0x200;       // receive: bit rate switch
const std::uint32_t NXCAN_CAPABILITY_HIGH_SPEED = 0x100;  // ulChannelCapabilities

struct NXSCanChannelInfo {
    char szVendorName[256];
    char szInterfaceName[256];  // "Virtual": no real hardware behind the channel
    char szInterfaceSerialNumber[256];
    char szChannelIdentifier[256];
    std::uint32_t ulChannelCapabilities;
};

struct NXSCanChannelsSearchAttribute {
    NXECanChannelsSearchAttributeType tSearchAttributeType;
    char szSearchAttribute[256];
};

struct NXSCanBitTimingParameters {
    std::uint32_t ulSJW;
    std::uint32_t ulBRP;
    std::uint32_t ulSAM;
    std::uint32_t ulTSEG1;
    std::uint32_t ulTSEG2;
};

struct NXSCanBusInfo {
    NXECanBusStatus tBusStatus;
    std::uint16_t usRxErrorCounter;
    std::uint16_t usTxErrorCounter;
    std::uint8_t ucBusLoad;
};

struct NXSCanMessage {
    NXECanMessageType tMessageType;
    std::uint64_t ui64Timestamp;  // hardware ticks
    std::uint32_t ulCanIdentifier;
    NXECanIdentifierType tCanIdentifierType;
    std::uint32_t ulFlags;
    std::uint16_t usDLC;  // the DLC code, 0 to 15
    std::uint8_t ucData[64];
    NXSCanBusInfo tBusInfo;
};

typedef NxReplayHeader NXSCanReplayHeader;

struct NXSCanReplayMsgHeader {
    NXECanMessageType tMessageType;
    std::uint32_t ulCustomVal;
    std::uint32_t ulCanId;
    NXECanIdentifierType tMsgFormat;
    std::uint32_t ulFlags;
    std::uint16_t usDLC;
    std::uint16_t reserved;
};

// The head of one record of a replay stream; the payload starts at
// ui64StartOfMsgData and runs on past the end of this structure.
struct NXSCanReplayData {
    NXSCanReplayHeader tHeader;
    NXSCanReplayMsgHeader tMsgHeader;
    std::uint64_t ui64StartOfMsgData;
};

typedef NxReplayStatus<NXECanReplayState> NXSCanReplayStatusInfo;

static_assert(sizeof(NXSCanChannelInfo) == 1028, "NXSCanChannelInfo layout");
static_assert(offsetof(NXSCanChannelInfo, szInterfaceName) == 256, "NXSCanChannelInfo layout");
static_assert(offsetof(NXSCanChannelInfo, szInterfaceSerialNumber) == 512, "NXSCanChannelInfo layout");
static_assert(offsetof(NXSCanChannelInfo, szChannelIdentifier) == 768, "NXSCanChannelInfo layout");
static_assert(offsetof(NXSCanChannelInfo, ulChannelCapabilities) == 1024, "NXSCanChannelInfo layout");

static_assert(sizeof(NXSCanChannelsSearchAttribute) == 260, "NXSCanChannelsSearchAttribute layout");
static_assert(offsetof(NXSCanChannelsSearchAttribute, szSearchAttribute) == 4, "NXSCanChannelsSearchAttribute layout");

static_assert(sizeof(NXSCanBitTimingParameters) == 20, "NXSCanBitTimingParameters layout");
static_assert(offsetof(NXSCanBitTimingParameters, ulTSEG2) == 16, "NXSCanBitTimingParameters layout");

static_assert(sizeof(NXSCanBusInfo) == 12, "NXSCanBusInfo layout");
static_assert(offsetof(NXSCanBusInfo, usRxErrorCounter) == 4, "NXSCanBusInfo layout");
static_assert(offsetof(NXSCanBusInfo, usTxErrorCounter) == 6, "NXSCanBusInfo layout");
static_assert(offsetof(NXSCanBusInfo, ucBusLoad) == 8, "NXSCanBusInfo layout");

static_assert(sizeof(NXSCanMessage) == 112, "NXSCanMessage layout");
static_assert(offsetof(NXSCanMessage, ui64Timestamp) == 8, "NXSCanMessage layout");
static_assert(offsetof(NXSCanMessage, ulCanIdentifier) == 16, "NXSCanMessage layout");
static_assert(offsetof(NXSCanMessage, tCanIdentifierType) == 20, "NXSCanMessage layout");
static_assert(offsetof(NXSCanMessage, ulFlags) == 24, "NXSCanMessage layout");
static_assert(offsetof(NXSCanMessage, usDLC) == 28, "NXSCanMessage layout");
static_assert(offsetof(NXSCanMessage, ucData) == 30, "NXSCanMessage layout");
static_assert(offsetof(NXSCanMessage, tBusInfo) == 96, "NXSCanMessage layout");

static_assert(sizeof(NXSCanReplayMsgHeader) == 24, "NXSCanReplayMsgHeader layout");
static_assert(offsetof(NXSCanReplayMsgHeader, ulCustomVal) == 4, "NXSCanReplayMsgHeader layout");
static_assert(offsetof(NXSCanReplayMsgHeader, ulCanId) == 8, "NXSCanReplayMsgHeader layout");
static_assert(offsetof(NXSCanReplayMsgHeader, tMsgFormat) == 12, "NXSCanReplayMsgHeader layout");
static_assert(offsetof(NXSCanReplayMsgHeader, ulFlags) == 16, "NXSCanReplayMsgHeader layout");
static_assert(offsetof(NXSCanReplayMsgHeader, usDLC) == 20, "NXSCanReplayMsgHeader layout");
static_assert(offsetof(NXSCanReplayMsgHeader, reserved) == 22, "NXSCanReplayMsgHeader layout");

static_assert(sizeof(NXSCanReplayData) == 64, "NXSCanReplayData layout");
static_assert(offsetof(NXSCanReplayData, tMsgHeader) == 32, "NXSCanReplayData layout");
static_assert(offsetof(NXSCanReplayData, ui64StartOfMsgData) == 56, "NXSCanReplayData layout");

static_assert(NxReplayStatusLayoutHolds<NXECanReplayState>(), "NXSCanReplayStatusInfo layout");

// The event object handed to the library for event-based reception. The
// library wakes threads waiting on m_cond when messages have arrived.
struct EventHandle {
    bool m_signalled;
    pthread_mutex_t m_mutex;
    pthread_cond_t m_cond;
};
static_assert(sizeof(EventHandle) == 96, "EventHandle layout");
static_assert(offsetof(EventHandle, m_mutex) == 8, "EventHandle layout");
static_assert(offsetof(EventHandle, m_cond) == 48, "EventHandle layout");

// A new event, with default mutex and condition attributes. The library may
// hold on to an event after its wrapper is gone, so events are never
// destroyed: each one stays alive until the process ends, also when the
// package is unloaded before.
HANDLE CreateEventB(bool signalled);

// --- the operations --------------------------------------------------------------
typedef NXTCanError (*NXCANAPI_FUNC_PTR_GetAvailableChannelsCount)(std::uint32_t* count, std::uint32_t attributeCount,
                                                                   NXSCanChannelsSearchAttribute* attributes);
typedef NXTCanError (*NXCANAPI_FUNC_PTR_GetAvailableChannels)(std::uint32_t* count, NXSCanChannelInfo* channels,
                                                              std::uint32_t attributeCount,
                                                              NXSCanChannelsSearchAttribute* attributes);
typedef NXTCanError (*NXCANAPI_FUNC_PTR_RegisterChannel)(char* vendor, char* interfaceName, char* serial,
                                                         char* channelIdentifier, NXTCanHandle* handle);
typedef NXTCanError (*NXCANAPI_FUNC_PTR_UnregisterChannel)(NXTCanHandle handle);
typedef NXTCanError (*NXCANAPI_FUNC_PTR_IsChannelAccessible)(NXTCanHandle handle, bool* accessible);
typedef NXTCanError (*NXCANAPI_FUNC_PTR_InitChannel)(NXTCanHandle handle, NXECanIdentifierType identifierType,
                                                     std::uint32_t queueSize, bool canFd, bool* result);
typedef NXTCanError (*NXCANAPI_FUNC_PTR_SetBaudrate)(NXTCanHandle handle, std::uint32_t clockFrequency,
                                                     NXSCanBitTimingParameters* arbitration,
                                                     NXSCanBitTimingParameters* data);
typedef NXTCanError (*NXCANAPI_FUNC_PTR_GetBaudrate)(NXTCanHandle handle, std::uint32_t* clockFrequency,
                                                     NXSCanBitTimingParameters* arbitration, bool* canFd,
                                                     NXSCanBitTimingParameters* data);
typedef NXTCanError (*NXCANAPI_FUNC_PTR_SetAcceptance)(NXTCanHandle handle, std::uint32_t stdCode,
                                                       std::uint32_t stdMask, std::uint32_t xtdCode,
                                                       std::uint32_t xtdMask);
typedef NXTCanError (*NXCANAPI_FUNC_PTR_SetEventNotification)(NXTCanHandle handle, NXTEventHandle event,
                                                              std::uint32_t count);
typedef NXTCanError (*NXCANAPI_FUNC_PTR_ActivateChannel)(NXTCanHandle handle);
typedef NXTCanError (*NXCANAPI_FUNC_PTR_DeactivateChannel)(NXTCanHandle handle);
typedef NXTCanError (*NXCANAPI_FUNC_PTR_GetHardwareTimeResolution)(NXTCanHandle handle,
                                                                   std::uint64_t* ticksPerSecond);
typedef NXTCanError (*NXCANAPI_FUNC_PTR_GetHardwareTime)(NXTCanHandle handle, std::uint64_t* ticks);
typedef NXTCanError (*NXCANAPI_FUNC_PTR_ReadReceiveQueue)(NXTCanHandle handle, std::uint32_t* count,
                                                          NXSCanMessage* messages);
typedef NXTCanError (*NXCANAPI_FUNC_PTR_FlushReceiveQueue)(NXTCanHandle handle);
typedef NXTCanError (*NXCANAPI_FUNC_PTR_TransmitMessages)(NXTCanHandle handle, std::uint32_t count,
                                                          NXSCanMessage* messages);
typedef NXTCanError (*NXCANAPI_FUNC_PTR_FlushTransmitQueue)(NXTCanHandle handle);
typedef NXTCanError (*NXCANAPI_FUNC_PTR_RegisterReplayChannel)(char* vendor, char* interfaceName, char* serial,
                                                               char* channelIdentifier, NXTCanHandle* handle,
                                                               bool highSpeed, std::uint64_t reserved);
typedef NXTCanError (*NXCANAPI_FUNC_PTR_SetReplayStartTime)(NXTCanHandle handle, std::uint64_t startTime,
                                                            std::uint64_t offset, NXECanReplayStartOptions options,
                                                            std::uint64_t reserved);
typedef NXTCanError (*NXCANAPI_FUNC_PTR_SetReplayStopTime)(NXTCanHandle handle, std::uint64_t stopTime);
typedef NXTCanError (*NXCANAPI_FUNC_PTR_ReplayStreamData)(NXTCanHandle handle, std::uint32_t* size,
                                                          std::uint8_t* data);
typedef NXTCanError (*NXCANAPI_FUNC_PTR_ReplayInitHeader)(NXSCanReplayData* record, bool endOfFile,
                                                          std::uint16_t dlc, std::uint32_t* size);
typedef NXTCanError (*NXCANAPI_FUNC_PTR_GetReplayStateInfo)(NXTCanHandle handle, NXSCanReplayStatusInfo* info);
typedef NXTCanError (*NXCANAPI_FUNC_PTR_GetLastVendorSpecificError)(NXTCanHandle handle, std::int32_t* code,
                                                                    char* text);
typedef NXTCanError (*NXCANAPI_FUNC_PTR_ConvertBaudrateToBitTimingParameters)(std::uint32_t clockFrequency,
                                                                              std::uint32_t baudrate,
                                                                              NXSCanBitTimingParameters* timing);
typedef NXTCanError (*NXCANAPI_FUNC_PTR_ConvertBitTimingParametersToBaudrate)(std::uint32_t clockFrequency,
                                                                              NXSCanBitTimingParameters* timing,
                                                                              std::uint32_t* baudrate);
typedef NXTCanError (*NXCANAPI_FUNC_PTR_GetErrorText)(NXTCanError error, char* text);

// The 28 operations in the order of resolution. X(name) is given the name
// without the "NXCAN_" prefix of the exported symbol.
#define NXCAN_API_OPERATIONS(X)                \
    X(GetAvailableChannelsCount)               \
    X(GetAvailableChannels)                    \
    X(RegisterChannel)                         \
    X(UnregisterChannel)                       \
    X(IsChannelAccessible)                     \
    X(InitChannel)                             \
    X(SetBaudrate)                             \
    X(GetBaudrate)                             \
    X(SetAcceptance)                           \
    X(SetEventNotification)                    \
    X(ActivateChannel)                         \
    X(DeactivateChannel)                       \
    X(GetHardwareTimeResolution)               \
    X(GetHardwareTime)                         \
    X(ReadReceiveQueue)                        \
    X(FlushReceiveQueue)                       \
    X(TransmitMessages)                        \
    X(FlushTransmitQueue)                      \
    X(RegisterReplayChannel)                   \
    X(SetReplayStartTime)                      \
    X(SetReplayStopTime)                       \
    X(ReplayStreamData)                        \
    X(ReplayInitHeader)                        \
    X(GetReplayStateInfo)                      \
    X(GetLastVendorSpecificError)              \
    X(ConvertBaudrateToBitTimingParameters)    \
    X(ConvertBitTimingParametersToBaudrate)    \
    X(GetErrorText)

#define NXCAN_DECLARE_POINTER(name) extern NXCANAPI_FUNC_PTR_##name pfnCan##name;
NXCAN_API_OPERATIONS(NXCAN_DECLARE_POINTER)
#undef NXCAN_DECLARE_POINTER

const std::size_t kNxCanApiOperationCount = 28;

extern const char* const kNxCanApiLibraryPath;

// The binding of the CAN library: its object, its lock and its count of
// wrappers. The library is pinned: once loaded it stays mapped.
NxLibraryBinding& CanLibrary();
// The process-wide library object. Empty until the first load, which puts the
// shared object there; whoever wants another implementation installs it
// before that (and puts the previous one back when done).
extern std::unique_ptr<NxLibraryObject>& hNxCanApiDll;
// Wrappers alive in the process; the last one clears the table.
extern std::uint32_t& uCanApiWrapperCount;
// The binding's lock: a loaded table is not written again, its users read
// it unlocked.
std::recursive_mutex& CanLibraryLock();

// All 28 pointers to null.
void InitCanFunctionPointers();
// 0 when the table is ready, non-zero when not. Errors of loading and of a
// missing symbol are Boost's system_error and pass through.
int LoadCanLibrary();
// Clears the table if the library is loaded; the library stays mapped.
void UnloadCanLibrary();

#endif
