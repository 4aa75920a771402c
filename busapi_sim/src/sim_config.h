// Topology and behaviour of the simulator: built-in defaults, or a file
// named by NXBUSAPI_SIM_CONFIG (format in busapi_sim/sim.conf.example).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace nxsim {

struct ChannelConfig {
    std::string id;
    std::string vendor;
    std::string interfaceName;
    std::string serial;
    uint32_t capabilities = 0;
    size_t bus = 0;           // index into Config::buses
    size_t indexInBus = 0;    // position among the bus's channels
    bool IsVirtual() const { return interfaceName == "Virtual"; }
};

struct BusConfig {
    std::string name;
    std::vector<uint32_t> addresses;  // IPv4, network byte order
    uint32_t bitrate = 500000;        // classic and CAN FD arbitration phase
    uint32_t dataBitrate = 2000000;   // CAN FD data phase
    uint32_t txQueueLimit = 2048;     // frames offered but not yet on the wire, per channel
    uint32_t replayQueueLimit = 4096; // records, per replay channel
    std::vector<size_t> channels;     // indices into Config::channels
};

struct FaultConfig {
    std::string operation;            // NXCAN_... name
    std::string channel;              // empty: every channel
    bool hasCode = false;
    int32_t code = 0;
    int32_t vendorCode = 0;
    std::string text;
    uint64_t after = 0;               // matching calls that pass before the fault acts
    uint64_t times = 0;               // how often it acts; 0 = from then on
    uint32_t consumeRecords = 0;      // NXCAN_ReplayStreamData: records taken per call
};

struct Config {
    std::string nameSpace;
    uint64_t clockResolutionHz = 80000000;
    int64_t clockOffsetNs = 0;
    uint32_t lateThresholdUs = 1000;
    std::vector<BusConfig> buses;
    std::vector<ChannelConfig> channels;
    std::vector<FaultConfig> faults;
};

// The configuration in force without a file.
Config DefaultConfig();

// Parses a configuration text. Without [bus] and [channel] sections the
// default topology is kept. On failure returns false with "name:line: why".
bool ParseConfig(const std::string& text, const std::string& sourceName, Config& out, std::string& error);

// Reads NXBUSAPI_SIM_CONFIG (if set) and NXBUSAPI_SIM_NAMESPACE.
bool LoadConfig(Config& out, std::string& error);

// The 28 operation names, for fault sections.
bool IsOperationName(const std::string& name);

// Letters, digits, '.', '_' and '-', 1 to 64 characters.
bool IsValidName(const std::string& name);

}  // namespace nxsim
