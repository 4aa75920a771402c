// Reader of the Linux can-utils log format, one frame a line:
//
//     (1700000000.123456) can0 123#0102030405060708
//     (1700000000.223456) can1 1ABCDEF0#AABB T
//     (1700000000.323456) can0 7FF#R4
//     (1700000000.423456) can0 456##1000102030405060708090A0B
//
// The time is absolute, in seconds. The identifier has 3 hex digits
// (standard) or 8 (extended; with the error flag 0x20000000 set the line
// is an error frame, its class in the identifier). A line that starts with
// "#" is a comment. "R[len]" marks a remote
// frame; "##" an FD frame, followed by a hex digit of flags (1 BRS, 2 ESI)
// and the data. Data bytes may be separated by dots; an 8-byte classic frame
// may end in "_<dlc>", which is passed over. A trailing "R" or "T" gives the
// direction (Rx when missing). The channel is the number at the end of the
// interface name, 0 if it has none.
#ifndef VELDOR_CAN_LOG_CAN_UTILS_LOG_READER_H
#define VELDOR_CAN_LOG_CAN_UTILS_LOG_READER_H

#include <memory>
#include <string>

#include "can_log/FrameReader.h"

namespace veldor::canlog {

class CanUtilsLogReader : public LineFrameReader {
public:
    // Null if the file cannot be opened; `error` says why.
    static std::unique_ptr<CanUtilsLogReader> Open(const std::string& path, std::string& error,
                                                   const ReaderOptions& options = ReaderOptions());

private:
    explicit CanUtilsLogReader(const ReaderOptions& options) : LineFrameReader(options) {}

    LineResult ParseLine(std::string_view line, CanFrame& frame) override;
    LineResult ParseFrame(std::string_view text, CanFrame& frame);
    bool ReadChannel(std::string_view interfaceName, CanFrame& frame);
    bool ReadData(std::string_view text, std::size_t maxLength, CanFrame& frame);
};

}  // namespace veldor::canlog

#endif
