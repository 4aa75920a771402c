#include "PythonPartner.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <regex>
#include <sstream>

using veldor::canlog::CanFrame;
using veldor::canlog::Direction;

namespace canlog_test {

namespace {

constexpr const char* kPython = "/usr/bin/python3";

}  // namespace

bool PythonCanPresent()
{
    const std::string command = std::string(kPython) + " -c 'import can' >/dev/null 2>&1";
    return std::system(command.c_str()) == 0;
}

std::string RunPartner(const std::string& script, const std::string& verb, const std::string& path,
                       const std::string& argument)
{
    const std::string command = std::string(kPython) + " " + script + " " + verb + " '" + path + "' " + argument;
    std::string out;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) {
        ADD_FAILURE() << "cannot run " << command;
        return out;
    }
    char buffer[4096];
    for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) out.append(buffer, n);
    const int status = pclose(pipe);
    EXPECT_EQ(status, 0) << command << " printed:\n" << out;
    return out;
}

bool PythonCanCutItsDateLine(const std::string& path)
{
    static const std::regex kWhole(R"(date \w{3} \w{3} \d{2} \d{2}:\d{2}:\d{2}\.\d{3} [AP]M \d{4})");
    if (path.size() < 4 || path.compare(path.size() - 4, 4, ".asc") != 0) return false;
    std::ifstream in(path);
    std::string first;
    std::getline(in, first);
    return !std::regex_match(first, kWhole);
}

std::vector<CanFrame> ParseFrames(const std::string& text)
{
    std::vector<CanFrame> frames;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream fields(line);
        CanFrame f;
        std::string id;
        std::string direction;
        std::string data;
        int flags[6];
        int length = 0;
        int channel = 0;
        fields >> f.timestamp >> id >> flags[0] >> flags[1] >> flags[2] >> flags[3] >> flags[4] >> flags[5] >> length >>
            channel >> direction >> data;
        EXPECT_FALSE(fields.fail()) << "unreadable partner line: " << line;
        f.id = static_cast<std::uint32_t>(std::stoul(id, nullptr, 16));
        f.extended = flags[0];
        f.remote = flags[1];
        f.fd = flags[2];
        f.bitRateSwitch = flags[3];
        f.errorStateIndicator = flags[4];
        f.error = flags[5];
        f.length = static_cast<std::uint8_t>(length);
        f.channel = static_cast<std::uint8_t>(channel);
        f.direction = direction == "T" ? Direction::Tx : Direction::Rx;
        for (std::size_t i = 0; data != "-" && 2 * i + 1 < data.size(); ++i) {
            f.data[i] = static_cast<std::uint8_t>(std::stoul(data.substr(2 * i, 2), nullptr, 16));
        }
        frames.push_back(f);
    }
    return frames;
}

}  // namespace canlog_test
