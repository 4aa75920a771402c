// CanReplayStatus: what an injector's replay state records (oReplayStateInfo)
// say, kept in figures for whoever drives the diagram: state (the bus
// library's replay state: 0 unknown, 1 scheduled, 2 started, 3 stopped at
// the stop time, 4 ended with the end of data, 5 flushed), sent, dropped,
// failed, error_data, records (how many records came), and states_seen (a
// mask of every state that came: bit n for state n).
#include "ModelTables.h"
#include "NxBusReplayStateInfo.h"
#include "veld_io_elt.h"

namespace veldor_io {
namespace {

class CanReplayStatus : public VELDModel<CanReplayStatus> {
public:
    using VELDModel::VELDModel;

    void Birth() override { m_records = m_seen = 0; }

    void Core() override
    {
        VELDInput& input = Input(0);
        VELDIOElt* element = StartReading(input);
        if (!element) return;
        const NxBusReplayStateInfo info = *static_cast<const NxBusReplayStateInfo*>(element->Data());
        StopReading(input);
        DirectSet(Property("sent"), VELDInt64(info.ui64SentFrames));
        DirectSet(Property("dropped"), VELDInt64(info.ui64Dropped));
        DirectSet(Property("failed"), VELDInt64(info.ui64SendFailed));
        DirectSet(Property("error_data"), VELDInt64(info.ui64ErrorData));
        DirectSet(Property("records"), ++m_records);
        if (info.tReplayState < 32) m_seen |= VELDInt64(1) << info.tReplayState;
        DirectSet(Property("states_seen"), m_seen);
        // Last: a reader that sees the final state sees the counts with it.
        DirectSet(Property("state"), VELDInt64(info.tReplayState));
    }

private:
    VELDInt64 m_records = 0;
    VELDInt64 m_seen = 0;
};

const VELDTypeFilterBase g_structures(VELD::NoMask, VELD::NoType, VELD::Structure);

VELDInputDefinition g_inputs[] = {{"iReplayStateInfo", 0, &g_structures, VELD::FifoReader, 1},
                                  VELDInputDefinition{nullptr, 0, nullptr, 0, 0}};
VELDPropertyDefinition g_properties[] = {Figure("state"),  Figure("sent"),       Figure("dropped"),
                                         Figure("failed"), Figure("error_data"), Figure("records"),
                                         Figure("states_seen"), VELDPropertyDefinition()};

}  // namespace
}  // namespace veldor_io

VELDComponentDefinition CanReplayStatusDefinition = veldor_io::Define<veldor_io::CanReplayStatus>(
    "CanReplayStatus", "1.0.0", veldor_io::g_inputs, nullptr, veldor_io::g_properties);
VELD_DECLARE_MODEL(veldor_io::CanReplayStatus, CanReplayStatusDefinition, "CanReplayStatus", "1.0.0");
