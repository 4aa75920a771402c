// CaptureFileRecorder: writes any set of Ethernet and CAN streams into one
// capture file: a .pcapng file of any mix, one interface block per input
// with the channel's name (if_name) and nanosecond resolution, which
// Wireshark opens and decodes; or a .pcap file of one Ethernet stream.
//
// Inputs. `channels` lists them, "<name>:<eth|can>" joined by ",", e.g.
// "NVX-CAN-2:can,NVX-ETH-2:eth"; setting it declares one input per entry, in
// order: "iEth<k>" of PCAP stream elements (VELDpcap_data_t, link type 1)
// for eth, "iCan<k>" of any of the three CAN records for can, k counting
// from 0 for each kind. Frames are written as they arrive, every input's
// own in their order.
//
// Times. With time_base "Wall clock" (the default) a frame's time on the
// engine's clock is moved onto the calendar by the offset between the
// system's real-time clock and the engine's time, taken at birth; "Engine
// time" writes the times as they are. Ethernet frames take theirs from their
// packet headers, CAN frames from their records.
//
// The flush each flush_period, the close that loses nothing on a stop and a
// failing file are those every file recorder shares (FileRecorderModel.h),
// as are the figures recorded (all frames), refused (frames the file can't
// hold, and those of elements of another link type; the first one told),
// first_time, last_time (microseconds) and idle. Its own: recorded_<input>.
#include <string>
#include <vector>

#include "FileRecorderModel.h"
#include "LogFrames.h"
#include "PcapElements.h"
#include "pcap_log/PacketWriter.h"

namespace veldor_io {
namespace {

using veldor::pcaplog::CaptureFormat;
using veldor::pcaplog::Interface;
using veldor::pcaplog::PacketWriter;
using veldor::pcaplog::WriteResult;

// The most inputs one element read waits on.
const std::size_t kMaxChannels = 32;

const VELDInputDefinition g_ethInput = PcapInput("iEth");
const VELDInputDefinition g_canInput = CanInput("iCan");
const VELDPropertyDefinition g_recordedFigure = Figure("recorded_");

struct Channel {
    std::string name;
    bool ethernet = true;
    std::string input;
};

// The channels of the setting, with their inputs; an entry that is no
// "<name>:<eth|can>" is left out and told in `wrong`.
std::vector<Channel> ChannelsOf(const std::string& setting, std::string* wrong = nullptr)
{
    std::vector<Channel> channels;
    int counts[2] = {0, 0};
    for (const std::string& entry : ListedIn(setting)) {
        const std::size_t colon = entry.rfind(':');
        const std::string kind = colon == std::string::npos ? "" : Trimmed(entry.substr(colon + 1));
        Channel channel;
        channel.name = Trimmed(entry.substr(0, colon == std::string::npos ? 0 : colon));
        channel.ethernet = kind == "eth";
        if (channel.name.empty() || (kind != "eth" && kind != "can")) {
            if (wrong && wrong->empty()) *wrong = entry;
            continue;
        }
        channel.input = (channel.ethernet ? "iEth" : "iCan") + std::to_string(counts[channel.ethernet]++);
        channels.push_back(channel);
    }
    return channels;
}

// What an input writes into.
struct Lane {
    std::uint32_t interface = 0;
    bool ethernet = true;
    VELDProperty* figure = nullptr;
    VELDInt64 recorded = 0;
};

class CaptureFileRecorder : public FileRecorderModel<CaptureFileRecorder, PacketWriter>, public VELDpcap_class {
public:
    using FileRecorderModel::FileRecorderModel;

    void FatalError(const char* text) override { Error(text, 1, ErrorGeneric); }

    void Dynamic() override
    {
        for (const Channel& channel : ChannelsOf(GetStringProperty("channels").Beginning())) {
            NewInput(channel.ethernet ? g_ethInput : g_canInput, channel.input.c_str());
            NewProperty(g_recordedFigure, ("recorded_" + channel.input).c_str());
        }
    }

    void Birth() override
    {
        const std::string path = GetStringProperty("file").Beginning();
        const auto refuse = [&](const std::string& why) {
            Error(("cannot record into " + path + ": " + why).c_str(), 1, ErrorGeneric);
        };
        std::string wrong;
        const std::vector<Channel> channels = ChannelsOf(GetStringProperty("channels").Beginning(), &wrong);
        if (!wrong.empty()) refuse("the channel \"" + wrong + "\" is not <name>:<eth|can>");
        if (channels.empty()) refuse("no channel to record: set channels");
        if (channels.size() > kMaxChannels) refuse("at most " + std::to_string(kMaxChannels) + " channels");
        if (veldor::pcaplog::CaptureFormatOf(path) == CaptureFormat::Pcap &&
            (channels.size() != 1 || !channels.front().ethernet))
            refuse("a .pcap file holds one Ethernet channel; record these into a .pcapng file");
        std::vector<Interface> interfaces;
        m_lanes.clear();
        for (const Channel& channel : channels) {
            Interface interface;
            interface.name = channel.name;
            interface.linkType =
                channel.ethernet ? veldor::pcaplog::kLinkTypeEthernet : veldor::pcaplog::kLinkTypeSocketCan;
            interfaces.push_back(interface);
            Lane lane;
            lane.interface = static_cast<std::uint32_t>(m_lanes.size());
            lane.ethernet = channel.ethernet;
            lane.figure = &Property(("recorded_" + channel.input).c_str());
            DirectSet(*lane.figure, VELDInt64(0));
            m_lanes.push_back(lane);
        }
        m_offset = GetIntegerProperty("time_base") == 0 ? WallClockOffset() : 0;
        std::string error;
        m_writer = veldor::pcaplog::OpenPacketWriter(path, interfaces, error);
        if (!m_writer) Error(error.c_str(), 1, ErrorGeneric);
        StartRecording(path);
    }

    void Core() override
    {
        int input = 0;
        VELDIOElt* element = NextElement(input);
        if (!element) return;
        Lane& lane = m_lanes[static_cast<std::size_t>(input)];
        if (lane.ethernet) {
            RecordPackets(*element, lane);
        } else {
            const int kind = KindOf(*element);
            const int n = kind < 0 ? 0 : element->VectorSize();
            for (int i = 0; i < n; ++i) {
                const veldor::canlog::CanFrame frame = ToLogFrame(ViewOf(*element, kind, i), kind, m_offset);
                Count(m_writer->Write(lane.interface, frame), lane, frame.timestamp);
            }
        }
        Done(input);
    }

private:
    void RecordPackets(VELDIOElt& element, Lane& lane)
    {
        const auto* record = static_cast<const VELDpcap_data_t*>(element.Data());
        if (!record) return;
        if (record->link_type != VELDpcapLinkTypeEthernet) {
            CountRefused("frames of link type " + std::to_string(record->link_type) +
                             " can't go onto an Ethernet interface of " + m_path + "; such frames are counted as refused",
                         record->nb_packets);
            return;
        }
        pcap_data_reader reader(this, record);
        pkthdr header;
        const std::uint8_t* data = nullptr;
        const VELDpcap_packet_header_t* packed = nullptr;
        veldor::pcaplog::Packet packet;
        packet.interface = lane.interface;
        while (reader.get_next_packet(header, data, packed) == 0) {
            const VELDTimestamp time = PacketTime(header) + m_offset;
            packet.time = time * 1000;
            packet.capturedLength = header.caplen;
            packet.originalLength = header.len;
            packet.data = data;
            Count(m_writer->Write(packet), lane, time);
        }
    }

    void Count(WriteResult result, Lane& lane, VELDTimestamp time)
    {
        Took(result, time);
        if (result == WriteResult::Written) ++lane.recorded;
    }

    void PublishOwn() override
    {
        for (const Lane& lane : m_lanes) DirectSet(*lane.figure, lane.recorded);
    }

    std::vector<Lane> m_lanes;  // by input
    VELDTimestamp m_offset = 0;
};

std::vector<VELDPropertyDefinition> g_properties =
    RecorderProperties({Setting("file", new VELDPropertyValue("")), Setting("channels", new VELDPropertyValue("")),
                        Setting("time_base", new VELDPropertyValue("Wall clock|Engine time", VELDInt32(0)))},
                       {});

}  // namespace
}  // namespace veldor_io

VELDComponentDefinition CaptureFileRecorderDefinition = veldor_io::Define<veldor_io::CaptureFileRecorder>(
    "CaptureFileRecorder", "1.0.0", nullptr, nullptr, veldor_io::g_properties.data());
VELD_DECLARE_MODEL(veldor_io::CaptureFileRecorder, CaptureFileRecorderDefinition, "CaptureFileRecorder", "1.0.0");
