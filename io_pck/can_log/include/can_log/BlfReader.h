// Reader of BLF, the binary logging format in which the common CAN tools
// keep most recordings. It streams the file: one log container at a time,
// stored or zlib-compressed, and the objects in it one by one, also those
// that run on into the next container.
//
// It reads CAN messages (the classic object and its newer form), CAN FD
// messages (the older object and the 64-byte one), and error frames (the
// plain and the extended object), with their channels (from 1 in the file,
// from 0 in CanFrame), directions, remote, FD, BRS and ESI flags, and times
// in either unit (10 us or 1 ns) counted from the start in the file header,
// a calendar time to the millisecond (local time unless the options say
// UTC; 0 where the header has none). Objects of other kinds are passed over
// and counted (OtherObjects()). Issues name the object by its number among
// the objects inside the containers, counted from 1.
//
// A damaged object or container is an issue, and reading goes on at the next
// object that can be found; a file that ends inside a container yields the
// frames of the part that is there, then an issue.
#ifndef VELDOR_CAN_LOG_BLF_READER_H
#define VELDOR_CAN_LOG_BLF_READER_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "can_log/FrameReader.h"
#include "can_log/LogOptions.h"

namespace veldor::canlog {

class BlfReader : public FrameReader {
public:
    // Null if the file cannot be opened or is no BLF file; `error` says why.
    // An empty file is a file without frames.
    static std::unique_ptr<BlfReader> Open(const std::string& path, std::string& error,
                                           const ReaderOptions& options = ReaderOptions());
    ~BlfReader() override;

    // The start from the file header, microseconds since the epoch (0 when
    // it has none).
    std::int64_t MeasurementStart() const { return m_start; }

private:
    explicit BlfReader(const ReaderOptions& options) : FrameReader(options) {}

    bool ReadHeader(const std::string& path, std::string& error);
    Step Read(CanFrame& frame) override;
    // The next top-level object into m_data: false at the end of the file
    // or with an issue set (`step`).
    bool NextContainer(Step& step);
    // Whether m_data holds a whole object at m_at; passes over padding, and
    // over bytes where no object can start (an issue).
    enum class Found { Object, NeedMore, Issue };
    Found FindObject();
    Step ReadObject(const std::uint8_t* object, std::size_t size, CanFrame& frame);
    Step ReadBody(std::uint32_t type, const std::uint8_t* body, std::size_t size, CanFrame& frame);
    Step ReadChannel(unsigned channel, CanFrame& frame);
    Step ReadIdentifier(std::uint32_t id, CanFrame& frame);

    // The file, read through a buffer.
    bool Fill(std::size_t count);  // at least `count` bytes at m_in[m_inAt], unless the file ends first
    std::size_t Buffered() const { return m_inEnd - m_inAt; }

    int m_fd = -1;
    std::vector<std::uint8_t> m_in;
    std::size_t m_inAt = 0;
    std::size_t m_inEnd = 0;
    bool m_inEof = false;
    std::string m_readError;
    std::size_t m_padding = 0;  // after the last top-level object

    // Objects out of the containers, not yet read.
    std::vector<std::uint8_t> m_data;
    std::size_t m_at = 0;
    bool m_fileDone = false;
    bool m_cut = false;  // the file ends inside a top-level object
    std::uint64_t m_objects = 0;
    std::int64_t m_start = 0;
};

}  // namespace veldor::canlog

#endif
