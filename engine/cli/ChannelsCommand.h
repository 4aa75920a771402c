// veldor channels: the CAN channels and the Ethernet interfaces that the bus
// libraries offer, each with its kind and its description.
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
