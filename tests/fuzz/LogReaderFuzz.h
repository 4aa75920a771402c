// What the fuzz targets of the CAN log readers share: the input becomes a
// file in memory, which a reader reads to its end. Every frame it gives is
// one a log file can hold, every issue names its place, the end stays the
// end, and nothing crashes, hangs or reads outside the input.
#ifndef VELDOR_FUZZ_LOG_READER_FUZZ_H
#define VELDOR_FUZZ_LOG_READER_FUZZ_H

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "can_log/FrameReader.h"

template <class Reader>
int FuzzLogReader(const std::uint8_t* data, std::size_t size)
{
    using namespace veldor::canlog;
    static const int fd = memfd_create("fuzz_input", MFD_CLOEXEC);
    if (fd < 0 || ftruncate(fd, 0) != 0 || pwrite(fd, data, size, 0) != static_cast<ssize_t>(size)) return 0;
    ReaderOptions options;
    options.dateZone = DateZone::Utc;
    options.errorFrames = size % 2 == 1;
    std::string error;
    std::unique_ptr<Reader> reader = Reader::Open("/proc/self/fd/" + std::to_string(fd), error, options);
    if (!reader) {
        if (error.empty()) __builtin_trap();
        return 0;
    }
    CanFrame frame;
    for (ReadResult r; (r = reader->Next(frame)) != ReadResult::End;) {
        if (r == ReadResult::Frame && CheckFrame(frame) != nullptr) __builtin_trap();
        if (r == ReadResult::Issue && reader->Issue().place.number == 0) __builtin_trap();
    }
    if (reader->Next(frame) != ReadResult::End) __builtin_trap();
    return 0;
}

#endif
