#include "ComponentTest.h"

#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>

#include "quiet_engine.h"
#include "veld_component.h"

namespace bus_components {

namespace {

long long ParseTime(std::string text)
{
    bool negative = !text.empty() && text[0] == '-';
    if (negative) text = text.substr(1);
    const std::size_t dot = text.find('.');
    long long value = std::stoll(text.substr(0, dot)) * 1000000 + std::stoll(text.substr(dot + 1));
    return negative ? -value : value;
}

}  // namespace

std::vector<PrintedFrame> ReadPrinted(const std::string& path)
{
    std::vector<PrintedFrame> frames;
    std::ifstream file(path);
    std::string line;
    while (std::getline(file, line)) {
        std::istringstream words(line);
        std::string word;
        PrintedFrame frame{};
        words >> word;  // (ts)
        frame.ts = ParseTime(word.substr(1, word.size() - 2));
        words >> word;
        frame.extended = word.size() == 8;
        frame.id = static_cast<std::uint32_t>(std::stoul(word, nullptr, 16));
        words >> word;  // [len]
        frame.length = std::stoi(word.substr(1, word.size() - 2));
        for (int i = 0; i < frame.length; ++i) {
            words >> word;
            frame.data.push_back(static_cast<std::uint8_t>(std::stoul(word, nullptr, 16)));
        }
        while (words >> word) {
            if (word.rfind("elt=", 0) == 0) {
                frame.elementTs = ParseTime(word.substr(4));
            } else if (word[0] == '#') {
                const std::size_t slash = word.find('/');
                frame.index = std::stoi(word.substr(1, slash - 1));
                frame.size = std::stoi(word.substr(slash + 1));
            } else {
                frame.flags.insert(word);
            }
        }
        frames.push_back(frame);
    }
    return frames;
}

std::uint32_t CounterOf(const PrintedFrame& frame)
{
    std::uint32_t counter = 0;
    for (int i = 0; i < 4 && i < frame.length; ++i) counter |= static_cast<std::uint32_t>(frame.data[i]) << (8 * i);
    return counter;
}

namespace {

// The engine of the whole run, made with its packages on first use and
// never destroyed: the package stays loaded until the process ends.
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

}  // namespace

ComponentTest::ComponentTest() : engine(SharedEngine())
{
    engine.GetConsole().ClearCaptured();
    // Each component starts once the one before was born: a diagram made
    // readers first hears everything its senders send.
    std::string error;
    EXPECT_TRUE(engine.Graph().SetProperty("Engine.sequentialStart", "true", false, &error)) << error;
}

ComponentTest::~ComponentTest()
{
    engine.Graph().Clear();
}

void ComponentTest::Make(const std::string& model, const std::string& name)
{
    std::string error;
    ASSERT_NE(engine.Graph().Create(model, name, &error), nullptr) << error;
}

void ComponentTest::Set(const std::string& property, const std::string& value)
{
    std::string error;
    ASSERT_TRUE(engine.Graph().SetProperty(property, value, false, &error)) << error;
}

std::string ComponentTest::Refusal(const std::string& property, const std::string& value)
{
    std::string error;
    return engine.Graph().SetProperty(property, value, false, &error) ? std::string() : error;
}

void ComponentTest::Connect(const std::string& output, const std::string& input)
{
    std::string error;
    ASSERT_TRUE(engine.Graph().Connect(output, input, &error)) << error;
}

void ComponentTest::Trigger(const std::string& action)
{
    std::string error;
    ASSERT_TRUE(engine.Graph().Trigger(action, nullptr, &error)) << error;
}

void ComponentTest::Run()
{
    std::string error;
    ASSERT_TRUE(engine.Graph().Run(&error)) << error;
}

void ComponentTest::MakeOnChannel(const std::string& model, const std::string& name, const std::string& channel,
                                  bool canFd, const std::string& replayMode)
{
    Make(model, name);
    if (!replayMode.empty()) Set(name + ".replay_mode", replayMode);
    Trigger(name + ".Refresh_Devices");
    Set(name + ".channel", channel);
    Set(name + ".can_fd", canFd ? "true" : "false");
    Set(name + ".arbitration_baudrate", "500");
    Set(name + ".data_baudrate", canFd ? "2000" : "500");
}

void ComponentTest::MakeOnInterface(const std::string& model, const std::string& name, const std::string& interface,
                                    const std::string& replayMode)
{
    Make(model, name);
    if (!replayMode.empty()) Set(name + ".replay_mode", replayMode);
    Trigger(name + ".Refresh_Devices");
    Set(name + ".channel", interface);
}

void ComponentTest::SetTsBehaviour(const std::string& monitor, int behaviour)
{
    Set(monitor + ".ts_behavior", "3|" + std::to_string(behaviour) +
                                      "|Convert HW timestamps to Veldor timebase|Keep HW timestamps (apply this on "
                                      "output)|Keep HW timestamps (use Veldor timebase on output)");
}

void ComponentTest::MakeReplayTimes(long long logStart, long long lead, long long stopAfter, long long logEnd,
                                    long long eofDelay)
{
    Make("CanReplayStatus", "probe");
    Connect("tx.oReplayStateInfo", "probe.iReplayStateInfo");
    Make("ReplayTimeSource", "times");
    Set("times.log_start", std::to_string(logStart));
    Set("times.replay_lead", std::to_string(lead));
    Set("times.replay_stop", std::to_string(stopAfter));
    if (eofDelay > 0) {
        Set("times.log_end", std::to_string(logEnd));
        Set("times.eof_delay", std::to_string(eofDelay));
    }
    for (const char* input : {"LogStartTime", "ReplayStartTime", "ReplayStopTime", "ReplayEofTime"})
        Connect(std::string("times.o") + input, std::string("tx.i") + input);
}

void ComponentTest::ExpectStreamClosed(long long frames)
{
    enum { Scheduled = 1, Started = 2, End = 4 };
    ASSERT_TRUE(Eventually([&] { return Figure("probe.state") == End; }, 10)) << Figure("probe.state");
    EXPECT_TRUE(Eventually([&] { return Threads("tx") == 2; }, 10)) << Threads("tx");
    EXPECT_EQ(Figure("probe.sent"), frames);
    EXPECT_EQ(Figure("probe.dropped"), 0);
    const long long seen = Figure("probe.states_seen");
    EXPECT_TRUE(seen & (1 << Scheduled)) << seen;
    EXPECT_TRUE(seen & (1 << Started)) << seen;
}

std::string ComponentTest::MakeEthPrinter(const std::string& name, const std::string& source)
{
    const std::string path = m_folder + "/" + name + ".txt";
    Make("EthPrinter", name);
    Set(name + ".file", path);
    Set(name + ".element_info", "true");
    Set(name + ".dump_bytes", "-1");
    Connect(source, name + ".iEth");
    return path;
}

std::string ComponentTest::MakePrinter(const std::string& name, const std::string& source)
{
    const std::string path = m_folder + "/" + name + ".txt";
    Make("CanPrinter", name);
    Set(name + ".file", path);
    Set(name + ".element_info", "true");
    Connect(source, name + ".iCAN");
    return path;
}

long long ComponentTest::Figure(const std::string& property)
{
    bool ok = false;
    long long value = engine.GetIntegerProperty(property.c_str(), &ok);
    EXPECT_TRUE(ok) << property;
    return value;
}

std::string ComponentTest::Text(const std::string& property)
{
    VELDProperty* p = engine.Property(property.c_str());
    if (!p) return "<no property " + property + ">";
    return p->StringValue().Beginning();
}

bool ComponentTest::HasProperty(const std::string& component, const std::string& property)
{
    return engine.Property((component + "." + property).c_str()) != nullptr;
}

long long ComponentTest::Now() { return engine.CurrentTime(true, true); }

void ComponentTest::RestoreClock()
{
    engine.Graph().Clear();
    engine.Clock().SetTime(veldor::EngineClock::Monotonic());
    engine.Clock().Flush();
}

}  // namespace bus_components
