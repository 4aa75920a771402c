// Reader of ASC text logs, the format in which the common CAN tools write
// and read traces:
//
//     date Tue Nov 14 10:13:20.123 pm 2023
//     base hex  timestamps absolute
//     internal events logged
//     Begin Triggerblock Tue Nov 14 10:13:20.123 pm 2023
//        0.000000 Start of measurement
//        0.000456 1  123             Rx   d 2 01 02
//        0.100000 CANFD   1 Rx        456  1 0 9 12 00 ... 0B  0 0  3000 0 0 0 0 0
//     End TriggerBlock
//
// A frame's time is the start of the measurement (the date of the Begin
// Triggerblock line, else of the date line, else 0) plus the seconds in
// front of the line; with "timestamps relative" those seconds count from
// the line before. Dates come with English or German month and weekday
// names, on a 12-hour clock (am, pm) or a 24-hour one. Identifiers and data
// are hex or, with "base dec", decimal; an "x" after an identifier marks it
// extended. Channels count from 1 in the file and from 0 in CanFrame.
//
// Classic lines read "<channel> <id> [Rx|Tx] d <dlc> <bytes>" or "... r
// [<dlc>]" with anything after the bytes passed over. CANFD lines read
// "CANFD <channel> <Rx|Tx> <id> [<name>] <brs> <esi> <dlc> <length>
// <bytes>", the bytes as many as the length says, and then as many of
// duration, bit count, flags, CRC and four bit timings as the writer gave;
// the flags, when there, tell an FD frame (EDL) from a classic one on an FD
// channel and mark remote frames. Under "base dec" some writers still give
// CANFD lines in hex: such a line is read in the base in which its
// identifier, DLC, length and bytes agree, and the first line so read is
// told in Notices(). A line that has the shape of a frame line but cannot
// be read is an issue; other lines (comments, events, bus statistics) are
// passed over, error frames counted. A file whose last Begin Triggerblock
// has no End TriggerBlock was cut short.
#ifndef VELDOR_CAN_LOG_ASC_READER_H
#define VELDOR_CAN_LOG_ASC_READER_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "can_log/FrameReader.h"
#include "can_log/LogOptions.h"

namespace veldor::canlog {

class Tokens;
struct LineTrouble;

struct AscHeader {
    bool hexBase = true;
    bool absoluteTimestamps = true;
    bool internalEventsLogged = false;
    // Microseconds since the epoch, once a date line has been read.
    std::optional<std::int64_t> measurementStart;
};

class AscReader : public LineFrameReader {
public:
    // Null if the file cannot be opened; `error` says why.
    static std::unique_ptr<AscReader> Open(const std::string& path, std::string& error,
                                           const ReaderOptions& options = ReaderOptions());

    // What the header lines read so far have said.
    const AscHeader& Header() const { return m_header; }

private:
    explicit AscReader(const ReaderOptions& options) : LineFrameReader(options) {}

    LineResult ParseLine(std::string_view line, CanFrame& frame) override;
    LineResult AtEnd() override;

    LineResult ParseKeywordLine(std::string_view first, Tokens& tokens);
    LineResult ParseDate(std::string_view text, bool fromTriggerBlock);
    LineResult ParseClassicLine(Tokens& tokens, CanFrame& frame);
    LineResult ParseFdLine(Tokens& tokens, CanFrame& frame);
    LineResult Fail(const LineTrouble& trouble);

    AscHeader m_header;
    // CANFD lines under "base dec" were found in hex: lines that read in
    // both bases are read in hex too.
    bool m_fdLinesInHex = false;
    bool m_startFromTriggerBlock = false;
    bool m_inTriggerBlock = false;
    std::int64_t m_lineTime = 0;  // seconds in front of the last timed line, summed up when relative
};

}  // namespace veldor::canlog

#endif
