// veldor channels: the CAN channels that the bus library offers, with their
// descriptions.
#ifndef VELDOR_CLI_CHANNELS_COMMAND_H
#define VELDOR_CLI_CHANNELS_COMMAND_H

namespace veldor::cli {

class ChannelsCommand {
public:
    static const char* Usage();
    // The arguments after "channels"; returns the exit code.
    int Run(int argc, char** argv);
};

}  // namespace veldor::cli

#endif
