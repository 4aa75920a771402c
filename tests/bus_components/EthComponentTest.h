// What the tests of the Ethernet components share: the diagram's two ends on
// the veth pair of tools/with-sim-bus, with printers that dump every byte
// (ReadPrintedEthFrames reads their files).
//   sender: EthGenerator "gen" -> NxEthInject "tx" on NVX-ETH-1, and
//           gen -> EthPrinter "sent"
//   monitor: NxEthMonitoring "rx" on NVX-ETH-2 -> EthPrinter "got"
#ifndef VELDOR_TESTS_ETH_COMPONENT_TEST_H
#define VELDOR_TESTS_ETH_COMPONENT_TEST_H

#include <cstdint>
#include <string>
#include <vector>

#include "ComponentTest.h"
#include "pcap_file.h"

namespace bus_components {

// The counter an EthGenerator's plain frame ends with.
inline std::uint32_t CounterOf(const std::vector<std::uint8_t>& f)
{
    const std::size_t n = f.size();
    return n < 4 ? 0xFFFFFFFFu : f[n - 4] | f[n - 3] << 8 | f[n - 2] << 16 | std::uint32_t{f[n - 1]} << 24;
}

class EthComponentTest : public ComponentTest {
protected:
    // The monitor and its printer; the printer's file.
    std::string MakeMonitor(int tsBehavior, bool vectorize)
    {
        MakeOnInterface("NxEthMonitoring", "rx", "NVX-ETH-2");
        SetTsBehaviour("rx", tsBehavior);
        Set("rx.vectorize_frames", vectorize);
        return MakePrinter("got", "rx.oEth", true);
    }
    // `count` plain frames whose lengths sweep from `from` to `to`,
    // `perElement` to an element, as fast as the injector takes them; the
    // file of the printer of what was sent.
    std::string MakeSender(const std::string& replayMode, int count, int from, int to, int perElement)
    {
        Make("EthGenerator", "gen",
             {{"frame_size", from}, {"frame_size_max", to}, {"count", count}, {"frames_per_element", perElement},
              {"rate", 0}});
        MakeOnInterface("NxEthInject", "tx", "NVX-ETH-1", replayMode);
        Connect("gen.oEth", "tx.iEth");
        return MakePrinter("sent", "gen.oEth", true);
    }
};

}  // namespace bus_components

#endif
