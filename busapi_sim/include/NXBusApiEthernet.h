/*
 * NXBusApiEthernet.h - Ethernet bus access library, simulator edition.
 *
 * This header declares the 24 NXETH_ operations of libNXBusApiEthernet.so
 * and the records that cross the library border. All records are
 * little-endian with natural alignment; every size and offset is checked at
 * compile time at the end of this file. Enumerations are 32 bits wide.
 *
 * The library runs on real Linux network devices through AF_PACKET
 * sockets: an interface of this library is a network device of the machine
 * (a veth end, a tap, a USB adapter, a NIC), named in the configuration.
 * Opening one needs CAP_NET_RAW, and a line rate (below) CAP_NET_ADMIN, in
 * the device's network namespace. The rules below are its contract.
 *
 * DISCOVERY
 *   Interfaces are searched by IPv4 address
 *   (NXETH_SEARCH_ARRTIBUTE_TYPE_IP_V4_ADDRESS): an interface matches when
 *   one of its configured addresses equals one of the given ones; with no
 *   attribute every interface matches. Only interfaces whose network device
 *   exists in the caller's network namespace are found. An address text
 *   that is not IPv4 finds nothing. ucInterfaceMacAddress is the configured
 *   MAC, else the device's own address.
 *   Without a configuration file there are two interfaces at 127.0.0.1:
 *   NVX-ETH-1 (Norvex, high-speed replay, capability bit 8) on the device
 *   nvxeth1 and NVX-ETH-2 (Norvex) on nvxeth2: the two ends of the veth pair
 *   that tools/with-sim-bus makes in its private network namespace.
 *
 * INTERFACE LIFECYCLE
 *   NXETH_RegisterInterface / NXETH_RegisterReplayInterface ->
 *   NXETH_InitInterface -> NXETH_ActivateInterface -> (traffic) ->
 *   NXETH_DeactivateInterface -> NXETH_UnregisterInterface. An interface
 *   belongs to one registration at a time, across all processes of the
 *   machine that share the namespace (NXBUSAPI_SIM_NAMESPACE): a second
 *   registration fails with NXETH_ERR_INTERFACE_IN_USE. The claim of a
 *   process that has died is released by the next process that looks at it.
 *   NXETH_InitInterface opens the device for sending and sets the line rate;
 *   NXETH_ActivateInterface starts reception; NXETH_DeactivateInterface
 *   stops it. NXETH_IsInterfaceAccessible answers false once the device has
 *   gone.
 *
 * HARDWARE CLOCK
 *   The clock of the CAN library, from the same configuration:
 *   ticks = (CLOCK_MONOTONIC in ns + offset_ns) * resolution / 1e9, default
 *   80 MHz, so that CAN and Ethernet frames share one timebase. The second
 *   outputs of NXETH_GetTimeResolution and NXETH_GetTime are the controller's
 *   clock, which is the same clock here.
 *
 * RECEPTION
 *   Each active interface has a memory-mapped receive ring of the kernel
 *   (TPACKET_V3, rx_ring_kib, default 8 MiB), in blocks that the kernel hands
 *   over when they are full or 1 ms after their first frame: 128 blocks from
 *   8 MiB on, so that a reader may stay away for 100 ms of slow traffic, or
 *   as long as the ring's bytes last at higher rates, without a loss. NXETH_ReadFrames(h, size,
 *   buffer, &count) copies whole frames, oldest first, back to back into the
 *   buffer: an NXSEthRawFrameHeader (32 bytes), then ulRawDataLength bytes;
 *   *count is the number of frames. Nothing is padded between frames.
 *     tFrameType: NXETH_FRAME_TYPE_ETHERNET_FRAME (1) when the interface
 *       delivers a frame check sequence (fcs = true, the default, as an
 *       Ethernet controller does): the frame, then its CRC-32 FCS computed
 *       over it (4 bytes, as on the wire), counted in ulRawDataLength.
 *       NXETH_FRAME_TYPE_ETHERNET_FRAME_WITHOUT_FCS (3) with fcs = false: the
 *       frame alone. A VLAN tag that the kernel took out is put back.
 *     ui64Timestamp, ui64ControllerTimestamp: the kernel's receive timestamp
 *       on the hardware clock above (the kernel stamps in CLOCK_REALTIME;
 *       the library converts with the clocks' difference at the read).
 *     ulFlags: NXETH_FLAG_RX_BUFFER_OVERFLOW (0x8000) on the first frame
 *       delivered after the ring dropped frames; NXETH_FLAG_INVALID_LENGTH
 *       (0x2000) on a frame longer than a ring block, cut to it;
 *       NXETH_FLAG_READ_PERIOD_TOO_LONG (0x10000) on the last frame of a read
 *       whose buffer could not take all the frames waiting. Those stay in the
 *       ring for the next read: nothing is lost. A buffer that cannot take
 *       even the first waiting frame gives NXETH_ERR_BUFFER_TOO_SMALL.
 *   A frame sent by an interface is not received by itself (nor by another
 *   interface on the same device: what leaves a device is not received on
 *   it). NXETH_FlushReceiveQueue drops what waits in the ring.
 *   NXETH_GetInterfaceBufferSize gives the buffer that holds one sampling
 *   period of NXETH_SAMPLING_PERIOD_US at the interface's line rate, of the
 *   smallest frames (the most buffer per second of line):
 *       frames = ceil(rate * period / (8 * NXETH_MIN_FRAME_WIRE_BYTES))
 *       size   = frames * (NXETH_RAW_FRAME_HEADER_SIZE + 64),
 *   at least one largest frame; the rate is the configured line_rate, else
 *   the speed that the device reports, else 1 Gbit/s. (1 Gbit/s: 714336
 *   bytes; 100 Mbit/s: 71520 bytes.)
 *   NXETH_SetFilter(h, expression) keeps only the frames that a tcpdump
 *   filter expression selects (compiled by libpcap and run by the kernel);
 *   NULL or "" removes the filter.
 *
 * TRANSMISSION
 *   NXETH_TransmitFrames(h, size, frames, &sent) sends a block of raw frames
 *   laid out as ReadFrames gives them. Type 1: the last 4 bytes of
 *   ulRawDataLength are the room for the check sequence, which the device
 *   makes: they are not sent. Type 3: all ulRawDataLength bytes are sent.
 *   Every frame is checked before any is sent: type 1 or 3, 14 to MTU + 18
 *   bytes of data (NXETH_ERR_INVALID_FRAME), whole within size
 *   (NXETH_ERR_INVALID_ARGUMENT). The block goes out in batches (sendmmsg),
 *   in order; the call waits while the device's queue is full, at most
 *   one second, and then fails with NXETH_ERR_TX_QUEUE_FULL; *sent counts
 *   the frames that went out. Frames shorter than 60 bytes go out as they
 *   are (a NIC pads them, a veth does not).
 *   Line rate (line_rate, e.g. 100M or 1G): NXETH_InitInterface puts a
 *   token-bucket qdisc (tbf) at that rate at the root of the device, which
 *   counts each frame with its preamble, check sequence and gap (24 bytes
 *   more), so that a 100BASE-T1 link can be stood in for. It stays there.
 *
 * REPLAY
 *   A replay interface (NXETH_RegisterReplayInterface) takes a stream of
 *   records through NXETH_ReplayStreamData. A record (NXSEthReplayData) is
 *   the 56-byte head, whose first 8 frame bytes are ui64StartOfFrameData,
 *   and the rest of the frame after it:
 *       tHeader.reserved1   NXETH_REPLAY_RECORD_MARK, | 0x1 on the closing
 *                           record (end of stream)
 *       tHeader.ulSize      56 + round_up_to_8(max(0, length - 8))
 *       tHeader.ui64Timestamp  T, in hardware ticks
 *       tMsgHeader.tFrameType  1: the last 4 bytes are the FCS (not sent);
 *                              3: all bytes are frame data
 *       tMsgHeader.ulRawDataLength  length of the frame bytes
 *   NXETH_ReplayInitHeader(record, endOfFile, length, &size) writes the
 *   56-byte head only: zeroes it, sets the mark, ulSize by the rule,
 *   tFrameType 3 and ulRawDataLength = length, and *size = ulSize. The
 *   closing record has length 0 and 56 bytes; its timestamp is not used.
 *   NXETH_ReplayStreamData consumes whole records only, as many as the
 *   replay queue has room for (replay_queue_kib, default 4 MiB of frames;
 *   four times that on the high-speed path), and returns the bytes consumed
 *   in *size. Records with contents that cannot be sent (type 2 or other,
 *   length outside 14 to MTU + 18 bytes of data) are consumed and counted in
 *   ui64ErrorData; a record whose mark is wrong or whose size does not follow
 *   the rule stops the call with NXETH_ERR_INVALID_RECORD and the bytes
 *   before it consumed.
 *   Scheduling and states follow the CAN library's replay exactly: with
 *   start time S and offset O (ticks), a frame stamped T leaves at
 *   S + (T - O), in signed 64-bit arithmetic, in stream order; the three
 *   start options, the stop time, late frames (more than
 *   replay_late_threshold_us after their time), the end record and the
 *   states UNKNOWN, SCHEDULED, STARTED, STOP, END, FLUSH are as told in
 *   NXBusApiCan.h. NXETH_GetReplayStateInfo: ui64Timestamp is T of the last
 *   frame sent, ui64SentFrames, ui64SendFailed (the device refused it),
 *   ui64Dropped (stop time or flush), ui64ErrorData; Reserved[0] frames sent
 *   late, Reserved[1] records waiting, Reserved[2] 1 on the high-speed path,
 *   Reserved[3] microseconds spent spinning to the frames' times (low 32
 *   bits).
 *   The kernel's launch-time scheduling is not used: a thread of the library
 *   sleeps until shortly before a frame's time (timer slack 1 ns), then
 *   spins to it, at real-time priority where the system allows it.
 *   NXETH_FlushTransmitQueue discards the replay queue.
 *
 * ERRORS
 *   Every operation returns 0 or an error code. -1 means an error specific
 *   to the access provider: its code and text come from
 *   NXETH_GetLastAccessProviderSpecificError for the same handle (handle -1
 *   for operations without a handle). Every code has a text from
 *   NXETH_GetErrorText (buffer of at least 2048 bytes), with the detail of
 *   its latest occurrence (such as the device and the system's reason).
 *
 * CONFIGURATION
 *   As for the CAN library: NXBUSAPI_SIM_CONFIG names the configuration file
 *   (its [interface] sections describe the Ethernet interfaces, its faults
 *   may name NXETH_ operations), NXBUSAPI_SIM_NAMESPACE the namespace of
 *   the claims. The format is described in busapi_sim/sim.conf.example.
 */
#ifndef NX_BUS_API_ETHERNET_H
#define NX_BUS_API_ETHERNET_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define NXETH_API __attribute__((visibility("default")))
#else
#define NXETH_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef int32_t NXTEthError;
typedef int32_t NXTEthHandle;

#define NXETH_INVALID_HANDLE ((NXTEthHandle)-1)
#define NXETH_TEXT_BUFFER_SIZE 2048

/* Return codes. */
#define NXETH_SUCCESS 0
#define NXETH_ERR_PROVIDER_SPECIFIC (-1)
#define NXETH_ERR_GENERIC 1
#define NXETH_ERR_INVALID_ARGUMENT 2
#define NXETH_ERR_INVALID_HANDLE 3
#define NXETH_ERR_NOT_REPLAY_INTERFACE 4
#define NXETH_ERR_INTERFACE_IN_USE 5
#define NXETH_ERR_WRONG_STATE 6
#define NXETH_ERR_TX_QUEUE_FULL 7
#define NXETH_ERR_BUFFER_TOO_SMALL 8
#define NXETH_ERR_DEVICE 9
#define NXETH_ERR_INTERFACE_NOT_FOUND 10
#define NXETH_ERR_REPLAY_ALREADY_STARTED 11
#define NXETH_ERR_INVALID_FRAME 12
#define NXETH_ERR_INVALID_RECORD 13
#define NXETH_ERR_SHARED_STATE 14
#define NXETH_ERR_CONFIGURATION 15
#define NXETH_ERR_SHUT_DOWN 16
#define NXETH_ERR_INVALID_FILTER 17

/* ulFlags of a received frame. */
#define NXETH_FLAG_PHY_ERROR 0x1000u
#define NXETH_FLAG_INVALID_LENGTH 0x2000u
#define NXETH_FLAG_INVALID_FCS 0x4000u
#define NXETH_FLAG_RX_BUFFER_OVERFLOW 0x8000u
#define NXETH_FLAG_READ_PERIOD_TOO_LONG 0x10000u

/* ulInterfaceCapabilities of NXSEthInterfaceInfo. */
#define NXETH_CAPABILITY_HIGH_SPEED_REPLAY 0x100u

/* ulValidInfoFlags of NXSEthReplayStatusInfo. */
#define NXETH_REPLAY_INFO_VALID_ALL 0x7Fu

/* tHeader.reserved1 of a replay record. */
#define NXETH_REPLAY_RECORD_MARK 0x4E584500u
#define NXETH_REPLAY_RECORD_END_OF_STREAM 0x1u

/* The read buffer: NXETH_GetInterfaceBufferSize. */
#define NXETH_RAW_FRAME_HEADER_SIZE 32u
#define NXETH_FCS_SIZE 4u
#define NXETH_SAMPLING_PERIOD_US 5000u
#define NXETH_MIN_FRAME_WIRE_BYTES 84u /* 64-byte frame, preamble and gap */

#ifdef __cplusplus
#define NXETH_ENUM(name) enum name : uint32_t
#else
#define NXETH_ENUM(name) enum name
#endif

typedef NXETH_ENUM(NXEEthInterfacesSearchAttributeType) {
    NXETH_SEARCH_ARRTIBUTE_TYPE_IP_V4_ADDRESS = 1
} NXEEthInterfacesSearchAttributeType;

typedef NXETH_ENUM(NXEEthFrameType) {
    NXETH_FRAME_TYPE_ETHERNET_FRAME = 1,
    NXETH_FRAME_TYPE_LOOPBACK_FRAME = 2,
    NXETH_FRAME_TYPE_ETHERNET_FRAME_WITHOUT_FCS = 3
} NXEEthFrameType;

typedef NXETH_ENUM(NXEEthReplayStartOptions) {
    NXETH_REPLAY_OPTION_NONE = 0,
    NXETH_REPLAY_OPTION_FORCE_APPLY = 1,
    NXETH_REPLAY_OPTION_APPLY_OFFSET_ONLY = 2
} NXEEthReplayStartOptions;

typedef NXETH_ENUM(NXEEthReplayState) {
    NXETH_REPLAY_STATE_UNKNOWN = 0,
    NXETH_REPLAY_STATE_SCHEDULED = 1,
    NXETH_REPLAY_STATE_STARTED = 2,
    NXETH_REPLAY_STATE_STOP = 3,
    NXETH_REPLAY_STATE_END = 4,
    NXETH_REPLAY_STATE_FLUSH = 5,
    NXETH_REPLAY_STATE_INVALID = 255
} NXEEthReplayState;

typedef struct NXSEthInterfaceInfo {
    char szAccessProviderName[256];
    char szInterfaceName[256];
    char szInterfaceSerialNumber[256];
    char szInterfaceIdentifier[256];
    uint8_t ucInterfaceMacAddress[6];
    uint32_t ulInterfaceCapabilities;
} NXSEthInterfaceInfo;

typedef struct NXSEthInterfacesSearchAttribute {
    NXEEthInterfacesSearchAttributeType tSearchAttributeType;
    char szSearchAttribute[256];
} NXSEthInterfacesSearchAttribute;

typedef struct NXSEthRawFrameHeader {
    NXEEthFrameType tFrameType;
    uint32_t ulFlags;
    uint64_t ui64Timestamp;
    uint64_t ui64ControllerTimestamp;
    uint32_t ulRawDataLength;
    uint32_t reserved;
} NXSEthRawFrameHeader;

/* In a block of frames the frame bytes begin at tRawData and run on for
 * ulRawDataLength bytes; the next frame follows right after them. */
typedef struct NXSEthRawFrame {
    NXSEthRawFrameHeader tHeader;
    uint8_t tRawData[8];
} NXSEthRawFrame;

typedef struct NXSEthReplayHeader {
    uint32_t reserved1; /* the record mark; bit 0: end of stream */
    uint32_t reserved2;
    uint32_t reserved3;
    uint32_t ulSize;
    uint64_t ui64Timestamp;
    uint64_t reserved4;
} NXSEthReplayHeader;

typedef struct NXSEthReplayFrameHeader {
    NXEEthFrameType tFrameType;
    uint32_t ulRawDataLength;
    uint32_t ulFlags;
    uint32_t reserved;
} NXSEthReplayFrameHeader;

typedef struct NXSEthReplayData {
    NXSEthReplayHeader tHeader;
    NXSEthReplayFrameHeader tMsgHeader;
    uint64_t ui64StartOfFrameData;
} NXSEthReplayData;

typedef struct NXSEthReplayStatusInfo {
    uint32_t ulValidInfoFlags;
    NXEEthReplayState tReplayState;
    uint64_t ui64Timestamp;
    uint64_t ui64SentFrames;
    uint64_t ui64ErrorData;
    uint64_t ui64SendFailed;
    uint64_t ui64Dropped;
    uint32_t Reserved[6];
} NXSEthReplayStatusInfo;

NXETH_API NXTEthError NXETH_GetAvailableInterfacesCount(uint32_t* count, uint32_t attributeCount,
                                                        NXSEthInterfacesSearchAttribute* attributes);
NXETH_API NXTEthError NXETH_GetAvailableInterfaces(uint32_t* count, NXSEthInterfaceInfo* interfaces,
                                                   uint32_t attributeCount,
                                                   NXSEthInterfacesSearchAttribute* attributes);
NXETH_API NXTEthError NXETH_RegisterInterface(char* accessProvider, char* interfaceName, char* serial,
                                              char* interfaceIdentifier, NXTEthHandle* handle);
NXETH_API NXTEthError NXETH_UnregisterInterface(NXTEthHandle handle);
NXETH_API NXTEthError NXETH_GetInterfaceBufferSize(NXTEthHandle handle, uint32_t* size);
NXETH_API NXTEthError NXETH_IsInterfaceAccessible(NXTEthHandle handle, bool* accessible);
NXETH_API NXTEthError NXETH_InitInterface(NXTEthHandle handle);
NXETH_API NXTEthError NXETH_ActivateInterface(NXTEthHandle handle);
NXETH_API NXTEthError NXETH_DeactivateInterface(NXTEthHandle handle);
/* *controllerTicksPerSecond: the controller's clock, the same here. */
NXETH_API NXTEthError NXETH_GetTimeResolution(NXTEthHandle handle, uint64_t* ticksPerSecond,
                                              uint64_t* controllerTicksPerSecond);
NXETH_API NXTEthError NXETH_GetTime(NXTEthHandle handle, uint64_t* ticks, uint64_t* controllerTicks);
/* *frameCount receives the number of frames placed in the buffer. */
NXETH_API NXTEthError NXETH_ReadFrames(NXTEthHandle handle, uint32_t bufferSize, uint8_t* buffer,
                                       uint32_t* frameCount);
NXETH_API NXTEthError NXETH_FlushReceiveQueue(NXTEthHandle handle);
/* *framesSent receives the number of frames that went out. */
NXETH_API NXTEthError NXETH_TransmitFrames(NXTEthHandle handle, uint32_t size, uint8_t* frames,
                                           uint32_t* framesSent);
NXETH_API NXTEthError NXETH_FlushTransmitQueue(NXTEthHandle handle);
NXETH_API NXTEthError NXETH_GetErrorText(NXTEthError error, char* text);
NXETH_API NXTEthError NXETH_GetLastAccessProviderSpecificError(NXTEthHandle handle, int32_t* code, char* text);
NXETH_API NXTEthError NXETH_SetFilter(NXTEthHandle handle, char* filter);
NXETH_API NXTEthError NXETH_SetReplayStartTime(NXTEthHandle handle, uint64_t startTime, uint64_t offset,
                                               NXEEthReplayStartOptions option, uint64_t reserved);
NXETH_API NXTEthError NXETH_SetReplayStopTime(NXTEthHandle handle, uint64_t stopTime);
NXETH_API NXTEthError NXETH_ReplayStreamData(NXTEthHandle handle, uint32_t* size, uint8_t* data);
NXETH_API NXTEthError NXETH_ReplayInitHeader(NXSEthReplayData* record, bool endOfFile, uint16_t frameLength,
                                             uint32_t* size);
NXETH_API NXTEthError NXETH_GetReplayStateInfo(NXTEthHandle handle, NXSEthReplayStatusInfo* info);
NXETH_API NXTEthError NXETH_RegisterReplayInterface(char* accessProvider, char* interfaceName, char* serial,
                                                    char* interfaceIdentifier, NXTEthHandle* handle,
                                                    bool highSpeed, uint64_t reserved);

#ifdef __cplusplus
} /* extern "C" */
#define NXETH_LAYOUT_CHECK(cond, what) static_assert(cond, what)
#else
#define NXETH_LAYOUT_CHECK(cond, what) _Static_assert(cond, what)
#endif

NXETH_LAYOUT_CHECK(sizeof(NXSEthInterfaceInfo) == 1036, "NXSEthInterfaceInfo size");
NXETH_LAYOUT_CHECK(offsetof(NXSEthInterfaceInfo, szInterfaceName) == 256, "szInterfaceName");
NXETH_LAYOUT_CHECK(offsetof(NXSEthInterfaceInfo, szInterfaceSerialNumber) == 512, "szInterfaceSerialNumber");
NXETH_LAYOUT_CHECK(offsetof(NXSEthInterfaceInfo, szInterfaceIdentifier) == 768, "szInterfaceIdentifier");
NXETH_LAYOUT_CHECK(offsetof(NXSEthInterfaceInfo, ucInterfaceMacAddress) == 1024, "ucInterfaceMacAddress");
NXETH_LAYOUT_CHECK(offsetof(NXSEthInterfaceInfo, ulInterfaceCapabilities) == 1032, "ulInterfaceCapabilities");
NXETH_LAYOUT_CHECK(sizeof(NXSEthInterfacesSearchAttribute) == 260, "NXSEthInterfacesSearchAttribute size");
NXETH_LAYOUT_CHECK(offsetof(NXSEthInterfacesSearchAttribute, szSearchAttribute) == 4, "szSearchAttribute");
NXETH_LAYOUT_CHECK(sizeof(NXSEthRawFrameHeader) == 32, "NXSEthRawFrameHeader size");
NXETH_LAYOUT_CHECK(offsetof(NXSEthRawFrameHeader, ulFlags) == 4, "ulFlags");
NXETH_LAYOUT_CHECK(offsetof(NXSEthRawFrameHeader, ui64Timestamp) == 8, "ui64Timestamp");
NXETH_LAYOUT_CHECK(offsetof(NXSEthRawFrameHeader, ui64ControllerTimestamp) == 16, "ui64ControllerTimestamp");
NXETH_LAYOUT_CHECK(offsetof(NXSEthRawFrameHeader, ulRawDataLength) == 24, "ulRawDataLength");
NXETH_LAYOUT_CHECK(offsetof(NXSEthRawFrameHeader, reserved) == 28, "raw reserved");
NXETH_LAYOUT_CHECK(sizeof(NXSEthRawFrame) == 40, "NXSEthRawFrame size");
NXETH_LAYOUT_CHECK(offsetof(NXSEthRawFrame, tRawData) == 32, "tRawData");
NXETH_LAYOUT_CHECK(sizeof(NXSEthReplayHeader) == 32, "NXSEthReplayHeader size");
NXETH_LAYOUT_CHECK(offsetof(NXSEthReplayHeader, ulSize) == 12, "ulSize");
NXETH_LAYOUT_CHECK(offsetof(NXSEthReplayHeader, ui64Timestamp) == 16, "header ui64Timestamp");
NXETH_LAYOUT_CHECK(offsetof(NXSEthReplayHeader, reserved4) == 24, "reserved4");
NXETH_LAYOUT_CHECK(sizeof(NXSEthReplayFrameHeader) == 16, "NXSEthReplayFrameHeader size");
NXETH_LAYOUT_CHECK(offsetof(NXSEthReplayFrameHeader, ulRawDataLength) == 4, "replay ulRawDataLength");
NXETH_LAYOUT_CHECK(offsetof(NXSEthReplayFrameHeader, ulFlags) == 8, "replay ulFlags");
NXETH_LAYOUT_CHECK(offsetof(NXSEthReplayFrameHeader, reserved) == 12, "replay reserved");
NXETH_LAYOUT_CHECK(sizeof(NXSEthReplayData) == 56, "NXSEthReplayData size");
NXETH_LAYOUT_CHECK(offsetof(NXSEthReplayData, tMsgHeader) == 32, "tMsgHeader");
NXETH_LAYOUT_CHECK(offsetof(NXSEthReplayData, ui64StartOfFrameData) == 48, "ui64StartOfFrameData");
NXETH_LAYOUT_CHECK(sizeof(NXSEthReplayStatusInfo) == 72, "NXSEthReplayStatusInfo size");
NXETH_LAYOUT_CHECK(offsetof(NXSEthReplayStatusInfo, tReplayState) == 4, "tReplayState");
NXETH_LAYOUT_CHECK(offsetof(NXSEthReplayStatusInfo, ui64Timestamp) == 8, "status ui64Timestamp");
NXETH_LAYOUT_CHECK(offsetof(NXSEthReplayStatusInfo, ui64SentFrames) == 16, "ui64SentFrames");
NXETH_LAYOUT_CHECK(offsetof(NXSEthReplayStatusInfo, ui64ErrorData) == 24, "ui64ErrorData");
NXETH_LAYOUT_CHECK(offsetof(NXSEthReplayStatusInfo, ui64SendFailed) == 32, "ui64SendFailed");
NXETH_LAYOUT_CHECK(offsetof(NXSEthReplayStatusInfo, ui64Dropped) == 40, "ui64Dropped");
NXETH_LAYOUT_CHECK(offsetof(NXSEthReplayStatusInfo, Reserved) == 48, "Reserved");
NXETH_LAYOUT_CHECK(sizeof(NXEEthFrameType) == 4, "enumerations are 32-bit");

#undef NXETH_LAYOUT_CHECK

#endif /* NX_BUS_API_ETHERNET_H */
