#include "can_log/AscWriter.h"

#include <chrono>

#include "AscDate.h"
#include "AscFlags.h"
#include "OutputBuffer.h"
#include "TextFormat.h"

namespace veldor::canlog {

namespace {

// The longest line: an FD frame with 64 bytes and every field, with room.
constexpr std::size_t kMaxLine = 512;
constexpr std::size_t kMaxHeader = 4 * kAscDateMaxLength + 200;

std::int64_t FloorToMillisecond(std::int64_t micros)
{
    const std::int64_t rest = micros % 1000;
    return micros - (rest < 0 ? rest + 1000 : rest);
}

std::int64_t NowMicros()
{
    using namespace std::chrono;
    return duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
}

std::string_view DirectionText(Direction d) { return d == Direction::Tx ? "Tx" : "Rx"; }

}  // namespace

std::unique_ptr<AscWriter> AscWriter::Open(const std::string& path, std::string& error, const WriterOptions& options)
{
    std::unique_ptr<AscWriter> writer(new AscWriter(options));
    if (!writer->OpenFile(path, error)) return nullptr;
    return writer;
}

AscWriter::~AscWriter() { Close(); }

void AscWriter::WriteHeader(std::int64_t start)
{
    m_start = FloorToMillisecond(start);
    m_previous = m_start;
    m_headerWritten = true;
    char* p = Out().Reserve(kMaxHeader);
    p = PutText(p, "date ");
    p = FormatAscDate(p, m_start, m_options.dateZone);
    p = PutText(p, m_options.relativeTimestamps ? "\nbase hex  timestamps relative\n" : "\nbase hex  timestamps absolute\n");
    p = PutText(p, "internal events logged\nBegin Triggerblock ");
    p = FormatAscDate(p, m_start, m_options.dateZone);
    p = PutText(p, "\n   0.000000 Start of measurement\n");
    Out().Commit(p);
}

void AscWriter::Format(const CanFrame& frame)
{
    if (!m_headerWritten) WriteHeader(m_options.measurementStart.value_or(frame.timestamp));
    const std::int64_t time = frame.timestamp - (m_options.relativeTimestamps ? m_previous : m_start);
    m_previous = frame.timestamp;

    char* p = Out().Reserve(kMaxLine);
    char stamp[32];
    p = PutPadded(p, std::string_view(stamp, static_cast<std::size_t>(PutSeconds(stamp, time) - stamp)), 11, true);

    char idBuffer[12];
    char* idEnd = PutHex(idBuffer, frame.id, 1);
    if (frame.extended) *idEnd++ = 'x';
    const std::string_view id(idBuffer, static_cast<std::size_t>(idEnd - idBuffer));
    char channelBuffer[4];
    const std::string_view channel(channelBuffer,
                                   static_cast<std::size_t>(PutUnsigned(channelBuffer, frame.channel + 1u) - channelBuffer));
    char text[16];

    if (frame.error) {
        // The format keeps an error frame's time and channel only.
        *p++ = ' ';
        p = PutText(p, channel);
        p = PutText(p, "  ErrorFrame");
    } else if (!frame.fd) {
        *p++ = ' ';
        p = PutText(p, channel);
        p = PutText(p, "  ");
        p = PutPadded(p, id, 15, false);
        *p++ = ' ';
        p = PutPadded(p, DirectionText(frame.direction), 4, false);
        p = PutText(p, frame.remote ? " r " : " d ");
        p = PutHex(p, frame.length, 1);
        if (!frame.remote) {
            for (std::size_t i = 0; i < frame.length; ++i) {
                *p++ = ' ';
                p = PutHexByte(p, frame.data[i]);
            }
        }
    } else {
        p = PutText(p, " CANFD ");
        p = PutPadded(p, channel, 3, true);
        *p++ = ' ';
        p = PutText(p, DirectionText(frame.direction));
        *p++ = ' ';
        p = PutPadded(p, id, 9, true);
        // The symbolic name's column, empty: this writer knows no database.
        p = PutPadded(p, "", 35, false);
        p = PutText(p, frame.bitRateSwitch ? "1 " : "0 ");
        p = PutText(p, frame.errorStateIndicator ? "1 " : "0 ");
        p = PutHex(p, LengthToDlc(frame.length), 1);
        *p++ = ' ';
        p = PutPadded(p, std::string_view(text, static_cast<std::size_t>(PutUnsigned(text, frame.length) - text)), 2, true);
        for (std::size_t i = 0; i < frame.length; ++i) {
            *p++ = ' ';
            p = PutHexByte(p, frame.data[i]);
        }
        // Duration and bit count are not known here; 0 says so. Then the
        // flags, and CRC and bit timings, also unknown.
        p = PutText(p, "        0    0 ");
        const std::uint32_t flags = kAscFlagEdl | (frame.bitRateSwitch ? kAscFlagBrs : 0u) |
                                    (frame.errorStateIndicator ? kAscFlagEsi : 0u);
        p = PutPadded(p, std::string_view(text, static_cast<std::size_t>(PutHex(text, flags, 1) - text)), 8, true);
        p = PutText(p, "        0        0        0        0        0");
    }
    *p++ = '\n';
    Out().Commit(p);
}

void AscWriter::Finish()
{
    if (!m_headerWritten) WriteHeader(m_options.measurementStart.value_or(NowMicros()));
    char* p = Out().Reserve(32);
    Out().Commit(PutText(p, "End TriggerBlock\n"));
}

}  // namespace veldor::canlog
