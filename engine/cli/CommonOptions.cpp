#include "CommonOptions.h"

#include <algorithm>
#include <cstdio>

namespace veldor::cli {

namespace {

// The protocol_type items of the Ethernet injector, by the option's words.
const char* const kProtocols[][2] = {{"generic", "Generic"}, {"udp", "UDP"}, {"someip-tp", "SOME/IP TP"}};

}  // namespace

void DeclareChannelOptions(CommandLine& line)
{
    line.Repeated("--channel").Value("--ip").Flag("-h").Flag("--help");
    for (const BusKindInfo& kind : BusKinds()) {
        for (const std::string& option : kind.options) {
            if (option == "--fd") line.Flag(option);
            else line.Value(option);
        }
    }
}

std::string ChannelOptionsUsage(const BusKindInfo* kind)
{
    std::string text = kind ? std::string("  --channel ID         the ") + kind->name + " " + kind->channelNoun +
                                  " (veldor channels lists them)\n"
                            : "  --channel ID         a channel, CAN or Ethernet, given once for each (veldor channels\n"
                              "                       lists them)\n";
    text += "  --ip ADDR            where the bus libraries find the channels (127.0.0.1)\n";
    for (const BusKindInfo& k : BusKinds()) {
        if (kind && kind != &k) continue;
        if (!kind) text += std::string("of ") + k.name + " channels:\n";
        text += k.optionsUsage;
    }
    return text;
}

bool ParseCommandLine(CommandLine& line, int argc, char** argv, const BusSession& session, const char* usage,
                      int* exit)
{
    std::string error;
    if (!line.Parse(argc, argv, &error)) {
        *exit = session.Fail(error + "\n" + usage) + 1;
        return false;
    }
    if (line.Has("-h") || line.Has("--help")) {
        std::fputs(usage, stdout);
        *exit = 0;
        return false;
    }
    return true;
}

bool ReadKindAndFile(const CommandLine& line, const BusKindInfo** kind, std::string* file, std::string* error)
{
    const auto& arguments = line.Arguments();
    *kind = arguments.empty() ? nullptr : KindByWord(arguments[0]);
    const std::size_t files = arguments.size() - (*kind ? 1 : 0);
    if (files != 1) {
        *error = files == 0 ? "a file is needed"
                 : !*kind && !arguments.empty() && FileKindOf(arguments[0]) == nullptr
                     ? "unknown bus \"" + arguments[0] + "\"; " + KindWords() + ", or no word for a .pcapng file of several"
                     : "one file at a time";
        return false;
    }
    *file = arguments.back();
    const std::vector<std::string> extensions = *kind ? (*kind)->extensions : std::vector<std::string>{".pcapng"};
    if (!HasExtension(*file, extensions)) {
        *error = *kind ? *file + ": " + (*kind)->word + " takes a " + ExtensionList(extensions) + " file"
                       : *file + ": a file of several buses is .pcapng (or name the bus: " + KindWords() + " FILE)";
        return false;
    }
    return true;
}

bool ReadChannelOptions(const CommandLine& line, BusKind kind, ChannelOptions* options, std::string* error)
{
    options->kind = kind;
    options->ip = line.Get("--ip", options->ip);
    if (kind == BusKind::Ethernet) {
        const std::string protocol = line.Get("--protocol", "generic");
        for (const auto& item : kProtocols) {
            if (protocol == item[0]) {
                options->protocol = item[1];
                return true;
            }
        }
        *error = "--protocol is generic, udp or someip-tp, not \"" + protocol + "\"";
        return false;
    }
    options->fd = line.Has("--fd");
    if (line.Has("--bitrate") && !ParseBitRate(line.Get("--bitrate"), &options->bitRate)) {
        *error = "--bitrate takes a rate such as 500k or 1M, not \"" + line.Get("--bitrate") + "\"";
        return false;
    }
    if (line.Has("--data-bitrate") && !ParseBitRate(line.Get("--data-bitrate"), &options->dataBitRate)) {
        *error = "--data-bitrate takes a rate such as 2M, not \"" + line.Get("--data-bitrate") + "\"";
        return false;
    }
    return true;
}

bool RefuseOtherKinds(const CommandLine& line, BusKind kind, std::string* error)
{
    for (const BusKindInfo& other : BusKinds()) {
        if (other.kind == kind) continue;
        for (const std::string& option : other.options) {
            if (!line.Has(option)) continue;
            *error = option + " is an option of " + other.name + " " + other.channelNoun + "s";
            return false;
        }
    }
    return true;
}

}  // namespace veldor::cli
