#include "can_log/BlfWriter.h"

#include <zlib.h>

#include <algorithm>

#include "BlfFormat.h"
#include "OutputBuffer.h"

namespace veldor::canlog {

namespace {

using namespace blf;

std::int64_t FloorToMillisecond(std::int64_t micros)
{
    const std::int64_t rest = micros % 1000;
    return micros - (rest < 0 ? rest + 1000 : rest);
}

// The object header: base and version 1, times in nanoseconds.
constexpr std::size_t kObjectHeader = kBaseHeaderSize + kHeaderV1Size;

std::uint8_t* AddObject(std::vector<std::uint8_t>& out, std::uint32_t type, std::size_t bodySize, std::uint64_t nanos)
{
    const std::size_t size = kObjectHeader + bodySize;
    const std::size_t at = out.size();
    out.resize(at + size + size % 4);  // zeros, and the padding after the object
    std::uint8_t* p = out.data() + at;
    std::copy(kObjectSignature, kObjectSignature + 4, p);
    Put16(p + 4, kObjectHeader);
    Put16(p + 6, 1);
    Put32(p + 8, static_cast<std::uint32_t>(size));
    Put32(p + 12, type);
    Put32(p + 16, kTimeNanos);
    Put64(p + 24, nanos);
    return p + kObjectHeader;
}

std::uint32_t IdentifierOf(const CanFrame& frame) { return frame.id | (frame.extended ? kExtendedId : 0u); }

}  // namespace

std::unique_ptr<BlfWriter> BlfWriter::Open(const std::string& path, std::string& error, const WriterOptions& options)
{
    std::unique_ptr<BlfWriter> writer(new BlfWriter(options));
    if (!writer->OpenFile(path, error)) return nullptr;
    // Room for the header, which is written for real on close.
    writer->WriteHeader();
    return writer;
}

BlfWriter::BlfWriter(const WriterOptions& options) : m_options(options)
{
    m_container.reserve(kContainerSize + 256);
}

BlfWriter::~BlfWriter() { Close(); }

std::int64_t BlfWriter::StartFor(const CanFrame& frame) const
{
    if (m_started) return m_start;
    const std::int64_t start = FloorToMillisecond(m_options.measurementStart.value_or(frame.timestamp));
    return start < kEarliestCalendarTime ? 0 : start;
}

const char* BlfWriter::Refuses(const CanFrame& frame) const
{
    return frame.timestamp < StartFor(frame) ? "a BLF file has no time before its start" : nullptr;
}

void BlfWriter::Format(const CanFrame& frame)
{
    if (!m_started) {
        m_start = StartFor(frame);
        m_stop = frame.timestamp;
        m_started = true;
    }
    m_stop = std::max(m_stop, frame.timestamp);
    const std::uint64_t nanos = static_cast<std::uint64_t>(frame.timestamp - m_start) * 1000;
    const std::uint16_t channel = static_cast<std::uint16_t>(frame.channel + 1);
    const std::uint8_t flags = static_cast<std::uint8_t>((frame.direction == Direction::Tx ? kFlagTx : 0) |
                                                         (frame.remote ? kFlagRemote : 0));
    const std::size_t payload = frame.remote ? 0 : frame.length;
    if (frame.error) {
        std::uint8_t* body = AddObject(m_container, kCanErrorExt, kCanErrorExtBody, nanos);
        Put16(body, channel);
        body[10] = frame.length;
        Put32(body + 16, IdentifierOf(frame));
        std::copy_n(frame.data.begin(), frame.length, body + 24);
    } else if (!frame.fd) {
        std::uint8_t* body = AddObject(m_container, kCanMessage2, kCanMessage2Body, nanos);
        Put16(body, channel);
        body[2] = flags;
        body[3] = frame.length;
        Put32(body + 4, IdentifierOf(frame));
        std::copy_n(frame.data.begin(), payload, body + 8);
    } else if (channel <= 0xFF) {
        std::uint8_t* body = AddObject(m_container, kCanFdMessage64, kCanFd64Body + payload, nanos);
        body[0] = static_cast<std::uint8_t>(channel);
        body[1] = LengthToDlc(frame.length);
        body[2] = frame.length;
        Put32(body + 4, IdentifierOf(frame));
        Put32(body + 12, kFd64Edl | (frame.bitRateSwitch ? kFd64Brs : 0u) | (frame.errorStateIndicator ? kFd64Esi : 0u));
        body[34] = frame.direction == Direction::Tx ? 1 : 0;
        std::copy_n(frame.data.begin(), payload, body + kCanFd64Body);
    } else {
        // The 64-byte object has one byte for the channel.
        std::uint8_t* body = AddObject(m_container, kCanFdMessage, kCanFdMessageBody, nanos);
        Put16(body, channel);
        body[2] = flags;
        body[3] = LengthToDlc(frame.length);
        Put32(body + 4, IdentifierOf(frame));
        body[13] = static_cast<std::uint8_t>(kFdEdl | (frame.bitRateSwitch ? kFdBrs : 0) | (frame.errorStateIndicator ? kFdEsi : 0));
        body[14] = frame.length;
        std::copy_n(frame.data.begin(), payload, body + 20);
    }
    ++m_objects;
    if (m_container.size() >= kContainerSize) Drain();
}

void BlfWriter::Drain()
{
    if (m_container.empty()) return;
    const bool compress = m_options.compression > 0;
    const uLong bound = compress ? compressBound(static_cast<uLong>(m_container.size())) : m_container.size();
    std::uint8_t* out = reinterpret_cast<std::uint8_t*>(Out().Reserve(kBaseHeaderSize + kContainerHeaderSize + bound + 4));
    std::uint8_t* data = out + kBaseHeaderSize + kContainerHeaderSize;
    uLongf size = bound;
    const bool stored = !compress || compress2(data, &size, m_container.data(), static_cast<uLong>(m_container.size()),
                                               std::min(m_options.compression, 9)) != Z_OK;
    if (stored) {
        std::copy(m_container.begin(), m_container.end(), data);
        size = static_cast<uLongf>(m_container.size());
    }
    const std::size_t objectSize = kBaseHeaderSize + kContainerHeaderSize + size;
    std::fill(out, data, 0);
    std::copy(kObjectSignature, kObjectSignature + 4, out);
    Put16(out + 4, kBaseHeaderSize);
    Put16(out + 6, 1);
    Put32(out + 8, static_cast<std::uint32_t>(objectSize));
    Put32(out + 12, kLogContainer);
    Put16(out + kBaseHeaderSize, stored ? kStored : kZlib);
    Put32(out + kBaseHeaderSize + 8, static_cast<std::uint32_t>(m_container.size()));
    std::uint8_t* end = data + size;
    end = std::fill_n(end, objectSize % 4, 0);
    Out().Commit(reinterpret_cast<char*>(end));
    m_uncompressed += kBaseHeaderSize + kContainerHeaderSize + m_container.size();
    m_container.clear();
}

void BlfWriter::WriteHeader()
{
    std::uint8_t header[kFileHeaderSize] = {};
    std::copy(kFileSignature, kFileSignature + 4, header);
    Put32(header + 4, kFileHeaderSize);
    // The format version the objects follow.
    header[12] = 2;
    header[13] = 6;
    header[14] = 8;
    header[15] = 1;
    Put64(header + kFileSizeAt, Out().Size());
    Put64(header + kUncompressedSizeAt, kFileHeaderSize + m_uncompressed);
    Put32(header + kObjectCountAt, static_cast<std::uint32_t>(m_objects));
    if (m_started && m_start > 0) {
        WriteCalendarTime(header + kStartTimeAt, m_start, m_options.dateZone);
        WriteCalendarTime(header + kStopTimeAt, m_stop, m_options.dateZone);
    }
    if (Out().Size() == 0) {
        char* p = Out().Reserve(sizeof header);
        Out().Commit(std::copy(header, header + sizeof header, p));
    } else {
        Out().WriteAt(0, header, sizeof header);
    }
}

void BlfWriter::Finish()
{
    if (!m_started && m_options.measurementStart) {
        m_start = StartFor(CanFrame());
        m_stop = m_start;
        m_started = m_start > 0;
    }
    Drain();
    WriteHeader();
}

}  // namespace veldor::canlog
