// Finding the bus access product through its path tool: the tool built beside
// the packages, and the launcher's reading of what a tool prints. The
// launcher looks in the folder "bin" beside the code that runs it, here this
// program's own folder, where the test puts the tools it needs.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <string>
#include <utility>

#include "NxBusLibraryPaths.h"
#include "NxProcessLauncher.h"
#include "veld_os_helpers.h"

namespace {

// How a command exits, and what it prints.
std::pair<int, std::string> RunCommand(const std::string& command)
{
    std::string out;
    FILE* pipe = popen((command + " 2>/dev/null").c_str(), "r");
    if (!pipe) return {-1, out};
    char buffer[256];
    while (std::fgets(buffer, sizeof buffer, pipe)) out += buffer;
    const int status = pclose(pipe);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, out};
}

TEST(ProductPathTool, TellsTheProductsFolderAndRefusesAnythingElse)
{
    const std::string tool = std::string(VELDOR_PACKAGES_DIR) + "/bin/NxGetProductPath.exe ";
    EXPECT_EQ(RunCommand(tool + "--product NorvexBusAPI"), std::make_pair(0, std::string(NX_BUSAPI_BIN_DIR) + "/\n"));
    for (const char* arguments : {"--product Other", "", "--product", "--help", "--product NorvexBusAPI extra"}) {
        const auto refused = RunCommand(tool + arguments);
        EXPECT_NE(refused.first, 0) << arguments;
        EXPECT_EQ(refused.second, "") << arguments;
    }
}

// One test: the cases take turns at the one tool beside this program.
TEST(ProductPathLauncher, AppendsTheFileNameToTheToolsFirstLine)
{
    const std::string bin = VELDFile(VELD::GetCurrentBinaryPath()).GetParentFolder().Beginning() + std::string("/bin");
    const std::string tool = bin + "/NxGetProductPath.exe";
    mkdir(bin.c_str(), 0755);
    const struct {
        const char* printed;  // by a tool that checks its arguments first
        const char* path;
    } cases[] = {
        {"/some/path/\n", "/some/path/lib.so"},
        {"/some/path/ \t\r\n", "/some/path/lib.so"},
        {"", "lib.so"},
        {"/first/\n/second/\n", "/first/lib.so"},
        {"/no/line/feed/", "/no/line/feed/lib.so"},
    };
    for (const auto& c : cases) {
        std::ofstream(tool) << "#!/bin/sh\n[ \"$*\" = \"--product NorvexBusAPI\" ] || exit 3\nprintf '" << c.printed
                            << "'\n";
        ASSERT_EQ(chmod(tool.c_str(), 0755), 0);
        std::string path = "untouched";
        NxProcessLauncher::GetBusApiDllFilePath("lib.so", path);
        EXPECT_EQ(path, c.path) << c.printed;
    }

    // The real tool, as it stands beside a package.
    ASSERT_EQ(std::system(("cp " + std::string(VELDOR_PACKAGES_DIR) + "/bin/NxGetProductPath.exe " + tool).c_str()), 0);
    std::string path;
    NxProcessLauncher::GetBusApiDllFilePath("libNXBusApiCan.so", path);
    EXPECT_EQ(path, NX_BUSAPI_CAN_LIBRARY_PATH);

    // No tool: the failure is told, and the path left alone.
    ASSERT_EQ(unlink(tool.c_str()), 0);
    path = "untouched";
    std::string failure = "no failure";
    try {
        NxProcessLauncher::GetBusApiDllFilePath("lib.so", path);
    } catch (const std::runtime_error& e) {
        failure = e.what();
    }
    EXPECT_EQ(failure.rfind("GetBusApiDllFilePath failed: ", 0), 0u) << failure;
    EXPECT_EQ(path, "untouched");
}

}  // namespace
