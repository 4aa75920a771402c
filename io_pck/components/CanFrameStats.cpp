// CanFrameStats: counts the CAN frames that reach it and measures how late
// they come, as FrameTally.h tells. Made for the frames of a CanGenerator,
// whose counter stands in the first four payload bytes. The latency means
// the time from the frame's reception by the hardware to its arrival here
// when the frames carry hardware time on the engine's clock.
#include "CanRecords.h"
#include "FrameTally.h"
#include "ModelTables.h"
#include "veld_io_elt.h"

namespace veldor_io {
namespace {

class CanFrameStats : public VELDModel<CanFrameStats> {
public:
    using VELDModel::VELDModel;

    void Birth() override { m_tally.Birth(*this); }

    void Core() override
    {
        VELDInput& input = Input(0);
        VELDIOElt* element = StartReading(input);
        if (!element) return;
        const VELDTimestamp arrival = VELD::CurrentTime(true, true);
        const int kind = KindOf(*element);
        const int n = kind < 0 ? 0 : element->VectorSize();
        for (int i = 0; i < n; ++i) {
            const FrameView frame = ViewOf(*element, kind, i);
            m_tally.Frame(CounterOf(frame), frame.ts, arrival);
        }
        StopReading(input);
        m_tally.Element(*this, n, arrival);
    }

    void Death() override { m_tally.Death(*this); }

private:
    FrameTally m_tally;
};

VELDInputDefinition g_inputs[] = {CanInput("iCAN"), VELDInputDefinition{nullptr, 0, nullptr, 0, 0}};
std::vector<VELDPropertyDefinition> g_properties = FrameTally::Properties();

}  // namespace
}  // namespace veldor_io

VELDComponentDefinition CanFrameStatsDefinition = veldor_io::Define<veldor_io::CanFrameStats>(
    "CanFrameStats", "1.0.0", veldor_io::g_inputs, nullptr, veldor_io::g_properties.data());
VELD_DECLARE_MODEL(veldor_io::CanFrameStats, CanFrameStatsDefinition, "CanFrameStats", "1.0.0");
