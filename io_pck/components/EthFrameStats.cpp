// EthFrameStats: counts the Ethernet frames of a PCAP stream and measures
// how late they come, as FrameTally.h tells, from the counter that ends each
// frame of an EthGenerator (EthFrames.h). The frame's time is its packet
// time, or with latency_reference "Element time" the time of its element.
//
// It also tells whole messages from broken ones (MessageCheck): messages
// counts unfragmented datagrams and complete fragment or TP segment sets,
// broken_messages the sets that broke off or came out of order.
#include "FrameTally.h"
#include "ModelTables.h"
#include "PcapElements.h"

namespace veldor_io {
namespace {

class EthFrameStats : public VELDpcap_component {
public:
    EthFrameStats(const char* name, VELDComponentDefinition& definition)
        : VELDComponent(name, definition), VELDpcap_component(name, definition)
    {
    }
    VELD_MODEL_INSTANTIATE(EthFrameStats)

    void Birth() override
    {
        m_tally.Birth(*this);
        m_check = MessageCheck();
        m_byElement = GetIntegerProperty("latency_reference") == 1;
        m_linkTypeTold = false;
        Publish();
    }

    void Core() override
    {
        const int n = ReadPcapElement(*this, Input(0), m_linkTypeTold, [&](const PcapFrame& frame) {
            std::uint32_t counter;
            if (EthCounterOf(frame.view, counter))
                m_tally.Frame(counter, m_byElement ? frame.elementTime : frame.time, frame.arrival);
            m_check.Frame(frame.view);
        });
        if (n < 0) return;
        if (m_tally.Element(*this, n, VELD::CurrentTime(true, true))) Publish();
    }

    void Death() override
    {
        m_tally.Death(*this);
        Publish();
    }

private:
    void Publish()
    {
        DirectSet(Property("messages"), static_cast<VELDInt64>(m_check.Messages()));
        DirectSet(Property("broken_messages"), static_cast<VELDInt64>(m_check.Broken()));
    }

    FrameTally m_tally;
    MessageCheck m_check;
    bool m_byElement = false;
    bool m_linkTypeTold = false;
};

VELDInputDefinition g_inputs[] = {PcapInput("iEth"), VELDInputDefinition{nullptr, 0, nullptr, 0, 0}};
std::vector<VELDPropertyDefinition> g_properties =
    FrameTally::Properties({Setting("latency_reference", new VELDPropertyValue("Packet time|Element time", VELDInt32(0))),
                            Figure("messages"), Figure("broken_messages")});

}  // namespace
}  // namespace veldor_io

VELDComponentDefinition EthFrameStatsDefinition = veldor_io::Define<veldor_io::EthFrameStats>(
    "EthFrameStats", "1.0.0", veldor_io::g_inputs, nullptr, veldor_io::g_properties.data());
VELD_DECLARE_MODEL(veldor_io::EthFrameStats, EthFrameStatsDefinition, "EthFrameStats", "1.0.0");
