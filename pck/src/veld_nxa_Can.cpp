// The NxCanInject component model.
#include "veld_nxa_Can.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "veld.h"
#include "veld_can_settings.h"
#include "veld_io_elt.h"
#include "veld_module_definition.h"

namespace {

VELDPropertyDefinition Row(const char* name, VELDPropertyValue* value, bool readOnly = false, int subtype = 0)
{
    return VELDPropertyDefinition(name, value, nullptr, false, false, readOnly, true, subtype);
}

const char* const kFdMismatch =
    "The input type is CAN FD, but the component is configured for CAN messages. Please, change the configuration!";

}  // namespace

// ---------------------------------------------------------------------------
// Definition

VELDInputDefinition VELDNxCanApi20::inputsDefinition[] = {
    {"iCAN", 0, &VELD::FilterAnyCANFrame, VELD::NeverSkippingReader, 1}, {nullptr, 0, nullptr, 0, 0}};
VELDOutputDefinition VELDNxCanApi20::outputsDefinition[] = {{nullptr, 0, VELDTypeInfo(), 0, 0, 0, 0}};
VELDActionDefinition VELDNxCanApi20::actionsDefinition[] = {VELDActionDefinition()};

VELDPropertyDefinition VELDNxCanApi20::propertiesDefinition[] = {
    Row("beginCanConfiguration", new VELDPropertyValue("CAN/CANFD Configuration"), true,
        VELD::PropertySubTypeBeginSubSection),
    Row("can_fd", new VELDPropertyValue(false)),
    Row("arbitration_baudrate", new VELDPropertyValue(VeldCan::kBaudrateItems, VELDInt32(VeldCan::kOneMegabaudIndex))),
    Row("data_baudrate", new VELDPropertyValue(VeldCan::kBaudrateItems, VELDInt32(VeldCan::kOneMegabaudIndex))),
    Row("endCanConfiguration", new VELDPropertyValue(true), true, VELD::PropertySubTypeEndSubSection),
    VELDPropertyDefinition()};

VELDComponentDefinition VELDNxCanApi20Definition = {"NxCanInject",
                                                    "1.2.5",
                                                    &VELDNxCanApi20::Instantiate,
                                                    nullptr,
                                                    nullptr,
                                                    0,
                                                    0,
                                                    VELDNxCanApi20::inputsDefinition,
                                                    0,
                                                    VELDNxCanApi20::outputsDefinition,
                                                    0,
                                                    VELDNxCanApi20::propertiesDefinition,
                                                    0,
                                                    VELDNxCanApi20::actionsDefinition,
                                                    128,
                                                    VELD::Threaded,
                                                    true,
                                                    0};

VELD_DECLARE_COMPONENT(VELDNxCanApi20, "VELDNxCanApi20", VELDNxCanApi20Definition, "NxCanInject", "1.2.5");

// ---------------------------------------------------------------------------
// Construction

VELDNxCanApi20::VELDNxCanApi20(const char* name, VELDComponentDefinition& definition)
    : VELDComponent(name, definition),
      Base(name, definition, true),
      m_dataAvailableInFifo(true),
      m_timeSpeed(0),
      m_writeTimeJumped(false),
      m_writeTimeJumpedHandled(false),
      m_writeTs(0)
{
    std::memset(m_pTransmitBuffer, 0, sizeof m_pTransmitBuffer);
}

VELDNxCanApi20::~VELDNxCanApi20() { Unregister(); }

// ---------------------------------------------------------------------------
// Dynamic and properties

void VELDNxCanApi20::Dynamic()
{
    Base::Dynamic();
    NewInput(inputsDefinition[0]);
    for (int i = 0; propertiesDefinition[i].name; ++i) NewProperty(propertiesDefinition[i]);
    VeldCan::WarnIfVirtual(*this,
                           "Configuration options are limited (baudrate setting, codes, and CANFD are not available)");
    if (!GetBoolProperty("can_fd")) VeldCan::ClampToClassicRates(*this);
}

void VELDNxCanApi20::Set(VELDProperty& property, const VELDEnumStruct& value)
{
    if (!VeldCan::SetDataBaudrate(*this, property, value)) Base::Set(property, value);
}

void VELDNxCanApi20::Set(VELDProperty& property, const VELDString& value)
{
    if (!VeldCan::SetDataBaudrate(*this, property, value)) Base::Set(property, value);
}

uint32_t VELDNxCanApi20::GetBaudrateProperty() { return VeldCan::DecodeBaudrate(*this, "data_baudrate"); }

uint32_t VELDNxCanApi20::GetArbitrationBaudrateProperty()
{
    return VeldCan::DecodeBaudrate(*this, "arbitration_baudrate");
}

NxCanApiWrapperSettings VELDNxCanApi20::RetrieveApiSettings()
{
    const uint32_t dataRate = GetBaudrateProperty();
    const uint32_t arbitrationRate = GetArbitrationBaudrateProperty();
    const bool canFd = GetBoolProperty("can_fd");
    const std::string ip = GetStringProperty("ip").Beginning();
    const std::string channel = GetChannelId();
    const bool isReplay = GetIntegerProperty("replay_mode") != 0;
    NxCanApiWrapperSettings settings(ip, channel, canFd, arbitrationRate, dataRate, false, isReplay);
    if (isReplay) settings.SetIsHighSpeedChannel(GetBoolProperty("high_speed"));
    return settings;
}

// ---------------------------------------------------------------------------
// Lifecycle

void VELDNxCanApi20::Birth()
{
    SetApiSettings(RetrieveApiSettings());
    Base::Birth();
    m_dataAvailableInFifo = true;
    WriteSchedule().Begin();
    m_timeSpeed = VELD::TimeSpeed();
    StartTxThreads();
}

void VELDNxCanApi20::StartTxThreads() { StartPushThread(&TransmitPushingInit); }

template <class T>
void VELDNxCanApi20::TransmitNow(const T* frames, VELDInt32 count)
{
    // The library takes at most a buffer at a time; a longer vector goes
    // out in buffers, in order.
    for (VELDInt32 done = 0; done < count;) {
        const VELDInt32 n = std::min<VELDInt32>(count - done, kTransmitBufferSize);
        CopyFrames(m_pTransmitBuffer, frames + done, n);
        FailOn(GetNxApiWrapper().TransmitMessages(m_pTransmitBuffer, static_cast<std::uint32_t>(n)));
        done += n;
    }
}

template <class T>
void VELDNxCanApi20::Forward(const T* frames, VELDInt32 count, bool synchronized)
{
    if (synchronized)
        FailOn(CopyFrames2(frames, count));
    else
        TransmitNow(frames, count);
}

void VELDNxCanApi20::Core()
{
    Base::Core();
    NxCanApiWrapper& wrapper = GetNxApiWrapper();
    if (!wrapper.IsTransmitFramesAllowed()) {
        Rest(1000);
        return;
    }
    VELDInput& input = Input("iCAN");
    if (!DataAvailableInFIFO(input)) {
        m_dataAvailableInFifo = false;
        Rest(1000);
        return;
    }
    m_dataAvailableInFifo = true;
    VELDIOElt* element = StartReading(input);
    if (!element) return;

    const bool canFd = GetBoolProperty("can_fd");
    InputCanType type = Can;
    if (VELD::TypeFilter(element->Type(), VELD::FilterCANFDFrame)) {
        if (!canFd) Error(kFdMismatch, 1, ErrorGeneric);
        type = CanFd;
    } else if (VELD::TypeFilter(element->Type(), VELD::FilterCANUniFrame)) {
        if (static_cast<const VELDCANUniFrame*>(element->Data())[0].IsFD() && !canFd)
            Error(kFdMismatch, 1, ErrorGeneric);
        type = UniversalCan;
    }

    const VELDInt32 n = element->VectorSize();
    const bool synchronized = GetIntegerProperty("replay_mode") != 0;
    try {
        switch (type) {
        case Can: Forward(element->CANFrame(0), n, synchronized); break;
        case CanFd: Forward(static_cast<const VELDCANFDFrame*>(element->Data()), n, synchronized); break;
        case UniversalCan: Forward(static_cast<const VELDCANUniFrame*>(element->Data()), n, synchronized); break;
        }
    } catch (const std::exception& e) {
        Error(e.what(), 1, ErrorGeneric);
    }
    StopReading(input);
}

void VELDNxCanApi20::Death()
{
    const VELDString failure = FinalPush();
    // The channel is released whatever the last push did.
    Base::Death();
    if (failure.Length() > 0) Error(failure, 1, ErrorGeneric);
}

// ---------------------------------------------------------------------------
// The push thread of a synchronised replay

void VELDNxCanApi20::TransmitPushingInit(void* component)
{
    static_cast<VELDNxCanApi20*>(component)->TransmitPushing();
}

void VELDNxCanApi20::TransmitPushing()
{
    PushReplayStream(WriteSchedule(), static_cast<VELDDelay>(GetIntegerProperty("replay_period")),
                     m_dataAvailableInFifo);
}

// ---------------------------------------------------------------------------
// Time callbacks

VELDPeriodicSchedule VELDNxCanApi20::WriteSchedule()
{
    return VELDPeriodicSchedule(*this, m_writeTs, m_writeTimeJumped, m_writeTimeJumpedHandled);
}

void VELDNxCanApi20::CallbackTimeJumped(VELDTimestamp)
{
    // No test of the mode: without a push thread nobody answers, and the
    // caller waits until the component dies.
    if (IsStarted()) WriteSchedule().HandOverJump();
}

void VELDNxCanApi20::CallbackTimeSpeedChanged(int newSpeed)
{
    if (!IsStarted() || m_timeSpeed >= 0 || newSpeed <= 0) return;
    WriteSchedule().HandOverJump();
    m_timeSpeed = newSpeed;
}

void VELDNxCanApi20::CallbackTimePaused(bool) {}
