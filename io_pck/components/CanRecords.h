// One view of a CAN frame whichever of the three records carries it, and the
// way back: what the components of this package read and write.
#ifndef VELDOR_IO_CAN_RECORDS_H
#define VELDOR_IO_CAN_RECORDS_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "PrintedLines.h"
#include "veld_can_frames.h"
#include "veld_types.h"

class VELDIOElt;

namespace veldor_io {

// The records by their index in the components' output_type enum.
enum RecordKind { ClassicRecord = 0, FdRecord = 1, UniversalRecord = 2 };
// "CAN|CAN FD|Universal CAN"
extern const char* const kRecordKinds;

// A frame as the printer and the statistics see it. A flag that the record
// cannot tell (FD in a classic record) is false; fdKnown tells whether the
// record said.
struct FrameView {
    std::uint32_t id;
    bool extended;
    int length;  // bytes, as the record says; may be negative in a broken record
    const std::uint8_t* data;
    int capacity;  // bytes the record can hold
    bool fd;
    bool brs;
    bool remote;
    VELDTimestamp ts;
    bool fdKnown = false;  // the record says whether the frame is FD
};

// The record kind of an element's type, or -1 for one that is no CAN frame.
int KindOf(VELDIOElt& element);
// Frame `i` of an element of that kind.
FrameView ViewOf(VELDIOElt& element, int kind, int i);
// The type value of a record kind.
VELDTypeInfoValue TypeOf(int kind);

// What a frame is made of, for the writers.
struct FrameFields {
    std::uint32_t id;
    bool extended;
    int length;
    bool fd;   // universal record only; the FD record is FD by kind
    bool brs;  // universal record only
    VELDTimestamp ts;
    bool remote = false;  // classic and universal records; the FD record has no remote frames
    int channel = -1;     // universal record only; -1: not told
};
// Writes frame `i` of an element of that kind; `data` holds `length` bytes.
void WriteFrame(VELDIOElt& element, int kind, int i, const FrameFields& fields, const std::uint8_t* data);

// "(<s>.<us>) <id> [<len>] <data...>[  <flags>]": standard identifiers in 3
// hex digits, extended ones in 8; flags FD, BRS, RTR as the record knows
// them.
std::string FormatFrame(const FrameView& frame);

// The counter a generator writes into its frames: the first four payload
// bytes, little-endian, as many as the frame has.
std::uint32_t CounterOf(const FrameView& frame);

}  // namespace veldor_io

#endif
