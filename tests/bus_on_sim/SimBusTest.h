// What the tests of the package's CAN access on the simulated bus share: an
// engine that takes the package's reports, wrappers made and brought up as a
// component would, reading until frames have come, and the checks of what
// arrived.
//
// The simulated library sits at the package's fixed path (tools/with-sim-bus)
// with its default topology: bus CAN1 at 127.0.0.1 with NVX-CAN-1 (high-speed
// replay), NVX-CAN-2, NVX-VIRT-1 (virtual), ORV-CAN-1 (another vendor) and
// NVX-ZIRA-1, at 500 kbit/s and 2 Mbit/s. All tests of the executable share
// that bus; each releases its channels when it ends.
#ifndef NXBUS_ON_SIM_SIM_BUS_TEST_H
#define NXBUS_ON_SIM_SIM_BUS_TEST_H

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Engine.h"
#include "NxCanApiWrapper.h"
#include "TrafficFrames.h"

namespace nxbus_on_sim {

extern const char* const kAddress;  // where the simulated bus is found
const std::uint32_t kBitrate = 500000;
const std::uint32_t kDataBitrate = 2000000;

class SimBusTest : public ::testing::Test {
protected:
    void TearDown() override;

    // Settings as the components make them: CAN FD unless said otherwise.
    static NxCanApiWrapperSettings Monitoring(const std::string& channel, bool canFd = true);
    static NxCanApiWrapperSettings Replay(const std::string& channel);

    // A wrapper that Initialize brought onto the bus; null, with the
    // wrapper's own error text as the failure, if it did not come up.
    static std::unique_ptr<NxCanApiWrapper> Open(const NxCanApiWrapperSettings& settings);

    // Reads the wrapper's receive queue until `count` messages have come or
    // the timeout has passed: event-based wrappers wait for the reception
    // event between reads, the others poll.
    static std::vector<NXSCanMessage> Receive(NxCanApiWrapper& wrapper, std::size_t count,
                                              std::chrono::milliseconds timeout = std::chrono::seconds(5));

    // Hardware time in microseconds, by the wrapper.
    static std::uint64_t Now(NxCanApiWrapper& wrapper);

    veldor::Engine engine;  // the kernel of the package code; takes its reports
};

// The message as the receiving side must see it, the frame as it was sent.
void ExpectReceived(const FrameFields& sent, const NXSCanMessage& got);
// CopyFrameMon into each of the three records gives back the frame as it was
// sent, at offset + the message's hardware time, which lies in [from, to]
// (microseconds of hardware time).
void ExpectFrameRecords(const FrameFields& sent, const NXSCanMessage& got, std::uint64_t from, std::uint64_t to);
// Both, for a whole sequence, in order.
void ExpectTraffic(const std::vector<FrameFields>& sent, const std::vector<NXSCanMessage>& got, std::uint64_t from,
                   std::uint64_t to);

// One-line picture of a message for failure output.
std::string Describe(const NXSCanMessage& message);

}  // namespace nxbus_on_sim

#endif
