// Process-wide state of the library: configuration, buses, the handle
// table, injected faults, and the texts that go with error codes.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "NXBusApiCan.h"
#include "sim_bus.h"
#include "sim_channel.h"
#include "sim_config.h"

namespace nxsim {

// What an injected fault asks of one call.
struct FaultAction {
    bool fail = false;
    int32_t code = 0;
    int32_t vendorCode = 0;
    std::string text;
    uint32_t consumeRecords = 0;
};

class FaultTable {
public:
    void Load(const std::vector<FaultConfig>& faults);
    // Counts the call and returns what the matching faults ask for.
    FaultAction Check(const char* operation, const std::string& channel);

private:
    struct Entry {
        FaultConfig config;
        uint64_t calls = 0;
        uint64_t acted = 0;
    };
    std::mutex m_mutex;
    std::vector<Entry> m_entries;
};

class Simulator {
public:
    static Simulator& Instance();

    // Loads the configuration on first use: SUCCESS, CONFIGURATION or SHUT_DOWN.
    NXTCanError Ready();
    const Config& GetConfig() const { return m_config; }
    const HardwareClock& Clock() const { return m_clock; }

    std::vector<const ChannelConfig*> Search(uint32_t attributeCount, const NXSCanChannelsSearchAttribute* attributes,
                                             NXTCanError* rc) const;

    NXTCanError Register(const char* vendor, const char* interfaceName, const char* serial, const char* identifier,
                         NXTCanHandle* handle, bool replay, bool highSpeed);
    NXTCanError Unregister(NXTCanHandle handle);
    std::shared_ptr<Channel> Find(NXTCanHandle handle);

    FaultAction CheckFault(const char* operation, const std::string& channel);
    // Applies a failing fault: records the vendor error, returns the code.
    NXTCanError ApplyFault(const FaultAction& fault, Channel* channel);

    // The vendor-specific error of operations without a channel.
    VendorError& LastVendorError() { return m_vendorError; }

    // The latest detail behind an error code, added to its text.
    void SetDetail(NXTCanError code, std::string detail);
    std::string ErrorText(NXTCanError code);

    // Ends all channels and threads and detaches from the buses. After
    // Shutdown every call fails with SHUT_DOWN; after ResetForTests the next
    // call loads the configuration again from the environment.
    void Shutdown();
    void ResetForTests();

    Bus* FindBus(const std::string& name);

private:
    Simulator() = default;
    void TearDown();

    std::mutex m_mutex;
    bool m_loaded = false;
    bool m_shutDown = false;
    NXTCanError m_loadResult = NXCAN_SUCCESS;
    Config m_config;
    HardwareClock m_clock;
    std::vector<std::unique_ptr<Bus>> m_buses;
    std::map<NXTCanHandle, std::shared_ptr<Channel>> m_channels;
    NXTCanHandle m_nextHandle = 1;
    FaultTable m_faults;
    std::atomic<bool> m_hasFaults{false};

    VendorError m_vendorError;
    std::mutex m_textMutex;
    std::map<NXTCanError, std::string> m_details;
};

}  // namespace nxsim
