// Process-wide state of the Ethernet library: the claims of its interfaces
// across processes and the handles of this process, on top of what every
// simulated library keeps.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "NXBusApiEthernet.h"
#include "eth_interface.h"
#include "library_state.h"
#include "shared_segment.h"

namespace nxsim {

class EthSimulator : public LibraryState {
public:
    static EthSimulator& Instance();

    // The interfaces that match, among those whose device is here.
    std::vector<const EthInterfaceConfig*> Search(uint32_t attributeCount,
                                                  const NXSEthInterfacesSearchAttribute* attributes, NXTEthError* rc);

    NXTEthError Register(const char* provider, const char* interfaceName, const char* serial, const char* identifier,
                         NXTEthHandle* handle, bool replay, bool highSpeed);
    NXTEthError Unregister(NXTEthHandle handle);
    HandleTable<EthInterface>& Handles() { return m_interfaces; }

private:
    EthSimulator();
    void Build() override {}
    void ReleaseObjects() override;
    NXTEthError ClaimLocked(size_t slot, const std::string& id);
    void Release(size_t slot);

    std::unique_ptr<SharedSegment> m_claims;  // attached at the first registration
    HandleTable<EthInterface> m_interfaces;
};

}  // namespace nxsim
