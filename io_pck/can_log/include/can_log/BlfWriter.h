// Writer of BLF, the binary logging format (see BlfReader.h). Frames go into
// log containers of 128 KiB, zlib-compressed at the options' level (1 unless
// they say otherwise) or stored, each written when full and on Flush(); the
// file header, with the start and stop times, sizes and object count, is
// written again on close.
// Classic frames are CAN message objects of the newer form, FD frames CAN FD
// message 64 objects, error frames extended error objects; times are in
// nanoseconds from the start, a whole millisecond at or before the first
// frame. Times before 1990 are no calendar times: the header then has none
// and the times count from 0. A frame older than the start is refused, as
// the format has no time before it.
#ifndef VELDOR_CAN_LOG_BLF_WRITER_H
#define VELDOR_CAN_LOG_BLF_WRITER_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "can_log/FrameWriter.h"
#include "can_log/LogOptions.h"

namespace veldor::canlog {

class BlfWriter : public FrameWriter {
public:
    // Creates or empties the file; null if it cannot, and `error` says why.
    static std::unique_ptr<BlfWriter> Open(const std::string& path, std::string& error,
                                           const WriterOptions& options = WriterOptions());
    ~BlfWriter() override;

private:
    explicit BlfWriter(const WriterOptions& options);

    const char* Refuses(const CanFrame& frame) const override;
    void Format(const CanFrame& frame) override;
    void Drain() override;
    void Finish() override;
    void WriteHeader();
    std::int64_t StartFor(const CanFrame& frame) const;

    WriterOptions m_options;
    std::vector<std::uint8_t> m_container;  // objects not yet written
    bool m_started = false;
    std::int64_t m_start = 0;  // what the times count from
    std::int64_t m_stop = 0;   // the latest frame time
    std::uint64_t m_objects = 0;
    std::uint64_t m_uncompressed = 0;
};

}  // namespace veldor::canlog

#endif
