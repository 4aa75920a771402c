// Writer of the Linux can-utils log format (see CanUtilsLogReader.h).
// Every line ends in the frame's direction, as python-can writes it and
// can-utils passes over:
//
//     (1700000000.123456) can0 123#0102030405060708 R
//     (1700000000.223456) can1 1ABCDEF0#AABB T
//     (1700000000.323456) can0 7FF#R4 R
//     (1700000000.423456) can0 456##1000102030405060708090A0B R
//     (1700000000.523456) can0 20000080#0000000000000000 R
//
// An error frame has the error flag on its identifier (the error class)
// and its data.
#ifndef VELDOR_CAN_LOG_CAN_UTILS_LOG_WRITER_H
#define VELDOR_CAN_LOG_CAN_UTILS_LOG_WRITER_H

#include <memory>
#include <string>

#include "can_log/FrameWriter.h"
#include "can_log/LogOptions.h"

namespace veldor::canlog {

class CanUtilsLogWriter : public FrameWriter {
public:
    // Creates or empties the file; null if it cannot, and `error` says why.
    static std::unique_ptr<CanUtilsLogWriter> Open(const std::string& path, std::string& error,
                                                   const WriterOptions& options = WriterOptions());

private:
    explicit CanUtilsLogWriter(const WriterOptions& options);

    void Format(const CanFrame& frame) override;

    std::string m_prefix;
};

}  // namespace veldor::canlog

#endif
