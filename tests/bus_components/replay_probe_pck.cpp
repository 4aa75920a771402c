// A package for the tests of the bus components:
//   ReplayStateProbe  reads the replay state records of an injector's
//                     oReplayStateInfo and keeps what they said in its
//                     figures: the last state, frames sent and dropped, the
//                     number of records, and a mask of every state seen (bit
//                     n for state n)
//   TimeProbe         reads a 64-bit time (oSimTime): the last value, the
//                     last element's timestamp, the number of elements
#include "NxBusReplayStateInfo.h"
#include "veld.h"
#include "veld_io_elt.h"
#include "veld_model.h"

namespace {

class ReplayStateProbe : public VELDModel<ReplayStateProbe> {
public:
    using VELDModel::VELDModel;

    void Birth() override { m_seen = 0; }

    void Core() override
    {
        VELDInput& input = Input(0);
        VELDIOElt* element = StartReading(input);
        if (!element) return;
        const NxBusReplayStateInfo info = *static_cast<const NxBusReplayStateInfo*>(element->Data());
        StopReading(input);
        if (info.tReplayState < 32) m_seen |= VELDInt64(1) << info.tReplayState;
        DirectSet(Property("state"), VELDInt64(info.tReplayState));
        DirectSet(Property("states_seen"), m_seen);
        DirectSet(Property("sent"), VELDInt64(info.ui64SentFrames));
        DirectSet(Property("dropped"), VELDInt64(info.ui64Dropped));
        DirectSet(Property("records"), GetIntegerProperty("records") + 1);
    }

private:
    VELDInt64 m_seen = 0;
};

class TimeProbe : public VELDModel<TimeProbe> {
public:
    using VELDModel::VELDModel;

    void Core() override
    {
        VELDInput& input = Input(0);
        VELDIOElt* element = StartReading(input);
        if (!element) return;
        const VELDInt64 value = *element->Integer64(0);
        const VELDInt64 timestamp = element->Timestamp();
        StopReading(input);
        DirectSet(Property("value"), value);
        DirectSet(Property("timestamp"), timestamp);
        DirectSet(Property("elements"), GetIntegerProperty("elements") + 1);
    }
};

const VELDTypeFilterBase g_stateFilter(VELD::NoMask, VELD::NoType, VELD::Structure);

VELDPropertyDefinition Figure(const char* name)
{
    return VELDPropertyDefinition(name, new VELDPropertyValue(VELDInt64(0)), nullptr, false, true, true, false);
}

VELDInputDefinition g_inputs[] = {{"iState", 0, &g_stateFilter, VELD::FifoReader, 1}, {nullptr, 0, nullptr, 0, 0}};
VELDInputDefinition g_timeInputs[] = {{"iTime", 0, &VELD::FilterInteger64, VELD::FifoReader, 1},
                                      {nullptr, 0, nullptr, 0, 0}};
VELDPropertyDefinition g_timeProperties[] = {Figure("value"), Figure("timestamp"), Figure("elements"),
                                             VELDPropertyDefinition()};
VELDPropertyDefinition g_properties[] = {Figure("state"),   Figure("states_seen"), Figure("sent"),
                                         Figure("dropped"), Figure("records"),     VELDPropertyDefinition()};

}  // namespace

VELDComponentDefinition ReplayStateProbeDefinition = {
    "ReplayStateProbe", "1.0.0", &ReplayStateProbe::Instantiate, nullptr, nullptr, 0, 0xFFFFFFFFu, g_inputs, 0,
    nullptr, 0xFFFFFFFFu, g_properties, 0, nullptr, 128, VELD::Threaded, true, 0};
VELD_DECLARE_MODEL(ReplayStateProbe, ReplayStateProbeDefinition, "ReplayStateProbe", "1.0.0");

VELDComponentDefinition TimeProbeDefinition = {
    "TimeProbe", "1.0.0", &TimeProbe::Instantiate, nullptr, nullptr, 0, 0xFFFFFFFFu, g_timeInputs, 0,
    nullptr, 0xFFFFFFFFu, g_timeProperties, 0, nullptr, 128, VELD::Threaded, true, 0};
VELD_DECLARE_MODEL(TimeProbe, TimeProbeDefinition, "TimeProbe", "1.0.0");
