// NxCanInject: puts the CAN frames of its input on one channel. Set to
// Unsynchronized it sends each element at once; set to Synchronized it
// stages the frames, with their own timestamps, in the bus library's replay
// stream, which a thread of its own pushes at a fixed rate, while the base
// hands the library the recording's start and stop times.
#ifndef VELD_NXA_CAN_H
#define VELD_NXA_CAN_H

#include <atomic>

#include "NxCanApiWrapper.h"
#include "NxCanApiWrapperSettings.h"
#include "veld_model.h"
#include "veld_nxa_Bus.h"

class VELDNxCanApi20 : public VELDBusCmnComponent<NxCanApiWrapper, NxCanApiWrapperSettings> {
public:
    typedef VELDBusCmnComponent<NxCanApiWrapper, NxCanApiWrapperSettings> Base;
    enum InputCanType { Can = 0, CanFd = 1, UniversalCan = 2 };

    static const VELDUInt32 kTransmitBufferSize = 256;

    VELDNxCanApi20(const char* name, VELDComponentDefinition& definition);
    ~VELDNxCanApi20() override;

    VELD_MODEL_INSTANTIATE(VELDNxCanApi20)

    // ---- virtual operations, in their order ----
    void CallbackTimeJumped(VELDTimestamp newTime) override;
    void CallbackTimeSpeedChanged(int newSpeed) override;
    void CallbackTimePaused(bool paused) override;
    void Dynamic() override;
    void Birth() override;
    void Core() override;
    void Death() override;
    void Set(VELDProperty& property, const VELDEnumStruct& value) override;
    void Set(VELDProperty& property, const VELDString& value) override;
    using Base::Set;

    void StartTxThreads();
    static void TransmitPushingInit(void* component);
    void TransmitPushing();
    NxCanApiWrapperSettings RetrieveApiSettings();
    uint32_t GetBaudrateProperty();
    uint32_t GetArbitrationBaudrateProperty();

    template <class M, class T>
    void CopyFrames(M* messages, const T* frames, VELDInt32 count)
    {
        for (VELDInt32 i = 0; i < count; ++i) NxCanApiWrapper::CopyFrame(messages[i], frames[i]);
    }
    template <class T>
    NxBusError CopyFrames2(const T* frames, VELDInt32 count)
    {
        for (VELDInt32 i = 0; i < count; ++i) {
            NxBusError result = GetNxApiWrapper().CopyFrame2(frames[i]);
            if (result.errorCode != 0) return result;
        }
        return NxBusError();
    }

    static VELDInputDefinition inputsDefinition[];
    static VELDOutputDefinition outputsDefinition[];
    static VELDPropertyDefinition propertiesDefinition[];
    static VELDActionDefinition actionsDefinition[];

private:
    // Sends the frames of one element at once, 256 at most per call.
    template <class T>
    void TransmitNow(const T* frames, VELDInt32 count);
    template <class T>
    void Forward(const T* frames, VELDInt32 count, bool synchronized);
    // The push thread's schedule and its jump handshake.
    VELDPeriodicSchedule WriteSchedule();

    NXSCanMessage m_pTransmitBuffer[kTransmitBufferSize];
    std::atomic<bool> m_dataAvailableInFifo;  // written by Core, read by the push thread
    std::atomic<int> m_timeSpeed;             // also read by the time thread
    VELDEvent m_writeTimeJumped;
    VELDEvent m_writeTimeJumpedHandled;
    VELDTimestamp m_writeTs;
};

extern VELDComponentDefinition VELDNxCanApi20Definition;

#endif
