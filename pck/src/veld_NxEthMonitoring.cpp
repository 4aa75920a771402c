// The NxEthMonitoring component model.
#include "veld_NxEthMonitoring.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>

#include "veld.h"
#include "veld_module_definition.h"

namespace {

VELDPropertyDefinition Row(const char* name, VELDPropertyValue* value, bool readOnly = false, int subtype = 0)
{
    return VELDPropertyDefinition(name, value, nullptr, false, false, readOnly, true, subtype);
}

// The error flags of a received frame and what is reported for each, in
// the order they are tested.
struct FrameFlag {
    std::uint32_t mask;
    const char* text;
};
const FrameFlag kFrameErrors[] = {{0x1000, "Ethernet physical layer error."},
                                  {0x2000, "Invalid length."},
                                  {0x4000, "Invalid frame check sequence."}};
const std::uint32_t kReceiveBufferOverflow = 0x8000;
const std::uint32_t kReadPeriodTooLong = 0x10000;

struct FreeDeleter {
    void operator()(std::uint8_t* p) const { std::free(p); }
};

}  // namespace

// ---------------------------------------------------------------------------
// Definition

VELDInputDefinition VELDNxEthMonitoring::inputsDefinition[] = {{nullptr, 0, nullptr, 0, 0}};
VELDOutputDefinition VELDNxEthMonitoring::outputsDefinition[] = {
    {"oEth", 0, VELDTypeInfo(VELDpcapTypeValue, VELDpcapTypeName, nullptr), sizeof(VELDpcap_data_t), 16, 1, 1},
    {nullptr, 0, VELDTypeInfo(), 0, 0, 0, 0}};
VELDActionDefinition VELDNxEthMonitoring::actionsDefinition[] = {VELDActionDefinition()};

VELDPropertyDefinition VELDNxEthMonitoring::propertiesDefinition[] = {
    Row("beginDataLoggingBehavior", new VELDPropertyValue("Data Logging Behavior"), true,
        VELD::PropertySubTypeBeginSubSection),
    Row("sampling_period", new VELDPropertyValue(VELDInt64(5000))),
    Row("vectorize_frames", new VELDPropertyValue(false)),
    Row("ts_behavior",
        new VELDPropertyValue("Convert HW timestamps to Veldor timebase|Keep HW timestamps (apply this on "
                              "output)|Keep HW timestamps (use Veldor timebase on output)",
                              VELDInt32(0))),
    Row("endDataLoggingBehavior", new VELDPropertyValue(true), true, VELD::PropertySubTypeEndSubSection),
    VELDPropertyDefinition()};

VELDComponentDefinition VELDNxEthMonitoringDefinition = {"NxEthMonitoring",
                                                         "2.1.5",
                                                         &VELDNxEthMonitoring::Instantiate,
                                                         nullptr,
                                                         nullptr,
                                                         0,
                                                         0,
                                                         VELDNxEthMonitoring::inputsDefinition,
                                                         0xFFFFFFFFu,
                                                         VELDNxEthMonitoring::outputsDefinition,
                                                         0,
                                                         VELDNxEthMonitoring::propertiesDefinition,
                                                         0,
                                                         VELDNxEthMonitoring::actionsDefinition,
                                                         128,
                                                         VELD::Threaded,
                                                         true,
                                                         0};

VELD_DECLARE_COMPONENT(VELDNxEthMonitoring, "VELDNxEthMonitoring", VELDNxEthMonitoringDefinition, "NxEthMonitoring",
                       "2.1.5");

// ---------------------------------------------------------------------------
// Construction

VELDNxEthMonitoring::VELDNxEthMonitoring(const char* name, VELDComponentDefinition& definition)
    : VELDComponent(name, definition),
      Base(name, definition, false),
      VELDpcap_component(name, definition),
      m_vectorizeFrames(false),
      m_receiveBufferOverflowOccurs(false),
      m_timeSpeed(0),
      m_readTimeJumped(false),
      m_readTimeJumpedHandled(false),
      m_readTs(0),
      m_header()
{
}

VELDNxEthMonitoring::~VELDNxEthMonitoring() { Unregister(); }

// ---------------------------------------------------------------------------
// Lifecycle

void VELDNxEthMonitoring::Dynamic()
{
    Base::Dynamic();
    for (int i = 0; propertiesDefinition[i].name; ++i) NewProperty(propertiesDefinition[i]);
}

NxEthApiWrapperSettings VELDNxEthMonitoring::RetrieveApiSettings()
{
    return NxEthApiWrapperSettings(GetStringProperty("ip").Beginning(), GetChannelId(), false, false);
}

void VELDNxEthMonitoring::Birth()
{
    SetApiSettings(RetrieveApiSettings());
    Base::Birth();
    VELDpcap_component::Birth(Output("oEth"));
    m_vectorizeFrames = GetBoolProperty("vectorize_frames");
    m_receiveBufferOverflowOccurs = false;
    ReadSchedule().Begin();
    m_timeSpeed = VELD::TimeSpeed();
    StartRxThreads();
}

void VELDNxEthMonitoring::StartRxThreads()
{
    VELDCouple<bool, unsigned long> started = CreateThread(&ReceivePollingInit, this);
    if (!started.first()) Error("Failed to create a thread for ReceivePollingInit", 1, ErrorGeneric);
}

void VELDNxEthMonitoring::Core()
{
    Base::Core();
    Rest(1000);
}

void VELDNxEthMonitoring::Death() { Base::Death(); }

void VELDNxEthMonitoring::FreeBuffers() { VELDpcap_component::FreeBuffers(); }

// ---------------------------------------------------------------------------
// The reader thread

void VELDNxEthMonitoring::ReceivePollingInit(void* component)
{
    static_cast<VELDNxEthMonitoring*>(component)->ReceivePolling();
}

void VELDNxEthMonitoring::ReceivePolling()
{
    ReadTiming timing = BeginReadTiming();
    NxEthApiWrapper& wrapper = GetNxApiWrapper();
    std::uint32_t size = 0;
    std::unique_ptr<std::uint8_t, FreeDeleter> buffer;
    try {
        // A buffer that the interface cannot tell would fail every read
        // that finds a frame: better said at once.
        FailOn(wrapper.GetInterfaceBufferSize(&size));
    } catch (const std::exception& e) {
        Error(e.what(), 1, ErrorGeneric);
    }
    buffer.reset(static_cast<std::uint8_t*>(std::malloc(std::max<std::uint32_t>(size, 1))));
    if (!buffer) {
        VELD::ReportError("Unable to allocate the component's data buffer.", 0);
        throw std::bad_alloc();
    }

    VELDPeriodicSchedule schedule = ReadSchedule();
    while (!IsDying()) {
        if (schedule.WaitDue()) {
            const VELDTimestamp readTime = ReadTime(timing);
            WriteEthFramesToOutput(readTime, timing.offset, size, buffer.get());
        } else {
            // The engine's clock jumped: the offset to it is taken anew.
            timing.first = true;
        }
        schedule.Advance(static_cast<VELDDelay>(GetIntegerProperty("sampling_period")));
    }
}

void VELDNxEthMonitoring::WriteEthFramesToOutput(VELDTimestamp readTime, VELDTimestamp timeOffset,
                                                 std::uint32_t bufferSize, std::uint8_t* buffer)
{
    std::uint32_t count = 0;
    try {
        FailOn(GetNxApiWrapper().ReadFrames(bufferSize, buffer, &count));
    } catch (const std::exception& e) {
        Error(e.what(), 1, ErrorGeneric);
    }
    if (count == 0) return;
    if (m_vectorizeFrames)
        WriteVectorizedFramesToOutput(buffer, count, readTime, timeOffset);
    else
        WriteNonVectorizedFramesToOutput(buffer, count, readTime, timeOffset);
}

void VELDNxEthMonitoring::CheckForError(VELDUInt8* frame)
{
    // Frames lie back to back: a header need not be aligned.
    NXSEthRawFrameHeader header;
    std::memcpy(&header, frame, sizeof header);
    for (const FrameFlag& flag : kFrameErrors)
        if (header.ulFlags & flag.mask) ReportError(flag.text, 0);
    if (header.ulFlags & kReceiveBufferOverflow) {
        if (m_receiveBufferOverflowOccurs) return;
        ReportError("Receive buffer overflow.", 0);
        m_receiveBufferOverflowOccurs = true;
    }
    if (header.ulFlags & kReadPeriodTooLong) ReportError("Sampling rate for ReadFrames function too small.", 0);
}

VELDTimestamp VELDNxEthMonitoring::NextFrame(VELDUInt8* buffer, std::uint32_t& position, VELDTimestamp timeOffset)
{
    VELDUInt8* frame = buffer + position;
    CheckForError(frame);
    m_header = VELDpcap_packet_header_t();
    return NxEthApiWrapper::CopyFrame(m_packet, &m_header, reinterpret_cast<const NXSEthRawFrame*>(frame), position,
                                      timeOffset);
}

void VELDNxEthMonitoring::WriteVectorizedFramesToOutput(VELDUInt8* buffer, VELDUInt32 count, VELDTimestamp readTime,
                                                        VELDTimestamp timeOffset)
{
    // One element holds one read; a read of more frames than an element can
    // count goes on in the next element.
    std::uint32_t position = 0;
    for (VELDUInt32 done = 0; done < count;) {
        pcap_data_writer writer(this, Output("oEth"), VELDpcapLinkTypeEthernet, readTime);
        const VELDUInt32 n = std::min<VELDUInt32>(count - done, UINT16_MAX);
        for (VELDUInt32 i = 0; i < n; ++i) {
            const VELDTimestamp ts = NextFrame(buffer, position, timeOffset);
            if (i == 0 && readTime == 0) writer.SetTimestamp(ts);
            writer.set_next_packet(m_header, m_packet.data());
        }
        done += n;
    }
}

void VELDNxEthMonitoring::WriteNonVectorizedFramesToOutput(VELDUInt8* buffer, VELDUInt32 count,
                                                           VELDTimestamp readTime, VELDTimestamp timeOffset)
{
    std::uint32_t position = 0;
    for (VELDUInt32 i = 0; i < count; ++i) {
        const VELDTimestamp ts = NextFrame(buffer, position, timeOffset);
        pcap_data_writer writer(this, Output("oEth"), VELDpcapLinkTypeEthernet, readTime != 0 ? readTime : ts);
        writer.set_next_packet(m_header, m_packet.data());
    }
}

// ---------------------------------------------------------------------------
// Time callbacks

VELDPeriodicSchedule VELDNxEthMonitoring::ReadSchedule()
{
    return VELDPeriodicSchedule(*this, m_readTs, m_readTimeJumped, m_readTimeJumpedHandled);
}

void VELDNxEthMonitoring::CallbackTimeJumped(VELDTimestamp)
{
    if (IsStarted()) ReadSchedule().HandOverJump();
}

void VELDNxEthMonitoring::CallbackTimeSpeedChanged(int newSpeed)
{
    if (!IsStarted()) return;
    // Going forward again is a jump for the reader's schedule.
    if (m_timeSpeed < 0 && newSpeed > 0) ReadSchedule().HandOverJump();
    m_timeSpeed = newSpeed;
}

void VELDNxEthMonitoring::CallbackTimePaused(bool)
{
    // A pause or a resume arms the overflow report again.
    m_receiveBufferOverflowOccurs = false;
}
