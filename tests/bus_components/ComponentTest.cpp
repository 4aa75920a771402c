#include "ComponentTest.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "quiet_engine.h"

namespace bus_components {

// Made on first use and never destroyed: the package stays loaded until the
// process ends.
veldor::Engine& SharedEngine()
{
    static veldor::Engine* engine = [] {
        auto* made = new veldor::Engine(Quiet());
        std::string error;
        EXPECT_TRUE(made->LoadPackage(VELDOR_BUS_PACKAGE, &error)) << error;
        EXPECT_TRUE(made->LoadPackage(VELDOR_IO_PACKAGE, &error)) << error;
        EXPECT_TRUE(made->LoadPackage(VELDOR_PROBE_PACKAGE, &error)) << error;
        return made;
    }();
    return *engine;
}

namespace {

long long ParseTime(const std::string& text)
{
    const std::size_t dot = text.find('.');
    const long long value = std::llabs(std::stoll(text.substr(0, dot))) * 1000000 + std::stoll(text.substr(dot + 1));
    return text[0] == '-' ? -value : value;
}

}  // namespace

std::vector<PrintedFrame> ReadPrinted(const std::string& path)
{
    std::vector<PrintedFrame> frames;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        // (ts) id [length] bytes... flags... elt=ts #index/size
        std::istringstream words(line);
        std::string ts, id, length, word;
        words >> ts >> id >> length;
        PrintedFrame f{ParseTime(ts.substr(1, ts.size() - 2)), static_cast<std::uint32_t>(std::stoul(id, nullptr, 16)),
                       id.size() == 8, std::stoi(length.substr(1))};
        for (int i = 0; i < f.length && words >> word; ++i)
            f.data.push_back(static_cast<std::uint8_t>(std::stoul(word, nullptr, 16)));
        while (words >> word) {
            if (word.rfind("elt=", 0) == 0)
                f.elementTs = ParseTime(word.substr(4));
            else if (word[0] == '#')
                std::sscanf(word.c_str(), "#%d/%d", &f.index, &f.size);
            else
                f.flags.insert(word);
        }
        frames.push_back(f);
    }
    return frames;
}

std::uint32_t CounterOf(const PrintedFrame& frame)
{
    std::uint32_t counter = 0;
    for (int i = 0; i < 4 && i < frame.length; ++i) counter |= static_cast<std::uint32_t>(frame.data[i]) << (8 * i);
    return counter;
}

}  // namespace bus_components
