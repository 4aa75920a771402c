// A file written through one fixed buffer: frames are formatted straight
// into it, and it goes to the file when full, on Flush and on Close. Once a
// write fails the buffer stays failed and writes nothing more.
#ifndef VELDOR_CAN_LOG_OUTPUT_BUFFER_H
#define VELDOR_CAN_LOG_OUTPUT_BUFFER_H

#include <cstddef>
#include <string>
#include <vector>

namespace veldor::canlog {

class OutputBuffer {
public:
    static constexpr std::size_t kDefaultCapacity = 256 * 1024;

    explicit OutputBuffer(std::size_t capacity = kDefaultCapacity);
    ~OutputBuffer();
    OutputBuffer(const OutputBuffer&) = delete;
    OutputBuffer& operator=(const OutputBuffer&) = delete;

    bool Open(const std::string& path, std::string& error);
    // Room for at least `size` bytes (at most the capacity), flushing first
    // if needed; write there and hand the end to Commit. On a failed buffer
    // it still gives room, which is thrown away.
    char* Reserve(std::size_t size);
    void Commit(char* end) { m_used = static_cast<std::size_t>(end - m_buffer.data()); }
    bool Flush();
    // Flushes, then writes `size` bytes over the file's bytes at `offset`
    // (a header that is known only at the end).
    bool WriteAt(std::size_t offset, const void* data, std::size_t size);
    // Bytes written so far, in the file and in the buffer.
    std::size_t Size() const { return m_flushed + m_used; }
    // Flushes and closes the file; false if anything failed on the way.
    bool Close();
    bool Failed() const { return !m_error.empty(); }
    const std::string& Error() const { return m_error; }

private:
    std::vector<char> m_buffer;
    std::size_t m_used = 0;
    std::size_t m_flushed = 0;
    int m_fd = -1;
    std::string m_error;
};

}  // namespace veldor::canlog

#endif
