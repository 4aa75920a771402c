// EthPrinter: one readable line per Ethernet frame of a PCAP stream, on
// standard output or into a file:
//
//   (12.345678) 02:00:00:00:00:01 > 02:00:00:00:00:02 [60] ethertype 0x88B5
//   (12.345920) 02:00:00:00:00:01 > 02:00:00:00:00:02 [1514] IPv4 10.0.0.1:30501 > 10.0.0.2:30501 UDP 4008 id 7 frag 0+1480 MF
//   (12.346100) ... [594] IPv4 10.0.0.1 > 10.0.0.2 proto 17 id 7 frag 2960+560
//   (12.346200) ... [1514] IPv4 10.0.0.1:30501 > 10.0.0.2:30501 UDP 1464 SOME/IP 0x12348001 session 3 type 0x22 TP 0+1440 more
//
// The packet time, source and destination, the length ([caplen/len] when
// less was captured), and what the frame carries: its EtherType, or IPv4
// addresses (with ports for UDP), UDP payload length, fragment id, offset
// and size, SOME/IP message id, session, type and TP segment. With
// dump_bytes the first that many bytes follow in hex after " |" (-1: all).
// With element_info each line also tells the element: its timestamp and the
// frame's place in it, "  elt=12.345000 #0/4".
#include "ModelTables.h"
#include "PcapElements.h"
#include "PrintedLines.h"

namespace veldor_io {
namespace {

class EthPrinter : public VELDpcap_component {
public:
    EthPrinter(const char* name, VELDComponentDefinition& definition)
        : VELDComponent(name, definition), VELDpcap_component(name, definition)
    {
    }
    VELD_MODEL_INSTANTIATE(EthPrinter)

    void Birth() override
    {
        m_linkTypeTold = false;
        m_out.Open(*this);
        m_elementInfo = GetBoolProperty("element_info");
        m_dump = static_cast<int>(GetIntegerProperty("dump_bytes"));
    }

    void Core() override
    {
        const int n = ReadPcapElement(*this, Input(0), m_linkTypeTold, [&](const PcapFrame& frame) {
            m_out.Put("(" + FormatTime(frame.time) + ") " + FormatEthFrame(frame.view, m_dump) +
                      (m_elementInfo ? ElementInfo(frame.elementTime, frame.index, frame.count) : std::string()));
        });
        if (n > 0) m_out.Printed(*this, n);
    }

    void Death() override { m_out.Close(); }

private:
    LineFile m_out;
    bool m_elementInfo = false;
    bool m_linkTypeTold = false;
    int m_dump = 0;
};

VELDInputDefinition g_inputs[] = {PcapInput("iEth"), VELDInputDefinition{nullptr, 0, nullptr, 0, 0}};
VELDPropertyDefinition g_properties[] = {Setting("file", new VELDPropertyValue("")),
                                         Setting("element_info", new VELDPropertyValue(false)),
                                         Setting("dump_bytes", new VELDPropertyValue(VELDInt64(0))),
                                         Figure("printed"), VELDPropertyDefinition()};

}  // namespace
}  // namespace veldor_io

VELDComponentDefinition EthPrinterDefinition = veldor_io::Define<veldor_io::EthPrinter>(
    "EthPrinter", "1.0.0", veldor_io::g_inputs, nullptr, veldor_io::g_properties);
VELD_DECLARE_MODEL(veldor_io::EthPrinter, EthPrinterDefinition, "EthPrinter", "1.0.0");
