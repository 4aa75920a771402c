/*
 * NXBusApiCan.h - CAN bus access library, simulator edition.
 *
 * This header declares the 28 NXCAN_ operations of libNXBusApiCan.so and the
 * records that cross the library border. All records are little-endian with
 * natural alignment; every size and offset is checked at compile time at the
 * end of this file. Enumerations are 32 bits wide.
 *
 * The simulator behaves like a small CAN network on one machine. The rules
 * below are part of its contract: programs developed against it may rely on
 * them.
 *
 * DISCOVERY
 *   Channels are searched by IPv4 address (NXCAN_SEARCH_ARRTIBUTE_TYPE_IP_V4_ADDRESS).
 *   A channel matches when the address of its bus equals one of the given
 *   addresses. With no configuration file there is one bus, "CAN1", at
 *   127.0.0.1, with the channels NVX-CAN-1 (Norvex, high-speed replay,
 *   capability bit 8), NVX-CAN-2 (Norvex), NVX-VIRT-1 (Norvex, interface
 *   "Virtual"), ORV-CAN-1 (another vendor) and NVX-ZIRA-1 (Norvex, a ZIRA
 *   interface). An address text that is not IPv4 finds no channel.
 *
 * CHANNEL LIFECYCLE
 *   NXCAN_RegisterChannel / NXCAN_RegisterReplayChannel -> NXCAN_InitChannel
 *   -> NXCAN_ActivateChannel -> (traffic) -> NXCAN_DeactivateChannel ->
 *   NXCAN_UnregisterChannel. A channel belongs to one registration at a time,
 *   across all processes of the machine: a second registration fails with
 *   NXCAN_ERR_CHANNEL_IN_USE. The claim of a process that has died is released
 *   by the next process that looks at it.
 *
 * BUS TIMING MODEL
 *   The channels of one bus share one wire. A frame occupies the wire for the
 *   number of bits of its format divided by the bit rate; the bit count
 *   includes the worst-case number of stuff bits (one per four bits of the
 *   stuffed region, SOF to end of CRC for classic frames; SOF to end of data
 *   plus the fixed stuff bits of the CRC field for CAN FD frames) and the
 *   3-bit interframe space. Examples: standard 8-byte data frame 135 bits,
 *   extended 8-byte data frame 160 bits. A CAN FD frame with bit rate switch
 *   spends its control, data and CRC bits at the data bit rate and the rest
 *   at the arbitration bit rate.
 *   Frames are put on the wire in the order in which they are offered, by
 *   all channels of all processes together; identifier arbitration is not
 *   modelled: a frame that finds the wire busy waits for the frames offered
 *   before it, whatever its identifier. A received frame's timestamp is the
 *   hardware time of its start of frame, the instant at which a replay
 *   schedules a frame: a recording replays onto the wire where it was, on
 *   every bus alike. A frame is delivered at its end of frame; on a busy
 *   bus, frames are delivered together at most every delivery_interval_us
 *   (default 500), as a controller moderates its interrupts. A channel does
 *   not receive its own frames. A channel whose interface is "Virtual" takes no bus time: its
 *   frames end the moment they are offered, or with the last frame already
 *   on the wire, whichever is later.
 *   ucBusLoad (in each received message's tBusInfo) is the share of the last
 *   full second in which the wire was busy, in percent, measured in 50 ms
 *   steps.
 *
 * BIT RATES
 *   A bit rate belongs to the bus (configuration: classic/arbitration rate,
 *   default 500 kbit/s, and CAN FD data-phase rate, default 2 Mbit/s). A
 *   channel starts with the rates of its bus. NXCAN_SetBaudrate sets the
 *   channel's own rates; if they differ from the bus's rates, the call
 *   stores them and returns NXCAN_ERR_BITRATE_MISMATCH, and the channel then
 *   neither receives (frames counted in usRxErrorCounter) nor sends
 *   (NXCAN_TransmitMessages fails with the same code) until its rates agree
 *   with the bus again. A channel initialised for classic CAN compares only
 *   the arbitration rate and does not receive CAN FD frames.
 *   Bit timing: bitrate = clockFrequency / (BRP * (1 + TSEG1 + TSEG2)).
 *   NXCAN_ConvertBaudrateToBitTimingParameters picks the smallest BRP that
 *   gives 8 to 25 time quanta per bit (else 4 to 385), places the sample point
 *   near 80 %, SJW = min(4, TSEG2), SAM = 0, and refuses a rate that cannot be
 *   reached exactly (NXCAN_ERR_BITRATE_NOT_REACHABLE). Limits: BRP 1..1024,
 *   TSEG1 1..256, TSEG2 1..128, SJW 1..TSEG2, SAM 0 or 1.
 *
 * HARDWARE CLOCK
 *   ticks = (CLOCK_MONOTONIC in ns + offset_ns) * resolution / 1e9, with the
 *   resolution of NXCAN_GetHardwareTimeResolution (default 80 MHz, always a
 *   multiple of 1 MHz) and offset_ns from the configuration (default 0).
 *
 * RECEPTION
 *   Each channel has a receive queue of the size given to NXCAN_InitChannel.
 *   Acceptance: a frame with a standard identifier passes when
 *   (id & stdMask) == (stdCode & stdMask), an extended one when
 *   (id & xtdMask) == (xtdCode & xtdMask); a mask of 0 passes everything.
 *   The identifier type given to NXCAN_InitChannel selects which identifier
 *   types are received at all. Received messages carry ulFlags bit 8 (0x100)
 *   for CAN FD format and bit 9 (0x200) for bit rate switch.
 *   When frames arrive and the queue holds at least `count` frames (the count
 *   of NXCAN_SetEventNotification, 0 taken as 1), the event record
 *   NXCanEventRecord is signalled: its mutex is locked, m_signalled set,
 *   the condition broadcast, the mutex unlocked. The library never clears
 *   m_signalled.
 *   When the queue is full, further frames are lost; the next
 *   NXCAN_ReadReceiveQueue still returns the frames it read, sets *count to
 *   their number and returns -1 with vendor-specific code 128
 *   (NXCAN_VENDOR_RX_OVERFLOW).
 *
 * TRANSMISSION
 *   NXCAN_TransmitMessages takes all messages or none. Each channel may have
 *   at most tx_queue_limit frames (default 2048) offered but not yet
 *   completely on the wire; a call that would exceed it fails at once with
 *   NXCAN_ERR_TX_QUEUE_FULL and never blocks. ulFlags bit 0 = CAN FD format,
 *   bit 1 = bit rate switch. usDLC is the DLC code 0..15; CAN FD lengths:
 *   9->12, 10->16, 11->20, 12->24, 13->32, 14->48, 15->64. Codes above 8
 *   need CAN FD format; CAN FD needs a channel initialised for CAN FD; remote
 *   frames are classic only. NXCAN_FlushTransmitQueue withdraws the frames
 *   whose transmission has not begun; the wire time they had reserved is
 *   given back if no frame was offered after them, else it stays idle.
 *
 * REPLAY
 *   A replay channel (NXCAN_RegisterReplayChannel) takes a stream of records
 *   through NXCAN_ReplayStreamData. A record is made in place by
 *   NXCAN_ReplayInitHeader, which writes only the first 64 bytes; its total
 *   size for a DLC is
 *       64 + round_up_to_8(max(0, length(dlc) - 8)) bytes:
 *       DLC 0..8: 64, 9 and 10: 72, 11 and 12: 80, 13: 88, 14: 104, 15: 120.
 *   The payload starts at ui64StartOfMsgData and runs on past the 64 bytes.
 *   The end-of-stream record is made with endOfFile true and DLC 0 (64
 *   bytes); its timestamp is not used. NXCAN_ReplayStreamData consumes whole
 *   records only, as many as the replay queue (replay_queue_limit records,
 *   default 4096; four times that on the high-speed path) has room for, and
 *   returns the bytes consumed in *size. Records with invalid contents
 *   (type, identifier, DLC, flags) are consumed and counted in ui64ErrorData;
 *   a record whose size field is not that of its DLC, or that was not made
 *   by NXCAN_ReplayInitHeader, stops the call with NXCAN_ERR_INVALID_RECORD
 *   and the bytes before it consumed.
 *
 *   Scheduling rule: with start time S and offset O (hardware ticks), a frame
 *   whose record timestamp is T (ticks) is offered to the wire at hardware
 *   time S + (T - O), computed in signed 64-bit arithmetic. Its receivers
 *   timestamp it with that time (or later if the wire is busy), and receive
 *   it its bus time later.
 *   NXCAN_SetReplayStartTime(h, S, O, option, 0):
 *     NXCAN_REPLAY_OPTION_NONE: sets S and O; refused with
 *       NXCAN_ERR_REPLAY_ALREADY_STARTED once the replay has started
 *       (hardware time reached S, or a frame was emitted).
 *     NXCAN_REPLAY_OPTION_FORCE_APPLY: sets S and O in any state; queued
 *       frames follow the new values.
 *     NXCAN_REPLAY_OPTION_APPLY_OFFSET_ONLY: sets O only; the startTime
 *       argument is ignored. If no start time has been set yet, S becomes the
 *       hardware time of this call, so the frame with T == O goes out at once.
 *   Until a start time is known, records wait in the replay queue (state
 *   UNKNOWN). A frame whose time has already passed when it reaches the head
 *   of the queue is emitted at once; if it goes out more than the late
 *   threshold (default 1000 us) after its time it is counted as late.
 *   Frames go out in stream order: a record whose time lies before that of
 *   its predecessor goes out right after it.
 *   NXCAN_SetReplayStopTime(h, P): P is a hardware time (0 = none). Frames
 *   whose emission time is after P are not emitted (counted as dropped); once
 *   the hardware time reaches P the replay is in state STOP, and everything
 *   queued or streamed later is dropped.
 *   The end record is handled when everything before it has gone out; the
 *   state is then END (unless STOP came first). New frame records after END
 *   start the replay again.
 *   NXCAN_GetReplayStateInfo:
 *     tReplayState: UNKNOWN (no start time), SCHEDULED (start time in the
 *       future), STARTED, STOP, END, FLUSH (after NXCAN_FlushTransmitQueue
 *       discarded the replay queue, until new records arrive).
 *     ui64Timestamp: record timestamp T of the last frame emitted (0 before).
 *     ui64SentFrames: frames put on the wire.
 *     ui64SendFailed: frames that could not be put on the wire (channel not
 *       active, bit rate mismatch, CAN FD frame on a classic channel).
 *     ui64Dropped: frames not emitted because of the stop time or a flush.
 *     ui64ErrorData: invalid records consumed.
 *     Reserved[0]: frames emitted late (low 32 bits).
 *     Reserved[1]: records waiting in the replay queue.
 *     Reserved[2]: 1 if the high-speed path is in use, else 0.
 *     Reserved[3]: microseconds the replay thread spent spinning to the
 *       frames' times (low 32 bits): what emission on time costs.
 *     ulValidInfoFlags: NXCAN_REPLAY_INFO_VALID_ALL.
 *   High-speed path: NXCAN_RegisterReplayChannel honours highSpeed only for
 *   a channel with capability bit 8; otherwise it is ignored. The high-speed
 *   path has a four times larger replay queue.
 *   Emission: the replay thread sleeps until shortly before a frame's time
 *   (timer slack 1 ns), then spins to it; it runs at real-time priority
 *   (SCHED_FIFO, replay_realtime_priority, default 10) where the system
 *   allows it, and without where not. The thread that delivers received
 *   frames runs at the same priority.
 *
 * ERRORS
 *   Every operation returns 0 or an error code. -1 means a vendor-specific
 *   error: its code and text come from NXCAN_GetLastVendorSpecificError for
 *   the same handle (handle -1 for operations without a handle). Every code
 *   has a text from NXCAN_GetErrorText (buffer of at least 2048 bytes).
 *
 * CONFIGURATION
 *   The environment variable NXBUSAPI_SIM_CONFIG names a configuration file;
 *   NXBUSAPI_SIM_NAMESPACE names the shared-memory namespace (default
 *   "u<uid>"). The file format is described in busapi_sim/sim.conf.example.
 */
#ifndef NX_BUS_API_CAN_H
#define NX_BUS_API_CAN_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define NXCAN_API __attribute__((visibility("default")))
#else
#define NXCAN_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef int32_t NXTCanError;
typedef int32_t NXTCanHandle;
typedef void* NXTEventHandle;

#define NXCAN_INVALID_HANDLE ((NXTCanHandle)-1)
#define NXCAN_TEXT_BUFFER_SIZE 2048

/* Return codes. */
#define NXCAN_SUCCESS 0
#define NXCAN_ERR_VENDOR_SPECIFIC (-1)
#define NXCAN_ERR_GENERIC 1
#define NXCAN_ERR_INVALID_ARGUMENT 2
#define NXCAN_ERR_INVALID_HANDLE 3
#define NXCAN_ERR_NOT_REPLAY_CHANNEL 4
#define NXCAN_ERR_CHANNEL_IN_USE 5
#define NXCAN_ERR_WRONG_STATE 6
#define NXCAN_ERR_TX_QUEUE_FULL 7
#define NXCAN_ERR_BITRATE_NOT_REACHABLE 8
#define NXCAN_ERR_BITRATE_MISMATCH 9
#define NXCAN_ERR_CHANNEL_NOT_FOUND 10
#define NXCAN_ERR_REPLAY_ALREADY_STARTED 11
#define NXCAN_ERR_INVALID_MESSAGE 12
#define NXCAN_ERR_INVALID_RECORD 13
#define NXCAN_ERR_BUS_UNAVAILABLE 14
#define NXCAN_ERR_CONFIGURATION 15
#define NXCAN_ERR_SHUT_DOWN 16

/* Vendor-specific codes, delivered with NXCAN_ERR_VENDOR_SPECIFIC. */
#define NXCAN_VENDOR_RX_OVERFLOW 128

/* ulFlags of NXSCanMessage. */
#define NXCAN_FLAG_TX_FD 0x1u
#define NXCAN_FLAG_TX_BRS 0x2u
#define NXCAN_FLAG_RX_FD 0x100u
#define NXCAN_FLAG_RX_BRS 0x200u

/* ulChannelCapabilities of NXSCanChannelInfo. */
#define NXCAN_CAPABILITY_HIGH_SPEED_REPLAY 0x100u

/* ulValidInfoFlags of NXSCanReplayStatusInfo. */
#define NXCAN_REPLAY_INFO_VALID_ALL 0x7Fu

/* In C++ the enumerations have a fixed 32-bit underlying type (the same
 * size and passing convention as the C enumerations), so that any value a
 * caller passes is representable and can be checked. */
#ifdef __cplusplus
#define NXCAN_ENUM(name) enum name : uint32_t
#else
#define NXCAN_ENUM(name) enum name
#endif

typedef NXCAN_ENUM(NXECanChannelsSearchAttributeType) {
    NXCAN_SEARCH_ARRTIBUTE_TYPE_IP_V4_ADDRESS = 1
} NXECanChannelsSearchAttributeType;

typedef NXCAN_ENUM(NXECanBusStatus) {
    NXCAN_BUS_STATUS_UNKNOWN = 0,
    NXCAN_BUS_STATUS_ACTIVE = 1,
    NXCAN_BUS_STATUS_PASSIVE = 2,
    NXCAN_BUS_STATUS_WARNING = 3,
    NXCAN_BUS_STATUS_BUS_OFF = 4
} NXECanBusStatus;

typedef NXCAN_ENUM(NXECanMessageType) {
    NXCAN_MESSAGE_TYPE_DATA = 1,
    NXCAN_MESSAGE_TYPE_REMOTE = 2,
    NXCAN_MESSAGE_TYPE_ERROR = 3,
    NXCAN_MESSAGE_TYPE_BUS_INFO = 4,
    NXCAN_MESSAGE_TYPE_BUS_STATISTICS = 5
} NXECanMessageType;

typedef NXCAN_ENUM(NXECanIdentifierType) {
    NXCAN_IDENTIFIER_TYPE_STD = 1,
    NXCAN_IDENTIFIER_TYPE_XTD = 2,
    NXCAN_IDENTIFIER_TYPE_STD_XTD = 3
} NXECanIdentifierType;

typedef NXCAN_ENUM(NXECanReplayStartOptions) {
    NXCAN_REPLAY_OPTION_NONE = 0,
    NXCAN_REPLAY_OPTION_FORCE_APPLY = 1,
    NXCAN_REPLAY_OPTION_APPLY_OFFSET_ONLY = 2
} NXECanReplayStartOptions;

typedef NXCAN_ENUM(NXECanReplayState) {
    NXCAN_REPLAY_STATE_UNKNOWN = 0,
    NXCAN_REPLAY_STATE_SCHEDULED = 1,
    NXCAN_REPLAY_STATE_STARTED = 2,
    NXCAN_REPLAY_STATE_STOP = 3,
    NXCAN_REPLAY_STATE_END = 4,
    NXCAN_REPLAY_STATE_FLUSH = 5,
    NXCAN_REPLAY_STATE_INVALID = 255
} NXECanReplayState;

typedef struct NXSCanChannelInfo {
    char szVendorName[256];
    char szInterfaceName[256];
    char szInterfaceSerialNumber[256];
    char szChannelIdentifier[256];
    uint32_t ulChannelCapabilities;
} NXSCanChannelInfo;

typedef struct NXSCanChannelsSearchAttribute {
    NXECanChannelsSearchAttributeType tSearchAttributeType;
    char szSearchAttribute[256];
} NXSCanChannelsSearchAttribute;

typedef struct NXSCanBitTimingParameters {
    uint32_t ulSJW;
    uint32_t ulBRP;
    uint32_t ulSAM;
    uint32_t ulTSEG1;
    uint32_t ulTSEG2;
} NXSCanBitTimingParameters;

typedef struct NXSCanBusInfo {
    NXECanBusStatus tBusStatus;
    uint16_t usRxErrorCounter;
    uint16_t usTxErrorCounter;
    uint8_t ucBusLoad;
} NXSCanBusInfo;

typedef struct NXSCanMessage {
    NXECanMessageType tMessageType;
    uint64_t ui64Timestamp;
    uint32_t ulCanIdentifier;
    NXECanIdentifierType tCanIdentifierType;
    uint32_t ulFlags;
    uint16_t usDLC;
    uint8_t ucData[64];
    NXSCanBusInfo tBusInfo;
} NXSCanMessage;

typedef struct NXSCanReplayHeader {
    uint32_t reserved1; /* bit 0: end of stream; bits 8..31: record mark */
    uint32_t reserved2;
    uint32_t reserved3;
    uint32_t ulSize;
    uint64_t ui64Timestamp;
    uint64_t reserved4;
} NXSCanReplayHeader;

typedef struct NXSCanReplayMsgHeader {
    NXECanMessageType tMessageType;
    uint32_t ulCustomVal;
    uint32_t ulCanId;
    NXECanIdentifierType tMsgFormat;
    uint32_t ulFlags;
    uint16_t usDLC;
    uint16_t reserved;
} NXSCanReplayMsgHeader;

typedef struct NXSCanReplayData {
    NXSCanReplayHeader tHeader;
    NXSCanReplayMsgHeader tMsgHeader;
    uint64_t ui64StartOfMsgData;
} NXSCanReplayData;

typedef struct NXSCanReplayStatusInfo {
    uint32_t ulValidInfoFlags;
    NXECanReplayState tReplayState;
    uint64_t ui64Timestamp;
    uint64_t ui64SentFrames;
    uint64_t ui64ErrorData;
    uint64_t ui64SendFailed;
    uint64_t ui64Dropped;
    uint32_t Reserved[6];
} NXSCanReplayStatusInfo;

/* reserved1 of a record made by NXCAN_ReplayInitHeader. */
#define NXCAN_REPLAY_RECORD_MARK 0x4E585200u
#define NXCAN_REPLAY_RECORD_END_OF_STREAM 0x1u

#ifdef __cplusplus
#include <pthread.h>
/* The event record that NXCAN_SetEventNotification signals: what the caller
 * passes as NXTEventHandle. Mutex and condition with default attributes. */
struct NXCanEventRecord {
    bool m_signalled;
    pthread_mutex_t m_mutex;
    pthread_cond_t m_cond;
};
#endif

NXCAN_API NXTCanError NXCAN_GetAvailableChannelsCount(uint32_t* count, uint32_t attributeCount,
                                                      NXSCanChannelsSearchAttribute* attributes);
NXCAN_API NXTCanError NXCAN_GetAvailableChannels(uint32_t* count, NXSCanChannelInfo* channels,
                                                 uint32_t attributeCount,
                                                 NXSCanChannelsSearchAttribute* attributes);
NXCAN_API NXTCanError NXCAN_RegisterChannel(char* vendor, char* interfaceName, char* serial,
                                            char* channelIdentifier, NXTCanHandle* handle);
NXCAN_API NXTCanError NXCAN_UnregisterChannel(NXTCanHandle handle);
NXCAN_API NXTCanError NXCAN_IsChannelAccessible(NXTCanHandle handle, bool* accessible);
/* *fdSupported receives whether the channel can run CAN FD. */
NXCAN_API NXTCanError NXCAN_InitChannel(NXTCanHandle handle, NXECanIdentifierType identifierType,
                                        uint32_t queueSize, bool canFd, bool* fdSupported);
NXCAN_API NXTCanError NXCAN_SetBaudrate(NXTCanHandle handle, uint32_t clockFrequency,
                                        NXSCanBitTimingParameters* arbitration,
                                        NXSCanBitTimingParameters* data);
/* *canFd receives whether the data timing is in force (channel runs CAN FD). */
NXCAN_API NXTCanError NXCAN_GetBaudrate(NXTCanHandle handle, uint32_t* clockFrequency,
                                        NXSCanBitTimingParameters* arbitration, bool* canFd,
                                        NXSCanBitTimingParameters* data);
NXCAN_API NXTCanError NXCAN_SetAcceptance(NXTCanHandle handle, uint32_t stdCode, uint32_t stdMask,
                                          uint32_t xtdCode, uint32_t xtdMask);
NXCAN_API NXTCanError NXCAN_SetEventNotification(NXTCanHandle handle, NXTEventHandle event,
                                                 uint32_t count);
NXCAN_API NXTCanError NXCAN_ActivateChannel(NXTCanHandle handle);
NXCAN_API NXTCanError NXCAN_DeactivateChannel(NXTCanHandle handle);
NXCAN_API NXTCanError NXCAN_GetHardwareTimeResolution(NXTCanHandle handle, uint64_t* ticksPerSecond);
NXCAN_API NXTCanError NXCAN_GetHardwareTime(NXTCanHandle handle, uint64_t* ticks);
NXCAN_API NXTCanError NXCAN_ReadReceiveQueue(NXTCanHandle handle, uint32_t* count,
                                             NXSCanMessage* messages);
NXCAN_API NXTCanError NXCAN_FlushReceiveQueue(NXTCanHandle handle);
NXCAN_API NXTCanError NXCAN_TransmitMessages(NXTCanHandle handle, uint32_t count,
                                             NXSCanMessage* messages);
NXCAN_API NXTCanError NXCAN_FlushTransmitQueue(NXTCanHandle handle);
NXCAN_API NXTCanError NXCAN_RegisterReplayChannel(char* vendor, char* interfaceName, char* serial,
                                                  char* channelIdentifier, NXTCanHandle* handle,
                                                  bool highSpeed, uint64_t reserved);
NXCAN_API NXTCanError NXCAN_SetReplayStartTime(NXTCanHandle handle, uint64_t startTime,
                                               uint64_t offset, NXECanReplayStartOptions option,
                                               uint64_t reserved);
NXCAN_API NXTCanError NXCAN_SetReplayStopTime(NXTCanHandle handle, uint64_t stopTime);
NXCAN_API NXTCanError NXCAN_ReplayStreamData(NXTCanHandle handle, uint32_t* size, uint8_t* data);
NXCAN_API NXTCanError NXCAN_ReplayInitHeader(NXSCanReplayData* record, bool endOfFile, uint16_t dlc,
                                             uint32_t* size);
NXCAN_API NXTCanError NXCAN_GetReplayStateInfo(NXTCanHandle handle, NXSCanReplayStatusInfo* info);
NXCAN_API NXTCanError NXCAN_GetLastVendorSpecificError(NXTCanHandle handle, int32_t* code, char* text);
NXCAN_API NXTCanError NXCAN_ConvertBaudrateToBitTimingParameters(uint32_t clockFrequency,
                                                                 uint32_t baudrate,
                                                                 NXSCanBitTimingParameters* timing);
NXCAN_API NXTCanError NXCAN_ConvertBitTimingParametersToBaudrate(uint32_t clockFrequency,
                                                                 NXSCanBitTimingParameters* timing,
                                                                 uint32_t* baudrate);
NXCAN_API NXTCanError NXCAN_GetErrorText(NXTCanError error, char* text);

#ifdef __cplusplus
} /* extern "C" */
#define NXCAN_LAYOUT_CHECK(cond, what) static_assert(cond, what)
#else
#define NXCAN_LAYOUT_CHECK(cond, what) _Static_assert(cond, what)
#endif

NXCAN_LAYOUT_CHECK(sizeof(NXSCanChannelInfo) == 1028, "NXSCanChannelInfo size");
NXCAN_LAYOUT_CHECK(offsetof(NXSCanChannelInfo, szInterfaceName) == 256, "szInterfaceName");
NXCAN_LAYOUT_CHECK(offsetof(NXSCanChannelInfo, szInterfaceSerialNumber) == 512, "szInterfaceSerialNumber");
NXCAN_LAYOUT_CHECK(offsetof(NXSCanChannelInfo, szChannelIdentifier) == 768, "szChannelIdentifier");
NXCAN_LAYOUT_CHECK(offsetof(NXSCanChannelInfo, ulChannelCapabilities) == 1024, "ulChannelCapabilities");
NXCAN_LAYOUT_CHECK(sizeof(NXSCanChannelsSearchAttribute) == 260, "NXSCanChannelsSearchAttribute size");
NXCAN_LAYOUT_CHECK(offsetof(NXSCanChannelsSearchAttribute, szSearchAttribute) == 4, "szSearchAttribute");
NXCAN_LAYOUT_CHECK(sizeof(NXSCanBitTimingParameters) == 20, "NXSCanBitTimingParameters size");
NXCAN_LAYOUT_CHECK(offsetof(NXSCanBitTimingParameters, ulBRP) == 4, "ulBRP");
NXCAN_LAYOUT_CHECK(offsetof(NXSCanBitTimingParameters, ulSAM) == 8, "ulSAM");
NXCAN_LAYOUT_CHECK(offsetof(NXSCanBitTimingParameters, ulTSEG1) == 12, "ulTSEG1");
NXCAN_LAYOUT_CHECK(offsetof(NXSCanBitTimingParameters, ulTSEG2) == 16, "ulTSEG2");
NXCAN_LAYOUT_CHECK(sizeof(NXSCanBusInfo) == 12, "NXSCanBusInfo size");
NXCAN_LAYOUT_CHECK(offsetof(NXSCanBusInfo, usRxErrorCounter) == 4, "usRxErrorCounter");
NXCAN_LAYOUT_CHECK(offsetof(NXSCanBusInfo, usTxErrorCounter) == 6, "usTxErrorCounter");
NXCAN_LAYOUT_CHECK(offsetof(NXSCanBusInfo, ucBusLoad) == 8, "ucBusLoad");
NXCAN_LAYOUT_CHECK(sizeof(NXSCanMessage) == 112, "NXSCanMessage size");
NXCAN_LAYOUT_CHECK(offsetof(NXSCanMessage, ui64Timestamp) == 8, "ui64Timestamp");
NXCAN_LAYOUT_CHECK(offsetof(NXSCanMessage, ulCanIdentifier) == 16, "ulCanIdentifier");
NXCAN_LAYOUT_CHECK(offsetof(NXSCanMessage, tCanIdentifierType) == 20, "tCanIdentifierType");
NXCAN_LAYOUT_CHECK(offsetof(NXSCanMessage, ulFlags) == 24, "ulFlags");
NXCAN_LAYOUT_CHECK(offsetof(NXSCanMessage, usDLC) == 28, "usDLC");
NXCAN_LAYOUT_CHECK(offsetof(NXSCanMessage, ucData) == 30, "ucData");
NXCAN_LAYOUT_CHECK(offsetof(NXSCanMessage, tBusInfo) == 96, "tBusInfo");
NXCAN_LAYOUT_CHECK(sizeof(NXSCanReplayHeader) == 32, "NXSCanReplayHeader size");
NXCAN_LAYOUT_CHECK(offsetof(NXSCanReplayHeader, ulSize) == 12, "ulSize");
NXCAN_LAYOUT_CHECK(offsetof(NXSCanReplayHeader, ui64Timestamp) == 16, "header ui64Timestamp");
NXCAN_LAYOUT_CHECK(offsetof(NXSCanReplayHeader, reserved4) == 24, "reserved4");
NXCAN_LAYOUT_CHECK(sizeof(NXSCanReplayMsgHeader) == 24, "NXSCanReplayMsgHeader size");
NXCAN_LAYOUT_CHECK(offsetof(NXSCanReplayMsgHeader, ulCustomVal) == 4, "ulCustomVal");
NXCAN_LAYOUT_CHECK(offsetof(NXSCanReplayMsgHeader, ulCanId) == 8, "ulCanId");
NXCAN_LAYOUT_CHECK(offsetof(NXSCanReplayMsgHeader, tMsgFormat) == 12, "tMsgFormat");
NXCAN_LAYOUT_CHECK(offsetof(NXSCanReplayMsgHeader, ulFlags) == 16, "msg ulFlags");
NXCAN_LAYOUT_CHECK(offsetof(NXSCanReplayMsgHeader, usDLC) == 20, "msg usDLC");
NXCAN_LAYOUT_CHECK(offsetof(NXSCanReplayMsgHeader, reserved) == 22, "msg reserved");
NXCAN_LAYOUT_CHECK(sizeof(NXSCanReplayData) == 64, "NXSCanReplayData size");
NXCAN_LAYOUT_CHECK(offsetof(NXSCanReplayData, tMsgHeader) == 32, "tMsgHeader");
NXCAN_LAYOUT_CHECK(offsetof(NXSCanReplayData, ui64StartOfMsgData) == 56, "ui64StartOfMsgData");
NXCAN_LAYOUT_CHECK(sizeof(NXSCanReplayStatusInfo) == 72, "NXSCanReplayStatusInfo size");
NXCAN_LAYOUT_CHECK(offsetof(NXSCanReplayStatusInfo, tReplayState) == 4, "tReplayState");
NXCAN_LAYOUT_CHECK(offsetof(NXSCanReplayStatusInfo, ui64Timestamp) == 8, "status ui64Timestamp");
NXCAN_LAYOUT_CHECK(offsetof(NXSCanReplayStatusInfo, ui64SentFrames) == 16, "ui64SentFrames");
NXCAN_LAYOUT_CHECK(offsetof(NXSCanReplayStatusInfo, ui64ErrorData) == 24, "ui64ErrorData");
NXCAN_LAYOUT_CHECK(offsetof(NXSCanReplayStatusInfo, ui64SendFailed) == 32, "ui64SendFailed");
NXCAN_LAYOUT_CHECK(offsetof(NXSCanReplayStatusInfo, ui64Dropped) == 40, "ui64Dropped");
NXCAN_LAYOUT_CHECK(offsetof(NXSCanReplayStatusInfo, Reserved) == 48, "Reserved");
NXCAN_LAYOUT_CHECK(sizeof(NXECanMessageType) == 4, "enumerations are 32-bit");
#ifdef __cplusplus
NXCAN_LAYOUT_CHECK(sizeof(NXCanEventRecord) == 96, "NXCanEventRecord size");
NXCAN_LAYOUT_CHECK(offsetof(NXCanEventRecord, m_mutex) == 8, "m_mutex");
NXCAN_LAYOUT_CHECK(offsetof(NXCanEventRecord, m_cond) == 48, "m_cond");
#endif

#undef NXCAN_LAYOUT_CHECK

#endif /* NX_BUS_API_CAN_H */
