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
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "Engine.h"
#include "scratch.h"
#include "veld_component.h"

namespace bus_components {

using veldtest::Eventually;

// One line of a CanPrinter's file with element_info.
struct PrintedFrame {
    long long ts;
    std::uint32_t id;
    bool extended;
    int length;
    std::vector<std::uint8_t> data;
    std::set<std::string> flags;  // FD, BRS, RTR
    long long elementTs;
    int index;  // in the element
    int size;   // frames of the element
};

std::vector<PrintedFrame> ReadPrinted(const std::string& path);
// The counter a CanGenerator puts into the first four bytes.
std::uint32_t CounterOf(const PrintedFrame& frame);

class ComponentTest : public ::testing::Test {
protected:
    ComponentTest();
    ~ComponentTest() override;

    void Make(const std::string& model, const std::string& name);
    void Set(const std::string& property, const std::string& value);
    // The reason a Set was refused; empty when it was taken.
    std::string Refusal(const std::string& property, const std::string& value);
    void Connect(const std::string& output, const std::string& input);
    void Trigger(const std::string& action);
    void Run();
    void Shutdown() { engine.Graph().Shutdown(); }

    // A bus component on `channel`: the list refreshed from the bus first.
    // The bit rates are the bus's: 500 kbit/s, 2 Mbit/s with CAN FD. An
    // injector's replay mode, when given, is set first: it decides the list.
    void MakeOnChannel(const std::string& model, const std::string& name, const std::string& channel, bool canFd,
                       const std::string& replayMode = "");
    // An Ethernet component on `interface` of the veth pair (NVX-ETH-1,
    // NVX-ETH-2), the list refreshed first; an injector's replay mode first.
    void MakeOnInterface(const std::string& model, const std::string& name, const std::string& interface,
                         const std::string& replayMode = "");
    // What a synchronised injector "tx" needs around it: a CanReplayStatus
    // "probe" on its replay state, and a ReplayTimeSource "times" on its four
    // time inputs, made last so that the lead counts from a moment when the
    // injector is up. No stop time with `stopAfter` 0, no end of data (at
    // `logEnd`, `eofDelay` after birth) with `eofDelay` 0.
    // A monitor's ts_behavior: 0 converts hardware times to engine time, 1
    // keeps them, 2 keeps them in the frames and stamps the element with
    // the engine's time.
    void SetTsBehaviour(const std::string& monitor, int behaviour);
    void MakeReplayTimes(long long logStart, long long lead, long long stopAfter, long long logEnd,
                         long long eofDelay);
    // That replay, once its end of data came: the closing record follows the
    // last of `frames` frames, the push thread has ended (the main and meta
    // threads stay), and the probe tells the library's states and counts.
    void ExpectStreamClosed(long long frames);
    // A printer of `source` into a file of this test; returns the path.
    std::string MakePrinter(const std::string& name, const std::string& source);
    // An EthPrinter of `source` that dumps every byte, with element_info,
    // into a file of this test (ReadPrintedEthFrames reads it); the path.
    std::string MakeEthPrinter(const std::string& name, const std::string& source);

    long long Figure(const std::string& property);
    std::string Text(const std::string& property);
    VELDComponent* Component(const std::string& name) { return engine.Graph().Find(name); }
    bool HasProperty(const std::string& component, const std::string& property);
    // The threads that run for a component in the engine's thread bodies.
    int Threads(const std::string& name) { return engine.Threads().Running(Component(name)); }
    // Whether a captured report contains `text`.
    bool Reported(const std::string& text) { return engine.GetConsole().Contains(text); }
    // The engine's time, in microseconds.
    long long Now();
    // After a test that moved the engine's clock: the diagram gone, the
    // clock back on the monotonic clock, which the simulated hardware
    // follows, for the tests after it.
    void RestoreClock();

    veldtest::ScratchDir m_scratch{"bus_components"};
    const std::string m_folder = m_scratch.Path();  // removed with the test
    veldor::Engine& engine;
};

}  // namespace bus_components

#endif
