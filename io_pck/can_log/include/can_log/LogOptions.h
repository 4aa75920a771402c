// Settings of the readers and writers. Each format uses the fields that
// concern it and ignores the others, so one set serves a file whose format
// is chosen by its extension.
#ifndef VELDOR_CAN_LOG_LOG_OPTIONS_H
#define VELDOR_CAN_LOG_LOG_OPTIONS_H

#include <cstdint>
#include <optional>
#include <string>

namespace veldor::canlog {

// The clock of the calendar dates in an ASC header and a BLF file header.
// The tools write local time; a file meant to read the same everywhere uses
// UTC on both sides.
enum class DateZone { Local, Utc };

struct ReaderOptions {
    DateZone dateZone = DateZone::Local;  // ASC, BLF
    // Error frames handed on as frames with `error` set; otherwise they are
    // only counted.
    bool errorFrames = false;
};

struct WriterOptions {
    // ASC, BLF: the start of the measurement in microseconds since the
    // epoch, which the header dates show and the frame times count from. The
    // header has milliseconds only, so it is taken down to a whole
    // millisecond. Unset: the first frame's time, so taken down.
    std::optional<std::int64_t> measurementStart;
    // ASC: "timestamps relative": each frame's time counts from the frame
    // before, instead of from the start.
    bool relativeTimestamps = false;
    DateZone dateZone = DateZone::Local;  // ASC, BLF
    // BLF: the zlib level of the log containers, 1 (fastest) to 9 (smallest);
    // 0 stores them uncompressed. Level 1 writes about three times as fast
    // as zlib's default and makes files about a tenth larger.
    int compression = 1;
    // can-utils log: an interface is named this and its channel number.
    std::string interfacePrefix = "can";
};

}  // namespace veldor::canlog

#endif
