// The base of the bus components: what a CAN or an Ethernet component has in
// common. It owns the choice of a hardware channel (by ip, from the list the
// bus library offers, or typed in as a custom channel), the wrapper that
// talks to the bus library from Birth to Death, the four replay time inputs
// of an injection component and the two meta outputs: the replay state and
// the simulation time, written by a thread of their own at a fixed rate.
//
// The template is instantiated once per bus kind; the wrapper type brings
// the discovery and the lifecycle, the settings type what the wrapper is
// built from. A wrapper must offer:
//   static std::vector<Info> RetrieveAvailableChannelsVector(const char* ip, bool norvexHardwareOnly);
//   static VELDString GetChannelId(const Info&);
//   static VELDString GetChannelDescription(const Info&, VELDString identifier);
//   explicit TNxApiWrapper(const TNxApiSettings&);
//   NxBusError Initialize(bool* highSpeedSupported);
//   NxBusError SetLogStartTime(std::int64_t), SetReplayStartTime(std::uint64_t replayStart, std::uint64_t logStart),
//              SetReplayStopTime(std::uint64_t), GetHardwareTime(std::uint64_t*),
//              GetReplayStateInfo(NxBusReplayStateInfo*);
//   void SetReplayEofTime(a 64-bit time);
//   std::string GetErrorMessage(const NxBusError&) const;
//
// A derived component passes dataReplayEnabled (true for injection). Its
// Dynamic calls this Dynamic first; its Birth gathers its settings, calls
// SetApiSettings and then this Birth; its Core calls this Core once a cycle;
// its Death calls this Death, which ends the wrapper.
#ifndef VELD_NXA_BUS_H
#define VELD_NXA_BUS_H

#include <atomic>
#include <memory>
#include <string>

#include "NxBusError.h"
#include "NxBusReplayStateInfo.h"
#include "veld_clock.h"
#include "veld_component.h"
#include "veld_definitions.h"
#include "veld_event.h"
#include "veld_object_types.h"
#include "veld_periodic_schedule.h"

template <class TNxApiWrapper, class TNxApiSettings>
class VELDBusCmnComponent : public virtual VELDComponent, public VELDTimeStateListener {
public:
    enum SamplingMode { EventBased = 0, Polling = 1 };

    // The item that stands for a channel typed into custom_channel; always
    // the last of the list.
    static const char* const kCustomChannel;

    VELDBusCmnComponent(const char* name, VELDComponentDefinition& definition, bool dataReplayEnabled);
    ~VELDBusCmnComponent() override;

    // ---- virtual operations, in their order ----
    void CallbackTimeJumped(VELDTimestamp newTime) override;
    void CallbackTimeSpeedChanged(int newSpeed) override;
    void CallbackTimePaused(bool paused) override;
    void Dynamic() override;
    void Birth() override;
    void Core() override;
    void Death() override;
    void Set(VELDProperty& property, bool value) override;
    void Set(VELDProperty& property, const VELDEnumStruct& value) override;
    void Set(VELDProperty& property, const VELDString& value) override;
    using VELDComponent::Set;

    void SetApiSettings(TNxApiSettings settings) { m_apiSettings = settings; }
    TNxApiWrapper& GetNxApiWrapper() { return *m_pNxApiWrapper; }
    // custom_channel when filled (with a warning), else the selected channel.
    std::string GetChannelId();
    void CheckHighSpeedConnection(bool supported);
    void SetChannelDescription(VELDString ip, VELDString channel);
    // The channels found at `ip`, "Custom channel" last; the selection of
    // `module`'s channel property is kept when it is still offered.
    static VELDEnumStruct RefreshChannels(VELDModule* module, const char* ip);
    static void RefreshInterfacesAction(VELDModule* module, int index);
    void WriteSimTimeToOutput(VELDTimestamp ts);
    void WriteReplayStateInfoToOutput(VELDTimestamp ts);
    static void ReadThreadBusMetaInfoInit(void* component);
    void ReadThreadBusMetaInfo();

    static VELDActionDefinition actionsDefinition[];
    static VELDPropertyDefinition propertiesDefinition[];
    static VELDInputDefinition inputsDefinition[];
    static VELDOutputDefinition outputsDefinition[];

protected:
    // Replay exists on this component and replay_mode says Synchronized.
    bool IsSynchronizedReplay();
    // The component's channel property: its selected text, "" without one.
    VELDString SelectedChannel();
    // The message of a wrapper error, as Error and reports show it.
    VELDString WrapperMessage(const NxBusError& error);
    // The first 64-bit integer of the next element of a time input; blocks.
    VELDInt64 ReadTimeInput(const char* name);
    // Error with the wrapper's message when `error` is a failure.
    void FailOn(const NxBusError& error);
    // Forwards to VELDComponent::Set when the property is mutable.
    template <class T>
    void SetIfMutable(VELDProperty& property, const T& value);
    // The registry steps of a channel change.
    void CheckDuplicateChannel();
    // The meta thread's schedule and its jump handshake.
    VELDPeriodicSchedule MetaSchedule();

    // How a monitor stamps what one wake-up reads, by ts_behavior:
    //   0  frames in engine time: hardware time plus an offset taken at the
    //      first wake-up (after `first` is set again, at the next one);
    //      elements bear their first frame's time
    //   1  frames and elements in hardware time
    //   2  frames in hardware time, elements at the engine's time of the read
    // ReadTime gives the read time of a wake-up (0: the elements take their
    // first frame's time) and keeps the offset; an unknown selection is an
    // Error.
    struct ReadTiming {
        VELDInt64 behavior;
        bool first;
        VELDTimestamp offset;
    };
    ReadTiming BeginReadTiming() { return ReadTiming{GetIntegerProperty("ts_behavior"), true, 0}; }
    VELDTimestamp ReadTime(ReadTiming& timing);

    // The push thread of a synchronised replay: the wrapper's push (its
    // TransmitMessagesPushing or TransmitFramesPushing) with endOfFile false at
    // every due time of `schedule`, until the end of the data is known and
    // Core last found the frame input empty; then with true, the final push,
    // which closes the stream. A component that dies meanwhile leaves without
    // it: its Death pushes last. A push that fails stops the component, as a
    // failed send does: an Error with its message, and no final push.
    void PushReplayStream(VELDPeriodicSchedule schedule, VELDDelay period, const std::atomic<bool>& dataAvailable);
    // Death's final push of a synchronised replay, if there is a wrapper and
    // its stream did not fail: the message of its failure, empty when it went
    // through.
    VELDString FinalPush();
    // One push of the wrapper's replay stream.
    NxBusError PushReplay(bool endOfFile);
    // Starts the push thread of a synchronised replay at `entry`.
    void StartPushThread(void (*entry)(void*));

    const VELDTypeFilterBase VELDBusReplayStateInfo;
    std::unique_ptr<TNxApiWrapper> m_pNxApiWrapper;
    bool m_isInitialized;
    TNxApiSettings m_apiSettings;
    bool m_isSimTimeProvider;
    VELDInt64 m_logStartTime;
    VELDInt64 m_replayStartTime;
    VELDInt64 m_replayStopTime;
    VELDInt64 m_replayEofTime;
    VELDDelay m_pollingPeriod;
    bool m_dataReplayEnabled;
    VELDIOElt* m_ioEltIn;
    int m_timeSpeed;
    VELDEvent m_timeJumped;
    VELDEvent m_timeJumpedHandled;
    VELDTimestamp m_replayStateInfoPollingTimestamp;
    VELDTimestamp m_simTimePollingTimestamp;
    // The push thread stopped the component: its stream could not be pushed.
    std::atomic<bool> m_replayStreamFailed;
};

#endif
