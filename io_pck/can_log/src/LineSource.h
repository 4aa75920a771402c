// The lines of a file, read through one buffer: a recording of any size
// streams through it, and a line is a view into it that holds until the
// next call. The buffer starts small and grows, up to its capacity, only
// for a line that does not fit.
#ifndef VELDOR_CAN_LOG_LINE_SOURCE_H
#define VELDOR_CAN_LOG_LINE_SOURCE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace veldor::canlog {

class LineSource {
public:
    enum class Result {
        Line,     // a line, without its "\n" or "\r\n"
        TooLong,  // a line longer than the capacity; it is skipped whole
        End,
        Failed,   // the file could not be read; Error() says why
    };

    static constexpr std::size_t kDefaultCapacity = 1 << 20;
    static constexpr std::size_t kFirstSize = 64 * 1024;

    explicit LineSource(std::size_t capacity = kDefaultCapacity);
    ~LineSource();
    LineSource(const LineSource&) = delete;
    LineSource& operator=(const LineSource&) = delete;

    bool Open(const std::string& path, std::string& error);
    Result Next(std::string_view& line);
    // The number of the line just returned, counted from 1.
    std::uint64_t LineNumber() const { return m_lineNumber; }
    // Whether that line ended with the file instead of a newline.
    bool Unterminated() const { return m_unterminated; }
    const std::string& Error() const { return m_error; }

private:
    bool Fill();

    std::vector<char> m_buffer;
    std::size_t m_capacity;
    std::size_t m_begin = 0;  // first byte not yet returned
    std::size_t m_end = 0;    // end of the bytes read
    int m_fd = -1;
    bool m_eof = false;
    bool m_skipping = false;  // inside a line that was too long
    bool m_unterminated = false;
    std::uint64_t m_lineNumber = 0;
    std::string m_error;
};

}  // namespace veldor::canlog

#endif
