#include "CaptureStream.h"

#include <cerrno>
#include <cstring>

namespace veldor::pcaplog {

CaptureStream::~CaptureStream() { Close(); }

bool CaptureStream::Open(const std::string& path, std::string& error)
{
    m_file = std::fopen(path.c_str(), "wbe");
    if (m_file == nullptr) {
        error = "cannot create " + path + ": " + std::strerror(errno);
        return false;
    }
    m_buffer.reset(new char[kBufferSize]);
    std::setvbuf(m_file, m_buffer.get(), _IOFBF, kBufferSize);
    return true;
}

bool CaptureStream::Failed()
{
    if (m_error.empty() && m_file != nullptr && ferror_unlocked(m_file)) {
        m_error = std::string("write failed: ") + std::strerror(errno);
    }
    return !m_error.empty();
}

bool CaptureStream::Flush()
{
    if (m_file == nullptr || Failed()) return !Failed();
    if (std::fflush(m_file) != 0) m_error = std::string("write failed: ") + std::strerror(errno);
    return !Failed();
}

bool CaptureStream::Close()
{
    if (m_file == nullptr) return !Failed();
    Flush();
    if (std::fclose(m_file) != 0 && m_error.empty()) m_error = std::string("close failed: ") + std::strerror(errno);
    m_file = nullptr;
    return m_error.empty();
}

}  // namespace veldor::pcaplog
