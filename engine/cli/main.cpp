// veldor: runs diagram scripts, lists what packages offer, and records and
// replays CAN and Ethernet buses (the bus commands live in their own
// classes).

#include <atomic>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include "BusSession.h"
#include "ChannelsCommand.h"
#include "DemoCommand.h"
#include "Engine.h"
#include "EngineVersion.h"
#include "ModelListing.h"
#include "RecordCommand.h"
#include "ReplayCommand.h"
#include "Script.h"
#include "ScriptRunner.h"

namespace {

const char* const kUsage =
    "usage: veldor <command> [arguments]\n"
    "\n"
    "commands:\n"
    "  run [options] SCRIPT   run a diagram script (.vdl); Ctrl-C stops the diagram\n"
    "      -v, --verbose          more reports (give it twice for all)\n"
    "      -q, --quiet            errors only\n"
    "      --set Engine.NAME=VALUE\n"
    "                             set an engine property before the script runs\n"
    "  models PACKAGE         list the component models of a package file (.pck)\n"
    "  channels [--ip ADDR]   list the CAN channels and Ethernet interfaces the bus\n"
    "                         libraries offer\n"
    "  record can|eth --channel ID [options] FILE\n"
    "                         record a CAN channel (.asc, .log, .blf, .pcapng) or an\n"
    "                         Ethernet interface (.pcap, .pcapng)\n"
    "  record --channel ID [--channel ID]... [options] FILE.pcapng\n"
    "                         record CAN and Ethernet channels into one file\n"
    "  replay can|eth --channel ID [--sync] [--speed X] [options] FILE\n"
    "                         replay a file onto a channel\n"
    "  replay [--sync] --map NAME=ID [--map NAME=ID]... [options] FILE.pcapng\n"
    "                         replay each interface of a file onto a channel, in sync\n"
    "  demo [FILE]            replay the sample drive in sync on both buses while\n"
    "                         recording them, and compare (simulated buses: make demo)\n"
    "  version                print the engine's version\n"
    "\n"
    "veldor COMMAND --help tells a command's options. The script language is\n"
    "described in docs/scripts.md.\n";

int Usage(std::FILE* out, int code)
{
    std::fputs(kUsage, out);
    return code;
}

int RunScript(int argc, char** argv)
{
    veldor::EngineOptions options;
    std::vector<std::string> settings;
    std::string path;
    for (int i = 0; i < argc; ++i) {
        std::string arg = argv[i];
        if (arg == "-v" || arg == "--verbose") {
            options.verbosity = options.verbosity < 1 ? 1 : options.verbosity + 1;
        } else if (arg == "-vv") {
            options.verbosity = 3;
        } else if (arg == "-q" || arg == "--quiet") {
            options.verbosity = veldor::Console::kErrorsOnly;
        } else if (arg == "--set" && i + 1 < argc) {
            settings.push_back(argv[++i]);
        } else if (arg.compare(0, 6, "--set=") == 0) {
            settings.push_back(arg.substr(6));
        } else if (!arg.empty() && arg[0] == '-') {
            std::fprintf(stderr, "veldor run: unknown option \"%s\"\n", arg.c_str());
            return Usage(stderr, 2);
        } else if (path.empty()) {
            path = arg;
        } else {
            std::fprintf(stderr, "veldor run: one script at a time\n");
            return 2;
        }
    }
    if (path.empty()) return Usage(stderr, 2);

    veldor::Script script;
    std::string error;
    if (!veldor::Script::ParseFile(path, &script, &error)) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return 1;
    }
    veldor::Engine engine(options);
    // A long run keeps no copy of its reports.
    engine.GetConsole().SetCapture(false);
    for (const std::string& setting : settings) {
        size_t equals = setting.find('=');
        std::string name = setting.substr(0, equals);
        if (equals == std::string::npos || name.compare(0, 7, "Engine.") != 0) {
            std::fprintf(stderr, "veldor run: --set takes Engine.NAME=VALUE, not \"%s\"\n", setting.c_str());
            return 2;
        }
        if (!engine.Graph().SetProperty(name, setting.substr(equals + 1), false, &error)) {
            std::fprintf(stderr, "veldor run: --set %s: %s\n", setting.c_str(), error.c_str());
            return 1;
        }
    }

    // The first Ctrl-C stops the diagram cleanly.
    veldor::ScriptRunner runner(engine, veldor::cli::CatchInterrupts());
    if (!runner.Run(script, &error)) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return 1;
    }
    if (runner.Interrupted()) std::fprintf(stderr, "veldor: interrupted; the diagram was shut down\n");
    return 0;
}

int ListModels(const char* path)
{
    veldor::Engine engine;
    std::string error;
    if (!engine.LoadPackage(path, &error)) {
        std::fprintf(stderr, "veldor: %s\n", error.c_str());
        return 1;
    }
    veldor::ListModels(engine, veldor::Packages::NameOfFile(path), std::cout);
    return 0;
}

int RunCommand(int argc, char** argv)
{
    if (argc < 2) return Usage(stderr, 2);
    std::string command = argv[1];
    if (command == "-h" || command == "--help" || command == "help") return Usage(stdout, 0);
    if (command == "version" || command == "--version") {
        std::printf("veldor %s\n", veldor::kEngineVersion);
        return 0;
    }
    if (command == "run") return RunScript(argc - 2, argv + 2);
    if (command == "channels") return veldor::cli::ChannelsCommand().Run(argc - 2, argv + 2);
    if (command == "record") return veldor::cli::RecordCommand().Run(argc - 2, argv + 2);
    if (command == "replay") return veldor::cli::ReplayCommand().Run(argc - 2, argv + 2);
    if (command == "demo") return veldor::cli::DemoCommand().Run(argc - 2, argv + 2);
    if (command == "models") {
        if (argc != 3) {
            std::fprintf(stderr, "usage: veldor models PACKAGE\n");
            return 2;
        }
        return ListModels(argv[2]);
    }
    std::fprintf(stderr, "veldor: unknown command \"%s\"\n\n", argv[1]);
    return Usage(stderr, 2);
}

}  // namespace

int main(int argc, char** argv)
{
    // A command that asks its diagram for a figure it does not have is
    // faulty: it ends with that said, never with a figure of 0.
    try {
        return RunCommand(argc, argv);
    } catch (const veldor::cli::MissingFigure& missing) {
        std::fprintf(stderr, "veldor %s: %s\n", argv[1], missing.what());
        return 1;
    }
}
