#include "OutputBuffer.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

namespace veldor::canlog {

OutputBuffer::OutputBuffer(std::size_t capacity) : m_buffer(capacity) {}

OutputBuffer::~OutputBuffer() { Close(); }

bool OutputBuffer::Open(const std::string& path, std::string& error)
{
    m_fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (m_fd < 0) {
        error = "cannot create " + path + ": " + std::strerror(errno);
        return false;
    }
    return true;
}

char* OutputBuffer::Reserve(std::size_t size)
{
    if (m_buffer.size() - m_used < size && !Flush()) m_used = 0;
    return m_buffer.data() + m_used;
}

bool OutputBuffer::Flush()
{
    if (Failed()) return false;
    std::size_t done = 0;
    while (done < m_used) {
        const ssize_t n = ::write(m_fd, m_buffer.data() + done, m_used - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            m_error = std::string("write failed: ") + (n < 0 ? std::strerror(errno) : "nothing written");
            return false;
        }
        done += static_cast<std::size_t>(n);
    }
    m_flushed += m_used;
    m_used = 0;
    return true;
}

bool OutputBuffer::WriteAt(std::size_t offset, const void* data, std::size_t size)
{
    if (!Flush()) return false;
    std::size_t done = 0;
    while (done < size) {
        const ssize_t n = ::pwrite(m_fd, static_cast<const char*>(data) + done, size - done,
                                   static_cast<off_t>(offset + done));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            m_error = std::string("write failed: ") + (n < 0 ? std::strerror(errno) : "nothing written");
            return false;
        }
        done += static_cast<std::size_t>(n);
    }
    return true;
}

bool OutputBuffer::Close()
{
    if (m_fd < 0) return !Failed();
    Flush();
    if (::close(m_fd) != 0 && !Failed()) m_error = std::string("close failed: ") + std::strerror(errno);
    m_fd = -1;
    return !Failed();
}

}  // namespace veldor::canlog
