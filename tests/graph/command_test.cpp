// The veldor command as a user runs it: scripts, Ctrl-C, and the listing of
// a package's models.
#include <gtest/gtest.h>

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include "scratch.h"

extern char** environ;

namespace {

struct Outcome {
    int exitCode;
    std::string output;  // standard output and error
};

Outcome Command(const std::string& arguments)
{
    std::string line = std::string(VELDOR_COMMAND) + " " + arguments + " 2>&1";
    Outcome outcome{-1, ""};
    FILE* pipe = popen(line.c_str(), "r");
    if (!pipe) return outcome;
    char buffer[4096];
    for (size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;) outcome.output.append(buffer, n);
    int status = pclose(pipe);
    outcome.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return outcome;
}

std::string Script(const char* name) { return std::string(VELDOR_TEST_SCRIPTS) + "/" + name; }

// True once the process catches SIGINT: its handler is in place.
bool CatchesInterrupt(pid_t pid)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.compare(0, 7, "SigCgt:") == 0)
            return (std::stoull(line.substr(7), nullptr, 16) >> (SIGINT - 1)) & 1;
    return false;
}

}  // namespace

TEST(Command, RunsAScriptAndFailsClearly)
{
    const std::string counting = Script("counting.vdl"), unknown = Script("unknown_model.vdl");
    const struct {
        std::string arguments;
        int exitCode;
        char match;  // the output is `output` (=), starts with it (^) or holds it (~)
        std::string output;
    } cases[] = {
        {"run -q " + counting, 0, '=', ""},
        {"run " + unknown, 1, '=', unknown + ":4: unknown model \"Foo\"\n"},
        {"run /nowhere/none.vdl", 1, '=', "/nowhere/none.vdl: cannot read the script\n"},
        {"run --set Engine.speed=fast " + counting, 1, '~', "property Engine.speed: it is an integer"},
        {"run --set speed=2 " + counting, 2, '^', ""}, {"run", 2, '^', ""}, {"frobnicate", 2, '^', ""},
        {"version", 0, '^', "veldor 4.10.0"},
    };
    for (const auto& c : cases) {
        const Outcome outcome = Command(c.arguments);
        const std::size_t at = outcome.output.find(c.output);
        EXPECT_EQ(outcome.exitCode, c.exitCode) << c.arguments << "\n" << outcome.output;
        EXPECT_TRUE(c.match == '=' ? outcome.output == c.output : c.match == '^' ? at == 0 : at != std::string::npos)
            << c.arguments << "\n" << outcome.output;
    }
}

TEST(Command, CtrlCStopsTheDiagramAndExitsZero)
{
    std::string script = Script("until_interrupted.vdl");
    char* argv[] = {const_cast<char*>(VELDOR_COMMAND), const_cast<char*>("run"), const_cast<char*>("-q"),
                    const_cast<char*>(script.c_str()), nullptr};
    pid_t pid = 0;
    ASSERT_EQ(posix_spawn(&pid, VELDOR_COMMAND, nullptr, nullptr, argv, environ), 0);
    EXPECT_TRUE(veldtest::Eventually([&] { return CatchesInterrupt(pid); }));
    std::this_thread::sleep_for(std::chrono::milliseconds(200));  // into its wait
    kill(pid, SIGINT);
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    ASSERT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST(Command, ListsTheModelsOfAPackage)
{
    Outcome listing = Command(std::string("models ") + VELDOR_TEST_PACKAGE);
    ASSERT_EQ(listing.exitCode, 0) << listing.output;
    const std::string& out = listing.output;
    for (const char* expected : {
             "Counter 1.1.0\n  properties:\n",
             "    reader                 enum     5|0|FifoReader|NeverSkippingReader|LastOrNextReader|Wait4NextReader|"
             "SamplingReader\n",
             "    delay                  integer  0 us\n",
             "    received               integer  0  [read-only]\n",
             "  inputs:\n    iValue                 accepts Integer; FifoReader\n",
             "  actions:\n    renameAfterUpstream\n",
             "Generator 1.0.0\n",
             "  outputs:\n    oValue                 Integer, size 1, FIFO 16\n",
             "    label                  string   \"\"  [needs to be set]\n",
             "    gain                   float    1\n",
             "    oLevel                 Float, size 1, FIFO 16\n",
             // What Dynamic declares with the default properties.
             "Merger 1.0.0\n",
             "    i0                     accepts Integer; FifoReader\n    i1                     accepts Integer; "
             "FifoReader\n",
         })
        EXPECT_NE(out.find(expected), std::string::npos) << "missing: " << expected << "\nin:\n" << out;
    EXPECT_EQ(out.find("counter "), std::string::npos);  // built-in properties are left out
    EXPECT_EQ(out.find("autoStart"), std::string::npos);

    Outcome refused = Command(std::string("models ") + VELDOR_REFUSING_PACKAGE);
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_NE(refused.output.find("refuses this engine"), std::string::npos) << refused.output;
}
