// NxEthInject: puts the Ethernet frames of its input's PCAP stream elements
// on one interface. Set to Unsynchronized it sends each frame at once and
// pauses a millisecond after it; set to Synchronized each frame goes, with
// its own time, through the replay pre-processing stage (which reorders it
// and puts fragmented traffic back together by protocol_type), and a thread
// of its own pushes what the stage gives out to the interface's replay
// stream at a fixed rate, while the base hands the library the recording's
// start and stop times.
#ifndef VELD_NXA_ETH_H
#define VELD_NXA_ETH_H

#include <atomic>
#include <cstdint>
#include <vector>

#include "NxEthApiWrapper.h"
#include "NxEthApiWrapperSettings.h"
#include "pcap_data.h"
#include "veld_model.h"
#include "veld_nxa_Bus.h"

class VELDNxEthApi10 : public VELDBusCmnComponent<NxEthApiWrapper, NxEthApiWrapperSettings>,
                       public VELDpcap_component {
public:
    typedef VELDBusCmnComponent<NxEthApiWrapper, NxEthApiWrapperSettings> Base;

    // The longest frame that is sent: 1500 bytes of payload, the Ethernet
    // header, two VLAN tags and the check sequence.
    static const std::uint32_t kMtu = 1526;

    VELDNxEthApi10(const char* name, VELDComponentDefinition& definition);
    ~VELDNxEthApi10() override;

    VELD_MODEL_INSTANTIATE(VELDNxEthApi10)

    // ---- virtual operations, in their order ----
    void CallbackTimeJumped(VELDTimestamp newTime) override;
    void CallbackTimeSpeedChanged(int newSpeed) override;
    void CallbackTimePaused(bool paused) override;
    void Dynamic() override;
    void Birth() override;
    void Core() override;
    void Death() override;
    using Base::Set;

    NxEthApiWrapperSettings RetrieveApiSettings();
    void StartTxThreads();
    static void TransmitPushingInit(void* component);
    void TransmitPushing();

    static VELDInputDefinition inputsDefinition[];
    static VELDOutputDefinition outputsDefinition[];
    static VELDPropertyDefinition propertiesDefinition[];
    static VELDActionDefinition actionsDefinition[];

private:
    // Sends one frame at once: a raw frame with room for its check sequence.
    void TransmitNow(const std::uint8_t* data, const VELDpcap_packet_header_t& header);
    // The push thread's schedule and its jump handshake.
    VELDPeriodicSchedule WriteSchedule();

    std::atomic<bool> m_dataAvailableInFifo;  // written by Core, read by the push thread
    std::atomic<int> m_timeSpeed;             // also written by the time thread
    VELDEvent m_writeTimeJumped;
    VELDEvent m_writeTimeJumpedHandled;
    VELDTimestamp m_writeTs;
    // The raw frame of the unsynchronised path, kept from one frame to the
    // next so that sending allocates nothing.
    std::vector<std::uint8_t> m_rawFrame;
};

extern VELDComponentDefinition VELDNxEthApi10Definition;

#endif
