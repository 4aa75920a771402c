// ReplayTimeSource: the four times a synchronised replay needs, as an
// injector's time inputs take them (64-bit microseconds):
//   oLogStartTime     log_start: the recording's time that maps to the
//                     replay start
//   oReplayStartTime  the engine's time at birth plus replay_lead
//   oReplayStopTime   the replay start plus replay_stop, or 0 (no stop)
//   oReplayEofTime    log_end, eof_delay after birth; never when log_end is 0
// The first three are written at birth. The replay start and stop written
// stand in the figures replay_start_time and replay_stop_time.
#include "ModelTables.h"
#include "veld_io_elt.h"

namespace veldor_io {
namespace {

class ReplayTimeSource : public VELDModel<ReplayTimeSource> {
public:
    using VELDModel::VELDModel;

    void Birth() override
    {
        m_birth = VELD::CurrentTime(true, true);
        m_eofWritten = false;
        const VELDInt64 start = m_birth + GetIntegerProperty("replay_lead");
        const VELDInt64 stopAfter = GetIntegerProperty("replay_stop");
        const VELDInt64 stop = stopAfter > 0 ? start + stopAfter : 0;
        DirectSet(Property("replay_start_time"), start);
        DirectSet(Property("replay_stop_time"), stop);
        Put("oLogStartTime", GetIntegerProperty("log_start"));
        Put("oReplayStartTime", start);
        Put("oReplayStopTime", stop);
    }

    void Core() override
    {
        const VELDInt64 end = GetIntegerProperty("log_end");
        if (end != 0 && !m_eofWritten &&
            VELD::CurrentTime(true, true) >= m_birth + GetIntegerProperty("eof_delay")) {
            Put("oReplayEofTime", end);
            m_eofWritten = true;
        }
        Rest(1000);
    }

private:
    void Put(const char* output, VELDInt64 value)
    {
        VELDIOElt* element = StartWriting(Output(output));
        if (!element) return;
        *element->Integer64(0) = value;
        StopWriting(element);
    }

    VELDTimestamp m_birth = 0;
    bool m_eofWritten = false;
};

VELDOutputDefinition g_outputs[] = {TimeOutput("oLogStartTime"), TimeOutput("oReplayStartTime"),
                                    TimeOutput("oReplayStopTime"), TimeOutput("oReplayEofTime"),
                                    VELDOutputDefinition{nullptr, 0, VELDTypeInfo(), 0, 0, 0, 0}};
VELDPropertyDefinition g_properties[] = {
    Setting("log_start", new VELDPropertyValue(VELDInt64(0)), "us"),
    Setting("replay_lead", new VELDPropertyValue(VELDInt64(100000)), "us"),
    Setting("replay_stop", new VELDPropertyValue(VELDInt64(0)), "us"),
    Setting("log_end", new VELDPropertyValue(VELDInt64(0)), "us"),
    Setting("eof_delay", new VELDPropertyValue(VELDInt64(0)), "us"),
    Figure("replay_start_time", "us"),
    Figure("replay_stop_time", "us"),
    VELDPropertyDefinition()};

}  // namespace
}  // namespace veldor_io

VELDComponentDefinition ReplayTimeSourceDefinition = veldor_io::Define<veldor_io::ReplayTimeSource>(
    "ReplayTimeSource", "1.0.0", nullptr, veldor_io::g_outputs, veldor_io::g_properties);
VELD_DECLARE_MODEL(veldor_io::ReplayTimeSource, ReplayTimeSourceDefinition, "ReplayTimeSource", "1.0.0");
