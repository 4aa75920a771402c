// CaptureFilePlayer: plays a capture file (.pcap or .pcapng, told apart by
// its content) of Ethernet and CAN interfaces: every interface onto an
// output of its own, all of them on one timeline, with the four times of a
// synchronised replay shared by all, so that every injector of a diagram
// replays in step with the others.
//
// Outputs. Setting `file` declares them from the file's interfaces, in file
// order: an Ethernet interface (link type 1) gets an output of PCAP stream
// elements (VELDpcap_data_t, link type 1), a CAN interface (SocketCAN, link
// type 227) an output of the CAN record that output_type names, with the
// interface's index in the universal record's channel. The output is named
// "o" and the interface's name, every character outside [A-Za-z0-9_] made
// "_", or "oIf<index>" when the interface has no name or that name is
// taken. `interfaces` tells them: "<output>=<interface name>:<eth|can>",
// joined by ",". Interfaces of other link types are told once and left out,
// and so are the interfaces that `skip` names (by interface or output name,
// comma-separated). With vectorize_frames an element carries up to 256
// frames due together, else one.
//
// Time. The pacing, the four times, max_gap, on_error and the figures are
// those every file player shares (FilePlayerModel.h), over the whole file:
// L is the file's first frame. Frames keep their recorded times (to the
// microsecond, which the records hold) in the packet headers and the CAN
// records.
//
// A synchronised Ethernet replay puts the frames through a pre-processing
// stage that holds back the last eth_held_back (9) records until more come
// or the stream ends. With send_ahead above 0 each Ethernet output is
// therefore kept that many frames ahead: a frame goes on at the latest
// send_ahead before the frame eth_held_back before it on its output is due,
// for which the player reads ahead of the other outputs (at most 10 s and
// 64 MiB); oReplayEofTime goes out once everything is handed on.
//
// Unreadable blocks and records are told with their place and passed over
// (bad_lines), or stop the player with on_error "Stop"; a file cut off plays
// what comes before the cut. A file that can't be opened, holds no
// interface to play, or no frame, fails the player's birth with one message.
//
// Figures of its own: other_objects (pcapng blocks passed over that carry no
// packet), left_out (frames of interfaces that are skipped or not played),
// and per output sent_<output>.
#include <sys/stat.h>

#include <algorithm>
#include <deque>
#include <limits>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "FilePlayerModel.h"
#include "LogFrames.h"
#include "ModelTables.h"
#include "PcapElements.h"
#include "pcap_log/PacketReader.h"
#include "veld_dynamic_io_models.h"

namespace veldor_io {
namespace {

using veldor::pcaplog::Interface;
using veldor::pcaplog::IssueKind;
using veldor::pcaplog::LinkKind;
using veldor::pcaplog::PacketReader;
using veldor::pcaplog::ReadResult;

const int kMaxVector = 256;
const int kMaxHeldBack = 64;
// How far the Ethernet outputs may read ahead of the others.
const VELDTimestamp kMaxReadAhead = 10000000;
const std::size_t kMaxHeldBytes = 64u << 20;
const VELDTimestamp kNever = std::numeric_limits<VELDTimestamp>::max() / 2;

// The figure of each output's frames, declared under its own name.
const VELDPropertyDefinition g_sentFigure = Figure("sent_");

// The interfaces of a capture file, read through it once, and kept while
// the file stays as it was.
class Layout {
public:
    // False, with the reader's message in Error(), for a file that can't be
    // played.
    bool Read(const std::string& path)
    {
        struct stat status;
        const bool known = ::stat(path.c_str(), &status) == 0;
        if (known && path == m_path && status.st_size == m_size && status.st_mtim.tv_sec == m_modified.tv_sec &&
            status.st_mtim.tv_nsec == m_modified.tv_nsec)
            return m_error.empty();
        m_path = path;
        m_size = known ? status.st_size : -1;
        m_modified = known ? status.st_mtim : timespec{};
        m_interfaces.clear();
        m_error.clear();
        std::unique_ptr<PacketReader> reader = veldor::pcaplog::OpenPacketReader(path, m_error);
        if (!reader) return false;
        veldor::pcaplog::Packet packet;
        while (reader->Next(packet) != ReadResult::End) {
        }
        m_interfaces = reader->Interfaces();
        return true;
    }

    const std::vector<Interface>& Interfaces() const { return m_interfaces; }
    const std::string& Error() const { return m_error; }

private:
    std::string m_path;
    off_t m_size = -1;
    timespec m_modified{};
    std::vector<Interface> m_interfaces;
    std::string m_error;
};

// An interface of the file that is played, and its output.
struct Route {
    std::uint32_t interface = 0;
    std::string name;    // the interface's
    std::string output;  // the output's
    bool ethernet = true;
    bool skipped = false;
};

std::string OutputName(const Interface& interface, std::set<std::string>& taken)
{
    std::string name = "o" + interface.name;
    for (std::size_t i = 1; i < name.size(); ++i) {
        const char c = name[i];
        const bool kept = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
        if (!kept) name[i] = '_';
    }
    if (interface.name.empty() || taken.count(name)) name = "oIf" + std::to_string(interface.index);
    while (taken.count(name)) name += "_";
    taken.insert(name);
    return name;
}

// The played interfaces of the file, in file order.
std::vector<Route> RoutesOf(const std::vector<Interface>& interfaces, const std::string& skip)
{
    const std::vector<std::string> listed = ListedIn(skip);
    const std::set<std::string> skipped(listed.begin(), listed.end());
    std::set<std::string> taken;
    for (const VELDOutputDefinition* time = ReplayTimeOutputs(); time->name; ++time) taken.insert(time->name);
    std::vector<Route> routes;
    for (const Interface& interface : interfaces) {
        if (interface.Kind() == LinkKind::Other) continue;
        Route route;
        route.interface = interface.index;
        route.name = interface.name;
        route.output = OutputName(interface, taken);
        route.ethernet = interface.Kind() == LinkKind::Ethernet;
        route.skipped = skipped.count(route.name) > 0 || skipped.count(route.output) > 0;
        routes.push_back(route);
    }
    return routes;
}

// A frame read, waiting to be handed on.
struct Held {
    VELDTimestamp release = 0;  // when, on the engine's clock
    std::int64_t time = 0;      // recorded, as the gaps moved it; microseconds
    std::uint32_t originalLength = 0;
    std::vector<std::uint8_t> bytes;  // Ethernet
    veldor::canlog::CanFrame can;     // CAN
};

// What goes out on one output while the player runs.
struct Stream {
    Route route;
    VELDOutput* output = nullptr;
    VELDProperty* sentFigure = nullptr;
    VELDInt64 sent = 0;
    std::deque<Held> held;
    // Ethernet: the times of its frames read, the last eth_held_back ones in
    // a ring, for the frames the replay stage holds back.
    std::vector<std::int64_t> recent;
    std::uint64_t count = 0;
    std::int64_t first = 0;
    // Slots of a PCAP output: their Buffers and offset vectors.
    std::vector<Buffer*> buffers;
    vec_vec_u64 offsets;
};

class CaptureFilePlayer : public FilePlayerModel<CaptureFilePlayer>, public VELDpcap_class {
public:
    using FilePlayerModel::FilePlayerModel;
    ~CaptureFilePlayer() override { FreeSlots(); }

    void FatalError(const char* text) override { Error(text, 1, ErrorGeneric); }

    void FreeBuffers() override
    {
        FreeSlots();
        FilePlayerModel::FreeBuffers();
    }

    void Dynamic() override
    {
        m_outputs.Reset();
        std::string told;
        const std::string path = GetStringProperty("file").Beginning();
        // A file that can't be played is told once, at birth.
        if (!path.empty() && m_layout.Read(path)) {
            const int kind = static_cast<int>(GetIntegerProperty("output_type"));
            for (const Route& route : RoutesOf(m_layout.Interfaces(), GetStringProperty("skip").Beginning())) {
                if (route.skipped) continue;
                if (route.ethernet) {
                    m_outputs.NewOutput(*this, route.output, VELDpcapTypeValue, VELDpcapTypeName);
                } else {
                    m_outputs.NewOutput(*this, route.output, TypeOf(kind) | VELD::VectorFlag, "");
                }
                NewProperty(g_sentFigure, ("sent_" + route.output).c_str());
                told += (told.empty() ? "" : ",") + route.output + "=" + route.name + (route.ethernet ? ":eth" : ":can");
            }
        }
        DirectSet(Property("interfaces"), VELDString(told.c_str()));
    }

    void Birth() override
    {
        m_kind = static_cast<int>(GetIntegerProperty("output_type"));
        m_vector = GetBoolProperty("vectorize_frames") ? kMaxVector : 1;
        m_heldBack = static_cast<int>(std::clamp<VELDInt64>(GetIntegerProperty("eth_held_back"), 0, kMaxHeldBack));
        const std::string path = GetStringProperty("file").Beginning();
        if (path.empty()) Error("nothing to play: no file is set", 1, ErrorGeneric);
        if (!m_layout.Read(path)) Error(m_layout.Error().c_str(), 1, ErrorGeneric);
        FreeSlots();
        m_streams.clear();
        m_byInterface.assign(m_layout.Interfaces().size(), -1);
        m_skippedTold.assign(m_layout.Interfaces().size(), false);
        for (const Route& route : RoutesOf(m_layout.Interfaces(), GetStringProperty("skip").Beginning())) {
            if (route.skipped) continue;
            const VELDTypeInfoValue type = route.ethernet ? VELDpcapTypeValue : TypeOf(m_kind);
            if (!HasOutput(route.output.c_str()) || !HasProperty(("sent_" + route.output).c_str()) ||
                (Output(route.output.c_str()).Type().value & ~VELD::VectorFlag) != type)
                Error((path + " changed since it was set: set the file again").c_str(), 1, ErrorGeneric);
            m_byInterface[route.interface] = static_cast<int>(m_streams.size());
            Stream& stream = m_streams.emplace_back();
            stream.route = route;
            stream.output = &Output(route.output.c_str());
            stream.sentFigure = &Property(("sent_" + route.output).c_str());
            stream.recent.assign(static_cast<std::size_t>(m_heldBack), 0);
            if (route.ethernet) {
                stream.output->AllocOutputBuffer(static_cast<int>(sizeof(VELDpcap_data_t)), true);
                VELDpcap_component::PrepareOutput(*this, *stream.output, stream.buffers, stream.offsets);
            } else {
                stream.output->AllocOutputBuffer(m_vector, true);
            }
        }
        if (m_streams.empty()) Error((path + ": every interface is skipped: nothing to play").c_str(), 1, ErrorGeneric);
        m_leftOut = m_otherLeftOut = m_otherObjects = 0;
        m_reader.reset();
        StartReplay();
    }

private:
    void Rewind() override
    {
        std::string error;
        m_reader = veldor::pcaplog::OpenPacketReader(m_path, error);
        if (!m_reader) Error(error.c_str(), 1, ErrorGeneric);
        for (Stream& stream : m_streams) {
            while (!stream.held.empty()) Drop(stream);
            stream.count = 0;
        }
        m_exhausted = !Next();
        if (m_exhausted) StopOnRecord(m_path + " holds no frame to play");
    }

    bool Advance(bool quiet) override
    {
        for (;;) {
            switch (m_reader->Next(m_packet)) {
            case ReadResult::End: return false;
            case ReadResult::Issue: {
                const veldor::pcaplog::ReadIssue& issue = m_reader->Issue();
                if (issue.kind == IssueKind::OtherLinkType) {
                    if (!quiet) ReportWarning(issue.Describe().c_str(), 0);
                } else if (!Unreadable(issue.Describe(),
                                       issue.final                        ? "; the frames before it are played"
                                       : issue.kind == IssueKind::BadOption ? ""
                                                                            : "; it is passed over",
                                       quiet)) {
                    return false;
                }
                continue;
            }
            case ReadResult::Frame: break;
            }
            const std::uint32_t interface = m_packet.interface;
            m_current = interface < m_byInterface.size() ? m_byInterface[interface] : -1;
            if (m_current < 0) {
                LeaveOut(interface, quiet);
                continue;
            }
            // Microseconds, rounded down also before the epoch.
            std::int64_t time = m_packet.time / 1000 - (m_packet.time % 1000 < 0 ? 1 : 0);
            Arrived(time, quiet);
            return true;
        }
    }

    bool Play(VELDTimestamp now) override
    {
        while (!m_exhausted && m_heldBytes < kMaxHeldBytes && ReadBound() <= now) {
            Hold(m_streams[m_current]);
            m_exhausted = !Next();
        }
        bool held = false;
        for (Stream& stream : m_streams) {
            HandOn(stream, now);
            held = held || !stream.held.empty();
        }
        return held || !m_exhausted;
    }

    VELDTimestamp WakeTime() override
    {
        VELDTimestamp wake = !m_exhausted && m_heldBytes < kMaxHeldBytes ? ReadBound() : kNever;
        for (const Stream& stream : m_streams) {
            if (!stream.held.empty()) wake = std::min(wake, stream.held.front().release);
        }
        return wake;
    }

    bool PassOver(std::int64_t target, bool) override
    {
        for (Stream& stream : m_streams) {
            while (!stream.held.empty() && stream.held.front().time < target) {
                Drop(stream);
                ++m_passedOver;
            }
        }
        while (!m_exhausted && m_time < target) {
            ++m_passedOver;
            m_exhausted = !Next();
        }
        bool held = false;
        for (const Stream& stream : m_streams) held = held || !stream.held.empty();
        return held || !m_exhausted;
    }

    std::string Place() override { return "byte " + std::to_string(m_reader->PacketOffset()); }

    void PublishOwn() override
    {
        if (m_reader) {
            m_otherObjects = std::max<VELDInt64>(m_otherObjects, static_cast<VELDInt64>(m_reader->BlocksSkipped()));
            m_otherLeftOut = std::max<VELDInt64>(m_otherLeftOut, static_cast<VELDInt64>(m_reader->PacketsLeftOut()));
        }
        DirectSet(Property("other_objects"), m_otherObjects);
        DirectSet(Property("left_out"), m_leftOut + m_otherLeftOut);
        for (Stream& stream : m_streams) DirectSet(*stream.sentFigure, stream.sent);
    }

    // A frame of an interface that is not played: counted, and told once.
    void LeaveOut(std::uint32_t interface, bool quiet)
    {
        if (quiet) return;
        ++m_leftOut;
        if (interface >= m_skippedTold.size()) m_skippedTold.resize(interface + 1, false);
        if (m_skippedTold[interface]) return;
        m_skippedTold[interface] = true;
        const Interface& declared = m_reader->InterfaceAt(interface);
        const std::string which = "interface " + std::to_string(interface) +
                                  (declared.name.empty() ? "" : " (" + declared.name + ")");
        ReportWarning((m_path + ": " + which +
                       (interface < m_byInterface.size() ? " is skipped" : " was not in the file when it was set") +
                       ": its frames are left out")
                          .c_str(),
                      0);
    }

    // The engine's time from which the frame in hand, or one after it, may
    // be due: an Ethernet output with frames held back by the replay stage
    // asks for its next frames early.
    VELDTimestamp ReadBound() const
    {
        std::int64_t from = m_time;
        for (const Stream& stream : m_streams) {
            if (HoldsBack(stream) && stream.count > 0) from = std::min(from, NextLead(stream));
        }
        return Due(std::max(from, m_time - kMaxReadAhead)) - m_sendAhead;
    }

    bool HoldsBack(const Stream& stream) const { return stream.route.ethernet && m_heldBack > 0 && m_sendAhead > 0; }

    // The recorded time whose due time lets the next frame of an output go:
    // that of the frame eth_held_back before it, or of its first one.
    std::int64_t NextLead(const Stream& stream) const
    {
        return stream.count < static_cast<std::uint64_t>(m_heldBack) ? stream.first
                                                                       : stream.recent[stream.count % m_heldBack];
    }

    // The frame in hand into its output's queue.
    void Hold(Stream& stream)
    {
        Held held;
        std::int64_t lead = m_time;
        if (HoldsBack(stream)) {
            if (stream.count == 0) stream.first = m_time;
            lead = std::min(lead, NextLead(stream));
            stream.recent[stream.count % m_heldBack] = m_time;
            ++stream.count;
        }
        held.release = Due(lead) - m_sendAhead;
        held.time = m_time;
        if (stream.route.ethernet) {
            if (!m_spare.empty()) {
                held.bytes = std::move(m_spare.back());
                m_spare.pop_back();
            }
            held.bytes.assign(m_packet.data, m_packet.data + m_packet.capturedLength);
            held.originalLength = std::max(m_packet.originalLength, m_packet.capturedLength);
        } else {
            if (const char* why = UnfitFor(m_packet.canFrame, m_kind)) {
                CountUnfit(m_path + ": " + why + "; such frames are passed over");
                return;
            }
            held.can = m_packet.canFrame;
            held.can.timestamp = m_time;
        }
        m_heldBytes += sizeof(Held) + held.bytes.size();
        stream.held.push_back(std::move(held));
    }

    void Drop(Stream& stream)
    {
        Held& held = stream.held.front();
        m_heldBytes -= sizeof(Held) + held.bytes.size();
        if (held.bytes.capacity() > 0) m_spare.push_back(std::move(held.bytes));
        stream.held.pop_front();
    }

    // What is due of an output's frames, in elements of up to m_vector.
    void HandOn(Stream& stream, VELDTimestamp now)
    {
        while (!stream.held.empty() && stream.held.front().release <= now) {
            VELDIOElt* element = StartWriting(*stream.output);
            if (!element) return;
            const VELDTimestamp timestamp = Due(stream.held.front().time);
            element->Timestamp() = timestamp;
            int n = 0;
            if (stream.route.ethernet) {
                pcap_data_writer writer(element, VELDpcapLinkTypeEthernet, timestamp);
                for (; n < m_vector && !stream.held.empty() && stream.held.front().release <= now; ++n) {
                    const Held& held = stream.held.front();
                    VELDpcap_packet_header_t header;
                    header.caplen = static_cast<std::uint32_t>(held.bytes.size());
                    header.len = held.originalLength;
                    header.ts_seconds = static_cast<std::uint64_t>(held.time / 1000000);
                    header.ts_microseconds = static_cast<std::uint64_t>(held.time % 1000000);
                    writer.set_next_packet(header, held.bytes.data());
                    Handed(held.time, now);
                    Drop(stream);
                }
                writer.DeInit();
            } else {
                for (; n < m_vector && !stream.held.empty() && stream.held.front().release <= now; ++n) {
                    const Held& held = stream.held.front();
                    FrameFields fields = FieldsOf(held.can);
                    fields.channel = static_cast<int>(stream.route.interface);
                    WriteFrame(*element, m_kind, n, fields, held.can.data.data());
                    Handed(held.time, now);
                    Drop(stream);
                }
                element->VectorSize() = n;
            }
            StopWriting(element);
            stream.sent += n;
        }
    }

    void FreeSlots()
    {
        for (Stream& stream : m_streams) {
            for (Buffer* buffer : stream.buffers) delete buffer;
            stream.buffers.clear();
            stream.offsets.clear();
        }
    }

    VELD::DynamicOutputModelSet m_outputs;
    Layout m_layout;
    std::unique_ptr<PacketReader> m_reader;
    veldor::pcaplog::Packet m_packet;  // the frame in hand
    int m_current = -1;                // its stream
    bool m_exhausted = false;          // nothing after it in the file
    std::deque<Stream> m_streams;
    std::vector<int> m_byInterface;  // the stream of each interface of the file, or -1
    std::vector<bool> m_skippedTold;
    std::vector<std::vector<std::uint8_t>> m_spare;  // bytes of frames handed on, for the next ones
    std::size_t m_heldBytes = 0;
    int m_kind = UniversalRecord;
    int m_vector = 1;
    int m_heldBack = 9;
    VELDInt64 m_leftOut = 0, m_otherLeftOut = 0, m_otherObjects = 0;
};

std::vector<VELDPropertyDefinition> g_properties = PacedPlayerProperties(
    {Setting("file", new VELDPropertyValue("")),
     Setting("output_type", new VELDPropertyValue(kRecordKinds, VELDInt32(UniversalRecord))),
     Setting("vectorize_frames", new VELDPropertyValue(false)), Setting("skip", new VELDPropertyValue("")),
     Setting("eth_held_back", new VELDPropertyValue(VELDInt64(9)), "frames"),
     Readout("interfaces", new VELDPropertyValue(""))},
    {Figure("other_objects"), Figure("left_out")});

}  // namespace
}  // namespace veldor_io

VELDComponentDefinition CaptureFilePlayerDefinition = veldor_io::Define<veldor_io::CaptureFilePlayer>(
    "CaptureFilePlayer", "1.0.0", nullptr, veldor_io::ReplayTimeOutputs(), veldor_io::g_properties.data());
VELD_DECLARE_MODEL(veldor_io::CaptureFilePlayer, CaptureFilePlayerDefinition, "CaptureFilePlayer", "1.0.0");
