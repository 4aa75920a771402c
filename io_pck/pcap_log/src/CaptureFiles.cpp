// Opening capture files: readers by the file's content, writers by the
// name's extension.
#include <cerrno>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <strings.h>
#include <unistd.h>

#include "ByteSource.h"
#include "PcapReader.h"
#include "PcapngReader.h"
#include "Writers.h"

namespace veldor::pcaplog {

namespace {

constexpr std::uint32_t kPcapngMagic = 0x0A0D0D0A;

// What the first bytes say; `size` of them are there (at most 4 counted).
bool KnownContent(const std::string& name, const std::uint8_t* head, std::size_t size, std::uint32_t& magic,
                  std::string& error)
{
    if (size == 0) {
        error = name + " is empty";
        return false;
    }
    if (size >= 4) {
        std::memcpy(&magic, head, 4);
        if (magic == kPcapngMagic || IsPcapMagic(magic)) return true;
    }
    char shown[3 * 4 + 1] = "";
    for (std::size_t i = 0; i < size && i < 4; ++i) std::snprintf(shown + 3 * i, 4, "%02X ", head[i]);
    shown[3 * (size < 4 ? size : 4) - 1] = '\0';
    error = name + ": neither pcap nor pcapng: it begins with the bytes " + shown;
    return false;
}

}  // namespace

namespace {

std::unique_ptr<PacketReader> Configured(std::unique_ptr<PacketReader> reader, const ReaderOptions& options)
{
    if (reader) reader->SetOptions(options);
    return reader;
}

}  // namespace

std::unique_ptr<PacketReader> OpenPacketReader(const std::string& path, std::string& error,
                                               const ReaderOptions& options)
{
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        error = "cannot open " + path + ": " + std::strerror(errno);
        return nullptr;
    }
    std::uint8_t head[4];
    ssize_t got;
    do {
        got = ::pread(fd, head, sizeof head, 0);
    } while (got < 0 && errno == EINTR);
    std::uint32_t magic = 0;
    if (got < 0) {
        error = "cannot read " + path + ": " + std::strerror(errno);
    } else if (KnownContent(path, head, static_cast<std::size_t>(got), magic, error)) {
#ifdef POSIX_FADV_SEQUENTIAL
        ::posix_fadvise(fd, 0, 0, POSIX_FADV_SEQUENTIAL);
#endif
        if (magic == kPcapngMagic)
            return Configured(PcapngReader::Open(std::make_unique<ByteSource>(fd), path, error), options);
        if (std::FILE* file = ::fdopen(fd, "rb")) return Configured(PcapReader::Open(file, magic, path, error), options);
        error = "cannot read " + path + ": " + std::strerror(errno);
    }
    ::close(fd);
    return nullptr;
}

std::unique_ptr<PacketReader> OpenPacketReader(const std::uint8_t* bytes, std::size_t size, const std::string& name,
                                               std::string& error, const ReaderOptions& options)
{
    std::uint32_t magic = 0;
    if (!KnownContent(name, bytes, size, magic, error)) return nullptr;
    if (magic == kPcapngMagic)
        return Configured(PcapngReader::Open(std::make_unique<ByteSource>(bytes, size), name, error), options);
    std::FILE* file = ::fmemopen(const_cast<std::uint8_t*>(bytes), size, "rb");
    if (file == nullptr) {
        error = name + ": " + std::strerror(errno);
        return nullptr;
    }
    return Configured(PcapReader::Open(file, magic, name, error), options);
}

std::optional<CaptureFormat> CaptureFormatOf(std::string_view path)
{
    const std::size_t dot = path.rfind('.');
    if (dot == std::string_view::npos || path.find('/', dot) != std::string_view::npos) return std::nullopt;
    const std::string extension(path.substr(dot + 1));
    if (::strcasecmp(extension.c_str(), "pcap") == 0) return CaptureFormat::Pcap;
    if (::strcasecmp(extension.c_str(), "pcapng") == 0) return CaptureFormat::Pcapng;
    return std::nullopt;
}

std::unique_ptr<PacketWriter> OpenPacketWriter(const std::string& path, std::vector<Interface> interfaces,
                                               std::string& error, const WriterOptions& options)
{
    const std::optional<CaptureFormat> format = CaptureFormatOf(path);
    if (!format) {
        error = "unknown capture format of " + path + ": the extension is neither .pcap nor .pcapng";
        return nullptr;
    }
    if (interfaces.empty()) {
        error = "no interface to write into " + path;
        return nullptr;
    }
    for (const Interface& interface : interfaces) {
        if (interface.Kind() == LinkKind::Other) {
            error = "cannot write " + LinkTypeName(interface.linkType) + " into " + path +
                    ": only Ethernet and SocketCAN interfaces";
            return nullptr;
        }
    }
    if (*format == CaptureFormat::Pcapng) return OpenPcapngWriter(path, std::move(interfaces), error);
    if (interfaces.size() != 1) {
        error = "a pcap file holds one interface, not " + std::to_string(interfaces.size()) + ": write " + path +
                " as .pcapng";
        return nullptr;
    }
    return OpenPcapWriter(path, interfaces.front(), options.pcapNanoseconds, error);
}

}  // namespace veldor::pcaplog
