// The options that the bus commands share: the channel and its bit rates.
#ifndef VELDOR_CLI_COMMON_OPTIONS_H
#define VELDOR_CLI_COMMON_OPTIONS_H

#include <string>

#include "BusSession.h"
#include "CommandLine.h"

namespace veldor::cli {

// Declares --channel, --ip, --fd, --bitrate, --data-bitrate, --help.
void DeclareChannelOptions(CommandLine& line);
// The text of the usage that tells them.
extern const char* const kChannelOptionsUsage;

// Parses a command's line. True: the command goes on. False: it ends with
// *exit, 0 once `usage` is printed for -h or --help, 2 once a mistake in the
// line is told with the usage.
bool ParseCommandLine(CommandLine& line, int argc, char** argv, const BusSession& session, const char* usage,
                      int* exit);

// Reads them; false with the reason for a missing channel or a bad rate.
bool ReadChannelOptions(const CommandLine& line, ChannelOptions* options, std::string* error);

// Checks that the arguments are "can FILE"; false with the reason.
bool ReadCanFile(const CommandLine& line, std::string* file, std::string* error);

}  // namespace veldor::cli

#endif
