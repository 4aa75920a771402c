#include "simulator.h"

#include <arpa/inet.h>

#include <cstdio>
#include <cstring>

#include "sim_replay.h"

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

}  // namespace

void FaultTable::Load(const std::vector<FaultConfig>& faults)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_entries.clear();
    for (const auto& f : faults)
        m_entries.push_back(Entry{f, 0, 0});
}

FaultAction FaultTable::Check(const char* operation, const std::string& channel)
{
    FaultAction action;
    std::lock_guard<std::mutex> lock(m_mutex);
    for (Entry& e : m_entries) {
        if (e.config.operation != operation || (!e.config.channel.empty() && e.config.channel != channel))
            continue;
        ++e.calls;
        if (e.calls <= e.config.after || (e.config.times != 0 && e.acted >= e.config.times))
            continue;
        ++e.acted;
        if (e.config.consumeRecords != 0 && action.consumeRecords == 0)
            action.consumeRecords = e.config.consumeRecords;
        if (e.config.hasCode && !action.fail) {
            action.fail = true;
            action.code = e.config.code;
            action.vendorCode = e.config.vendorCode;
            action.text = e.config.text;
        }
    }
    return action;
}

Simulator& Simulator::Instance()
{
    static Simulator* instance = new Simulator;
    return *instance;
}

NXTCanError Simulator::Ready()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_shutDown)
        return NXCAN_ERR_SHUT_DOWN;
    if (m_loaded)
        return m_loadResult;
    m_loaded = true;
    std::string error;
    Config config;
    if (!LoadConfig(config, error)) {
        std::fprintf(stderr, "libNXBusApiCan (simulator): %s\n", error.c_str());
        SetDetail(NXCAN_ERR_CONFIGURATION, error);
        m_loadResult = NXCAN_ERR_CONFIGURATION;
        return m_loadResult;
    }
    m_config = std::move(config);
    m_clock = HardwareClock(m_config.clockResolutionHz, m_config.clockOffsetNs);
    for (const BusConfig& bus : m_config.buses)
        m_buses.push_back(std::make_unique<Bus>(bus, m_config.channels, m_config.nameSpace, m_clock));
    m_faults.Load(m_config.faults);
    m_hasFaults = !m_config.faults.empty();
    m_loadResult = NXCAN_SUCCESS;
    return m_loadResult;
}

std::vector<const ChannelConfig*> Simulator::Search(uint32_t attributeCount,
                                                    const NXSCanChannelsSearchAttribute* attributes,
                                                    NXTCanError* rc) const
{
    std::vector<const ChannelConfig*> found;
    *rc = NXCAN_SUCCESS;
    std::vector<uint32_t> wanted;
    for (uint32_t i = 0; i < attributeCount; ++i) {
        if (attributes[i].tSearchAttributeType != NXCAN_SEARCH_ARRTIBUTE_TYPE_IP_V4_ADDRESS) {
            *rc = NXCAN_ERR_INVALID_ARGUMENT;
            return found;
        }
        const std::string text(attributes[i].szSearchAttribute,
                               strnlen(attributes[i].szSearchAttribute, sizeof attributes[i].szSearchAttribute));
        in_addr addr{};
        if (inet_pton(AF_INET, text.c_str(), &addr) == 1)
            wanted.push_back(addr.s_addr);
    }
    for (const ChannelConfig& ch : m_config.channels) {
        const BusConfig& bus = m_config.buses[ch.bus];
        bool match = attributeCount == 0;
        for (uint32_t a : wanted)
            for (uint32_t b : bus.addresses)
                match = match || a == b;
        if (match)
            found.push_back(&ch);
    }
    return found;
}

NXTCanError Simulator::Register(const char* vendor, const char* interfaceName, const char* serial,
                                const char* identifier, NXTCanHandle* handle, bool replay, bool highSpeed)
{
    if (identifier == nullptr || handle == nullptr)
        return NXCAN_ERR_INVALID_ARGUMENT;
    const ChannelConfig* config = nullptr;
    for (const ChannelConfig& ch : m_config.channels)
        if (ch.id == identifier)
            config = &ch;
    if (config == nullptr) {
        SetDetail(NXCAN_ERR_CHANNEL_NOT_FOUND, std::string("no channel '") + identifier + "'");
        return NXCAN_ERR_CHANNEL_NOT_FOUND;
    }
    if ((vendor != nullptr && config->vendor != vendor) ||
        (interfaceName != nullptr && config->interfaceName != interfaceName) ||
        (serial != nullptr && config->serial != serial)) {
        SetDetail(NXCAN_ERR_CHANNEL_NOT_FOUND,
                  std::string("channel '") + identifier + "' has another vendor, interface or serial number");
        return NXCAN_ERR_CHANNEL_NOT_FOUND;
    }

    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_shutDown)
        return NXCAN_ERR_SHUT_DOWN;
    for (const auto& entry : m_channels) {
        if (&entry.second->Config() != config && entry.second->Config().id != config->id)
            continue;
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
    const NXTCanHandle h = m_nextHandle++;
    auto channel = std::make_shared<Channel>(h, *config, bus);
    if (replay) {
        const bool offered = (config->capabilities & NXCAN_CAPABILITY_HIGH_SPEED_REPLAY) != 0;
        channel->MakeReplay(m_config.buses[config->bus].replayQueueLimit, highSpeed && offered,
                            static_cast<int64_t>(m_config.lateThresholdUs) * 1000);
    }
    m_channels.emplace(h, std::move(channel));
    *handle = h;
    return NXCAN_SUCCESS;
}

NXTCanError Simulator::Unregister(NXTCanHandle handle)
{
    std::shared_ptr<Channel> channel;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        const auto it = m_channels.find(handle);
        if (it == m_channels.end())
            return NXCAN_ERR_INVALID_HANDLE;
        channel = std::move(it->second);
        m_channels.erase(it);
    }
    channel->Close();
    return NXCAN_SUCCESS;
}

std::shared_ptr<Channel> Simulator::Find(NXTCanHandle handle)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto it = m_channels.find(handle);
    return it == m_channels.end() ? nullptr : it->second;
}

FaultAction Simulator::CheckFault(const char* operation, const std::string& channel)
{
    if (!m_hasFaults)
        return {};
    return m_faults.Check(operation, channel);
}

NXTCanError Simulator::ApplyFault(const FaultAction& fault, Channel* channel)
{
    if (fault.code == NXCAN_ERR_VENDOR_SPECIFIC) {
        std::string text = fault.text.empty() ? "injected vendor-specific error" : fault.text;
        (channel != nullptr ? channel->LastVendorError() : m_vendorError).Set(fault.vendorCode, std::move(text));
    } else if (!fault.text.empty()) {
        SetDetail(fault.code, fault.text);
    }
    return fault.code;
}

void Simulator::SetDetail(NXTCanError code, std::string detail)
{
    std::lock_guard<std::mutex> lock(m_textMutex);
    m_details[code] = std::move(detail);
}

std::string Simulator::ErrorText(NXTCanError code)
{
    const char* base = BaseText(code);
    std::string text = base != nullptr ? base : "unknown error code " + std::to_string(code);
    std::lock_guard<std::mutex> lock(m_textMutex);
    const auto it = m_details.find(code);
    if (it != m_details.end() && !it->second.empty())
        text += ": " + it->second;
    return text;
}

Bus* Simulator::FindBus(const std::string& name)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    for (auto& bus : m_buses)
        if (bus->Config().name == name)
            return bus.get();
    return nullptr;
}

void Simulator::TearDown()
{
    std::map<NXTCanHandle, std::shared_ptr<Channel>> channels;
    std::vector<std::unique_ptr<Bus>> buses;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        channels.swap(m_channels);
        buses.swap(m_buses);
        m_loaded = false;
        m_hasFaults = false;
    }
    for (auto& entry : channels)
        entry.second->Close();
    channels.clear();
    buses.clear();  // stops the delivery threads and detaches
    m_vendorError.Set(0, {});
    std::lock_guard<std::mutex> lock(m_textMutex);
    m_details.clear();
}

void Simulator::Shutdown()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_shutDown = true;
    }
    TearDown();
}

void Simulator::ResetForTests()
{
    TearDown();
    std::lock_guard<std::mutex> lock(m_mutex);
    m_shutDown = false;
}

}  // namespace nxsim
