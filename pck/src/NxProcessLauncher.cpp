#include "NxProcessLauncher.h"

#include <boost/dll/runtime_symbol_info.hpp>
#include <boost/format.hpp>
#include <boost/process.hpp>

#include <cctype>
#include <cstdio>
#include <exception>
#include <istream>
#include <stdexcept>

namespace {

// The first line that `command` printed, read once the command has ended: the
// tool prints one short line, which the pipe holds while it is waited for.
// What the command printed beyond its first line, and how it ended, are not
// looked at; a command that printed nothing gives "".
std::string ExecCmd(std::string command)
{
    namespace bp = boost::process;
    bp::ipstream output;
    const bp::environment environment = boost::this_process::environment();
    bp::child child(command, environment, bp::std_out > output);
    child.wait();
    std::string line;
    std::getline(output, line);
    return line;
}

void Rtrim(std::string& text)
{
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) text.pop_back();
}

}  // namespace

void NxProcessLauncher::GetBusApiDllFilePath(const std::string& fileName, std::string& filePath)
{
    try {
        const std::string folder = boost::dll::this_line_location().parent_path().string();
        const std::string command =
            (boost::format("%1%%2%bin%2%NxGetProductPath.exe --product NorvexBusAPI") % folder % "/").str();
        std::string line = ExecCmd(command);
        Rtrim(line);
        // The tool's line ends with its separator.
        filePath = line + fileName;
    } catch (const std::exception& failure) {
        char text[1000];
        std::snprintf(text, sizeof text, "GetBusApiDllFilePath failed: %s", failure.what());
        throw std::runtime_error(text);
    }
}
