// NxCanMonitoring: reads CAN and CAN FD frames from one channel onto oCAN,
// as classic, FD or universal frame records, one frame an element or one
// read of the receive queue an element. A reader thread of its own does all
// frame work, woken by the channel's reception event or at a fixed sampling
// period; the main thread only keeps the component alive.
#ifndef VELD_NX_CAN_MONITORING_H
#define VELD_NX_CAN_MONITORING_H

#include <atomic>
#include <cstdint>
#include <vector>

#include "NxCanApiWrapper.h"
#include "NxCanApiWrapperSettings.h"
#include "veld_dynamic_io_models.h"
#include "veld_model.h"
#include "veld_nxa_Bus.h"

class VELDNxCanMonitoring : public VELDBusCmnComponent<NxCanApiWrapper, NxCanApiWrapperSettings> {
public:
    typedef VELDBusCmnComponent<NxCanApiWrapper, NxCanApiWrapperSettings> Base;

    // The most frames one element holds, and one read passes on.
    static const std::uint32_t kMaxFramesPerRead = 256;

    VELDNxCanMonitoring(const char* name, VELDComponentDefinition& definition);
    ~VELDNxCanMonitoring() override;

    VELD_MODEL_INSTANTIATE(VELDNxCanMonitoring)

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

    void ResetDynamicAttributes();
    VELDInput& NewDynamicInput(const char* name, VELDTypeInfoValue type, const char* typeName, int readerType);
    VELDOutput& NewDynamicOutput(const char* name, VELDTypeInfoValue type, const char* typeName);
    std::vector<VELD::DynamicInputModel*> DynamicInputModels() { return m_dynamicInputModels.Models(); }
    std::vector<VELD::DynamicOutputModel*> DynamicOutputModels() { return m_dynamicOutputModels.Models(); }
    std::vector<VELDInput*> DynamicInputs() { return m_dynamicInputModels.Inputs(); }
    std::vector<VELDOutput*> DynamicOutputs() { return m_dynamicOutputModels.Outputs(); }

    void StartRxThreads();
    NxCanApiWrapperSettings RetrieveApiSettings();
    void WriteCanMassagesToOutput(VELDTimestamp readTime, VELDTimestamp timeOffset);
    static void ReadThreadPollingInit(void* component);
    static void ReadThreadEventBasedInit(void* component);
    void ReadThreadPolling();
    void ReadThreadEventBased();

    uint32_t GetBaudRateProperty();
    uint32_t GetArbitrationBaudRateProperty();
    uint32_t GetStandardFilterCodeProperty();
    uint32_t GetStandardFilterMaskProperty();
    uint32_t GetExtendedFilterCodeProperty();
    uint32_t GetExtendedFilterMaskProperty();

    template <class T>
    void WriteFramesToOutput(const NXSCanMessage* messages, VELDUInt32 count, VELDTimestamp readTime,
                             VELDTimestamp timeOffset);
    template <class T>
    void WriteVectorizedFramesToOutput(const NXSCanMessage* messages, VELDUInt32 count, VELDTimestamp readTime,
                                       VELDTimestamp timeOffset);
    template <class T>
    void WriteNonVectorizedFramesToOutput(const NXSCanMessage* messages, VELDUInt32 count, VELDTimestamp readTime,
                                          VELDTimestamp timeOffset);

    static VELDInputDefinition inputsDefinition[];
    static VELDOutputDefinition outputsDefinition[];
    static VELDPropertyDefinition propertiesDefinition[];
    static VELDActionDefinition actionsDefinition[];

private:
    // The timing pair of one wake-up of a reader thread, by ts_behavior:
    // false once the selection turned out to be unknown (the thread ends).
    struct Timing {
        VELDInt64 behavior;
        bool first;
        VELDTimestamp offset;
    };
    bool ReadAndWrite(Timing& timing);
    // The polling thread's schedule and its jump handshake.
    VELDPeriodicSchedule ReadSchedule();
    bool IsPolling() { return GetIntegerProperty("sampling_mode") == Polling; }

    VELD::DynamicInputModelSet m_dynamicInputModels;
    VELD::DynamicOutputModelSet m_dynamicOutputModels;
    bool m_isFd;
    bool m_vectorizeFrames;
    std::atomic<int> m_timeSpeed;  // also read by the time thread
    VELDEvent m_timeJumped;
    VELDEvent m_timeJumpedHandled;
    VELDTimestamp m_readTs;
};

extern VELDComponentDefinition VELDNxCanMonitoringDefinition;

#endif
