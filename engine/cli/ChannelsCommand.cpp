#include "ChannelsCommand.h"

#include <cstdio>
#include <vector>

#include "BusSession.h"
#include "CommandLine.h"
#include "CommonOptions.h"

namespace veldor::cli {

const char* ChannelsCommand::Usage()
{
    return "usage: veldor channels [--ip ADDR]\n"
           "Lists the CAN channels that the bus library offers at ADDR (127.0.0.1), with\n"
           "their descriptions.\n";
}

int ChannelsCommand::Run(int argc, char** argv)
{
    BusSession session("veldor channels");
    CommandLine line;
    line.Value("--ip").Flag("-h").Flag("--help");
    int exit = 0;
    if (!ParseCommandLine(line, argc, argv, session, Usage(), &exit)) return exit;
    std::string error;
    if (!line.Arguments().empty()) return session.Fail(std::string("no arguments besides --ip\n") + Usage()) + 1;
    const std::string ip = line.Get("--ip", ChannelOptions().ip);
    std::vector<ChannelEntry> channels;
    if (!session.Open(true, &error) || !session.Channels(ip, &channels, &error)) return session.Fail(error);
    if (channels.empty()) return session.Fail("the bus library offers no CAN channel at " + ip);
    std::size_t width = 0;
    for (const ChannelEntry& c : channels) width = std::max(width, c.id.size());
    for (const ChannelEntry& c : channels)
        std::printf("%-*s  %s\n", static_cast<int>(width), c.id.c_str(), c.description.c_str());
    return 0;
}

}  // namespace veldor::cli
