// Process-wide state of the CAN library: its buses and the handles of its
// channels, on top of what every simulated library keeps.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "NXBusApiCan.h"
#include "library_state.h"
#include "sim_bus.h"
#include "sim_channel.h"

namespace nxsim {

class Simulator : public LibraryState {
public:
    static Simulator& Instance();

    std::vector<const ChannelConfig*> Search(uint32_t attributeCount, const NXSCanChannelsSearchAttribute* attributes,
                                             NXTCanError* rc) const;

    NXTCanError Register(const char* vendor, const char* interfaceName, const char* serial, const char* identifier,
                         NXTCanHandle* handle, bool replay, bool highSpeed);
    NXTCanError Unregister(NXTCanHandle handle);
    HandleTable<Channel>& Handles() { return m_channels; }

    Bus* FindBus(const std::string& name);

private:
    Simulator();
    void Build() override;
    void ReleaseObjects() override;

    std::vector<std::unique_ptr<Bus>> m_buses;
    HandleTable<Channel> m_channels;
};

}  // namespace nxsim
