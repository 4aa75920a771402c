// The stream a writer writes its file through: a stdio stream with a large
// buffer, which libpcap writes pcap into and the pcapng writer its blocks.
// Once a write fails the stream stays failed.
#ifndef VELDOR_PCAP_LOG_CAPTURE_STREAM_H
#define VELDOR_PCAP_LOG_CAPTURE_STREAM_H

#include <cstddef>
#include <cstdio>
#include <memory>
#include <string>

namespace veldor::pcaplog {

class CaptureStream {
public:
    static constexpr std::size_t kBufferSize = 256 * 1024;

    CaptureStream() = default;
    ~CaptureStream();
    CaptureStream(const CaptureStream&) = delete;
    CaptureStream& operator=(const CaptureStream&) = delete;

    bool Open(const std::string& path, std::string& error);
    std::FILE* File() { return m_file; }
    void Put(const void* bytes, std::size_t size) { fwrite_unlocked(bytes, 1, size, m_file); }
    // Whether a write has failed since the open; Error() says why.
    bool Failed();
    bool Flush();
    // Flushes and closes; false if anything failed on the way.
    bool Close();
    const std::string& Error() const { return m_error; }

private:
    std::FILE* m_file = nullptr;
    std::unique_ptr<char[]> m_buffer;  // stdio's own would be one page
    std::string m_error;
};

}  // namespace veldor::pcaplog

#endif
