// A package for the tests of the bus components: TimeProbe reads a 64-bit
// time (oSimTime) and keeps the last value, the last element's timestamp and
// the number of elements in its figures. EthMangler passes a PCAP stream on
// with what a recording may hold and a generator does not make: every
// foreign_every-th element (0: none) under the link type foreign_link_type,
// and with reverse, the frames of each element in reverse order while the
// packet times stay in theirs (a fragment set recorded backwards).
#include <utility>
#include <vector>

#include "pcap_data.h"
#include "veld.h"
#include "veld_io_access.h"
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

class EthMangler : public VELDpcap_component {
public:
    EthMangler(const char* name, VELDComponentDefinition& definition)
        : VELDComponent(name, definition), VELDpcap_component(name, definition)
    {
    }
    VELD_MODEL_INSTANTIATE(EthMangler)

    void Birth() override
    {
        m_elements = 0;
        VELDpcap_component::Birth(Output("oEth"));
    }

    void Core() override
    {
        VELD::InputGuard<VELDpcap_data_t> guard(this, Input("iEth"), true);
        if (!guard.IsValid()) return;
        pcap_data_reader reader(this, &guard.Data(0));
        std::vector<std::pair<VELDpcap_packet_header_t, const uint8_t*>> packets;
        pkthdr header;
        const uint8_t* data;
        const VELDpcap_packet_header_t* stored;
        while (reader.get_next_packet(header, data, stored) == 0)
            packets.emplace_back(pcap_data_writer::HeaderOf(header), data);

        const VELDInt64 every = GetIntegerProperty("foreign_every");
        const bool foreign = every > 0 && ++m_elements % every == 0;
        pcap_data_writer writer(this, Output("oEth"),
                                foreign ? static_cast<int32_t>(GetIntegerProperty("foreign_link_type")) : 1,
                                guard.Timestamp());
        const bool reverse = GetBoolProperty("reverse");
        for (std::size_t i = 0; i < packets.size(); ++i) {
            const auto& frame = packets[reverse ? packets.size() - 1 - i : i];
            VELDpcap_packet_header_t out = frame.first;
            out.ts_seconds = packets[i].first.ts_seconds;
            out.ts_microseconds = packets[i].first.ts_microseconds;
            writer.set_next_packet(out, frame.second);
        }
    }

private:
    VELDInt64 m_elements = 0;
};

VELDPropertyDefinition Setting(const char* name, VELDPropertyValue* value)
{
    return VELDPropertyDefinition(name, value, nullptr, false, false, false, false);
}

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

namespace {

VELDInputDefinition g_ethInputs[] = {{"iEth", 0, &VELDFilterPCAPStructure, VELD::NeverSkippingReader, 1},
                                     {nullptr, 0, nullptr, 0, 0}};
VELDOutputDefinition g_ethOutputs[] = {
    {"oEth", 0, VELDTypeInfo(VELDpcapTypeValue, VELDpcapTypeName, nullptr), sizeof(VELDpcap_data_t), 16, 1, 1},
    {nullptr, 0, VELDTypeInfo(), 0, 0, 0, 0}};
VELDPropertyDefinition g_ethProperties[] = {Setting("foreign_every", new VELDPropertyValue(VELDInt64(0))),
                                            Setting("foreign_link_type", new VELDPropertyValue(VELDInt64(227))),
                                            Setting("reverse", new VELDPropertyValue(false)),
                                            VELDPropertyDefinition()};

}  // namespace

VELDComponentDefinition EthManglerDefinition = {
    "EthMangler", "1.0.0", &EthMangler::Instantiate, nullptr, nullptr, 0, 0xFFFFFFFFu, g_ethInputs, 0xFFFFFFFFu,
    g_ethOutputs, 0xFFFFFFFFu, g_ethProperties, 0, nullptr, 128, VELD::Threaded, true, 0};
VELD_DECLARE_MODEL(EthMangler, EthManglerDefinition, "EthMangler", "1.0.0");
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
