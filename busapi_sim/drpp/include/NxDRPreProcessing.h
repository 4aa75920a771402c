/*
 * NxDRPreProcessing.h - replay pre-processing stage, open edition.
 *
 * libNxDRPreProcessing.so sits between a replay's source of frames and the
 * Ethernet bus library that streams them. Records go in one by one or in
 * blocks (NxDRPP_InsertFrames) and come out, put in order and with
 * fragmented messages made whole, as blocks ready for streaming
 * (NxDRPP_GetFrames). This header is the whole contract; the library
 * exports the six NxDRPP_ operations below and nothing else.
 *
 * RECORDS
 *   A block is a sequence of records laid back to back. A record is the
 *   56-byte head NxDRPPRecord followed by the rest of its frame, little-
 *   endian, exactly as the Ethernet library's NXETH_ReplayInitHeader makes
 *   it and NXETH_ReplayStreamData takes it:
 *     reserved1      record mark 0x4E584500, OR 0x1 on the closing record
 *     ulSize         56 + round_up_to_8(max(0, ulRawDataLength - 8)),
 *                    i.e. 48 + the frame rounded up to 8 bytes, at least 56
 *     ui64Timestamp  the record time in hardware ticks (any unit; the stage
 *                    only compares times, it never converts them)
 *     tFrameType     1: frame with a 4-byte check sequence at its end,
 *                    3: frame without, 2: loopback frame
 *     ulRawDataLength  frame bytes from offset 48 on, at most 65535
 *   The closing record (end of stream) has length 0 and size 56; its time
 *   is not looked at. The other reserved fields and ulFlags are carried,
 *   not checked.
 *   A record whose mark is wrong, whose size breaks the rule, whose length
 *   exceeds 65535 or which closes with a length other than 0 is corrupt
 *   (NXDRPP_CORRUPTED_DATA); a record that runs past the offered bytes is
 *   incomplete (NXDRPP_INCOMPLETE_FRAME).
 *   Records leave the stage as they came in, byte for byte, with a single
 *   exception: the fragments of a reassembled message and the segments of
 *   a TCP connection that the stage puts back in order get the recorded
 *   times of their group in ascending order (see ORDER), so that only the
 *   order is mended and the timing pattern of the recording is kept. The
 *   stage never makes a record up, never splits one and never changes a
 *   frame byte.
 *
 * THE TWO NUMBERS
 *   NxDRPP_CreateHandle(handle, minFillLevel F, maxBufferDepth D, protocol),
 *   both counted in records (a replay typically uses F 10, D 1000):
 *   - D is the most the stage holds. A record that would make it hold more
 *     is not taken: NxDRPP_InsertFrames answers NXDRPP_BUFFER_FULL; the
 *     caller gives frames out with NxDRPP_GetFrames and offers it again.
 *     The closing record is the one exception: it takes no room, so the
 *     end of a stream is always accepted (one closing record at a time).
 *   - F is the reordering window. A record is released for output only
 *     while at least F records wait in the window, so F - 1 records that
 *     came after it have been seen before it leaves; F 1 passes records
 *     straight on.
 *     While the stage holds fewer than F records and no closing record,
 *     NxDRPP_GetFrames gives out nothing and answers
 *     NXDRPP_NOT_REACHED_MIN_FILL_LEVEL.
 *   Valid: 1 <= F < D <= NXDRPP_MAX_BUFFER_DEPTH.
 *
 * ORDER AND WINDOW
 *   Records that the stage takes wait in the window, ordered by recorded
 *   time (records with equal times keep their order of arrival). Whenever
 *   the window holds F records or more, its earliest record is released to
 *   the output queue, from which NxDRPP_GetFrames copies. Release is decided
 *   when a record is taken, never by the clock or by when GetFrames is
 *   called: the same input gives the same output. A recording whose frames
 *   are out of order by less than the window leaves in timestamp order. A
 *   record later than that (its time is before a time already released)
 *   is not dropped: it is the next to be released, behind what already
 *   left.
 *   Groups: the fragments of a message (UDP, SOME/IP TP) and the segments
 *   of a TCP connection are grouped. The times of a group's records stay
 *   in the window as they came; each time the earliest of them is due, the
 *   group's next record in its own order (fragment offset, TCP sequence)
 *   leaves with that time. Other traffic stamped between them stays
 *   between them.
 *   A message that is not yet complete holds the window at its earliest
 *   time: nothing stamped after it is released before it is complete, so
 *   that what leaves stays in timestamp order. It cannot hold it for ever:
 *   - time-out in recorded time: a message is given up (dropped) once F
 *     records stamped later than its newest fragment have been taken since
 *     that fragment (the missing part would have come within the window);
 *   - depth: when the window itself is full (D records, none waiting for
 *     output) the message that holds it is given up, and the record is
 *     taken;
 *   - end of stream: the closing record releases everything that can
 *     leave, gives up the messages that are not complete, and leaves last.
 *   A message given up, and one that is complete, is remembered (without
 *   its frames) for one more such time-out from then: a fragment of it
 *   that comes meanwhile (a straggler, a late duplicate) is dropped
 *   instead of starting a message that could not complete.
 *   Memory is bounded by D whatever the input: at most D records (each at
 *   most 65584 bytes), at most 2 D remembered groups (messages, TCP
 *   directions; the least recently seen without records forgotten first)
 *   and 2 D SOME/IP session starts.
 *
 * PROTOCOLS
 *   Frames are Ethernet II, untagged or with one or two VLAN tags (0x8100,
 *   0x88A8, 0x9100); types 1 and 3 are looked into, loopback frames and
 *   anything that is not IPv4 pass as they are. IPv4 options are allowed.
 *   NXDRPP_GENERIC: records leave in timestamp order within the window.
 *     Nothing else changes.
 *   NXDRPP_UDP: IPv4 fragments (MF set or an offset) of one datagram - same
 *     source, destination, protocol, identification and VLAN tags - are
 *     held until the datagram is complete, then leave in offset order.
 *     Dropped: a datagram not complete within the window (as above); one
 *     with overlapping fragments, with a fragment past the end, with two
 *     different ends, or with a non-last fragment whose payload is empty or
 *     not a multiple of 8 (current IPv4 practice discards these whole); an
 *     exact duplicate of a fragment (same offset, length, MF and payload),
 *     alone. Unfragmented frames pass as in NXDRPP_GENERIC.
 *   NXDRPP_SOMEIP: SOME/IP TP segments: unfragmented IPv4/UDP datagrams
 *     that carry exactly one SOME/IP message of protocol version 1 whose
 *     message type has the TP flag 0x20 and whose length field matches the
 *     datagram. The TP header after the 16-byte SOME/IP header gives the
 *     offset (its upper 28 bits, in units of 16 bytes) and the more-segments
 *     bit (bit 0). A message is keyed by addresses, ports, message ID,
 *     request ID (client and session ID), interface version, message type
 *     without the TP flag and VLAN tags: a new session starts a message of
 *     its own. A message must be complete with segments stamped before the
 *     first segment of a later session of the same key; a segment of it
 *     stamped after that cancels it (dropped), as a receiver has moved on
 *     by then. This is decided in recorded time, not in order of arrival,
 *     so that consecutive messages of a slightly disordered recording both
 *     survive. Overlaps: the first-received bytes win; a segment that adds
 *     no byte is dropped (an exact duplicate or a redundant copy), one that
 *     contradicts bytes or the end already received is dropped, one that
 *     overlaps in agreement is kept (every receiver then reassembles the
 *     same bytes). A non-last segment whose payload is empty or not a
 *     multiple of 16 cancels its message.
 *     Other frames pass as in NXDRPP_GENERIC; IPv4 fragments are not joined.
 *   NXDRPP_TCP: segments of one connection direction (addresses, ports,
 *     VLAN tags) leave in sequence order (serial-number arithmetic) within
 *     the window. An exact retransmission - a segment with the sequence
 *     number, length, SYN and FIN of a segment of the same direction that
 *     is in the window or among its last 64 given out, and the same payload
 *     - is dropped. Segments without payload, SYN or FIN (pure
 *     acknowledgements) are never dropped.
 *   NXDRPP_UNDEFINED_PROTOCOL and any other value: NXDRPP_NOT_SUPPORTED_PROTOCOL.
 *
 * DROPS AND STATISTICS
 *   Every record taken is counted once in numOfTotalFrames; while the stage
 *   holds it, in numOfFramesInOutputQueue (and its bytes in
 *   numOfBytesInOutputQueue); when it leaves, in numOfProcessedFrames (and
 *   numOfProcessedBytes). A record the stage drops is in neither of the
 *   last two, so at any time
 *     dropped = numOfTotalFrames - numOfProcessedFrames - numOfFramesInOutputQueue.
 *   The stage drops nothing but: the fragments of a datagram or message
 *   given up, cancelled or discarded (above); fragments that come while
 *   their message is remembered as given up or complete; exact duplicates
 *   of fragments, redundant and contradicting SOME/IP TP segments; exact
 *   TCP retransmissions; whatever NxDRPP_FlushBuffers discards. numOfFramesReadyToRead is what the next
 *   NxDRPP_GetFrames would give out with room enough. Closing records are
 *   records in all these counts. Records refused (corrupt, incomplete, not
 *   taken at the depth) are not counted: they were not taken.
 *
 * THREADS
 *   A handle is not safe for concurrent calls: the caller serialises the
 *   calls on one handle (the replay wrapper holds its lock around each).
 *   Handles are independent of one another; the library has no global
 *   state. No call blocks, sleeps or allocates on the steady path.
 */
#ifndef NX_DR_PRE_PROCESSING_H
#define NX_DR_PRE_PROCESSING_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define NXDRPP_API __attribute__((visibility("default")))
#else
#define NXDRPP_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* In C++ the enumerations have a fixed 32-bit underlying type, the same
 * size and passing convention as the C enumerations, so that any value a
 * caller passes is representable and can be checked. */
#ifdef __cplusplus
#define NXDRPP_ENUM(name) enum name : uint32_t
#else
#define NXDRPP_ENUM(name) enum name
#endif

typedef struct NxDRPPStage* NxDRPPHandle;

typedef NXDRPP_ENUM(NxDRPPProtocolType) {
    NXDRPP_UNDEFINED_PROTOCOL = 0,
    NXDRPP_SOMEIP = 1,
    NXDRPP_TCP = 2,
    NXDRPP_UDP = 3,
    NXDRPP_GENERIC = 4
} NxDRPPProtocolType;

typedef NXDRPP_ENUM(NxDRPPErrorCode) {
    NXDRPP_NO_ERROR = 0,
    NXDRPP_NULL_POINTER_ERROR = 1,
    NXDRPP_NOT_SUPPORTED_PROTOCOL = 2,
    NXDRPP_INVALID_MIN_FILL_LEVEL = 3,
    NXDRPP_NOT_REACHED_MIN_FILL_LEVEL = 4,
    NXDRPP_INVALID_MAX_BUFFER_DEPTH = 5,
    NXDRPP_BUFFER_FULL = 6,
    NXDRPP_MIN_FILL_LEVEL_EQUAL_MAX_BUFFER_DEPTH = 7,
    NXDRPP_CORRUPTED_DATA = 8,
    NXDRPP_INCOMPLETE_FRAME = 9
} NxDRPPErrorCode;

typedef struct NxDRPPStatistics {
    uint64_t numOfTotalFrames;
    uint64_t numOfProcessedFrames;
    uint64_t numOfProcessedBytes;
    uint64_t numOfFramesInOutputQueue;
    uint64_t numOfBytesInOutputQueue;
    uint64_t numOfFramesReadyToRead;
} NxDRPPStatistics;

/* The record, as the Ethernet library lays it out; the frame starts at
 * ui64StartOfFrameData and runs on past the end of the structure. */
typedef struct NxDRPPRecordHeader {
    uint32_t reserved1; /* mark */
    uint32_t reserved2;
    uint32_t reserved3;
    uint32_t ulSize;
    uint64_t ui64Timestamp;
    uint64_t reserved4;
} NxDRPPRecordHeader;

typedef struct NxDRPPFrameHeader {
    uint32_t tFrameType;
    uint32_t ulRawDataLength;
    uint32_t ulFlags;
    uint32_t reserved;
} NxDRPPFrameHeader;

typedef struct NxDRPPRecord {
    NxDRPPRecordHeader tHeader;
    NxDRPPFrameHeader tMsgHeader;
    uint64_t ui64StartOfFrameData;
} NxDRPPRecord;

#define NXDRPP_RECORD_MARK 0x4E584500u
#define NXDRPP_RECORD_MARK_CLOSING 0x4E584501u
#define NXDRPP_RECORD_HEAD_SIZE 56u
#define NXDRPP_RECORD_FRAME_OFFSET 48u
#define NXDRPP_MAX_FRAME_LENGTH 65535u
#define NXDRPP_MAX_BUFFER_DEPTH 65536u
/* The size of a record whose frame has `length` bytes (length <= 65535). */
#define NXDRPP_RECORD_SIZE(length) \
    (NXDRPP_RECORD_HEAD_SIZE + ((length) > 8u ? (((length) - 8u + 7u) & ~7u) : 0u))

/* Frame types (tFrameType). */
#define NXDRPP_FRAME_WITH_FCS 1u
#define NXDRPP_FRAME_LOOPBACK 2u
#define NXDRPP_FRAME_WITHOUT_FCS 3u

/*
 * Makes a stage. handle null: NXDRPP_NULL_POINTER_ERROR. Then the protocol:
 * NXDRPP_NOT_SUPPORTED_PROTOCOL. Then the numbers: D of 0 or above
 * NXDRPP_MAX_BUFFER_DEPTH, NXDRPP_INVALID_MAX_BUFFER_DEPTH; F equal to D,
 * NXDRPP_MIN_FILL_LEVEL_EQUAL_MAX_BUFFER_DEPTH; F of 0 or above D,
 * NXDRPP_INVALID_MIN_FILL_LEVEL. On any error *handle is set to null.
 */
NXDRPP_API NxDRPPErrorCode NxDRPP_CreateHandle(NxDRPPHandle* handle, uint64_t minFillLevel,
                                               uint64_t maxBufferDepth, NxDRPPProtocolType protocol);

/* Ends a stage and everything it holds; *handle becomes null. handle or
 * *handle null: NXDRPP_NULL_POINTER_ERROR. */
NXDRPP_API NxDRPPErrorCode NxDRPP_DestroyHandle(NxDRPPHandle* handle);

/*
 * Takes the records of data[0, size) in order, whole records only, and
 * writes in *consumed the bytes of those taken (or dropped, see DROPS).
 * *endOfStream in: true when this block ends the stream; a closing record
 * in the block ends it as well. If the block ends the stream without a
 * closing record, the stream ends after its last record as though one had
 * come, but no closing record leaves. The flag is read, never written.
 * Answers, at the first record that is not taken:
 *   NXDRPP_CORRUPTED_DATA, NXDRPP_INCOMPLETE_FRAME: the record is broken
 *     (RECORDS); the records before it were taken.
 *   NXDRPP_BUFFER_FULL: the stage holds D records and none of the window's
 *     messages can be given up for it, or a second closing record comes
 *     while the first is still held. Nothing of that record was taken;
 *     offer it again after NxDRPP_GetFrames.
 * A null pointer (handle, data, endOfStream, consumed):
 * NXDRPP_NULL_POINTER_ERROR, nothing taken. size 0: NXDRPP_NO_ERROR.
 */
NXDRPP_API NxDRPPErrorCode NxDRPP_InsertFrames(NxDRPPHandle handle, uint8_t* data, uint64_t size,
                                               bool* endOfStream, uint64_t* consumed);

/*
 * Copies released records to destination[0, room), whole records in their
 * order of release, as many as fit, and writes their bytes in *written.
 * A record that does not fit waits for the next call (NXDRPP_NO_ERROR, and
 * 0 if it is the first). drain false (what a replay passes): while the
 * stage holds fewer than F records and no closing record, nothing is given
 * out and the answer is NXDRPP_NOT_REACHED_MIN_FILL_LEVEL. drain true: the
 * fill level is not waited for; every record of the window that no
 * incomplete message holds back is released first. The closing record
 * leaves last, after every record of its stream that can still leave.
 * A null pointer (handle, destination, written): NXDRPP_NULL_POINTER_ERROR.
 */
NXDRPP_API NxDRPPErrorCode NxDRPP_GetFrames(NxDRPPHandle handle, uint8_t* destination, uint64_t room,
                                            bool drain, uint64_t* written);

/* Discards everything the stage holds (window, messages, output queue,
 * closing record), counted as dropped, and starts a new stream. */
NXDRPP_API NxDRPPErrorCode NxDRPP_FlushBuffers(NxDRPPHandle handle);

/* Fills *statistics (see DROPS AND STATISTICS). */
NXDRPP_API NxDRPPErrorCode NxDRPP_GetStatistics(NxDRPPHandle handle, NxDRPPStatistics* statistics);

#ifdef __cplusplus
}
#endif

/* The layout, checked wherever the header is compiled. */
#ifdef __cplusplus
#define NXDRPP_STATIC_ASSERT(condition, text) static_assert(condition, text)
#else
#define NXDRPP_STATIC_ASSERT(condition, text) _Static_assert(condition, text)
#endif
NXDRPP_STATIC_ASSERT(sizeof(NxDRPPProtocolType) == 4, "NxDRPPProtocolType is 32 bits");
NXDRPP_STATIC_ASSERT(sizeof(NxDRPPErrorCode) == 4, "NxDRPPErrorCode is 32 bits");
NXDRPP_STATIC_ASSERT(sizeof(NxDRPPStatistics) == 48, "NxDRPPStatistics is 48 bytes");
NXDRPP_STATIC_ASSERT(sizeof(NxDRPPRecordHeader) == 32, "record header is 32 bytes");
NXDRPP_STATIC_ASSERT(sizeof(NxDRPPFrameHeader) == 16, "frame header is 16 bytes");
NXDRPP_STATIC_ASSERT(sizeof(NxDRPPRecord) == NXDRPP_RECORD_HEAD_SIZE, "record head is 56 bytes");
NXDRPP_STATIC_ASSERT(offsetof(NxDRPPRecord, tHeader.ulSize) == 12, "ulSize at 12");
NXDRPP_STATIC_ASSERT(offsetof(NxDRPPRecord, tHeader.ui64Timestamp) == 16, "ui64Timestamp at 16");
NXDRPP_STATIC_ASSERT(offsetof(NxDRPPRecord, tMsgHeader.tFrameType) == 32, "tFrameType at 32");
NXDRPP_STATIC_ASSERT(offsetof(NxDRPPRecord, tMsgHeader.ulRawDataLength) == 36, "ulRawDataLength at 36");
NXDRPP_STATIC_ASSERT(offsetof(NxDRPPRecord, ui64StartOfFrameData) == NXDRPP_RECORD_FRAME_OFFSET,
                     "frame at 48");
NXDRPP_STATIC_ASSERT(offsetof(NxDRPPStatistics, numOfFramesReadyToRead) == 40, "statistics order");

#endif /* NX_DR_PRE_PROCESSING_H */
