// The NxEthInject component model.
#include "veld_nxa_Eth.h"

#include <stdexcept>
#include <string>

#include "NxDrPreApi.h"
#include "veld.h"
#include "veld_io_access.h"
#include "veld_module_definition.h"

namespace {

VELDPropertyDefinition Row(const char* name, VELDPropertyValue* value, bool readOnly = false, int subtype = 0)
{
    return VELDPropertyDefinition(name, value, nullptr, false, false, readOnly, true, subtype);
}

// The input takes what the PCAP stream outputs give.
const VELDTypeFilterBase& FilterVeldPcapDataT = VELDFilterPCAPStructure;

// protocol_type's items, "Generic|UDP|SOME/IP TP", as the pre-processing
// stage names them; anything else is Generic.
std::uint8_t PreProcessingProtocol(VELDInt64 selection)
{
    switch (selection) {
    case 1: return NXDRPP_UDP;
    case 2: return NXDRPP_SOMEIP;
    default: return NXDRPP_GENERIC;
    }
}

}  // namespace

// ---------------------------------------------------------------------------
// Definition

VELDInputDefinition VELDNxEthApi10::inputsDefinition[] = {
    {"iEth", 0, &FilterVeldPcapDataT, VELD::NeverSkippingReader, 1}, {nullptr, 0, nullptr, 0, 0}};
VELDOutputDefinition VELDNxEthApi10::outputsDefinition[] = {{nullptr, 0, VELDTypeInfo(), 0, 0, 0, 0}};
VELDActionDefinition VELDNxEthApi10::actionsDefinition[] = {VELDActionDefinition()};

VELDPropertyDefinition VELDNxEthApi10::propertiesDefinition[] = {
    Row("beginEthConfiguration", new VELDPropertyValue("Reassembly of fragmented frames"), true,
        VELD::PropertySubTypeBeginSubSection),
    Row("protocol_type", new VELDPropertyValue("Generic|UDP|SOME/IP TP", VELDInt32(0))),
    Row("endEthConfiguration", new VELDPropertyValue(true), true, VELD::PropertySubTypeEndSubSection),
    VELDPropertyDefinition()};

VELDComponentDefinition VELDNxEthApi10Definition = {"NxEthInject",
                                                    "2.3.4",
                                                    &VELDNxEthApi10::Instantiate,
                                                    nullptr,
                                                    nullptr,
                                                    0,
                                                    0,
                                                    VELDNxEthApi10::inputsDefinition,
                                                    0,
                                                    VELDNxEthApi10::outputsDefinition,
                                                    0,
                                                    VELDNxEthApi10::propertiesDefinition,
                                                    0,
                                                    VELDNxEthApi10::actionsDefinition,
                                                    128,
                                                    VELD::Threaded,
                                                    true,
                                                    0};

VELD_DECLARE_COMPONENT(VELDNxEthApi10, "VELDNxEthApi10", VELDNxEthApi10Definition, "NxEthInject", "2.3.4");

// ---------------------------------------------------------------------------
// Construction

VELDNxEthApi10::VELDNxEthApi10(const char* name, VELDComponentDefinition& definition)
    : VELDComponent(name, definition),
      Base(name, definition, true),
      VELDpcap_component(name, definition),
      m_dataAvailableInFifo(true),
      m_timeSpeed(0),
      m_writeTimeJumped(false),
      m_writeTimeJumpedHandled(false),
      m_writeTs(0)
{
}

VELDNxEthApi10::~VELDNxEthApi10() { Unregister(); }

// ---------------------------------------------------------------------------
// Dynamic and settings

void VELDNxEthApi10::Dynamic()
{
    Base::Dynamic();
    NewInput(inputsDefinition[0]);
    if (GetIntegerProperty("replay_mode") == 0) return;
    for (int i = 0; propertiesDefinition[i].name; ++i) NewProperty(propertiesDefinition[i]);
}

NxEthApiWrapperSettings VELDNxEthApi10::RetrieveApiSettings()
{
    const std::string ip = GetStringProperty("ip").Beginning();
    const std::string interfaceId = GetChannelId();
    const bool isReplay = GetIntegerProperty("replay_mode") != 0;
    NxEthApiWrapperSettings settings(ip, interfaceId, false, isReplay);
    if (isReplay) {
        settings.SetIsHighSpeedChannel(GetBoolProperty("high_speed"));
        settings.SetProtocolType(PreProcessingProtocol(GetIntegerProperty("protocol_type")));
    }
    return settings;
}

// ---------------------------------------------------------------------------
// Lifecycle

void VELDNxEthApi10::Birth()
{
    SetApiSettings(RetrieveApiSettings());
    Base::Birth();
    m_dataAvailableInFifo = true;
    WriteSchedule().Begin();
    m_timeSpeed = VELD::TimeSpeed();
    StartTxThreads();
}

void VELDNxEthApi10::StartTxThreads() { StartPushThread(&TransmitPushingInit); }

void VELDNxEthApi10::TransmitNow(const std::uint8_t* data, const VELDpcap_packet_header_t& header)
{
    m_rawFrame.resize(header.len + sizeof(NXSEthRawFrameHeader) + NXETH_FCS_SIZE);
    NXSEthRawFrame* raw = reinterpret_cast<NXSEthRawFrame*>(m_rawFrame.data());
    NxEthApiWrapper::CopyFrame(raw, data, &header);
    FailOn(GetNxApiWrapper().TransmitFrames(m_rawFrame.data(), 1));
}

void VELDNxEthApi10::Core()
{
    Base::Core();
    NxEthApiWrapper& wrapper = GetNxApiWrapper();
    if (!wrapper.GetTransmitFramesAllowed()) {
        Rest(1000);
        return;
    }
    VELDInput& input = Input("iEth");
    if (!DataAvailableInFIFO(input)) {
        m_dataAvailableInFifo = false;
        Rest(1000);
        return;
    }
    m_dataAvailableInFifo = true;

    VELD::InputGuard<VELDpcap_data_t> guard(this, input, true);
    if (!guard.IsValid()) return;
    const VELDpcap_data_t& record = guard.Data(0);
    if (record.link_type != VELDpcapLinkTypeEthernet) {
        ReportError(("unsupported ethernet link type : " + std::to_string(record.link_type)).c_str(), 0);
        return;
    }
    pcap_data_reader reader(this, &record);
    pkthdr packet;
    const std::uint8_t* data = nullptr;
    const VELDpcap_packet_header_t* stored = nullptr;
    try {
        while (reader.get_next_packet(packet, data, stored) == 0) {
            // The test is on the length on the wire, whatever was captured.
            if (packet.len > kMtu) {
                ReportWarning("Ethernet frame to transmit is larger than MTU. The frame cannot be transmitted.", 0);
                break;
            }
            // The stored header need not be aligned: its aligned copy goes on.
            const VELDpcap_packet_header_t header = pcap_data_writer::HeaderOf(packet);
            if (GetIntegerProperty("replay_mode") == 0) {
                TransmitNow(data, header);
                Rest(1000);
            } else {
                FailOn(wrapper.CopyFrame2(data, &header, [this] { return IsDying(); }));
            }
        }
    } catch (const std::exception& e) {
        Error(e.what(), 1, ErrorGeneric);
    }
}

void VELDNxEthApi10::Death()
{
    const VELDString failure = FinalPush();
    // Reported only: the interface is released whatever the last push did.
    if (failure.Length() > 0) ReportError(failure, 0);
    Base::Death();
}

// ---------------------------------------------------------------------------
// The push thread of a synchronised replay

void VELDNxEthApi10::TransmitPushingInit(void* component)
{
    static_cast<VELDNxEthApi10*>(component)->TransmitPushing();
}

void VELDNxEthApi10::TransmitPushing()
{
    PushReplayStream(WriteSchedule(), static_cast<VELDDelay>(GetIntegerProperty("replay_period")),
                     m_dataAvailableInFifo);
}

// ---------------------------------------------------------------------------
// Time callbacks

VELDPeriodicSchedule VELDNxEthApi10::WriteSchedule()
{
    return VELDPeriodicSchedule(*this, m_writeTs, m_writeTimeJumped, m_writeTimeJumpedHandled);
}

void VELDNxEthApi10::CallbackTimeJumped(VELDTimestamp)
{
    // Without a push thread (Unsynchronized) nobody answers, and the caller
    // waits until the component dies.
    if (IsStarted()) WriteSchedule().HandOverJump();
}

void VELDNxEthApi10::CallbackTimeSpeedChanged(int newSpeed)
{
    if (!IsStarted()) return;
    // Every change of speed, either way, starts the push schedule again.
    WriteSchedule().HandOverJump();
    m_timeSpeed = newSpeed;
}

void VELDNxEthApi10::CallbackTimePaused(bool) {}
