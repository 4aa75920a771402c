#include "ByteSource.h"

#include <cerrno>
#include <cstring>

#include <unistd.h>

namespace veldor::pcaplog {

ByteSource::ByteSource(int fd) : m_fd(fd), m_buffer(kChunk), m_data(m_buffer.data()) {}

ByteSource::ByteSource(const std::uint8_t* bytes, std::size_t size) : m_data(bytes), m_end(size), m_eof(true) {}

ByteSource::~ByteSource()
{
    if (m_fd >= 0) ::close(m_fd);
}

bool ByteSource::Have(std::size_t size)
{
    if (Available() >= size) return true;
    return !m_eof && Fill(size);
}

bool ByteSource::Fill(std::size_t size)
{
    // What is left goes to the front; a block larger than the buffer makes
    // it grow to the block, and no further: the caller bounds block sizes.
    std::memmove(m_buffer.data(), m_buffer.data() + m_begin, Available());
    m_end -= m_begin;
    m_begin = 0;
    if (m_buffer.size() < size) m_buffer.resize(size);
    m_data = m_buffer.data();
    while (m_end < size) {
        const ssize_t n = ::read(m_fd, m_buffer.data() + m_end, m_buffer.size() - m_end);
        if (n > 0) {
            m_end += static_cast<std::size_t>(n);
        } else if (n == 0) {
            m_eof = true;
            return false;
        } else if (errno != EINTR) {
            m_error = std::string("read failed: ") + std::strerror(errno);
            m_eof = true;
            return false;
        }
    }
    return true;
}

}  // namespace veldor::pcaplog
