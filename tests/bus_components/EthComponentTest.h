// What the tests of the Ethernet components share: the diagram's two ends on
// the veth pair of tools/with-sim-bus, and frames sent from the test itself.
//
//   sender: EthGenerator "gen" -> NxEthInject "tx" on NVX-ETH-1, and
//           gen -> EthPrinter "sent"
//   monitor: NxEthMonitoring "rx" on NVX-ETH-2 -> EthPrinter "got"
//
// The printers dump every byte (ReadPrintedEthFrames reads their files).
#ifndef VELDOR_TESTS_ETH_COMPONENT_TEST_H
#define VELDOR_TESTS_ETH_COMPONENT_TEST_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ComponentTest.h"

class NxEthApiWrapper;

namespace bus_components {

// The counter an EthGenerator's plain frame ends with.
std::uint32_t CounterOf(const std::vector<std::uint8_t>& frame);

class EthComponentTest : public ComponentTest {
protected:
    // The monitor and its printer; the printer's file.
    std::string MakeMonitor(int tsBehavior, bool vectorize);
    // `count` plain frames whose lengths sweep from `from` to `to`,
    // `perElement` to an element, as fast as the injector takes them; the
    // file of the printer of what was sent.
    std::string MakeSender(const std::string& replayMode, int count, int from, int to, int perElement);
};

// Both ends of the veth pair at another MTU while it lives.
class ScopedLinkMtu {
public:
    explicit ScopedLinkMtu(int mtu);
    ~ScopedLinkMtu();
};

// Frames sent by the test on an interface of its own, through the package's
// wrapper: 60-byte frames counted from 0.
class DirectSender {
public:
    explicit DirectSender(const std::string& interface);
    ~DirectSender();
    void Send(int frames);

private:
    std::unique_ptr<NxEthApiWrapper> m_wrapper;
    std::uint32_t m_next = 0;
};

}  // namespace bus_components

#endif
