// Writer of ASC text logs (see AscReader.h for the format). The header goes
// out with the first frame, whose time fixes the start of the measurement
// unless the options give it; close writes "End TriggerBlock". Lines:
//
//        0.000456 1  123             Rx   d 2 01 02
//        0.000456 1  1ABCDEF0x       Tx   r 4
//        0.000456 CANFD   1 Rx        456                                   1 0 9 12 00 01 ... 0B ...
//        0.000456 1  ErrorFrame
//
// An error frame keeps its time and channel only: the format has no more.
// Frame times are written to the microsecond, so a frame reads back exactly.
#ifndef VELDOR_CAN_LOG_ASC_WRITER_H
#define VELDOR_CAN_LOG_ASC_WRITER_H

#include <cstdint>
#include <memory>
#include <string>

#include "can_log/FrameWriter.h"
#include "can_log/LogOptions.h"

namespace veldor::canlog {

class AscWriter : public FrameWriter {
public:
    // Creates or empties the file; null if it cannot, and `error` says why.
    static std::unique_ptr<AscWriter> Open(const std::string& path, std::string& error,
                                           const WriterOptions& options = WriterOptions());
    ~AscWriter() override;

private:
    explicit AscWriter(const WriterOptions& options) : m_options(options) {}

    void Format(const CanFrame& frame) override;
    void Finish() override;
    void WriteHeader(std::int64_t start);

    WriterOptions m_options;
    bool m_headerWritten = false;
    std::int64_t m_start = 0;
    std::int64_t m_previous = 0;  // the time the next relative timestamp counts from
};

}  // namespace veldor::canlog

#endif
