// The bytes of a capture file, streamed through one buffer that a block is
// read into whole, or bytes in memory read in place. A view holds until the
// next Have or Skip.
#ifndef VELDOR_PCAP_LOG_BYTE_SOURCE_H
#define VELDOR_PCAP_LOG_BYTE_SOURCE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace veldor::pcaplog {

class ByteSource {
public:
    static constexpr std::size_t kChunk = 1 << 20;

    // Takes the open descriptor, and closes it.
    explicit ByteSource(int fd);
    ByteSource(const std::uint8_t* bytes, std::size_t size);
    ~ByteSource();
    ByteSource(const ByteSource&) = delete;
    ByteSource& operator=(const ByteSource&) = delete;

    // Whether `size` bytes from the position are there; false if the input
    // ends (or fails) first.
    bool Have(std::size_t size);
    const std::uint8_t* Data() const { return m_data + m_begin; }
    std::size_t Available() const { return m_end - m_begin; }
    // Precondition: size <= Available().
    void Skip(std::size_t size)
    {
        m_begin += size;
        m_offset += size;
    }
    // Of Data(), from the start of the input.
    std::uint64_t Offset() const { return m_offset; }
    // Set when reading failed; empty at a plain end.
    const std::string& Error() const { return m_error; }

private:
    bool Fill(std::size_t size);

    int m_fd = -1;
    std::vector<std::uint8_t> m_buffer;
    const std::uint8_t* m_data = nullptr;
    std::size_t m_begin = 0;
    std::size_t m_end = 0;
    std::uint64_t m_offset = 0;
    bool m_eof = false;
    std::string m_error;
};

}  // namespace veldor::pcaplog

#endif
