// The configuration file of the simulated bus libraries on arbitrary text:
// it is read or refused with the file and line of the fault, never crashes,
// and what it reads holds together.
#include <cstddef>
#include <cstdint>
#include <string>

#include "sim_config.h"

namespace {

bool EveryRateReachable(uint32_t, uint32_t rate)
{
    return rate % 1000 == 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    for (nxsim::BitRateCheck check : {static_cast<nxsim::BitRateCheck>(nullptr), &EveryRateReachable}) {
        nxsim::Config config = nxsim::DefaultConfig();
        std::string error;
        if (!nxsim::ParseConfig(text, "fuzz.conf", config, error, check)) {
            if (error.rfind("fuzz.conf:", 0) != 0)
                __builtin_trap();
            continue;
        }
        for (const nxsim::ChannelConfig& ch : config.channels)
            if (ch.bus >= config.buses.size() || config.buses[ch.bus].channels.at(ch.indexInBus) != static_cast<size_t>(&ch - config.channels.data()))
                __builtin_trap();
        for (const nxsim::EthInterfaceConfig& in : config.interfaces)
            if (in.device.empty() || in.device.size() > 15)
                __builtin_trap();
    }
    return 0;
}
