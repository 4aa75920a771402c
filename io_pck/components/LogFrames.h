// Between the frames of a log file and the frame records of a diagram, for
// the file player and the file recorder; and the time frames hold the bus,
// from which both tell the bus load they cause or see.
#ifndef VELDOR_IO_LOG_FRAMES_H
#define VELDOR_IO_LOG_FRAMES_H

#include <cstdint>

#include "CanRecords.h"
#include "can_log/CanFrame.h"

namespace veldor_io {

// A frame of a record as a log file holds it, its time moved by `offset`.
// Where the record does not tell an FD frame from a classic one (the CAN FD
// record; a universal record whose FD flag is unknown, which is what a bus
// monitor writes), a frame longer than 8 bytes or with a bit rate switch is
// taken for FD, any other for classic. Direction Rx, channel 0.
veldor::canlog::CanFrame ToLogFrame(const FrameView& frame, int kind, std::int64_t offset);

// Why a log frame can't go into a record of `kind`, or null when it can:
// an FD frame in a classic record, a remote frame in an FD record.
const char* UnfitFor(const veldor::canlog::CanFrame& frame, int kind);

// What WriteFrame needs to write a log frame.
FrameFields FieldsOf(const veldor::canlog::CanFrame& frame);

// Adds up how long frames hold a bus at given rates. Rates of 0 switch it
// off: Add does nothing and the total stays 0.
class BusTime {
public:
    void SetRates(std::int64_t arbitration, std::int64_t data);
    void Add(const veldor::canlog::CanFrame& frame);
    void Reset() { m_nanoseconds = 0; }
    // Microseconds.
    std::int64_t Total() const { return m_nanoseconds / 1000; }

private:
    std::int64_t m_arbitration = 0;
    std::int64_t m_data = 0;
    std::int64_t m_nanoseconds = 0;
};

}  // namespace veldor_io

#endif
