// Topology and behaviour of the simulated bus libraries: built-in defaults,
// or a file named by NXBUSAPI_SIM_CONFIG (format in
// busapi_sim/sim.conf.example). The CAN and the Ethernet library read the
// same file; each uses its own sections and the settings they share.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace nxsim {

// Bit 8 of the capabilities of a channel or interface: the high-speed
// replay path.
constexpr uint32_t kHighSpeedReplayCapability = 0x100;

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
    uint32_t deliveryIntervalUs = 500; // a receiving process takes a busy bus's frames at most this often
    std::vector<size_t> channels;     // indices into Config::channels
};

// An Ethernet interface: a Linux network device seen as the interface of a
// bus access provider.
struct EthInterfaceConfig {
    std::string id;
    std::string vendor;
    std::string interfaceName;
    std::string serial;
    bool hasMac = false;              // else the device's own address
    uint8_t mac[6] = {};
    uint32_t capabilities = 0;
    std::string device;               // Linux network device
    std::vector<uint32_t> addresses;  // IPv4, network byte order
    uint64_t lineRate = 0;            // bit/s emulated on the device; 0: none
    bool fcs = true;                  // received frames carry a frame check sequence
    uint32_t rxRingBytes = 8u << 20;  // the kernel's receive ring
    uint32_t replayQueueBytes = 4u << 20;  // per replay interface (x4 on the high-speed path)
};

struct FaultConfig {
    std::string operation;            // NXCAN_... or NXETH_... name
    std::string channel;              // empty: every channel or interface
    bool hasCode = false;
    int32_t code = 0;
    int32_t vendorCode = 0;
    std::string text;
    uint64_t after = 0;               // matching calls that pass before the fault acts
    uint64_t times = 0;               // how often it acts; 0 = from then on
    uint32_t consumeRecords = 0;      // ..._ReplayStreamData: records taken per call
};

struct Config {
    std::string nameSpace;
    uint64_t clockResolutionHz = 80000000;
    int64_t clockOffsetNs = 0;
    uint32_t lateThresholdUs = 1000;
    int replayRealtimePriority = 10;  // SCHED_FIFO of replay threads where allowed; 0: none
    std::vector<BusConfig> buses;
    std::vector<ChannelConfig> channels;
    std::vector<EthInterfaceConfig> interfaces;
    std::vector<FaultConfig> faults;
};

// The configuration in force without a file.
Config DefaultConfig();

// A check that the CAN library adds to the reading of a file: whether its
// bit timing expresses a bit rate exactly from a clock frequency. Without
// it, CAN bit rates are taken as they stand.
typedef bool (*BitRateCheck)(uint32_t clockFrequency, uint32_t bitRate);

// Parses a configuration text. Without [bus] and [channel] sections the
// default CAN topology is kept, without [interface] sections the default
// Ethernet topology. On failure returns false with "name:line: why".
bool ParseConfig(const std::string& text, const std::string& sourceName, Config& out, std::string& error,
                 BitRateCheck check = nullptr);

// Reads NXBUSAPI_SIM_CONFIG (if set) and NXBUSAPI_SIM_NAMESPACE.
bool LoadConfig(Config& out, std::string& error, BitRateCheck check = nullptr);

// The names of the operations of both libraries, for fault sections.
bool IsOperationName(const std::string& name);

// "100M", "1G", "2.5G" or a number of bit/s; false for anything else.
bool ParseBitRate(const std::string& text, uint64_t& out);

// Letters, digits, '.', '_' and '-', 1 to 64 characters.
bool IsValidName(const std::string& name);

}  // namespace nxsim
