// EthGenerator: Ethernet frames onto a PCAP stream output (link type 1), as
// EthFrames.h tells: plain frames, UDP datagrams, fragmented UDP or SOME/IP
// TP, each frame ending with its counter (0 for the first).
//
// Pace: `rate` frames a second on the engine's clock, or, with rate 0, as
// fast as the readers take them. Frame k is due at birth + k / rate; an
// element of frames_per_element frames (1: one frame an element) goes out
// when its last frame is due, and its timestamp is its first frame's time.
// Frame times: the due times, or, with first_timestamp set,
// first_timestamp + k / rate (k microseconds with rate 0), the times of a
// recording; unpaced without first_timestamp, the engine's time when the
// element is written.
//
// `count` frames, then it rests (0: no end); fragmented traffic completes
// the message under way. Figures: sent (frames) and messages (begun), every
// 10 ms and at the end.
#include <algorithm>
#include <memory>

#include "ModelTables.h"
#include "PcapElements.h"

namespace veldor_io {
namespace {

class EthGenerator : public VELDpcap_component {
public:
    EthGenerator(const char* name, VELDComponentDefinition& definition)
        : VELDComponent(name, definition), VELDpcap_component(name, definition)
    {
    }
    VELD_MODEL_INSTANTIATE(EthGenerator)

    void Birth() override
    {
        EthTrafficSettings settings;
        settings.traffic = static_cast<int>(GetIntegerProperty("traffic"));
        settings.frameSize = static_cast<int>(GetIntegerProperty("frame_size"));
        settings.frameSizeMax = std::max(settings.frameSize, static_cast<int>(GetIntegerProperty("frame_size_max")));
        settings.messageSize = static_cast<int>(GetIntegerProperty("message_size"));
        settings.mtu = static_cast<int>(GetIntegerProperty("mtu"));
        settings.udpPort = static_cast<std::uint16_t>(GetIntegerProperty("udp_port"));
        m_maker.reset(new EthTrafficMaker(settings));
        m_perElement = static_cast<int>(std::max<VELDInt64>(1, std::min<VELDInt64>(65535, GetIntegerProperty("frames_per_element"))));
        m_count = GetIntegerProperty("count");
        m_rate = std::max<VELDInt64>(0, GetIntegerProperty("rate"));
        m_firstTimestamp = GetIntegerProperty("first_timestamp");
        m_sent = 0;
        m_done = false;
        m_nextPublication = 0;
        m_birth = VELD::CurrentTime(true, true);
        VELDpcap_component::Birth(Output("oEth"));
        Publish();
    }

    void Core() override
    {
        if (Finished()) {
            if (!m_done) Publish();
            m_done = true;
            Rest(10000);
            return;
        }
        // The frames of this element: up to frames_per_element, and not past
        // the end (which waits for the end of a message).
        VELDInt64 n = m_perElement;
        if (m_count > 0 && m_maker->Settings().traffic < FragmentedUdp) n = std::min(n, m_count - m_sent);
        if (m_rate > 0) Wait(m_birth + Offset(m_sent + n - 1));
        const VELDTimestamp now = VELD::CurrentTime(true, true);
        {
            pcap_data_writer writer(this, Output("oEth"), VELDpcapLinkTypeEthernet, FrameTime(m_sent, now));
            for (VELDInt64 i = 0; i < n && !Finished(); ++i) {
                VELDpcap_packet_header_t header;
                header.caplen = header.len = m_maker->NextLength();
                const VELDTimestamp t = FrameTime(m_sent, now);
                header.ts_seconds = static_cast<uint64_t>(t / 1000000);
                header.ts_microseconds = static_cast<uint64_t>(t % 1000000);
                m_maker->Next(writer.reserve_next_packet(header), static_cast<std::uint32_t>(m_sent));
                ++m_sent;
            }
        }
        if (now >= m_nextPublication) {
            Publish();
            m_nextPublication = now + 10000;
        }
    }

private:
    bool Finished() const { return m_count > 0 && m_sent >= m_count && m_maker->AtMessageStart(); }
    // Frame k's distance from frame 0.
    VELDTimestamp Offset(VELDInt64 k) const { return m_rate > 0 ? k * 1000000 / m_rate : k; }
    VELDTimestamp FrameTime(VELDInt64 k, VELDTimestamp now) const
    {
        if (m_firstTimestamp != 0) return m_firstTimestamp + Offset(k);
        return m_rate > 0 ? m_birth + Offset(k) : now;
    }
    void Publish()
    {
        DirectSet(Property("sent"), m_sent);
        DirectSet(Property("messages"), static_cast<VELDInt64>(m_maker->Messages()));
    }

    std::unique_ptr<EthTrafficMaker> m_maker;
    int m_perElement = 1;
    VELDInt64 m_count = 0;
    VELDInt64 m_rate = 0;
    VELDInt64 m_firstTimestamp = 0;
    VELDInt64 m_sent = 0;
    bool m_done = false;
    VELDTimestamp m_birth = 0;
    VELDTimestamp m_nextPublication = 0;
};

VELDOutputDefinition g_outputs[] = {PcapOutput("oEth"), VELDOutputDefinition{nullptr, 0, VELDTypeInfo(), 0, 0, 0, 0}};
VELDPropertyDefinition g_properties[] = {
    Setting("traffic", new VELDPropertyValue(kEthTraffic, VELDInt32(0))),
    Setting("frame_size", new VELDPropertyValue(VELDInt64(kMinFrameSize)), "bytes"),
    Setting("frame_size_max", new VELDPropertyValue(VELDInt64(0)), "bytes"),
    Setting("message_size", new VELDPropertyValue(VELDInt64(4000)), "bytes"),
    Setting("mtu", new VELDPropertyValue(VELDInt64(1500)), "bytes"),
    Setting("udp_port", new VELDPropertyValue(VELDInt64(30501))),
    Setting("rate", new VELDPropertyValue(VELDInt64(1000)), "frames/s"),
    Setting("count", new VELDPropertyValue(VELDInt64(0))),
    Setting("frames_per_element", new VELDPropertyValue(VELDInt64(1))),
    Setting("first_timestamp", new VELDPropertyValue(VELDInt64(0)), "us"),
    Figure("sent"),
    Figure("messages"),
    VELDPropertyDefinition()};

}  // namespace
}  // namespace veldor_io

VELDComponentDefinition EthGeneratorDefinition = veldor_io::Define<veldor_io::EthGenerator>(
    "EthGenerator", "1.0.0", nullptr, veldor_io::g_outputs, veldor_io::g_properties);
VELD_DECLARE_MODEL(veldor_io::EthGenerator, EthGeneratorDefinition, "EthGenerator", "1.0.0");
