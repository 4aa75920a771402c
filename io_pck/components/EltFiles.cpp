#include "EltFiles.h"

#include <cstring>

namespace veldor_io {
namespace {

const char kMagic[4] = {'V', 'E', 'L', 'T'};
const std::uint32_t kFormat = 1;
const std::uint32_t kByteOrderMark = 0x01020304;
const std::uint32_t kOtherByteOrder = 0x04030201;

struct Head {
    char magic[4];
    std::uint32_t format;
    std::uint32_t byteOrder;
    std::uint32_t reserved;
};
static_assert(sizeof(Head) == 16, "the head of an element file is 16 bytes");

std::string Reason(int error) { return error ? std::strerror(error) : "unknown error"; }

}  // namespace

bool EltFileWriter::Open(const std::string& path)
{
    m_error.clear();
    if (!m_file.Open(path.c_str(), 0)) return Fail();
    Head head;
    std::memcpy(head.magic, kMagic, 4);
    head.format = kFormat;
    head.byteOrder = kByteOrderMark;
    head.reserved = 0;
    return m_file.Write(&head, sizeof head) || Fail();
}

bool EltFileWriter::Write(const void* element, std::uint32_t size)
{
    return (m_file.Write(&size, sizeof size) && m_file.Write(element, static_cast<int>(size))) || Fail();
}

bool EltFileWriter::Flush() { return m_file.FlushToDisk() || Fail(); }

bool EltFileWriter::Close()
{
    if (!m_file.IsOpen()) return true;
    const bool flushed = m_file.FlushToDisk();
    return (m_file.Close() && flushed) || Fail();
}

bool EltFileWriter::Fail()
{
    m_error = Reason(m_file.LastError());
    return false;
}

bool EltFileReader::Open(const std::string& path)
{
    m_path = path;
    m_error.clear();
    if (!m_file.Open(path.c_str(), 0)) {
        m_error = "cannot open " + path + ": " + Reason(m_file.LastError());
        return false;
    }
    Head head;
    if (m_file.Read(&head, sizeof head) != static_cast<int>(sizeof head) || std::memcmp(head.magic, kMagic, 4) != 0) {
        m_error = path + " is not an element file";
        return false;
    }
    if (head.byteOrder == kOtherByteOrder) {
        m_error = path + " was written on a machine of the other byte order";
        return false;
    }
    if (head.format != kFormat || head.byteOrder != kByteOrderMark) {
        m_error = path + " is an element file of a format this player does not know";
        return false;
    }
    return true;
}

EltRead EltFileReader::Next(std::vector<unsigned char>& element)
{
    std::uint32_t size = 0;
    const int got = m_file.Read(&size, sizeof size);
    if (got == 0 && m_file.LastError() == 0) return EltRead::End;
    if (got == static_cast<int>(sizeof size) && size > kMaxEltBytes) {
        m_error = m_path + ": an element of " + std::to_string(size) + " bytes, more than an element file holds";
        return EltRead::Broken;
    }
    if (got == static_cast<int>(sizeof size)) {
        element.resize(size);
        if (m_file.Read(element.data(), static_cast<int>(size)) == static_cast<int>(size)) return EltRead::Element;
    }
    m_error = m_file.LastError() ? "cannot read " + m_path + ": " + Reason(m_file.LastError())
                                 : m_path + " ends inside an element (the recording was cut off)";
    return EltRead::Broken;
}

}  // namespace veldor_io
