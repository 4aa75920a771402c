#include "ChannelsCommand.h"

#include <algorithm>
#include <cstdio>
#include <utility>
#include <vector>

#include "BusSession.h"
#include "CommandLine.h"
#include "CommonOptions.h"

namespace veldor::cli {

const char* ChannelsCommand::Usage()
{
    return "usage: veldor channels [--ip ADDR]\n"
           "Lists the CAN channels and the Ethernet interfaces that the bus libraries offer\n"
           "at ADDR (127.0.0.1), each with its kind and its description.\n";
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
    if (!session.Open({}, &error)) return session.Fail(error);
    // Each kind whose bus library is there; none at all is a failure.
    std::vector<std::pair<const char*, ChannelEntry>> rows;
    std::string missing;
    bool any = false;
    for (const BusKindInfo& kind : BusKinds()) {
        std::string absent;
        if (!BusSession::HasLibrary(kind.kind, &absent)) {
            if (missing.empty()) missing = absent;
            continue;
        }
        any = true;
        std::vector<ChannelEntry> channels;
        if (!session.Channels(ip, kind.kind, &channels, &error)) return session.Fail(error);
        for (const ChannelEntry& c : channels) rows.emplace_back(kind.name, c);
    }
    if (!any) return session.Fail(missing);
    if (rows.empty()) return session.Fail("the bus libraries offer no CAN channel and no Ethernet interface at " + ip);
    std::size_t width = 0;
    for (const auto& row : rows) width = std::max(width, row.second.id.size());
    for (const auto& row : rows)
        std::printf("%-*s  %-8s  %s\n", static_cast<int>(width), row.second.id.c_str(), row.first,
                    row.second.description.c_str());
    return 0;
}

}  // namespace veldor::cli
