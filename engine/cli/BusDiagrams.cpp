#include "BusDiagrams.h"

#include <algorithm>

namespace veldor::cli {

bool AddRecording(BusSession& s, const RecordSettings& settings, std::string* error)
{
    ChannelOptions channel = settings.channel;
    if (settings.outputType == "fd") channel.fd = true;
    const std::string rates = std::to_string(channel.bitRate);
    if (!s.Make("CanFileRecorder", "recorder", error) || !s.Set("recorder.file", settings.file, error) ||
        !s.Set("recorder.bit_rate", rates, error) ||
        !s.Set("recorder.data_bit_rate", std::to_string(channel.fd ? channel.dataBitRate : channel.bitRate), error))
        return false;
    if (!s.MakeOnChannel("NxCanMonitoring", "monitor", channel, "", error)) return false;
    const char* record = settings.outputType == "universal" ? "Universal CAN" : "CAN/CAN FD";
    if (!s.Set("monitor.output_type", record, error) ||
        !s.Set("monitor.vectorize_frames", settings.vectorize ? "true" : "false", error))
        return false;
    if (settings.pollingPeriod > 0 &&
        (!s.Set("monitor.sampling_mode", "Polling", error) ||
         !s.Set("monitor.sampling_period", std::to_string(settings.pollingPeriod), error)))
        return false;
    return s.Connect("monitor.oCAN", "recorder.iCAN", error);
}

bool AddReplay(BusSession& s, const ReplaySettings& settings, std::string* error)
{
    const ChannelOptions& channel = settings.channel;
    if (settings.sync && !s.Make("CanReplayStatus", "replay_status", error)) return false;
    if (!s.MakeOnChannel("NxCanInject", "injector", channel, settings.sync ? "Synchronized" : "Unsynchronized",
                         error))
        return false;
    if (settings.sync && !s.Set("injector.high_speed", settings.highSpeed ? "true" : "false", error)) return false;
    if (!s.Make("CanFilePlayer", "player", error) || !s.Set("player.file", settings.file, error) ||
        !s.Set("player.output_type", "Universal CAN", error) ||
        !s.Set("player.replay_lead", std::to_string(settings.lead), error) ||
        !s.Set("player.send_ahead", std::to_string(settings.sync ? settings.sendAhead : 0), error) ||
        !s.Set("player.replay_stop", std::to_string(settings.sync ? settings.stopAfter : 0), error) ||
        !s.Set("player.on_error", settings.stopOnError ? "Stop" : "Skip", error) ||
        !s.Set("player.max_gap", std::to_string(settings.maxGap), error) ||
        !s.Set("player.bit_rate", std::to_string(channel.bitRate), error) ||
        !s.Set("player.data_bit_rate", std::to_string(channel.fd ? channel.dataBitRate : channel.bitRate), error) ||
        !s.Connect("player.oCAN", "injector.iCAN", error))
        return false;
    if (!settings.sync) return true;
    for (const char* time : {"LogStartTime", "ReplayStartTime", "ReplayStopTime", "ReplayEofTime"}) {
        if (!s.Connect(std::string("player.o") + time, std::string("injector.i") + time, error)) return false;
    }
    return s.Connect("injector.oReplayStateInfo", "replay_status.iReplayStateInfo", error);
}

ReplayProgress::ReplayProgress(BusSession& session, const ReplaySettings& settings, const LogSummary& recording,
                               double speed)
    : m_session(session), m_settings(settings), m_recording(recording), m_speed(speed)
{
}

bool ReplayProgress::Ended()
{
    if (m_settings.sync) {
        const long long state = m_session.Figure("replay_status.state");
        return state == kReplayEnded || state == kReplayStopped;
    }
    if (m_session.Figure("player.finished") == 0) return false;
    // The injector sends at once what it reads: a short while after the
    // last frame was due, it is on the bus.
    const long long last = m_session.Figure("player.replay_start_time") + m_session.Figure("player.end_of_data") -
                           m_session.Figure("player.log_start");
    return m_session.Now() > last + static_cast<long long>(100000 * m_speed);
}

long long ReplayProgress::Sent()
{
    return m_session.Figure(m_settings.sync ? "replay_status.sent" : "player.sent");
}

long long ReplayProgress::Dropped()
{
    long long dropped = m_session.GetEngine().Readers().TotalOverflows();
    if (m_settings.sync)
        dropped += m_session.Figure("replay_status.dropped") + m_session.Figure("replay_status.failed");
    return dropped;
}

long long ReplayProgress::Late() { return m_session.Figure("player.late"); }

long long ReplayProgress::UnreadableLines() { return m_session.Figure("player.bad_lines"); }

double ReplayProgress::Remaining()
{
    const long long start = m_session.Figure("player.replay_start_time");
    if (start == 0) return static_cast<double>(m_recording.Duration()) / 1e6 / m_speed;
    const long long played = std::max(0LL, m_session.Now() - start);
    return std::max(0.0, static_cast<double>(m_recording.Duration() - played) / 1e6 / m_speed);
}

}  // namespace veldor::cli
