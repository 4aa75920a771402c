// What the tests of the package's bus access on the simulated libraries
// share: an engine that takes the package's reports, wrappers brought up as
// a component would, and the traffic that they send: classic CAN and CAN FD
// frames of every length, both identifier kinds, handed over as each of the
// three frame records.
//
// The simulated CAN library sits at the package's fixed path
// (tools/with-sim-bus) with its default topology: bus CAN1 at 127.0.0.1 with
// NVX-CAN-1, NVX-CAN-2, NVX-VIRT-1, ORV-CAN-1 and NVX-ZIRA-1, at 500 kbit/s
// and 2 Mbit/s; partial_stream.conf adds the Ethernet interfaces.
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

namespace nxbus_on_sim {

extern const char* const kAddress;  // where the simulated bus is found

// The record through which a frame reaches the wrapper.
enum class Record { Classic, Fd, Universal };

struct FrameFields {
    Record record;
    std::uint32_t id;
    bool extended;
    int length;  // bytes of payload
    bool fd;     // CAN FD format; a CAN FD record is always sent with bit rate switch
    bool brs;
    std::uint8_t seed;  // payload byte i is seed + i
    VELDTimestamp ts;   // replay time, in microseconds
};

// Every classic length and every CAN FD length with and without bit rate
// switch, from all three records; identifiers up to both limits.
std::vector<FrameFields> MixedTraffic(VELDTimestamp ts = 0);

class SimBusTest : public ::testing::Test {
protected:
    void TearDown() override;

    // Settings as the components make them, CAN FD.
    static NxCanApiWrapperSettings Monitoring(const std::string& channel);
    static NxCanApiWrapperSettings Replay(const std::string& channel);

    // A wrapper that Initialize brought onto the bus; null, with the
    // wrapper's own error text as the failure, if it did not come up.
    static std::unique_ptr<NxCanApiWrapper> Open(const NxCanApiWrapperSettings& settings);

    // Polls the wrapper's receive queue until `count` messages have come or
    // the timeout has passed.
    static std::vector<NXSCanMessage> Receive(NxCanApiWrapper& wrapper, std::size_t count,
                                              std::chrono::milliseconds timeout = std::chrono::seconds(5));

    // Through the wrapper's CopyFrame of the frame's record: the messages
    // for direct transmission, or the frame staged for replay (CopyFrame2).
    static std::vector<NXSCanMessage> ToMessages(const std::vector<FrameFields>& frames);
    static NxBusError Stage(NxCanApiWrapper& wrapper, const FrameFields& frame);

    veldor::Engine engine;  // the kernel of the package code; takes its reports
};

// The messages as the receiving side must see them, the frames as they were
// sent, in order.
void ExpectReceived(const std::vector<FrameFields>& sent, const std::vector<NXSCanMessage>& got);

}  // namespace nxbus_on_sim

#endif
