// NxEthMonitoring: reads the Ethernet frames of one interface onto oEth as
// PCAP stream elements, one frame an element or one read of the interface
// an element. A polling thread of its own reads the interface every
// sampling period into a buffer of the size the interface asks for, tells
// the frames' error flags, and stamps the frames by ts_behavior; the main
// thread only keeps the component alive.
#ifndef VELD_NX_ETH_MONITORING_H
#define VELD_NX_ETH_MONITORING_H

#include <atomic>
#include <cstdint>
#include <vector>

#include "NxEthApiWrapper.h"
#include "NxEthApiWrapperSettings.h"
#include "pcap_data.h"
#include "veld_model.h"
#include "veld_nxa_Bus.h"

class VELDNxEthMonitoring : public VELDBusCmnComponent<NxEthApiWrapper, NxEthApiWrapperSettings>,
                            public VELDpcap_component {
public:
    typedef VELDBusCmnComponent<NxEthApiWrapper, NxEthApiWrapperSettings> Base;

    VELDNxEthMonitoring(const char* name, VELDComponentDefinition& definition);
    ~VELDNxEthMonitoring() override;

    VELD_MODEL_INSTANTIATE(VELDNxEthMonitoring)

    // ---- virtual operations, in their order ----
    void CallbackTimeJumped(VELDTimestamp newTime) override;
    void CallbackTimeSpeedChanged(int newSpeed) override;
    void CallbackTimePaused(bool paused) override;
    void Dynamic() override;
    void Birth() override;
    void Core() override;
    void Death() override;
    void FreeBuffers() override;
    using Base::Set;

    NxEthApiWrapperSettings RetrieveApiSettings();
    void StartRxThreads();
    static void ReceivePollingInit(void* component);
    void ReceivePolling();
    // One read of the interface into `buffer`, written to oEth.
    void WriteEthFramesToOutput(VELDTimestamp readTime, VELDTimestamp timeOffset, std::uint32_t bufferSize,
                                std::uint8_t* buffer);
    // Reports the error flags of the raw frame at `frame`; the overflow once
    // until the next pause or resume.
    void CheckForError(VELDUInt8* frame);
    void WriteVectorizedFramesToOutput(VELDUInt8* buffer, VELDUInt32 count, VELDTimestamp readTime,
                                       VELDTimestamp timeOffset);
    void WriteNonVectorizedFramesToOutput(VELDUInt8* buffer, VELDUInt32 count, VELDTimestamp readTime,
                                          VELDTimestamp timeOffset);

    static VELDInputDefinition inputsDefinition[];
    static VELDOutputDefinition outputsDefinition[];
    static VELDPropertyDefinition propertiesDefinition[];
    static VELDActionDefinition actionsDefinition[];

private:
    // The frame of a read block at `position` into m_packet and m_header;
    // steps `position` past it and returns its time.
    VELDTimestamp NextFrame(VELDUInt8* buffer, std::uint32_t& position, VELDTimestamp timeOffset);
    // The reader's schedule and its jump handshake.
    VELDPeriodicSchedule ReadSchedule();

    bool m_vectorizeFrames;
    std::atomic<bool> m_receiveBufferOverflowOccurs;  // also written by the time thread
    std::atomic<int> m_timeSpeed;                     // also read by the time thread
    VELDEvent m_readTimeJumped;
    VELDEvent m_readTimeJumpedHandled;
    VELDTimestamp m_readTs;
    // The frame on its way from the read block into an element, kept from
    // one frame to the next so that the reader allocates nothing.
    std::vector<std::uint8_t> m_packet;
    VELDpcap_packet_header_t m_header;
};

extern VELDComponentDefinition VELDNxEthMonitoringDefinition;

#endif
