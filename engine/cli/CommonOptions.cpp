#include "CommonOptions.h"

#include <cstdio>

namespace veldor::cli {

const char* const kChannelOptionsUsage =
    "  --channel ID         the CAN channel (veldor channels lists them)\n"
    "  --ip ADDR            where the bus library finds the channel (127.0.0.1)\n"
    "  --fd                 a CAN FD channel\n"
    "  --bitrate R          arbitration bit rate, 10k to 1M (500k)\n"
    "  --data-bitrate R     data phase bit rate of CAN FD, up to 8M (2M)\n";

void DeclareChannelOptions(CommandLine& line)
{
    line.Value("--channel").Value("--ip").Flag("--fd").Value("--bitrate").Value("--data-bitrate");
    line.Flag("-h").Flag("--help");
}

bool ReadChannelOptions(const CommandLine& line, ChannelOptions* options, std::string* error)
{
    options->channel = line.Get("--channel");
    if (options->channel.empty()) {
        *error = "--channel is needed (veldor channels lists them)";
        return false;
    }
    options->ip = line.Get("--ip", options->ip);
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

bool ReadCanFile(const CommandLine& line, std::string* file, std::string* error)
{
    const auto& arguments = line.Arguments();
    if (arguments.empty() || arguments[0] != "can") {
        *error = arguments.empty() ? "which bus? only \"can\" is known" : "unknown bus \"" + arguments[0] + "\"; only \"can\" is known";
        return false;
    }
    if (arguments.size() != 2) {
        *error = arguments.size() < 2 ? "a log file (.asc, .log or .blf) is needed" : "one log file at a time";
        return false;
    }
    *file = arguments[1];
    return true;
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

}  // namespace veldor::cli
