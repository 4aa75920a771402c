// What the tests of the bus components share: an engine with the bus
// package, the io package and the test probe loaded from their files, short
// ways to build and run a diagram, and the frames a CanPrinter wrote, read
// back from its file (an EthPrinter's: pcap_file.h).
//
// The tests run under tools/with-sim-bus, on the simulator's default
// topology: bus CAN1 at 127.0.0.1 (500 kbit/s, 2 Mbit/s data phase) with
// NVX-CAN-1 (high-speed replay), NVX-CAN-2, NVX-VIRT-1 (virtual), ORV-CAN-1
// (another vendor) and NVX-ZIRA-1; and the Ethernet interfaces NVX-ETH-1
// (high-speed replay) and NVX-ETH-2, the two ends of a veth pair. All tests
// of a run share the bus and the link, one engine with the packages loaded
// once (the bus package keeps the CAN library and its events for the life of
// the process), and the package's channel registry; each test clears its
// diagram when it ends.
#ifndef VELDOR_TESTS_BUS_COMPONENT_TEST_H
#define VELDOR_TESTS_BUS_COMPONENT_TEST_H

#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "Engine.h"
#include "scratch.h"
#include "veld_component.h"
#include "veld_property.h"
#include "veld_property_value.h"

namespace bus_components {

using veldtest::Eventually;

// One line of a CanPrinter's file with element_info.
struct PrintedFrame {
    long long ts;
    std::uint32_t id;
    bool extended;
    int length;
    std::vector<std::uint8_t> data{};
    std::set<std::string> flags{};  // FD, BRS, RTR
    long long elementTs = 0;
    int index = 0;  // in the element
    int size = 0;   // frames of the element
};

std::vector<PrintedFrame> ReadPrinted(const std::string& path);
// The counter a CanGenerator puts into the first four bytes.
std::uint32_t CounterOf(const PrintedFrame& frame);

// A property's value as the graph takes it: a text, a number or a flag.
struct Value : std::string {
    Value(const char* text) : std::string(text) {}
    Value(std::string text) : std::string(std::move(text)) {}
    template <class N, class = std::enable_if_t<std::is_arithmetic_v<N>>>
    Value(N n) : std::string(std::is_same_v<N, bool> ? (n ? "true" : "false") : std::to_string(n))
    {
    }
};
using Settings = std::initializer_list<std::pair<const char*, Value>>;

// The engine of the whole run, with its packages.
veldor::Engine& SharedEngine();

class ComponentTest : public ::testing::Test {
protected:
    ComponentTest() : engine(SharedEngine())
    {
        engine.GetConsole().ClearCaptured();
        // Each component starts once the one before was born: a diagram made
        // readers first hears everything its senders send.
        Set("Engine.sequentialStart", true);
    }
    ~ComponentTest() override { engine.Graph().Clear(); }

    // A component and its properties, set in their order.
    void Make(const std::string& model, const std::string& name, Settings settings = {})
    {
        ASSERT_NE(engine.Graph().Create(model, name, &m_error), nullptr) << m_error;
        for (const auto& [property, value] : settings) Set(name + "." + property, value);
    }
    void Set(const std::string& property, const Value& value)
    {
        Ok(engine.Graph().SetProperty(property, value, false, &m_error));
    }
    // The reason a Set was refused; empty when it was taken.
    std::string Refusal(const std::string& property, const std::string& value)
    {
        std::string error;
        return engine.Graph().SetProperty(property, value, false, &error) ? std::string() : error;
    }
    void Connect(const std::string& output, const std::string& input)
    {
        Ok(engine.Graph().Connect(output, input, &m_error));
    }
    void Trigger(const std::string& action) { Ok(engine.Graph().Trigger(action, nullptr, &m_error)); }
    void Run() { Ok(engine.Graph().Run(&m_error)); }
    void Shutdown() { engine.Graph().Shutdown(); }

    // A bus component on `channel`, the list refreshed from the bus first,
    // at the bus's rates (500 kbit/s, 2 Mbit/s with CAN FD). An injector's
    // replay mode, when given, is set first: it decides the list.
    void MakeOnChannel(const std::string& model, const std::string& name, const std::string& channel, bool canFd,
                       const std::string& replayMode = "")
    {
        MakeOnInterface(model, name, channel, replayMode);
        Set(name + ".can_fd", canFd);
        Set(name + ".arbitration_baudrate", 500);
        Set(name + ".data_baudrate", canFd ? 2000 : 500);
    }
    // The same for an Ethernet component on an end of the veth pair.
    void MakeOnInterface(const std::string& model, const std::string& name, const std::string& interface,
                         const std::string& replayMode = "")
    {
        Make(model, name);
        if (!replayMode.empty()) Set(name + ".replay_mode", replayMode);
        Trigger(name + ".Refresh_Devices");
        Set(name + ".channel", interface);
    }
    // A monitor's ts_behavior: 0 converts hardware times to engine time, 1
    // keeps them, 2 keeps them in the frames and stamps the element with
    // the engine's time.
    void SetTsBehaviour(const std::string& monitor, int behaviour)
    {
        Set(monitor + ".ts_behavior", "3|" + std::to_string(behaviour) +
                                          "|Convert HW timestamps to Veldor timebase|Keep HW timestamps (apply this "
                                          "on output)|Keep HW timestamps (use Veldor timebase on output)");
    }
    // What a synchronised injector "tx" needs around it: a CanReplayStatus
    // "probe" on its replay state, and a ReplayTimeSource "times" on its four
    // time inputs, made last so that the lead counts from a moment when the
    // injector is up. No stop time with `stopAfter` 0, no end of data (at
    // `logEnd`, `eofDelay` after birth) with `eofDelay` 0.
    void MakeReplayTimes(long long logStart, long long lead, long long stopAfter, long long logEnd,
                         long long eofDelay)
    {
        Make("CanReplayStatus", "probe");
        Connect("tx.oReplayStateInfo", "probe.iReplayStateInfo");
        Make("ReplayTimeSource", "times", {{"log_start", logStart}, {"replay_lead", lead}, {"replay_stop", stopAfter}});
        if (eofDelay > 0) {
            Set("times.log_end", logEnd);
            Set("times.eof_delay", eofDelay);
        }
        for (const char* input : {"LogStartTime", "ReplayStartTime", "ReplayStopTime", "ReplayEofTime"})
            Connect(std::string("times.o") + input, std::string("tx.i") + input);
    }
    // That replay, once its end of data came: the closing record follows the
    // last of `frames` frames, the push thread has ended (the main and meta
    // threads stay), and the probe tells the library's states and counts.
    void ExpectStreamClosed(long long frames)
    {
        enum { Scheduled = 1, Started = 2, End = 4 };
        ASSERT_TRUE(Eventually([&] { return Figure("probe.state") == End; }, 10)) << Figure("probe.state");
        EXPECT_TRUE(Eventually([&] { return Threads("tx") == 2; }, 10)) << Threads("tx");
        EXPECT_EQ(Figure("probe.sent"), frames);
        EXPECT_EQ(Figure("probe.dropped"), 0);
        const long long seen = Figure("probe.states_seen");
        EXPECT_EQ(seen & (1 << Scheduled | 1 << Started), 1 << Scheduled | 1 << Started) << seen;
    }
    // A CanPrinter (with `eth`, an EthPrinter that dumps every byte) of
    // `source` with element_info, into a file of this test; returns the path.
    std::string MakePrinter(const std::string& name, const std::string& source, bool eth = false)
    {
        const std::string path = m_folder + "/" + name + ".txt";
        Make(eth ? "EthPrinter" : "CanPrinter", name, {{"file", path}, {"element_info", true}});
        if (eth) Set(name + ".dump_bytes", -1);
        Connect(source, name + (eth ? ".iEth" : ".iCAN"));
        return path;
    }

    long long Figure(const std::string& property)
    {
        bool ok = false;
        const long long value = engine.GetIntegerProperty(property.c_str(), &ok);
        EXPECT_TRUE(ok) << property;
        return value;
    }
    std::string Text(const std::string& property)
    {
        VELDProperty* p = engine.Property(property.c_str());
        return p ? p->StringValue().Beginning() : "<no property " + property + ">";
    }
    VELDComponent* Component(const std::string& name) { return engine.Graph().Find(name); }
    bool HasProperty(const std::string& component, const std::string& property)
    {
        return engine.Property((component + "." + property).c_str()) != nullptr;
    }
    // The threads that run for a component in the engine's thread bodies.
    int Threads(const std::string& name) { return engine.Threads().Running(Component(name)); }
    bool Reported(const std::string& text) { return engine.GetConsole().Contains(text); }
    // The engine's time, in microseconds.
    long long Now() { return engine.CurrentTime(true, true); }
    // After a test that moved the engine's clock: the diagram gone, the
    // clock back on the monotonic clock, which the simulated hardware
    // follows, for the tests after it.
    void RestoreClock()
    {
        engine.Graph().Clear();
        engine.Clock().SetTime(veldor::EngineClock::Monotonic());
        engine.Clock().Flush();
    }

    veldtest::ScratchDir m_scratch{"bus_components"};
    const std::string m_folder = m_scratch.Path();  // removed with the test
    veldor::Engine& engine;

private:
    void Ok(bool done) { ASSERT_TRUE(done) << m_error; }
    std::string m_error;
};

}  // namespace bus_components

#endif
