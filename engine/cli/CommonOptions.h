// The options that the bus commands share: the channels, and the options of
// each kind of bus (BusKinds.h), and the words before the file: "can FILE",
// "eth FILE", or FILE alone for a file of several buses.
#ifndef VELDOR_CLI_COMMON_OPTIONS_H
#define VELDOR_CLI_COMMON_OPTIONS_H

#include <string>

#include "BusKinds.h"
#include "BusSession.h"
#include "CommandLine.h"

namespace veldor::cli {

// Declares --channel (repeated), --ip, the options of every kind, --help.
void DeclareChannelOptions(CommandLine& line);
// The usage text of --channel, --ip and the options of `kind`, or of every
// kind for null.
std::string ChannelOptionsUsage(const BusKindInfo* kind);

// Parses a command's line. True: the command goes on. False: it ends with
// *exit, 0 once `usage` is printed for -h or --help, 2 once a mistake in the
// line is told with the usage.
bool ParseCommandLine(CommandLine& line, int argc, char** argv, const BusSession& session, const char* usage,
                      int* exit);

// The words before the file: "<kind> FILE" (*kind set) or "FILE" (*kind
// null: a file of several buses, .pcapng). The file's extension must be one
// the kind takes. False with the reason.
bool ReadKindAndFile(const CommandLine& line, const BusKindInfo** kind, std::string* file, std::string* error);

// The options of a channel of `kind`, --ip among them, into `options` (the
// channel itself is the caller's); false with the reason for a bad value.
bool ReadChannelOptions(const CommandLine& line, BusKind kind, ChannelOptions* options, std::string* error);
// False, with the reason, when an option of another kind than `kind` is
// given.
bool RefuseOtherKinds(const CommandLine& line, BusKind kind, std::string* error);

}  // namespace veldor::cli

#endif
