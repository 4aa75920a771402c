// What a CAN channel wrapper is built from: where to search for channels,
// which channel, how to run it. Components fill it from their properties.
#ifndef NX_CAN_API_WRAPPER_SETTINGS_H
#define NX_CAN_API_WRAPPER_SETTINGS_H

#include <cstdint>
#include <string>

class NxCanApiWrapperSettings {
public:
    NxCanApiWrapperSettings();
    // The high-speed and event-based choices start false; they have setters.
    NxCanApiWrapperSettings(const std::string& ip, const std::string& channelIdentifier, bool canFd,
                            std::uint32_t targetArbitrationBaudrate, std::uint32_t targetBaudrate, bool logCan,
                            bool isReplayChannel);

    // All four acceptance members to 0: a mask of 0 lets every frame pass.
    void AcceptAll();
    // The trace file: the channel identifier as it stands, and ".asc".
    std::string GetLogFilename() const;

    const std::string& GetIp() const { return m_ip; }
    bool GetIsReplayChannel() const { return m_isReplayChannel; }
    bool GetIsHighSpeedChannel() const { return m_isHighSpeedChannel; }
    bool GetCanFd() const { return m_canFd; }
    std::uint32_t GetTargetArbitrationBaudrate() const { return m_targetArbitrationBaudrate; }
    std::uint32_t GetTargetBaudrate() const { return m_targetBaudrate; }
    bool GetLogCan() const { return m_logCan; }
    const std::string& GetChannelIdentifier() const { return m_channelIdentifier; }
    bool GetEventBasedReceive() const { return m_eventBasedReceive; }
    std::uint32_t GetStandardCanIdentifiersCode() const { return m_standardCanIdentifiersCode; }
    std::uint32_t GetStandardCanIdentifiersMask() const { return m_standardCanIdentifiersMask; }
    std::uint32_t GetExtendedCanIdentifiersCode() const { return m_extendedCanIdentifiersCode; }
    std::uint32_t GetExtendedCanIdentifiersMask() const { return m_extendedCanIdentifiersMask; }

    void SetIp(const std::string& ip) { m_ip = ip; }
    void SetIsHighSpeedChannel(bool on) { m_isHighSpeedChannel = on; }
    void SetEventBasedReceive(bool on) { m_eventBasedReceive = on; }
    void SetStandardCanIdentifiersCode(std::uint32_t v) { m_standardCanIdentifiersCode = v; }
    void SetStandardCanIdentifiersMask(std::uint32_t v) { m_standardCanIdentifiersMask = v; }
    void SetExtendedCanIdentifiersCode(std::uint32_t v) { m_extendedCanIdentifiersCode = v; }
    void SetExtendedCanIdentifiersMask(std::uint32_t v) { m_extendedCanIdentifiersMask = v; }

private:
    std::string m_ip;
    bool m_isReplayChannel;
    bool m_isHighSpeedChannel;
    bool m_canFd;
    std::uint32_t m_targetArbitrationBaudrate;
    std::uint32_t m_targetBaudrate;
    bool m_logCan;
    std::string m_channelIdentifier;
    bool m_eventBasedReceive;
    std::uint32_t m_standardCanIdentifiersCode;
    std::uint32_t m_standardCanIdentifiersMask;
    std::uint32_t m_extendedCanIdentifiersCode;
    std::uint32_t m_extendedCanIdentifiersMask;
};

#endif
