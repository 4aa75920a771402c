#include "NxEthApiWrapperSettings.h"

// m_protocolType starts at 0 only so that a copy never reads an indeterminate
// byte; 0 is not a choice, the owner sets the protocol.
NxEthApiWrapperSettings::NxEthApiWrapperSettings()
    : m_logEthernet(false), m_isReplayChannel(false), m_isHighSpeedChannel(false), m_protocolType(0)
{
}

NxEthApiWrapperSettings::NxEthApiWrapperSettings(const std::string& ip, const std::string& interfaceIdentifier,
                                                 bool logEthernet, bool isReplayChannel)
    : m_ip(ip),
      m_logEthernet(logEthernet),
      m_interfaceIdentifier(interfaceIdentifier),
      m_isReplayChannel(isReplayChannel),
      m_isHighSpeedChannel(false),
      m_protocolType(0)
{
}

std::string NxEthApiWrapperSettings::GetLogFilename() const { return m_interfaceIdentifier + ".asc"; }
