#include "veld_nxa_Bus.h"

#include <stdexcept>
#include <vector>

#include "NxCanApiWrapper.h"
#include "NxCanApiWrapperSettings.h"
#include "NxEthApiWrapper.h"
#include "NxEthApiWrapperSettings.h"
#include "NxChannelMap.h"
#include "veld.h"
#include "veld_io_elt.h"
#include "veld_property_impl.h"

namespace {

VELDPropertyDefinition Row(const char* name, VELDPropertyValue* value, bool readOnly, int subtype = 0)
{
    return VELDPropertyDefinition(name, value, nullptr, false, false, readOnly, true, subtype);
}

VELDString Quoted(const char* before, const char* what, const char* after)
{
    VELDString text(before);
    text += what;
    text += after;
    return text;
}

// The channels that the bus library offers at `ip`. A machine without the
// library offers none; a library that fails to tell is reported, and offers
// none either, so that the property sheet stays usable.
template <class W>
auto AvailableChannels(VELDModule* module, const char* ip, bool norvexHardwareOnly)
    -> decltype(W::RetrieveAvailableChannelsVector(ip, norvexHardwareOnly))
{
    try {
        return W::RetrieveAvailableChannelsVector(ip, norvexHardwareOnly);
    } catch (const std::exception& e) {
        module->ReportError(e.what(), 0);
        return {};
    }
}

}  // namespace

// ---------------------------------------------------------------------------
// Static tables, one set per instantiation

template <class W, class S>
const char* const VELDBusCmnComponent<W, S>::kCustomChannel = "Custom channel";

template <class W, class S>
VELDActionDefinition VELDBusCmnComponent<W, S>::actionsDefinition[] = {
    VELDActionDefinition("Refresh_Devices", new VELDActionFunction(&VELDBusCmnComponent<W, S>::RefreshInterfacesAction),
                         true),
    VELDActionDefinition()};

template <class W, class S>
VELDPropertyDefinition VELDBusCmnComponent<W, S>::propertiesDefinition[] = {
    Row("beginHwAssignment", new VELDPropertyValue("Hardware Assignment"), true,
        VELD::PropertySubTypeBeginSubSection),
    Row("ip", new VELDPropertyValue("127.0.0.1"), false),
    Row("channel", new VELDPropertyValue(VELDEnumStruct()), false),
    Row("custom_channel", new VELDPropertyValue(""), false),
    Row("channel_description", new VELDPropertyValue(""), true),
    Row("endHwAssignment", new VELDPropertyValue(true), true, VELD::PropertySubTypeEndSubSection),
    Row("beginDataReplayBehavior", new VELDPropertyValue("Data Replay Behavior"), true,
        VELD::PropertySubTypeBeginSubSection),
    Row("replay_mode", new VELDPropertyValue("Unsynchronized|Synchronized", VELDInt32(1)), false),
    Row("replay_period", new VELDPropertyValue(VELDInt64(10000)), false),
    Row("high_speed", new VELDPropertyValue(false), false),
    Row("endDataReplayBehavior", new VELDPropertyValue(true), true, VELD::PropertySubTypeEndSubSection),
    Row("beginSimTimeOutput", new VELDPropertyValue("Simulation Time Output"), true,
        VELD::PropertySubTypeBeginSubSection),
    Row("sim_time_output", new VELDPropertyValue(false), false),
    Row("polling_period", new VELDPropertyValue(VELDInt64(5000)), false),
    Row("endSimTimeOutput", new VELDPropertyValue(true), true, VELD::PropertySubTypeEndSubSection),
    VELDPropertyDefinition()};

template <class W, class S>
VELDInputDefinition VELDBusCmnComponent<W, S>::inputsDefinition[] = {
    {"iLogStartTime", 0, &VELD::FilterInteger64, VELD::SamplingReader, 1},
    {"iReplayStartTime", 0, &VELD::FilterInteger64, VELD::SamplingReader, 1},
    {"iReplayStopTime", 0, &VELD::FilterInteger64, VELD::SamplingReader, 1},
    {"iReplayEofTime", 0, &VELD::FilterInteger64, VELD::SamplingReader, 1},
    {nullptr, 0, nullptr, 0, 0}};

template <class W, class S>
VELDOutputDefinition VELDBusCmnComponent<W, S>::outputsDefinition[] = {
    {"oReplayStateInfo", 0, VELDTypeInfo(VELD::Structure, "VELDBusReplayStateInfo", nullptr), 56, 16, 1, 1},
    {"oSimTime", 0, VELDTypeInfo(VELD::Integer64, nullptr, "us"), 1, 16, 1, 1},
    {nullptr, 0, VELDTypeInfo(), 0, 0, 0, 0}};

// ---------------------------------------------------------------------------
// Construction

template <class W, class S>
VELDBusCmnComponent<W, S>::VELDBusCmnComponent(const char* name, VELDComponentDefinition& definition,
                                               bool dataReplayEnabled)
    : VELDComponent(name, definition),
      VELDTimeStateListener(),
      VELDBusReplayStateInfo(VELD::NoMask, VELD::NoType, VELD::Structure, "NxBusReplayStateInfo"),
      m_isInitialized(false),
      m_apiSettings(),
      m_isSimTimeProvider(false),
      m_logStartTime(-1),
      m_replayStartTime(-1),
      m_replayStopTime(-1),
      m_replayEofTime(-1),
      m_pollingPeriod(0),
      m_dataReplayEnabled(dataReplayEnabled),
      m_ioEltIn(nullptr),
      m_timeSpeed(0),
      m_timeJumped(false),
      m_timeJumpedHandled(false),
      m_replayStateInfoPollingTimestamp(0),
      m_simTimePollingTimestamp(0),
      m_replayStreamFailed(false)
{
}

template <class W, class S>
VELDBusCmnComponent<W, S>::~VELDBusCmnComponent()
{
    // No time news may reach a component that is going away.
    Unregister();
    try {
        if (HasProperty("channel") && HasProperty("ip"))
            NxChannelMap::RemoveBlockName(VELDString(Name()), ModelName(), GetStringProperty("ip").Beginning(),
                                          SelectedChannel().Beginning());
    } catch (...) {
        // A destructor reports nothing more than the property reads did.
    }
}

// ---------------------------------------------------------------------------
// Helpers

template <class W, class S>
VELDPeriodicSchedule VELDBusCmnComponent<W, S>::MetaSchedule()
{
    return VELDPeriodicSchedule(*this, m_replayStateInfoPollingTimestamp, m_timeJumped, m_timeJumpedHandled);
}

template <class W, class S>
bool VELDBusCmnComponent<W, S>::IsSynchronizedReplay()
{
    return m_dataReplayEnabled && HasProperty("replay_mode") && GetIntegerProperty("replay_mode") != 0;
}

template <class W, class S>
VELDString VELDBusCmnComponent<W, S>::SelectedChannel()
{
    if (!HasProperty("channel")) return VELDString();
    return GetEnumProperty("channel").SelectedText();
}

template <class W, class S>
VELDString VELDBusCmnComponent<W, S>::WrapperMessage(const NxBusError& error)
{
    std::string text = m_pNxApiWrapper ? m_pNxApiWrapper->GetErrorMessage(error) : std::string();
    return VELDString(text.c_str());
}

template <class W, class S>
void VELDBusCmnComponent<W, S>::FailOn(const NxBusError& error)
{
    if (error.errorCode != 0) Error(WrapperMessage(error), 1, ErrorGeneric);
}

template <class W, class S>
template <class T>
void VELDBusCmnComponent<W, S>::SetIfMutable(VELDProperty& property, const T& value)
{
    if (property.IsMutable()) VELDComponent::Set(property, value);
}

template <class W, class S>
VELDInt64 VELDBusCmnComponent<W, S>::ReadTimeInput(const char* name)
{
    VELDInput& input = Input(name);
    VELDIOElt* element = StartReading(input);
    VELDInt64 value = element ? *element->Integer64(0) : -1;
    StopReading(input);
    return value;
}

template <class W, class S>
VELDTimestamp VELDBusCmnComponent<W, S>::ReadTime(ReadTiming& timing)
{
    switch (timing.behavior) {
    case 0:
        if (timing.first) {
            std::uint64_t hardwareTime = 0;
            FailOn(m_pNxApiWrapper->GetHardwareTime(&hardwareTime));
            timing.offset = VELD::CurrentTime(true, true) - static_cast<VELDTimestamp>(hardwareTime);
            timing.first = false;
        }
        return 0;
    case 1: return 0;
    case 2: return VELD::CurrentTime(true, true);
    default: Error("Timestamps Behavior is not specified!", 1, ErrorGeneric); return 0;
    }
}

// ---------------------------------------------------------------------------
// Dynamic

template <class W, class S>
void VELDBusCmnComponent<W, S>::Dynamic()
{
    for (int i = 0; actionsDefinition[i].name; ++i) NewAction(actionsDefinition[i]);
    for (int i = 0; i <= 5; ++i) NewProperty(propertiesDefinition[i]);

    bool synchronized = false;
    for (int i = 6; i <= 14 && propertiesDefinition[i].name; ++i) {
        const bool replayRow = i >= 6 && i <= 10;
        const bool synchronizedRow = i == 8 || i == 9;
        if (replayRow && !m_dataReplayEnabled) continue;
        if (synchronizedRow && !synchronized) continue;
        NewProperty(propertiesDefinition[i]);
        if (i == 7) synchronized = GetIntegerProperty("replay_mode") != 0;
    }

    m_isSimTimeProvider = GetBoolProperty("sim_time_output");
    m_pollingPeriod = static_cast<VELDDelay>(GetIntegerProperty("polling_period"));

    if (m_dataReplayEnabled && synchronized)
        for (int i = 0; inputsDefinition[i].name; ++i) NewInput(inputsDefinition[i]);

    // oReplayStateInfo first, then oSimTime: the table's order.
    if (m_dataReplayEnabled && synchronized) NewOutput(outputsDefinition[0]);
    if (m_isSimTimeProvider) NewOutput(outputsDefinition[1]);
}

// ---------------------------------------------------------------------------
// Set

template <class W, class S>
void VELDBusCmnComponent<W, S>::Set(VELDProperty& property, bool value)
{
    SetIfMutable(property, value);
}

template <class W, class S>
void VELDBusCmnComponent<W, S>::Set(VELDProperty& property, const VELDEnumStruct& value)
{
    if (&property != &Property("channel")) {
        SetIfMutable(property, value);
        return;
    }
    VELDEnumStruct current = GetEnumProperty("channel");
    if (value.ToString() != current.ToString() || current.GetSelected() == -1) {
        VELDComponent::Set(property, value);
        NxChannelMap::InsertBlockName(VELDString(Name()), ModelName(), GetStringProperty("ip").Beginning(),
                                      SelectedChannel().Beginning());
    }
    CheckDuplicateChannel();
}

template <class W, class S>
void VELDBusCmnComponent<W, S>::Set(VELDProperty& property, const VELDString& value)
{
    if (&property == &Property("ip")) {
        VELDEnumStruct channels = RefreshChannels(this, value);
        VELDComponent::Set(Property("channel"), channels);
        SetIfMutable(property, value);
        return;
    }
    if (HasProperty("replay_mode") && &property == &Property("replay_mode")) {
        VELDComponent::Set(property, value);
        VELDEnumStruct channels = RefreshChannels(this, GetStringProperty("ip"));
        VELDComponent::Set(Property("channel"), channels);
        SetIfMutable(property, value);
        return;
    }
    if (&property != &Property("channel")) {
        SetIfMutable(property, value);
        return;
    }

    if (VELDEnumStruct::IsEnumString(value)) {
        VELDEnumStruct parsed;
        parsed.FromString(value, false);
        Set(property, parsed);
        return;
    }
    VELDEnumStruct current = GetEnumProperty("channel");
    if (current.GetSelected() == -1) {
        ReportError(Quoted("Channel ", value, " is not valid enum value!"), 0);
    } else if (current.SelectedText() != value) {
        const std::string ip = GetStringProperty("ip").Beginning();
        NxChannelMap::RemoveBlockName(VELDString(Name()), ModelName(), ip, current.SelectedText().Beginning());
        VELDModule::Set(property, value);
        NxChannelMap::InsertBlockName(VELDString(Name()), ModelName(), ip, SelectedChannel().Beginning());
    }
    CheckDuplicateChannel();
}

template <class W, class S>
void VELDBusCmnComponent<W, S>::CheckDuplicateChannel()
{
    const VELDString ip = GetStringProperty("ip");
    const VELDString channel = SelectedChannel();
    std::vector<VELDString> names = NxChannelMap::GetBlockNames(VELDString(ModelName()), ip, channel);
    if (names.size() > 1) {
        VELDString text("Selected channel [");
        text += channel;
        text += "] is used several times in ";
        text += NxChannelMap::ToString(names).c_str();
        text += "!";
        Error(text, 1, ErrorGeneric);
    }
    SetChannelDescription(ip, channel);
}

// ---------------------------------------------------------------------------
// Channels

template <class W, class S>
VELDEnumStruct VELDBusCmnComponent<W, S>::RefreshChannels(VELDModule* module, const char* ip)
{
    VELDString kept;
    if (module->HasProperty("channel")) {
        VELDEnumStruct current = module->GetEnumProperty("channel");
        if (current.GetSelected() >= 0) kept = current.SelectedText();
    }
    const bool isReplay = module->HasProperty("replay_mode") && module->GetIntegerProperty("replay_mode") != 0;

    VELDString items;
    for (const auto& info : AvailableChannels<W>(module, ip, isReplay)) {
        items += W::GetChannelId(info);
        items += "|";
    }
    items += kCustomChannel;

    VELDEnumStruct channels(items, 0);
    if (kept.Length() == 0 || !channels.Select(kept)) channels.SetSelected(0);
    return channels;
}

template <class W, class S>
void VELDBusCmnComponent<W, S>::RefreshInterfacesAction(VELDModule* module, int)
{
    const VELDString ip = module->GetStringProperty("ip");
    VELDEnumStruct channels = RefreshChannels(module, ip);
    auto* component = dynamic_cast<VELDBusCmnComponent*>(module);
    if (!component) return;
    component->Set(component->Property("channel"), channels);
}

template <class W, class S>
void VELDBusCmnComponent<W, S>::SetChannelDescription(VELDString ip, VELDString channel)
{
    VELDString description;
    bool zira = false;
    const bool synchronized = IsSynchronizedReplay();
    if (ip.Length() > 0 && channel.Length() > 0 && channel != kCustomChannel) {
        for (const auto& info : AvailableChannels<W>(this, ip, synchronized)) {
            description = W::GetChannelDescription(info, channel);
            if (description.Length() > 0) break;
        }
        if (description.Length() > 0 && synchronized)
            zira = std::string(description.Beginning()).find("ZIRA") != std::string::npos;
    }
    DirectSet(Property("channel_description"), description);
    if (!synchronized) return;

    VELDProperty& highSpeed = Property("high_speed");
    if (zira && highSpeed.BoolValue() && highSpeed.IsMutable()) {
        DirectSet(highSpeed, false);
        ReportWarning(
            "The Data Replay property \"high_speed\" is not supported with ZIRA application and is deselected!", 0);
    }
    highSpeed.SetMutable(!zira);
}

template <class W, class S>
std::string VELDBusCmnComponent<W, S>::GetChannelId()
{
    const VELDString custom = GetStringProperty("custom_channel");
    if (custom.Length() > 0) {
        ReportWarning("The channel identifier used is configured in the property \"custom_channel\"!", 0);
        return custom.Beginning();
    }
    return SelectedChannel().Beginning();
}

template <class W, class S>
void VELDBusCmnComponent<W, S>::CheckHighSpeedConnection(bool supported)
{
    if (!HasProperty("high_speed")) return;
    const bool selected = GetBoolProperty("high_speed");
    if (selected && !supported)
        ReportWarning("The Data Replay property \"high_speed\" is selected, but the high-speed connection is not "
                      "supported by the selected channel!",
                      0);
    else if (!selected && supported)
        ReportWarning("The Data Replay property \"high_speed\" is not selected, but the high-speed connection is "
                      "supported by the selected channel!",
                      0);
}

// ---------------------------------------------------------------------------
// Lifecycle

template <class W, class S>
void VELDBusCmnComponent<W, S>::Birth()
{
    m_isInitialized = false;
    m_replayStreamFailed = false;
    m_logStartTime = m_replayStartTime = m_replayStopTime = m_replayEofTime = -1;

    if (SelectedChannel().Length() == 0 && GetStringProperty("custom_channel").Length() == 0)
        Error("No valid channel has been selected", 1, ErrorGeneric);
    if (m_isSimTimeProvider) ReportInfo(Quoted("\"", ModelName(), "\" is the data replay time provider."), 0);

    try {
        m_pNxApiWrapper.reset(new W(m_apiSettings));
    } catch (const std::exception& e) {
        // Discovery failed while the wrapper looked for its channel.
        Error(e.what(), 1, ErrorGeneric);
    }

    bool supported = false;
    NxBusError result = m_pNxApiWrapper->Initialize(&supported);
    if (result.errorCode != 0) {
        if (result.severity == NxBusErrorSeverity::Error)
            Error(WrapperMessage(result), 1, ErrorGeneric);
        else
            ReportWarning(WrapperMessage(result), 0);
    }
    if (m_dataReplayEnabled) CheckHighSpeedConnection(supported);

    MetaSchedule().Begin();
    m_timeSpeed = VELD::TimeSpeed();

    if (IsSynchronizedReplay() || m_isSimTimeProvider) {
        VELDCouple<bool, unsigned long> started = CreateThread(&ReadThreadBusMetaInfoInit, this);
        if (!started.first()) Error("Failed to create a thread for ReadThreadBusMetaInfoInit", 1, ErrorGeneric);
    }
}

template <class W, class S>
void VELDBusCmnComponent<W, S>::Core()
{
    if (!IsSynchronizedReplay()) return;

    VELDInput& logStart = Input("iLogStartTime");
    VELDInput& replayStart = Input("iReplayStartTime");
    VELDInput& replayStop = Input("iReplayStopTime");
    VELDInput& replayEof = Input("iReplayEofTime");

    if (!logStart.IsConnected()) {
        Error("The Input \"Logging Start Time\" must be connected!", 1, ErrorGeneric);
    } else if (m_logStartTime == -1) {
        m_logStartTime = ReadTimeInput("iLogStartTime");
        if (m_logStartTime != -1 && !replayStart.IsConnected()) {
            NxBusError result = m_pNxApiWrapper->SetLogStartTime(m_logStartTime);
            if (result.errorCode != 0) {
                if (result.severity == NxBusErrorSeverity::Error)
                    Error(WrapperMessage(result), 1, ErrorGeneric);
                else
                    Error("The input \"Replay Start Time\" must be connected!", 1, ErrorGeneric);
            }
        }
    }
    if (replayStart.IsConnected() && m_replayStartTime == -1) m_replayStartTime = ReadTimeInput("iReplayStartTime");
    if (replayStop.IsConnected() && m_replayStopTime == -1) {
        m_replayStopTime = ReadTimeInput("iReplayStopTime");
        if (m_replayStopTime != -1)
            FailOn(m_pNxApiWrapper->SetReplayStopTime(static_cast<std::uint64_t>(m_replayStopTime)));
    }
    if (replayEof.IsConnected() && DataAvailableInFIFO(replayEof) && m_replayEofTime == -1) {
        m_replayEofTime = ReadTimeInput("iReplayEofTime");
        if (m_replayEofTime != -1) m_pNxApiWrapper->SetReplayEofTime(static_cast<std::uint64_t>(m_replayEofTime));
    }

    if (m_isInitialized || m_logStartTime == -1 || m_replayStartTime == -1) return;
    FailOn(m_pNxApiWrapper->SetReplayStartTime(static_cast<std::uint64_t>(m_replayStartTime),
                                               static_cast<std::uint64_t>(m_logStartTime)));
    m_isInitialized = true;
}

template <class W, class S>
void VELDBusCmnComponent<W, S>::Death()
{
    m_pNxApiWrapper.reset();
}

// ---------------------------------------------------------------------------
// The meta thread

template <class W, class S>
void VELDBusCmnComponent<W, S>::ReadThreadBusMetaInfoInit(void* component)
{
    static_cast<VELDBusCmnComponent*>(component)->ReadThreadBusMetaInfo();
}

template <class W, class S>
void VELDBusCmnComponent<W, S>::ReadThreadBusMetaInfo()
{
    const bool synchronized = IsSynchronizedReplay();
    VELDPeriodicSchedule schedule = MetaSchedule();
    while (!IsDying()) {
        // Elements carry the time at which the wait began; a jump restarts
        // the schedule there too.
        const VELDTimestamp now = VELD::CurrentTime(true, true);
        if (schedule.WaitDue(now)) {
            if (synchronized) WriteReplayStateInfoToOutput(now);
            if (m_isSimTimeProvider) WriteSimTimeToOutput(now);
        }
        schedule.Advance(m_pollingPeriod);
    }
}

template <class W, class S>
void VELDBusCmnComponent<W, S>::WriteReplayStateInfoToOutput(VELDTimestamp ts)
{
    VELDIOElt* element = StartWriting(Output("oReplayStateInfo"));
    if (!element) return;
    FailOn(m_pNxApiWrapper->GetReplayStateInfo(static_cast<NxBusReplayStateInfo*>(element->Data())));
    element->Timestamp() = ts;
    StopWriting(element);
}

template <class W, class S>
void VELDBusCmnComponent<W, S>::WriteSimTimeToOutput(VELDTimestamp ts)
{
    if (!m_isSimTimeProvider) return;
    VELDIOElt* element = StartWriting(Output("oSimTime"));
    if (!element) return;
    std::uint64_t hardwareTime = 0;
    FailOn(m_pNxApiWrapper->GetHardwareTime(&hardwareTime));
    *element->Integer64(0) = static_cast<VELDInt64>(hardwareTime);
    element->Timestamp() = ts;
    StopWriting(element);
}

// ---------------------------------------------------------------------------
// The push thread of an injection component's synchronised replay

template <>
NxBusError VELDBusCmnComponent<NxCanApiWrapper, NxCanApiWrapperSettings>::PushReplay(bool endOfFile)
{
    return m_pNxApiWrapper->TransmitMessagesPushing(endOfFile);
}

template <>
NxBusError VELDBusCmnComponent<NxEthApiWrapper, NxEthApiWrapperSettings>::PushReplay(bool endOfFile)
{
    return m_pNxApiWrapper->TransmitFramesPushing(endOfFile);
}

template <class W, class S>
void VELDBusCmnComponent<W, S>::StartPushThread(void (*entry)(void*))
{
    if (!IsSynchronizedReplay()) return;
    VELDCouple<bool, unsigned long> started = CreateThread(entry, this);
    if (!started.first()) Error("Failed to create a thread for TransmitPushingInit", 1, ErrorGeneric);
}

template <class W, class S>
void VELDBusCmnComponent<W, S>::PushReplayStream(VELDPeriodicSchedule schedule, VELDDelay period,
                                                 const std::atomic<bool>& dataAvailable)
{
    VELDString failure;
    try {
        while (!IsDying() && failure.Length() == 0) {
            if (schedule.WaitDue()) {
                const bool endOfData = m_pNxApiWrapper->GetReplayEofTime() != 0 && !dataAvailable;
                failure = WrapperMessage(PushReplay(endOfData));
                if (endOfData) break;
            }
            schedule.Advance(period);
        }
    } catch (const std::exception& e) {
        failure = e.what();
    }
    if (failure.Length() == 0) return;
    m_replayStreamFailed = true;
    Die();
    Error(failure, 1, ErrorGeneric);
}

template <class W, class S>
VELDString VELDBusCmnComponent<W, S>::FinalPush()
{
    if (!m_pNxApiWrapper || !IsSynchronizedReplay() || m_replayStreamFailed) return VELDString();
    try {
        return WrapperMessage(PushReplay(true));
    } catch (const std::exception& e) {
        return VELDString(e.what());
    }
}

// ---------------------------------------------------------------------------
// Time callbacks: what a component without a worker of its own inherits

template <class W, class S>
void VELDBusCmnComponent<W, S>::CallbackTimeJumped(VELDTimestamp)
{
    if (IsStarted()) MetaSchedule().HandOverJump();
}

template <class W, class S>
void VELDBusCmnComponent<W, S>::CallbackTimeSpeedChanged(int newSpeed)
{
    if (!IsStarted()) return;
    // Going forward again is a jump for the schedule.
    if (m_timeSpeed < 0 && newSpeed > 0) MetaSchedule().HandOverJump();
    m_timeSpeed = newSpeed;
}

template <class W, class S>
void VELDBusCmnComponent<W, S>::CallbackTimePaused(bool)
{
}

template class VELDBusCmnComponent<NxCanApiWrapper, NxCanApiWrapperSettings>;
template class VELDBusCmnComponent<NxEthApiWrapper, NxEthApiWrapperSettings>;
