// veldor record can: the frames of a CAN channel into a log file, until
// Ctrl-C or the duration given.
#ifndef VELDOR_CLI_RECORD_COMMAND_H
#define VELDOR_CLI_RECORD_COMMAND_H

namespace veldor::cli {

class RecordCommand {
public:
    static const char* Usage();
    // The arguments after "record"; returns the exit code.
    int Run(int argc, char** argv);
};

}  // namespace veldor::cli

#endif
