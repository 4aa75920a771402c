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

// StateSource writes `count` replay state records, the injectors' record with
// counting values, one a millisecond, stamped from `first_timestamp` on in
// steps of 1000; PcapSource writes as many elements typed as the PCAP stream
// record.
#include "NxBusReplayStateInfo.h"

namespace {

template <int Kind>
class RecordSource : public VELDModel<RecordSource<Kind>> {
public:
    using VELDModel<RecordSource<Kind>>::VELDModel;

    void Birth() override { m_written = 0; }

    void Core() override
    {
        if (m_written >= this->GetIntegerProperty("count")) {
            this->Rest(10000);
            return;
        }
        this->Rest(1000);
        VELDIOElt* element = this->StartWriting(this->Output(0));
        if (!element) return;
        NxBusReplayStateInfo info = {};
        info.ui64Timestamp = 80000 * m_written;
        info.ui64SentFrames = 10 * m_written;
        info.ui64Dropped = m_written % 3;
        info.tReplayState = static_cast<std::uint8_t>(m_written % 6);
        *static_cast<NxBusReplayStateInfo*>(element->Data()) = info;
        element->Timestamp() = this->GetIntegerProperty("first_timestamp") + 1000 * m_written;
        element->Quality() = static_cast<VELDInt32>(m_written);
        this->StopWriting(element);
        ++m_written;
    }

private:
    VELDInt64 m_written = 0;
};

using StateSource = RecordSource<0>;
using PcapSource = RecordSource<1>;

VELDPropertyDefinition g_sourceProperties[] = {
    VELDPropertyDefinition("count", new VELDPropertyValue(VELDInt64(10)), nullptr, false, false, false, false),
    VELDPropertyDefinition("first_timestamp", new VELDPropertyValue(VELDInt64(1700000000000000)), "us", false, false,
                           false, false),
    VELDPropertyDefinition()};
VELDOutputDefinition g_stateOutputs[] = {
    {"oReplayStateInfo", 0, VELDTypeInfo(VELD::Structure, "VELDBusReplayStateInfo", nullptr), 56, 16, 1, 1},
    {nullptr, 0, VELDTypeInfo(), 0, 0, 0, 0}};
VELDOutputDefinition g_pcapOutputs[] = {
    {"oEth", 0, VELDTypeInfo(VELD::DynamicStructure, "VELDpcap_data_t", nullptr), 56, 16, 1, 1},
    {nullptr, 0, VELDTypeInfo(), 0, 0, 0, 0}};

}  // namespace

VELDComponentDefinition StateSourceDefinition = {
    "StateSource", "1.0.0", &StateSource::Instantiate, nullptr, nullptr, 0, 0, nullptr, 0xFFFFFFFFu, g_stateOutputs,
    0xFFFFFFFFu, g_sourceProperties, 0, nullptr, 128, VELD::Threaded, true, 0};
VELD_DECLARE_MODEL(StateSource, StateSourceDefinition, "StateSource", "1.0.0");
VELDComponentDefinition PcapSourceDefinition = {
    "PcapSource", "1.0.0", &PcapSource::Instantiate, nullptr, nullptr, 0, 0, nullptr, 0xFFFFFFFFu, g_pcapOutputs,
    0xFFFFFFFFu, g_sourceProperties, 0, nullptr, 128, VELD::Threaded, true, 0};
VELD_DECLARE_MODEL(PcapSource, PcapSourceDefinition, "PcapSource", "1.0.0");
