// The NxCanMonitoring component model.
#include "veld_NxCanMonitoring.h"

#include <stdexcept>
#include <string>

#include "veld.h"
#include "veld_can_settings.h"
#include "veld_io_elt.h"
#include "veld_module_definition.h"

namespace {

VELDPropertyDefinition Row(const char* name, VELDPropertyValue* value, bool readOnly = false, int subtype = 0)
{
    return VELDPropertyDefinition(name, value, nullptr, false, false, readOnly, true, subtype);
}

const int kBegin = VELD::PropertySubTypeBeginSubSection;
const int kEnd = VELD::PropertySubTypeEndSubSection;
const int kHexa = VELD::PropertySubTypeHexa;

enum TimestampBehavior { ConvertToEngineTime = 0, KeepHardwareTime = 1, KeepHardwareTimeEngineElement = 2 };

}  // namespace

// ---------------------------------------------------------------------------
// Definition

VELDInputDefinition VELDNxCanMonitoring::inputsDefinition[] = {{nullptr, 0, nullptr, 0, 0}};
VELDOutputDefinition VELDNxCanMonitoring::outputsDefinition[] = {{nullptr, 0, VELDTypeInfo(), 0, 0, 0, 0}};
VELDActionDefinition VELDNxCanMonitoring::actionsDefinition[] = {VELDActionDefinition()};

VELDPropertyDefinition VELDNxCanMonitoring::propertiesDefinition[] = {
    Row("beginDataLoggingBehavior", new VELDPropertyValue("Data Logging Behavior"), true, kBegin),
    Row("sampling_mode", new VELDPropertyValue("Event based|Polling", VELDInt32(0))),
    Row("sampling_period", new VELDPropertyValue(VELDInt64(5000))),
    Row("vectorize_frames", new VELDPropertyValue(false)),
    Row("ts_behavior",
        new VELDPropertyValue("Convert HW timestamps to Veldor timebase|Keep HW timestamps (apply this on "
                              "output)|Keep HW timestamps (use Veldor timebase on output)",
                              VELDInt32(0))),
    Row("endDataLoggingBehavior", new VELDPropertyValue(true), true, kEnd),
    Row("beginCanConfiguration", new VELDPropertyValue("CAN/CAN FD Configuration"), true, kBegin),
    Row("output_type", new VELDPropertyValue("CAN/CAN FD|Universal CAN", VELDInt32(0))),
    Row("can_fd", new VELDPropertyValue(false)),
    Row("filter_code", new VELDPropertyValue(VELDInt64(0)), false, kHexa),
    Row("filter_mask", new VELDPropertyValue(VELDInt64(0)), false, kHexa),
    Row("extended_filter_code", new VELDPropertyValue(VELDInt64(0)), false, kHexa),
    Row("extended_filter_mask", new VELDPropertyValue(VELDInt64(0)), false, kHexa),
    Row("arbitration_baudrate", new VELDPropertyValue(VeldCan::kBaudrateItems, VELDInt32(VeldCan::kOneMegabaudIndex))),
    Row("data_baudrate", new VELDPropertyValue(VeldCan::kBaudrateItems, VELDInt32(VeldCan::kOneMegabaudIndex))),
    Row("endCanConfiguration", new VELDPropertyValue(true), true, kEnd),
    VELDPropertyDefinition()};

VELDComponentDefinition VELDNxCanMonitoringDefinition = {"NxCanMonitoring",
                                                         "1.3.2",
                                                         &VELDNxCanMonitoring::Instantiate,
                                                         nullptr,
                                                         nullptr,
                                                         0,
                                                         0xFFFFFFFFu,
                                                         VELDNxCanMonitoring::inputsDefinition,
                                                         0,
                                                         VELDNxCanMonitoring::outputsDefinition,
                                                         0,
                                                         VELDNxCanMonitoring::propertiesDefinition,
                                                         0,
                                                         VELDNxCanMonitoring::actionsDefinition,
                                                         128,
                                                         VELD::Threaded,
                                                         true,
                                                         0};

VELD_DECLARE_COMPONENT(VELDNxCanMonitoring, "VELDNxCanMonitoring", VELDNxCanMonitoringDefinition, "NxCanMonitoring",
                       "1.3.2");

// ---------------------------------------------------------------------------
// Construction

VELDNxCanMonitoring::VELDNxCanMonitoring(const char* name, VELDComponentDefinition& definition)
    : VELDComponent(name, definition),
      Base(name, definition, false),
      m_isFd(false),
      m_vectorizeFrames(false),
      m_timeSpeed(0),
      m_timeJumped(false),
      m_timeJumpedHandled(false),
      m_readTs(0)
{
}

VELDNxCanMonitoring::~VELDNxCanMonitoring() { Unregister(); }

// ---------------------------------------------------------------------------
// Dynamic interface

void VELDNxCanMonitoring::ResetDynamicAttributes()
{
    m_dynamicInputModels.Reset();
    m_dynamicOutputModels.Reset();
}

VELDInput& VELDNxCanMonitoring::NewDynamicInput(const char* name, VELDTypeInfoValue type, const char* typeName,
                                                int readerType)
{
    return m_dynamicInputModels.NewInput(*this, name, type, typeName ? typeName : "", readerType);
}

VELDOutput& VELDNxCanMonitoring::NewDynamicOutput(const char* name, VELDTypeInfoValue type, const char* typeName)
{
    return m_dynamicOutputModels.NewOutput(*this, name, type, typeName ? typeName : "");
}

void VELDNxCanMonitoring::Dynamic()
{
    ResetDynamicAttributes();
    Base::Dynamic();

    for (int i = 0; propertiesDefinition[i].name; ++i) {
        if (i == 2 && GetIntegerProperty("sampling_mode") == EventBased) continue;
        NewProperty(propertiesDefinition[i]);
    }

    VeldCan::WarnIfVirtual(
        *this, "Configuration options are limited (baudrate setting, codes, CANFD, and filters are not available)");

    m_isFd = GetBoolProperty("can_fd");
    if (!m_isFd) VeldCan::ClampToClassicRates(*this);

    VELDTypeInfoValue type = VELD::CANFrame;
    if (GetIntegerProperty("output_type") == 1)
        type = VELD::CANUniFrame;
    else if (m_isFd)
        type = VELD::CANFDFrame;
    NewDynamicOutput("oCAN", type, "");
}

void VELDNxCanMonitoring::Set(VELDProperty& property, const VELDEnumStruct& value)
{
    if (!VeldCan::SetDataBaudrate(*this, property, value)) Base::Set(property, value);
}

void VELDNxCanMonitoring::Set(VELDProperty& property, const VELDString& value)
{
    if (!VeldCan::SetDataBaudrate(*this, property, value)) Base::Set(property, value);
}

// ---------------------------------------------------------------------------
// Settings

uint32_t VELDNxCanMonitoring::GetBaudRateProperty() { return VeldCan::DecodeBaudrate(*this, "data_baudrate"); }

uint32_t VELDNxCanMonitoring::GetArbitrationBaudRateProperty()
{
    return VeldCan::DecodeBaudrate(*this, "arbitration_baudrate");
}

uint32_t VELDNxCanMonitoring::GetStandardFilterCodeProperty()
{
    return static_cast<uint32_t>(GetIntegerProperty("filter_code"));
}

uint32_t VELDNxCanMonitoring::GetStandardFilterMaskProperty()
{
    return static_cast<uint32_t>(GetIntegerProperty("filter_mask"));
}

uint32_t VELDNxCanMonitoring::GetExtendedFilterCodeProperty()
{
    return static_cast<uint32_t>(GetIntegerProperty("extended_filter_code"));
}

uint32_t VELDNxCanMonitoring::GetExtendedFilterMaskProperty()
{
    return static_cast<uint32_t>(GetIntegerProperty("extended_filter_mask"));
}

NxCanApiWrapperSettings VELDNxCanMonitoring::RetrieveApiSettings()
{
    NxCanApiWrapperSettings settings(GetStringProperty("ip").Beginning(), GetChannelId(), m_isFd,
                                     GetArbitrationBaudRateProperty(), GetBaudRateProperty(), false, false);
    settings.SetEventBasedReceive(GetIntegerProperty("sampling_mode") == EventBased);
    settings.SetStandardCanIdentifiersCode(GetStandardFilterCodeProperty());
    settings.SetStandardCanIdentifiersMask(GetStandardFilterMaskProperty());
    settings.SetExtendedCanIdentifiersCode(GetExtendedFilterCodeProperty());
    settings.SetExtendedCanIdentifiersMask(GetExtendedFilterMaskProperty());
    return settings;
}

// ---------------------------------------------------------------------------
// Lifecycle

void VELDNxCanMonitoring::Birth()
{
    SetApiSettings(RetrieveApiSettings());
    Base::Birth();
    m_vectorizeFrames = GetBoolProperty("vectorize_frames");
    ReadSchedule().Begin();
    m_timeSpeed = VELD::TimeSpeed();
    // One element holds at most one read: room for 256 frames of any record.
    Output("oCAN").AllocOutputBuffer(kMaxFramesPerRead, true);
    StartRxThreads();
}

void VELDNxCanMonitoring::StartRxThreads()
{
    const bool polling = GetIntegerProperty("sampling_mode") == Polling;
    VELDCouple<bool, unsigned long> started =
        CreateThread(polling ? &ReadThreadPollingInit : &ReadThreadEventBasedInit, this);
    if (!started.first())
        Error(polling ? "Failed to create a thread for ReadThreadPollingInit"
                      : "Failed to create a thread for ReadThreadEventBasedInit",
              1, ErrorGeneric);
}

void VELDNxCanMonitoring::Core()
{
    Base::Core();
    Rest(1000);
}

void VELDNxCanMonitoring::Death() { Base::Death(); }

// ---------------------------------------------------------------------------
// Reader threads

void VELDNxCanMonitoring::ReadThreadPollingInit(void* component)
{
    static_cast<VELDNxCanMonitoring*>(component)->ReadThreadPolling();
}

void VELDNxCanMonitoring::ReadThreadEventBasedInit(void* component)
{
    static_cast<VELDNxCanMonitoring*>(component)->ReadThreadEventBased();
}

bool VELDNxCanMonitoring::ReadAndWrite(Timing& timing)
{
    VELDTimestamp readTime = 0;
    switch (timing.behavior) {
    case ConvertToEngineTime:
        if (timing.first) {
            std::uint64_t hardwareTime = 0;
            FailOn(GetNxApiWrapper().GetHardwareTime(&hardwareTime));
            timing.offset = VELD::CurrentTime(true, true) - static_cast<VELDTimestamp>(hardwareTime);
            timing.first = false;
        }
        break;
    case KeepHardwareTime:
        break;
    case KeepHardwareTimeEngineElement:
        readTime = VELD::CurrentTime(true, true);
        break;
    default:
        Error("Timestamps Behavior is not specified!", 1, ErrorGeneric);
        return false;
    }
    try {
        WriteCanMassagesToOutput(readTime, timing.offset);
    } catch (const std::exception& e) {
        // A failed read of the receive queue ends the reader with the
        // library's words.
        Error(e.what(), 1, ErrorGeneric);
        return false;
    }
    return true;
}

void VELDNxCanMonitoring::ReadThreadPolling()
{
    Timing timing{GetIntegerProperty("ts_behavior"), true, 0};
    VELDPeriodicSchedule schedule = ReadSchedule();
    while (!IsDying()) {
        if (schedule.WaitDue() && !ReadAndWrite(timing)) return;
        schedule.Advance(static_cast<VELDDelay>(GetIntegerProperty("sampling_period")));
    }
}

void VELDNxCanMonitoring::ReadThreadEventBased()
{
    Timing timing{GetIntegerProperty("ts_behavior"), true, 0};
    NxCanApiWrapper& wrapper = GetNxApiWrapper();
    while (!IsDying()) {
        // The library's signal is not remembered between two waits: a
        // frame that arrived while the last read was being written wakes
        // nobody. So the queue is read after every wait, woken or not; a
        // wait that timed out and finds the queue empty writes nothing.
        wrapper.WaitForReceiveEvent(5000, nullptr);
        if (IsDying()) break;
        if (!ReadAndWrite(timing)) return;
    }
}

void VELDNxCanMonitoring::WriteCanMassagesToOutput(VELDTimestamp readTime, VELDTimestamp timeOffset)
{
    NxCanApiWrapper& wrapper = GetNxApiWrapper();
    VELDUInt32 count = wrapper.ReadReceiveQueue();
    if (count == 0) return;
    if (count > kMaxFramesPerRead) {
        std::string text = "Too many messages [msgBufferSize:" + std::to_string(count) +
                           "]. Outputting the first 256 messages ...";
        ReportWarning(text.c_str(), 0);
        count = kMaxFramesPerRead;
    }
    const NXSCanMessage* messages = wrapper.GetCanChannelMsgBuffer();
    if (GetIntegerProperty("output_type") == 1)
        WriteFramesToOutput<VELDCANUniFrame>(messages, count, readTime, timeOffset);
    else if (m_isFd)
        WriteFramesToOutput<VELDCANFDFrame>(messages, count, readTime, timeOffset);
    else
        WriteFramesToOutput<VELDCANFrame>(messages, count, readTime, timeOffset);
}

template <class T>
void VELDNxCanMonitoring::WriteFramesToOutput(const NXSCanMessage* messages, VELDUInt32 count,
                                              VELDTimestamp readTime, VELDTimestamp timeOffset)
{
    if (m_vectorizeFrames)
        WriteVectorizedFramesToOutput<T>(messages, count, readTime, timeOffset);
    else
        WriteNonVectorizedFramesToOutput<T>(messages, count, readTime, timeOffset);
}

template <class T>
void VELDNxCanMonitoring::WriteVectorizedFramesToOutput(const NXSCanMessage* messages, VELDUInt32 count,
                                                        VELDTimestamp readTime, VELDTimestamp timeOffset)
{
    VELDIOElt* element = StartWriting(m_dynamicOutputModels.Instance("oCAN"));
    if (!element) return;
    element->VectorSize() = static_cast<int>(count);
    element->Timestamp() = readTime;
    T* frames = static_cast<T*>(element->Data());
    for (VELDUInt32 i = 0; i < count; ++i) {
        const VELDTimestamp ts = NxCanApiWrapper::CopyFrameMon(frames[i], messages[i], timeOffset);
        if (i == 0 && readTime == 0) element->Timestamp() = ts;
    }
    StopWriting(element);
}

template <class T>
void VELDNxCanMonitoring::WriteNonVectorizedFramesToOutput(const NXSCanMessage* messages, VELDUInt32 count,
                                                           VELDTimestamp readTime, VELDTimestamp timeOffset)
{
    VELDOutput& output = m_dynamicOutputModels.Instance("oCAN");
    for (VELDUInt32 i = 0; i < count; ++i) {
        VELDIOElt* element = StartWriting(output);
        if (!element) return;
        element->VectorSize() = 1;
        const VELDTimestamp ts =
            NxCanApiWrapper::CopyFrameMon(*static_cast<T*>(element->Data()), messages[i], timeOffset);
        element->Timestamp() = readTime != 0 ? readTime : ts;
        StopWriting(element);
    }
}

// ---------------------------------------------------------------------------
// Time callbacks: only the polling thread has a schedule to move

VELDPeriodicSchedule VELDNxCanMonitoring::ReadSchedule()
{
    return VELDPeriodicSchedule(*this, m_readTs, m_timeJumped, m_timeJumpedHandled);
}

void VELDNxCanMonitoring::CallbackTimeJumped(VELDTimestamp)
{
    if (IsStarted() && IsPolling()) ReadSchedule().HandOverJump();
}

void VELDNxCanMonitoring::CallbackTimeSpeedChanged(int newSpeed)
{
    if (!IsStarted() || m_timeSpeed >= 0 || newSpeed < 1) return;
    // Going forward again is a jump for the polling schedule. The second
    // handshake has no answer in event-based mode: the caller then waits
    // until the component dies.
    if (IsPolling()) ReadSchedule().HandOverJump();
    ReadSchedule().HandOverJump();
    m_timeSpeed = newSpeed;
}

void VELDNxCanMonitoring::CallbackTimePaused(bool) {}
