#include "library_state.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace nxsim {

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

void VendorError::Set(int32_t code, std::string text)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_code = code;
    m_text = std::move(text);
}

void VendorError::Get(int32_t* code, std::string* text)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    *code = m_code;
    *text = m_text;
}

int32_t LibraryState::Ready()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_shutDown)
        return m_codes.shutDown;
    if (m_loaded)
        return m_loadResult;
    m_loaded = true;
    std::string error;
    Config config;
    if (!LoadConfig(config, error, m_codes.bitRateCheck)) {
        std::fprintf(stderr, "%s (simulator): %s\n", m_codes.name, error.c_str());
        SetDetail(m_codes.configuration, error);
        m_loadResult = m_codes.configuration;
        return m_loadResult;
    }
    m_config = std::move(config);
    m_clock = HardwareClock(m_config.clockResolutionHz, m_config.clockOffsetNs);
    Build();
    m_faults.Load(m_config.faults);
    m_hasFaults = !m_config.faults.empty();
    m_loadResult = m_codes.success;
    return m_loadResult;
}

FaultAction LibraryState::CheckFault(const char* operation, const std::string& key)
{
    if (!m_hasFaults)
        return {};
    return m_faults.Check(operation, key);
}

int32_t LibraryState::ApplyFault(const FaultAction& fault, VendorError* channelError)
{
    if (fault.code == m_codes.vendorSpecific) {
        std::string text = fault.text.empty() ? "injected vendor-specific error" : fault.text;
        (channelError != nullptr ? *channelError : m_vendorError).Set(fault.vendorCode, std::move(text));
    } else if (!fault.text.empty()) {
        SetDetail(fault.code, fault.text);
    }
    return fault.code;
}

void LibraryState::SetDetail(int32_t code, std::string detail)
{
    std::lock_guard<std::mutex> lock(m_textMutex);
    m_details[code] = std::move(detail);
}

std::string LibraryState::ErrorText(int32_t code)
{
    const char* base = m_codes.baseText(code);
    std::string text = base != nullptr ? base : "unknown error code " + std::to_string(code);
    std::lock_guard<std::mutex> lock(m_textMutex);
    const auto it = m_details.find(code);
    if (it != m_details.end() && !it->second.empty())
        text += ": " + it->second;
    return text;
}

void LibraryState::TearDown()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_loaded = false;
        m_hasFaults = false;
    }
    ReleaseObjects();
    m_vendorError.Set(0, {});
    std::lock_guard<std::mutex> lock(m_textMutex);
    m_details.clear();
}

void LibraryState::Shutdown()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_shutDown = true;
    }
    TearDown();
}

void LibraryState::ResetForTests()
{
    TearDown();
    std::lock_guard<std::mutex> lock(m_mutex);
    m_shutDown = false;
}

void CopyText(const std::string& text, char* out, size_t capacity)
{
    const size_t n = std::min(text.size(), capacity - 1);
    std::memcpy(out, text.data(), n);
    out[n] = '\0';
}

int32_t LibraryState::Code(ReplayResult result) const
{
    switch (result) {
    case ReplayResult::Ok: return m_codes.success;
    case ReplayResult::InvalidRecord: return m_codes.invalidRecord;
    case ReplayResult::AlreadyStarted: return m_codes.replayStarted;
    case ReplayResult::InvalidArgument: return m_codes.invalidArgument;
    }
    return m_codes.generic;
}

ReplaySettings LibraryState::ReplayFor(bool highSpeed) const
{
    ReplaySettings settings;
    settings.highSpeed = highSpeed;
    settings.lateThresholdNs = static_cast<int64_t>(m_config.lateThresholdUs) * 1000;
    settings.realtimePriority = m_config.replayRealtimePriority;
    return settings;
}

bool ParseIpv4(const std::string& text, uint32_t* address)
{
    in_addr addr{};
    if (inet_pton(AF_INET, text.c_str(), &addr) != 1)
        return false;
    *address = addr.s_addr;
    return true;
}

bool AnyAddressOf(const std::vector<uint32_t>& wanted, const std::vector<uint32_t>& addresses)
{
    for (uint32_t a : wanted)
        if (std::find(addresses.begin(), addresses.end(), a) != addresses.end())
            return true;
    return false;
}

bool SameIdentity(const char* vendor, const char* interfaceName, const char* serial, const std::string& configVendor,
                  const std::string& configInterface, const std::string& configSerial)
{
    return (vendor == nullptr || configVendor == vendor) && (interfaceName == nullptr || configInterface == interfaceName) &&
           (serial == nullptr || configSerial == serial);
}

int32_t ErrorTextCall(LibraryState& lib, const char* operation, int32_t error, char* text, size_t capacity)
{
    if (text == nullptr)
        return lib.Codes().invalidArgument;
    if (lib.Ready() == lib.Codes().success) {
        const FaultAction fault = lib.CheckFault(operation, {});
        if (fault.fail)
            return lib.ApplyFault(fault, nullptr);
    }
    try {
        CopyText(lib.ErrorText(error), text, capacity);
    } catch (...) {
        return lib.Codes().generic;
    }
    return lib.Codes().success;
}

}  // namespace nxsim
