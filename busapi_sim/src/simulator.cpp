#include "simulator.h"

#include <cstring>

#include "sim_frame.h"

namespace nxsim {

namespace {

const char* BaseText(NXTCanError code)
{
    switch (code) {
    case NXCAN_SUCCESS: return "success";
    case NXCAN_ERR_VENDOR_SPECIFIC: return "vendor-specific error: see NXCAN_GetLastVendorSpecificError";
    case NXCAN_ERR_GENERIC: return "general failure";
    case NXCAN_ERR_INVALID_ARGUMENT: return "invalid argument";
    case NXCAN_ERR_INVALID_HANDLE: return "invalid channel handle";
    case NXCAN_ERR_CHANNEL_NOT_FOUND: return "no such channel";
    case NXCAN_ERR_CHANNEL_IN_USE: return "channel in use";
    case NXCAN_ERR_WRONG_STATE: return "operation not allowed in the channel's present state";
    case NXCAN_ERR_TX_QUEUE_FULL: return "transmit queue full";
    case NXCAN_ERR_BITRATE_NOT_REACHABLE: return "bit rate cannot be reached exactly with this clock frequency";
    case NXCAN_ERR_BITRATE_MISMATCH:
        return "channel bit rate differs from the bus bit rate: the channel neither sends nor receives";
    case NXCAN_ERR_NOT_REPLAY_CHANNEL: return "not a replay channel";
    case NXCAN_ERR_REPLAY_ALREADY_STARTED:
        return "replay already started: NXCAN_REPLAY_OPTION_FORCE_APPLY sets a new start time";
    case NXCAN_ERR_INVALID_MESSAGE: return "invalid message (type, identifier, DLC or flags)";
    case NXCAN_ERR_INVALID_RECORD:
        return "invalid replay record (not made by NXCAN_ReplayInitHeader, or its size does not match its DLC)";
    case NXCAN_ERR_BUS_UNAVAILABLE: return "bus unavailable: its shared memory cannot be used";
    case NXCAN_ERR_CONFIGURATION: return "simulator configuration invalid";
    case NXCAN_ERR_SHUT_DOWN: return "library shut down";
    default: return nullptr;
    }
}

// Ends the channels and threads when the process exits or the library is
// unloaded; the Simulator object itself is never destroyed, so that late
// calls find it and get SHUT_DOWN.
struct ExitGuard {
    ~ExitGuard() { Simulator::Instance().Shutdown(); }
} g_exitGuard;

bool BitRateReachable(uint32_t clock, uint32_t rate)
{
    NXSCanBitTimingParameters t;
    return BaudrateToTiming(clock, rate, &t) == NXCAN_SUCCESS;
}

const LibraryCodes kCodes{"libNXBusApiCan",
                          NXCAN_SUCCESS,
                          NXCAN_ERR_VENDOR_SPECIFIC,
                          NXCAN_ERR_GENERIC,
                          NXCAN_ERR_INVALID_ARGUMENT,
                          NXCAN_ERR_INVALID_HANDLE,
                          NXCAN_ERR_CONFIGURATION,
                          NXCAN_ERR_SHUT_DOWN,
                          NXCAN_ERR_INVALID_RECORD,
                          NXCAN_ERR_REPLAY_ALREADY_STARTED,
                          BaseText,
                          BitRateReachable};

}  // namespace

Simulator::Simulator() : LibraryState(kCodes) {}

Simulator& Simulator::Instance()
{
    static Simulator* instance = new Simulator;
    return *instance;
}

void Simulator::Build()
{
    const Config& config = GetConfig();
    for (const BusConfig& bus : config.buses)
        m_buses.push_back(std::make_unique<Bus>(bus, config.channels, config.nameSpace, Clock(),
                                                      config.replayRealtimePriority));
}

std::vector<const ChannelConfig*> Simulator::Search(uint32_t attributeCount,
                                                    const NXSCanChannelsSearchAttribute* attributes,
                                                    NXTCanError* rc) const
{
    std::vector<const ChannelConfig*> found;
    std::vector<uint32_t> wanted;
    *rc = SearchedAddresses(attributeCount, attributes, &wanted) ? NXCAN_SUCCESS : NXCAN_ERR_INVALID_ARGUMENT;
    if (*rc != NXCAN_SUCCESS)
        return found;
    const Config& config = GetConfig();
    for (const ChannelConfig& ch : config.channels)
        if (attributeCount == 0 || AnyAddressOf(wanted, config.buses[ch.bus].addresses))
            found.push_back(&ch);
    return found;
}

NXTCanError Simulator::Register(const char* vendor, const char* interfaceName, const char* serial,
                                const char* identifier, NXTCanHandle* handle, bool replay, bool highSpeed)
{
    if (identifier == nullptr || handle == nullptr)
        return NXCAN_ERR_INVALID_ARGUMENT;
    const ChannelConfig* config = nullptr;
    for (const ChannelConfig& ch : GetConfig().channels)
        if (ch.id == identifier)
            config = &ch;
    if (config == nullptr) {
        SetDetail(NXCAN_ERR_CHANNEL_NOT_FOUND, std::string("no channel '") + identifier + "'");
        return NXCAN_ERR_CHANNEL_NOT_FOUND;
    }
    if (!SameIdentity(vendor, interfaceName, serial, config->vendor, config->interfaceName, config->serial)) {
        SetDetail(NXCAN_ERR_CHANNEL_NOT_FOUND,
                  std::string("channel '") + identifier + "' has another vendor, interface or serial number");
        return NXCAN_ERR_CHANNEL_NOT_FOUND;
    }

    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_shutDown)
        return NXCAN_ERR_SHUT_DOWN;
    if (m_channels.Any([config](const Channel& c) { return c.Config().id == config->id; })) {
        SetDetail(NXCAN_ERR_CHANNEL_IN_USE, config->id + ": channel in use by this process");
        return NXCAN_ERR_CHANNEL_IN_USE;
    }
    Bus& bus = *m_buses[config->bus];
    std::string error;
    if (const NXTCanError rc = bus.EnsureAttached(&error); rc != NXCAN_SUCCESS) {
        SetDetail(rc, error);
        return rc;
    }
    if (const NXTCanError rc = bus.Claim(static_cast<uint32_t>(config->indexInBus), &error); rc != NXCAN_SUCCESS) {
        SetDetail(rc, config->id + ": " + error);
        return rc;
    }
    auto channel = std::make_shared<Channel>(*config, bus);
    if (replay) {
        const bool offered = (config->capabilities & NXCAN_CAPABILITY_HIGH_SPEED_REPLAY) != 0;
        ReplaySettings settings = ReplayFor(highSpeed && offered);
        settings.recordLimit = GetConfig().buses[config->bus].replayQueueLimit * (settings.highSpeed ? 4 : 1);
        settings.byteLimit = settings.recordLimit * RecordQueue::Footprint(sizeof(WireFrame));
        channel->MakeReplay(settings);
    }
    *handle = m_channels.Add(std::move(channel));
    return NXCAN_SUCCESS;
}

NXTCanError Simulator::Unregister(NXTCanHandle handle)
{
    const std::shared_ptr<Channel> channel = m_channels.Take(handle);
    if (!channel)
        return NXCAN_ERR_INVALID_HANDLE;
    channel->Close();
    return NXCAN_SUCCESS;
}

Bus* Simulator::FindBus(const std::string& name)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    for (auto& bus : m_buses)
        if (bus->Config().name == name)
            return bus.get();
    return nullptr;
}

void Simulator::ReleaseObjects()
{
    std::vector<std::unique_ptr<Bus>> buses;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        buses.swap(m_buses);
    }
    for (auto& channel : m_channels.TakeAll())
        channel->Close();
    buses.clear();  // stops the delivery threads and detaches
}

}  // namespace nxsim
