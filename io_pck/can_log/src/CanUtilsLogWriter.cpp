#include "can_log/CanUtilsLogWriter.h"

#include "OutputBuffer.h"
#include "TextFormat.h"

namespace veldor::canlog {

namespace {

// An FD frame with 64 bytes and a long interface name, with room.
constexpr std::size_t kMaxLineWithoutPrefix = 256;

}  // namespace

std::unique_ptr<CanUtilsLogWriter> CanUtilsLogWriter::Open(const std::string& path, std::string& error,
                                                           const WriterOptions& options)
{
    std::unique_ptr<CanUtilsLogWriter> writer(new CanUtilsLogWriter(options));
    if (!writer->OpenFile(path, error)) return nullptr;
    return writer;
}

CanUtilsLogWriter::CanUtilsLogWriter(const WriterOptions& options) : m_prefix(options.interfacePrefix) {}

void CanUtilsLogWriter::Format(const CanFrame& frame)
{
    char* p = Out().Reserve(kMaxLineWithoutPrefix + m_prefix.size());
    *p++ = '(';
    // can-utils pads the seconds to ten digits.
    p = PutSeconds(p, frame.timestamp, 10);
    p = PutText(p, ") ");
    p = PutText(p, m_prefix);
    p = PutUnsigned(p, frame.channel);
    *p++ = ' ';
    constexpr std::uint32_t kErrorFrameFlag = 0x20000000;
    if (frame.error) {
        p = PutHex(p, kErrorFrameFlag | frame.id, 8);
    } else {
        p = PutHex(p, frame.id, frame.extended ? 8 : 3);
    }
    *p++ = '#';
    if (frame.remote) {
        *p++ = 'R';
        if (frame.length > 0) p = PutUnsigned(p, frame.length);
    } else {
        if (frame.fd) {
            *p++ = '#';
            p = PutHex(p, (frame.bitRateSwitch ? 1u : 0u) | (frame.errorStateIndicator ? 2u : 0u), 1);
        }
        for (std::size_t i = 0; i < frame.length; ++i) p = PutHexByte(p, frame.data[i]);
    }
    p = PutText(p, frame.direction == Direction::Tx ? " T\n" : " R\n");
    Out().Commit(p);
}

}  // namespace veldor::canlog
