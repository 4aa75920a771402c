#include "BusDiagrams.h"

#include <algorithm>
#include <sstream>

#include "Engine.h"
#include "veld_output.h"

namespace veldor::cli {

namespace {

const char* const kTimes[] = {"LogStartTime", "ReplayStartTime", "ReplayStopTime", "ReplayEofTime"};

// The player's outputs, as its "interfaces" figure lists them:
// "<output>=<interface name>:<eth|can>" joined by ",", one an interface it
// plays, in file order.
std::vector<std::string> PlayerOutputs(const std::string& text)
{
    std::vector<std::string> outputs;
    std::stringstream list(text);
    for (std::string entry; std::getline(list, entry, ',');) outputs.push_back(entry.substr(0, entry.find('=')));
    return outputs;
}

}  // namespace

std::string MonitorName(std::size_t k) { return "monitor" + std::to_string(k); }

std::vector<std::pair<std::string, std::string>> MonitorSettings(const RecordSettings& settings, BusKind kind)
{
    std::vector<std::pair<std::string, std::string>> set;
    const bool can = kind == BusKind::Can;
    if (can) set.emplace_back("output_type", settings.outputType == "universal" ? "Universal CAN" : "CAN/CAN FD");
    set.emplace_back("vectorize_frames", settings.vectorize ? "true" : "false");
    set.emplace_back("priority", std::to_string(kRecordingPriority));
    if (can) {
        set.emplace_back("oCAN.fifosize", std::to_string(kCanMonitorFifo));
        if (!settings.canEvents) set.emplace_back("sampling_mode", "Polling");
    }
    const long long period = settings.pollingPeriod > 0 ? settings.pollingPeriod : can ? kCanReadPeriod : 0;
    if (period > 0 && !(can && settings.canEvents)) set.emplace_back("sampling_period", std::to_string(period));
    return set;
}

bool AddRecording(BusSession& s, const RecordSettings& settings, std::vector<std::string>* inputs, std::string* error)
{
    const FileKindInfo* file = FileKindOf(settings.file);
    if (!file) {
        *error = settings.file + ": a recording is a .asc, .log, .blf, .pcap or .pcapng file";
        return false;
    }
    if (!s.Make(file->recorder, "recorder", error) || !s.Set("recorder.file", settings.file, error) ||
        !s.Set("recorder.priority", std::to_string(kRecordingPriority), error))
        return false;
    inputs->clear();
    if (file->kind == FileKind::CanLog) {
        if (settings.channels.size() != 1 || settings.channels[0].kind != BusKind::Can) {
            *error = settings.file + " holds one CAN channel; record several channels or Ethernet into a .pcapng file";
            return false;
        }
        const ChannelOptions& c = settings.channels[0];
        const bool fd = c.fd || settings.outputType == "fd";
        if (!s.Set("recorder.bit_rate", std::to_string(c.bitRate), error) ||
            !s.Set("recorder.data_bit_rate", std::to_string(fd ? c.dataBitRate : c.bitRate), error))
            return false;
        inputs->push_back("iCAN");
    } else {
        // The recorder's inputs, one a channel, counted per kind.
        std::string channels;
        int counts[2] = {0, 0};
        for (const ChannelOptions& c : settings.channels) {
            const BusKindInfo& kind = InfoOf(c.kind);
            channels += (channels.empty() ? "" : ",") + c.channel + ":" + kind.word;
            inputs->push_back(kind.recorderInput + std::to_string(counts[static_cast<int>(c.kind)]++));
        }
        if (!s.Set("recorder.channels", channels, error)) return false;
    }
    for (std::size_t k = 0; k < settings.channels.size(); ++k) {
        ChannelOptions channel = settings.channels[k];
        const std::string monitor = MonitorName(k);
        if (settings.outputType == "fd") channel.fd = true;
        if (!s.MakeOnChannel(false, monitor, channel, "", error)) return false;
        for (const auto& [name, value] : MonitorSettings(settings, channel.kind))
            if (!s.Set(monitor + "." + name, value, error)) return false;
        if (!s.Connect(monitor + "." + InfoOf(channel.kind).monitorOutput, "recorder." + (*inputs)[k], error))
            return false;
    }
    return true;
}

namespace {

// The elements that the readers of an output lost to its writer.
long long OverflowsOf(BusSession& s, const std::string& output)
{
    veldor::Engine& engine = s.GetEngine();
    engine.LockSymbols();
    const VELDSymbol* symbol = engine.FindSymbol(output.c_str());
    const long long lost = symbol && symbol->kind == VELDSymbol::OutputSymbol
                               ? static_cast<VELDOutput*>(symbol->object)->NbFIFOOverflows()
                               : 0;
    engine.UnlockSymbols();
    return lost;
}

}  // namespace

long long RecordingDropped(BusSession& s, const RecordSettings& settings)
{
    long long dropped = 0;
    for (std::size_t k = 0; k < settings.channels.size(); ++k)
        dropped += OverflowsOf(s, MonitorName(k) + "." + InfoOf(settings.channels[k].kind).monitorOutput);
    return dropped;
}

long long MonitorTroubles(BusSession& s, const RecordSettings& settings)
{
    long long troubles = 0;
    for (std::size_t k = 0; k < settings.channels.size(); ++k)
        troubles += s.WarningsOf(MonitorName(k)) + s.ErrorsOf(MonitorName(k));
    return troubles;
}

bool AddReplay(BusSession& s, const ReplaySettings& settings, ReplayDiagram* diagram, std::string* error)
{
    const FileKindInfo* file = FileKindOf(settings.file);
    diagram->capture = !file || file->kind == FileKind::Capture;
    diagram->outputs.clear();
    // Readers first: the status keepers and the injectors are running when
    // the player sends.
    for (std::size_t k = 0; k < settings.routes.size(); ++k) {
        const ChannelOptions& channel = settings.routes[k].channel;
        const std::string injector = ReplayDiagram::Injector(k);
        if (settings.sync && !s.Make("CanReplayStatus", ReplayDiagram::Status(k), error)) return false;
        if (!s.MakeOnChannel(true, injector, channel, settings.sync ? "Synchronized" : "Unsynchronized", error))
            return false;
        if (settings.sync && !s.Set(injector + ".high_speed", settings.highSpeed ? "true" : "false", error)) return false;
    }
    const std::string player = diagram->capture ? "CaptureFilePlayer" : file->player;
    if (!s.Make(player, "player", error) || !s.Set("player.file", settings.file, error) ||
        !s.Set("player.replay_lead", std::to_string(settings.lead), error) ||
        !s.Set("player.send_ahead", std::to_string(settings.sync ? settings.sendAhead : 0), error) ||
        !s.Set("player.replay_stop", std::to_string(settings.sync ? settings.stopAfter : 0), error) ||
        !s.Set("player.on_error", settings.stopOnError ? "Stop" : "Skip", error) ||
        !s.Set("player.max_gap", std::to_string(settings.maxGap), error))
        return false;
    if (diagram->capture) {
        // The file's interfaces that the player plays, in file order, each
        // with its output, until some are skipped.
        LogSummary summary;
        if (!Summarize(settings.file, &summary, error)) return false;
        const std::vector<std::string> outputs = PlayerOutputs(s.Text("player.interfaces"));
        if (outputs.size() != summary.sources.size()) {
            *error = settings.file + ": the player offers " + std::to_string(outputs.size()) + " outputs for " +
                     std::to_string(summary.sources.size()) + " interfaces";
            return false;
        }
        auto outputOf = [&](const std::string& name) {
            const SourceSummary* source = summary.Find(name);
            return source ? outputs[static_cast<std::size_t>(source - summary.sources.data())] : std::string();
        };
        std::string skip;
        for (const std::string& name : settings.skip) skip += (skip.empty() ? "" : ",") + outputOf(name);
        for (const ReplayRoute& route : settings.routes) diagram->outputs.push_back(outputOf(route.source));
        if (!skip.empty() && !s.Set("player.skip", skip, error)) return false;
    } else {
        const ChannelOptions& c = settings.routes.front().channel;
        if (!s.Set("player.output_type", "Universal CAN", error) ||
            !s.Set("player.bit_rate", std::to_string(c.bitRate), error) ||
            !s.Set("player.data_bit_rate", std::to_string(c.fd ? c.dataBitRate : c.bitRate), error))
            return false;
        diagram->outputs.push_back("oCAN");
    }
    for (std::size_t k = 0; k < settings.routes.size(); ++k) {
        const std::string injector = ReplayDiagram::Injector(k);
        if (!s.Connect("player." + diagram->outputs[k],
                       injector + "." + InfoOf(settings.routes[k].channel.kind).injectorInput, error))
            return false;
        if (!settings.sync) continue;
        for (const char* time : kTimes) {
            if (!s.Connect(std::string("player.o") + time, injector + ".i" + time, error)) return false;
        }
        if (!s.Connect(injector + ".oReplayStateInfo", ReplayDiagram::Status(k) + ".iReplayStateInfo", error))
            return false;
    }
    return true;
}

ReplayProgress::ReplayProgress(BusSession& session, const ReplaySettings& settings, const ReplayDiagram& diagram,
                               const LogSummary& recording, double speed)
    : m_session(session), m_settings(settings), m_diagram(diagram), m_recording(recording), m_speed(speed)
{
}

bool ReplayProgress::Ended()
{
    if (m_settings.sync) {
        for (std::size_t k = 0; k < m_settings.routes.size(); ++k) {
            const long long state = m_session.Figure(ReplayDiagram::Status(k) + ".state");
            if (state != kReplayEnded && state != kReplayStopped) return false;
        }
        return true;
    }
    if (m_session.Figure("player.finished") == 0) return false;
    // The injector sends at once what it reads: a short while after the
    // last frame was due, it is on the bus.
    const long long last = m_session.Figure("player.replay_start_time") + m_session.Figure("player.end_of_data") -
                           m_session.Figure("player.log_start");
    return m_session.Now() > last + static_cast<long long>(100000 * m_speed);
}

long long ReplayProgress::SentOn(std::size_t route)
{
    if (m_settings.sync) return m_session.Figure(ReplayDiagram::Status(route) + ".sent");
    return m_session.Figure(m_diagram.capture ? "player.sent_" + m_diagram.outputs[route] : "player.sent");
}

long long ReplayProgress::Sent()
{
    long long sent = 0;
    for (std::size_t k = 0; k < m_settings.routes.size(); ++k) sent += SentOn(k);
    return sent;
}

long long ReplayProgress::Dropped()
{
    // Frames lost between the player and an injector, and, hardware-timed,
    // those that the injector dropped or failed to send.
    long long dropped = 0;
    for (std::size_t k = 0; k < m_settings.routes.size(); ++k) {
        dropped += OverflowsOf(m_session, "player." + m_diagram.outputs[k]);
        if (m_settings.sync)
            dropped += m_session.Figure(ReplayDiagram::Status(k) + ".dropped") +
                       m_session.Figure(ReplayDiagram::Status(k) + ".failed");
    }
    return dropped;
}

long long ReplayProgress::Late() { return m_session.Figure("player.late"); }

long long ReplayProgress::UnreadableLines() { return m_session.Figure("player.bad_lines"); }

long long ReplayProgress::Refused()
{
    // Each frame goes alone in its element, so the Ethernet injector's
    // warning of a frame too long for the interface is one frame refused.
    long long refused = 0;
    for (std::size_t k = 0; k < m_settings.routes.size(); ++k)
        if (m_settings.routes[k].channel.kind == BusKind::Ethernet) refused += m_session.WarningsOf(ReplayDiagram::Injector(k));
    return refused;
}

double ReplayProgress::Remaining()
{
    const long long start = m_session.Figure("player.replay_start_time");
    if (start == 0) return static_cast<double>(m_recording.Duration()) / 1e6 / m_speed;
    const long long played = std::max(0LL, m_session.Now() - start);
    return std::max(0.0, static_cast<double>(m_recording.Duration() - played) / 1e6 / m_speed);
}

}  // namespace veldor::cli
