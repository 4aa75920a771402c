#include "NxCanApiWrapperSettings.h"

NxCanApiWrapperSettings::NxCanApiWrapperSettings()
    : m_isReplayChannel(false),
      m_isHighSpeedChannel(false),
      m_canFd(false),
      m_targetArbitrationBaudrate(0),
      m_targetBaudrate(0),
      m_logCan(false),
      m_eventBasedReceive(false)
{
    AcceptAll();
}

NxCanApiWrapperSettings::NxCanApiWrapperSettings(const std::string& ip, const std::string& channelIdentifier,
                                                 bool canFd, std::uint32_t targetArbitrationBaudrate,
                                                 std::uint32_t targetBaudrate, bool logCan, bool isReplayChannel)
    : m_ip(ip),
      m_isReplayChannel(isReplayChannel),
      m_isHighSpeedChannel(false),
      m_canFd(canFd),
      m_targetArbitrationBaudrate(targetArbitrationBaudrate),
      m_targetBaudrate(targetBaudrate),
      m_logCan(logCan),
      m_channelIdentifier(channelIdentifier),
      m_eventBasedReceive(false)
{
    AcceptAll();
}

void NxCanApiWrapperSettings::AcceptAll()
{
    m_standardCanIdentifiersCode = 0;
    m_standardCanIdentifiersMask = 0;
    m_extendedCanIdentifiersCode = 0;
    m_extendedCanIdentifiersMask = 0;
}

std::string NxCanApiWrapperSettings::GetLogFilename() const { return m_channelIdentifier + ".asc"; }
