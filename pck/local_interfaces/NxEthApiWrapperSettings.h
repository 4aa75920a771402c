// What an Ethernet interface wrapper is built from. Plain data: the owner
// fills it and hands it over.
#ifndef NX_ETH_API_WRAPPER_SETTINGS_H
#define NX_ETH_API_WRAPPER_SETTINGS_H

#include <cstdint>
#include <string>

class NxEthApiWrapperSettings {
public:
    NxEthApiWrapperSettings();
    NxEthApiWrapperSettings(const std::string& ip, const std::string& interfaceIdentifier, bool logEthernet,
                            bool isReplayChannel);

    // The trace file: the interface identifier as it stands, and ".asc".
    std::string GetLogFilename() const;

    const std::string& GetIp() const { return m_ip; }
    bool GetLogEthernet() const { return m_logEthernet; }
    const std::string& GetInterfaceIdentifier() const { return m_interfaceIdentifier; }
    bool GetIsReplayChannel() const { return m_isReplayChannel; }
    bool GetIsHighSpeedChannel() const { return m_isHighSpeedChannel; }
    std::uint8_t GetProtocolType() const { return m_protocolType; }

    void SetIsHighSpeedChannel(bool on) { m_isHighSpeedChannel = on; }
    // The pre-processing protocol of a replay: the owner must set it before
    // a replay interface is initialised, no constructor chooses one.
    void SetProtocolType(std::uint8_t protocolType) { m_protocolType = protocolType; }

private:
    std::string m_ip;
    bool m_logEthernet;
    std::string m_interfaceIdentifier;
    bool m_isReplayChannel;
    bool m_isHighSpeedChannel;
    std::uint8_t m_protocolType;
};

#endif
