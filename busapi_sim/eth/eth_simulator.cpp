#include "eth_simulator.h"

namespace nxsim {

namespace {

const char* BaseText(NXTEthError code)
{
    switch (code) {
    case NXETH_SUCCESS: return "success";
    case NXETH_ERR_PROVIDER_SPECIFIC:
        return "access provider specific error: see NXETH_GetLastAccessProviderSpecificError";
    case NXETH_ERR_GENERIC: return "general failure";
    case NXETH_ERR_INVALID_ARGUMENT: return "invalid argument";
    case NXETH_ERR_INVALID_HANDLE: return "invalid interface handle";
    case NXETH_ERR_NOT_REPLAY_INTERFACE: return "not a replay interface";
    case NXETH_ERR_INTERFACE_IN_USE: return "interface in use";
    case NXETH_ERR_WRONG_STATE: return "operation not allowed in the interface's present state";
    case NXETH_ERR_TX_QUEUE_FULL: return "transmit queue full";
    case NXETH_ERR_BUFFER_TOO_SMALL: return "buffer too small for the next frame";
    case NXETH_ERR_DEVICE: return "the network device cannot be used";
    case NXETH_ERR_INTERFACE_NOT_FOUND: return "no such interface";
    case NXETH_ERR_REPLAY_ALREADY_STARTED:
        return "replay already started: NXETH_REPLAY_OPTION_FORCE_APPLY sets a new start time";
    case NXETH_ERR_INVALID_FRAME: return "invalid frame (type or length)";
    case NXETH_ERR_INVALID_RECORD:
        return "invalid replay record (its mark is wrong, or its size does not follow from its frame length)";
    case NXETH_ERR_SHARED_STATE: return "the claims of the interfaces cannot be shared between processes";
    case NXETH_ERR_CONFIGURATION: return "simulator configuration invalid";
    case NXETH_ERR_SHUT_DOWN: return "library shut down";
    case NXETH_ERR_INVALID_FILTER: return "invalid filter expression";
    default: return nullptr;
    }
}

// Ends the interfaces and threads when the process exits or the library is
// unloaded; the object itself is never destroyed, so that late calls find
// it and get SHUT_DOWN.
struct ExitGuard {
    ~ExitGuard() { EthSimulator::Instance().Shutdown(); }
} g_exitGuard;

const LibraryCodes kCodes{"libNXBusApiEthernet",
                          NXETH_SUCCESS,
                          NXETH_ERR_PROVIDER_SPECIFIC,
                          NXETH_ERR_GENERIC,
                          NXETH_ERR_INVALID_ARGUMENT,
                          NXETH_ERR_INVALID_HANDLE,
                          NXETH_ERR_CONFIGURATION,
                          NXETH_ERR_SHUT_DOWN,
                          NXETH_ERR_INVALID_RECORD,
                          NXETH_ERR_REPLAY_ALREADY_STARTED,
                          BaseText,
                          nullptr};

}  // namespace

EthSimulator::EthSimulator() : LibraryState(kCodes) {}

EthSimulator& EthSimulator::Instance()
{
    static EthSimulator* instance = new EthSimulator;
    return *instance;
}

std::vector<const EthInterfaceConfig*> EthSimulator::Search(uint32_t attributeCount,
                                                            const NXSEthInterfacesSearchAttribute* attributes,
                                                            NXTEthError* rc)
{
    std::vector<const EthInterfaceConfig*> found;
    std::vector<uint32_t> wanted;
    *rc = SearchedAddresses(attributeCount, attributes, &wanted) ? NXETH_SUCCESS : NXETH_ERR_INVALID_ARGUMENT;
    if (*rc != NXETH_SUCCESS)
        return found;
    for (const EthInterfaceConfig& in : GetConfig().interfaces)
        if ((attributeCount == 0 || AnyAddressOf(wanted, in.addresses)) && DevicePresent(in.device))
            found.push_back(&in);
    return found;
}

NXTEthError EthSimulator::ClaimLocked(size_t slot, const std::string& id)
{
    std::string error;
    if (!m_claims) {
        const std::vector<EthInterfaceConfig>& all = GetConfig().interfaces;
        SegmentLayout layout;
        layout.slots = static_cast<uint32_t>(all.size());
        layout.key = kHashSeed;
        for (const EthInterfaceConfig& in : all)
            layout.key = HashBytes(layout.key, in.id.c_str(), in.id.size() + 1);
        if (!SharedSegment::Attach("/nxbusapi-sim." + GetConfig().nameSpace + "@ethernet", layout, &m_claims,
                                   &error)) {
            SetDetail(NXETH_ERR_SHARED_STATE, error);
            return NXETH_ERR_SHARED_STATE;
        }
    }
    m_claims->Lock();
    ProcessId owner;
    const bool claimed = m_claims->ClaimLocked(static_cast<uint32_t>(slot), &owner);
    m_claims->Unlock();
    if (claimed)
        return NXETH_SUCCESS;
    SetDetail(NXETH_ERR_INTERFACE_IN_USE, id + ": interface in use by process " + std::to_string(owner.pid));
    return NXETH_ERR_INTERFACE_IN_USE;
}

void EthSimulator::Release(size_t slot)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_claims)
        return;
    m_claims->Lock();
    m_claims->ReleaseLocked(static_cast<uint32_t>(slot));
    m_claims->Unlock();
}

NXTEthError EthSimulator::Register(const char* provider, const char* interfaceName, const char* serial,
                                   const char* identifier, NXTEthHandle* handle, bool replay, bool highSpeed)
{
    if (identifier == nullptr || handle == nullptr)
        return NXETH_ERR_INVALID_ARGUMENT;
    const std::vector<EthInterfaceConfig>& all = GetConfig().interfaces;
    size_t slot = 0;
    while (slot < all.size() && all[slot].id != identifier)
        ++slot;
    if (slot == all.size()) {
        SetDetail(NXETH_ERR_INTERFACE_NOT_FOUND, std::string("no interface '") + identifier + "'");
        return NXETH_ERR_INTERFACE_NOT_FOUND;
    }
    const EthInterfaceConfig& config = all[slot];
    if (!SameIdentity(provider, interfaceName, serial, config.vendor, config.interfaceName, config.serial)) {
        SetDetail(NXETH_ERR_INTERFACE_NOT_FOUND,
                  config.id + ": another access provider, interface name or serial number");
        return NXETH_ERR_INTERFACE_NOT_FOUND;
    }
    if (!DevicePresent(config.device)) {
        SetDetail(NXETH_ERR_INTERFACE_NOT_FOUND, config.id + ": its device " + config.device + " is not here");
        return NXETH_ERR_INTERFACE_NOT_FOUND;
    }

    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_shutDown)
        return NXETH_ERR_SHUT_DOWN;
    if (m_interfaces.Any([&config](const EthInterface& in) { return in.Config().id == config.id; })) {
        SetDetail(NXETH_ERR_INTERFACE_IN_USE, config.id + ": interface in use by this process");
        return NXETH_ERR_INTERFACE_IN_USE;
    }
    if (const NXTEthError rc = ClaimLocked(slot, config.id); rc != NXETH_SUCCESS)
        return rc;
    auto in = std::make_shared<EthInterface>(config, Clock());
    if (replay) {
        const bool offered = (config.capabilities & NXETH_CAPABILITY_HIGH_SPEED_REPLAY) != 0;
        ReplaySettings settings = ReplayFor(highSpeed && offered);
        settings.byteLimit = static_cast<size_t>(config.replayQueueBytes) * (settings.highSpeed ? 4 : 1);
        in->MakeReplay(settings);
    }
    *handle = m_interfaces.Add(std::move(in));
    return NXETH_SUCCESS;
}

NXTEthError EthSimulator::Unregister(NXTEthHandle handle)
{
    const std::shared_ptr<EthInterface> in = m_interfaces.Take(handle);
    if (!in)
        return NXETH_ERR_INVALID_HANDLE;
    in->Close();
    const std::vector<EthInterfaceConfig>& all = GetConfig().interfaces;
    for (size_t slot = 0; slot < all.size(); ++slot)
        if (all[slot].id == in->Config().id)
            Release(slot);
    return NXETH_SUCCESS;
}

void EthSimulator::ReleaseObjects()
{
    for (auto& in : m_interfaces.TakeAll())
        in->Close();
    std::lock_guard<std::mutex> lock(m_mutex);
    m_claims.reset();  // gives up this process's claims
}

}  // namespace nxsim
