#include "BusKinds.h"

#include <algorithm>
#include <cctype>

#include "NxBusLibraryPaths.h"

namespace veldor::cli {

const std::vector<BusKindInfo>& BusKinds()
{
    static const std::vector<BusKindInfo> kinds = {
        {BusKind::Can, "can", "CAN", "channel", "NxCanMonitoring", "oCAN", "NxCanInject", "iCAN", "iCan",
         NX_BUSAPI_CAN_LIBRARY_PATH,
         {"--fd", "--bitrate", "--data-bitrate"},
         "  --fd                 a CAN FD channel\n"
         "  --bitrate R          arbitration bit rate, 10k to 1M (500k)\n"
         "  --data-bitrate R     data phase bit rate of CAN FD, up to 8M (2M)\n",
         {".asc", ".log", ".blf", ".pcapng"}},
        {BusKind::Ethernet, "eth", "Ethernet", "interface", "NxEthMonitoring", "oEth", "NxEthInject", "iEth", "iEth",
         NX_BUSAPI_ETH_LIBRARY_PATH,
         {"--protocol"},
         "  --protocol P         with replay --sync: how the injector puts fragmented traffic\n"
         "                       together first: generic (default), udp or someip-tp\n",
         {".pcap", ".pcapng"}},
    };
    return kinds;
}

const BusKindInfo& InfoOf(BusKind kind)
{
    for (const BusKindInfo& info : BusKinds())
        if (info.kind == kind) return info;
    return BusKinds().front();
}

const BusKindInfo* KindByWord(const std::string& word)
{
    for (const BusKindInfo& info : BusKinds())
        if (word == info.word) return &info;
    return nullptr;
}

std::string KindWords()
{
    std::string words;
    for (const BusKindInfo& info : BusKinds())
        words += (words.empty() ? "" : " or ") + std::string(info.word);
    return words;
}

bool HasExtension(const std::string& path, const std::vector<std::string>& extensions)
{
    const std::size_t dot = path.rfind('.');
    if (dot == std::string::npos || path.find('/', dot) != std::string::npos) return false;
    std::string extension = path.substr(dot);
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return std::find(extensions.begin(), extensions.end(), extension) != extensions.end();
}

const FileKindInfo* FileKindOf(const std::string& path)
{
    static const std::vector<FileKindInfo> kinds = {
        {FileKind::CanLog, "CanFilePlayer", "CanFileRecorder", {".asc", ".log", ".blf"}},
        {FileKind::Capture, "CaptureFilePlayer", "CaptureFileRecorder", {".pcap", ".pcapng"}},
    };
    for (const FileKindInfo& kind : kinds)
        if (HasExtension(path, kind.extensions)) return &kind;
    return nullptr;
}

std::string ExtensionList(const std::vector<std::string>& extensions)
{
    std::string list;
    for (std::size_t i = 0; i < extensions.size(); ++i)
        list += (i == 0 ? "" : i + 1 == extensions.size() ? " or " : ", ") + extensions[i];
    return list;
}

}  // namespace veldor::cli
