// veldor replay can: a log file onto a CAN channel, frames sent as they come
// at the engine's speed, or as a hardware-timed synchronised replay.
#ifndef VELDOR_CLI_REPLAY_COMMAND_H
#define VELDOR_CLI_REPLAY_COMMAND_H

namespace veldor::cli {

class ReplayCommand {
public:
    static const char* Usage();
    // The arguments after "replay"; returns the exit code.
    int Run(int argc, char** argv);
};

}  // namespace veldor::cli

#endif
