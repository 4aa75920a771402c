// The kinds of bus the commands know, in one table, and the kinds of file
// they read and write, in another: what the commands say once for both
// buses is looked up here.
//
//   kind      word  monitor (output)           injector (input)       library
//   CAN       can   NxCanMonitoring (oCAN)     NxCanInject (iCAN)     libNXBusApiCan.so
//   Ethernet  eth   NxEthMonitoring (oEth)     NxEthInject (iEth)     libNXBusApiEthernet.so
//
//   file      extensions           player (outputs)                    recorder (inputs)
//   CAN log   .asc .log .blf       CanFilePlayer (oCAN)                CanFileRecorder (iCAN)
//   capture   .pcap .pcapng        CaptureFilePlayer (one an           CaptureFileRecorder (one a
//                                  interface: "interfaces" says)       channel: iCan<k>, iEth<k>)
#ifndef VELDOR_CLI_BUS_KINDS_H
#define VELDOR_CLI_BUS_KINDS_H

#include <string>
#include <vector>

namespace veldor::cli {

enum class BusKind { Can, Ethernet };

struct BusKindInfo {
    BusKind kind;
    const char* word;  // on the command line and in a recorder's channel list: "can", "eth"
    const char* name;  // to the user: "CAN", "Ethernet"
    const char* channelNoun;  // "channel", "interface"
    const char* monitor;
    const char* monitorOutput;
    const char* injector;
    const char* injectorInput;
    const char* recorderInput;  // a capture file recorder's input, <prefix><k>
    const char* library;        // the bus access library's fixed path
    // The options of its channels, beyond --channel and --ip, and their
    // usage text.
    std::vector<std::string> options;
    const char* optionsUsage;
    // The files a command of this kind alone takes.
    std::vector<std::string> extensions;
};

const std::vector<BusKindInfo>& BusKinds();
const BusKindInfo& InfoOf(BusKind kind);
// By its word; null for none.
const BusKindInfo* KindByWord(const std::string& word);
// "can or eth"
std::string KindWords();

enum class FileKind { CanLog, Capture };

struct FileKindInfo {
    FileKind kind;
    const char* player;
    const char* recorder;
    std::vector<std::string> extensions;
};

// By the file's extension, in any letter case; null for none.
const FileKindInfo* FileKindOf(const std::string& path);
bool HasExtension(const std::string& path, const std::vector<std::string>& extensions);
// ".asc, .log or .blf"
std::string ExtensionList(const std::vector<std::string>& extensions);

}  // namespace veldor::cli

#endif
