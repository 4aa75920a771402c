// veldor demo: the main job at a glance. Replays a recording (the bundled
// sample by default) in sync on one channel of the simulated bus while
// recording another channel of the same bus, then tells how the recording
// compares with the original.
#ifndef VELDOR_CLI_DEMO_COMMAND_H
#define VELDOR_CLI_DEMO_COMMAND_H

namespace veldor::cli {

class DemoCommand {
public:
    static const char* Usage();
    // The arguments after "demo"; returns the exit code: 0 when the
    // recording holds every frame of the original, identical.
    int Run(int argc, char** argv);
};

}  // namespace veldor::cli

#endif
