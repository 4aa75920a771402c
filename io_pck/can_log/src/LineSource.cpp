#include "LineSource.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

namespace veldor::canlog {

LineSource::LineSource(std::size_t capacity) : m_buffer(std::min(capacity, kFirstSize)), m_capacity(capacity) {}

LineSource::~LineSource()
{
    if (m_fd >= 0) ::close(m_fd);
}

bool LineSource::Open(const std::string& path, std::string& error)
{
    m_fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (m_fd < 0) {
        error = "cannot open " + path + ": " + std::strerror(errno);
        return false;
    }
#ifdef POSIX_FADV_SEQUENTIAL
    ::posix_fadvise(m_fd, 0, 0, POSIX_FADV_SEQUENTIAL);
#endif
    return true;
}

bool LineSource::Fill()
{
    if (m_begin > 0) {
        std::memmove(m_buffer.data(), m_buffer.data() + m_begin, m_end - m_begin);
        m_end -= m_begin;
        m_begin = 0;
    }
    for (;;) {
        const ssize_t n = ::read(m_fd, m_buffer.data() + m_end, m_buffer.size() - m_end);
        if (n > 0) {
            m_end += static_cast<std::size_t>(n);
            return true;
        }
        if (n == 0) {
            m_eof = true;
            return true;
        }
        if (errno != EINTR) {
            m_error = std::string("read failed: ") + std::strerror(errno);
            return false;
        }
    }
}

LineSource::Result LineSource::Next(std::string_view& line)
{
    if (m_fd < 0) return Result::End;
    for (;;) {
        char* const base = m_buffer.data();
        const char* newline = static_cast<const char*>(std::memchr(base + m_begin, '\n', m_end - m_begin));
        if (m_skipping) {
            if (newline != nullptr) {
                m_begin = static_cast<std::size_t>(newline - base) + 1;
                m_skipping = false;
                continue;
            }
            m_begin = m_end = 0;
            if (m_eof) return Result::End;
            if (!Fill()) return Result::Failed;
            continue;
        }
        if (newline != nullptr || (m_eof && m_begin < m_end)) {
            const std::size_t stop = newline != nullptr ? static_cast<std::size_t>(newline - base) : m_end;
            std::size_t length = stop - m_begin;
            if (length > 0 && base[m_begin + length - 1] == '\r') --length;
            line = std::string_view(base + m_begin, length);
            m_unterminated = newline == nullptr;
            m_begin = newline != nullptr ? stop + 1 : stop;
            ++m_lineNumber;
            return Result::Line;
        }
        if (m_eof) return Result::End;
        if (m_begin == 0 && m_end == m_buffer.size() && m_buffer.size() < m_capacity) {
            m_buffer.resize(std::min(2 * m_buffer.size(), m_capacity));
        } else if (m_begin == 0 && m_end == m_buffer.size()) {
            ++m_lineNumber;
            m_unterminated = false;
            m_skipping = true;
            return Result::TooLong;
        }
        if (!Fill()) return Result::Failed;
    }
}

}  // namespace veldor::canlog
