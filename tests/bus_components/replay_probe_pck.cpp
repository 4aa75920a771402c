// A package for the tests of the bus components: TimeProbe reads a 64-bit
// time (oSimTime) and keeps the last value, the last element's timestamp and
// the number of elements in its figures.
#include "veld.h"
#include "veld_io_elt.h"
#include "veld_model.h"

namespace {

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

VELDPropertyDefinition Figure(const char* name)
{
    return VELDPropertyDefinition(name, new VELDPropertyValue(VELDInt64(0)), nullptr, false, true, true, false);
}

VELDInputDefinition g_timeInputs[] = {{"iTime", 0, &VELD::FilterInteger64, VELD::FifoReader, 1},
                                      {nullptr, 0, nullptr, 0, 0}};
VELDPropertyDefinition g_timeProperties[] = {Figure("value"), Figure("timestamp"), Figure("elements"),
                                             VELDPropertyDefinition()};

}  // namespace

VELDComponentDefinition TimeProbeDefinition = {
    "TimeProbe", "1.0.0", &TimeProbe::Instantiate, nullptr, nullptr, 0, 0xFFFFFFFFu, g_timeInputs, 0,
    nullptr, 0xFFFFFFFFu, g_timeProperties, 0, nullptr, 128, VELD::Threaded, true, 0};
VELD_DECLARE_MODEL(TimeProbe, TimeProbeDefinition, "TimeProbe", "1.0.0");
