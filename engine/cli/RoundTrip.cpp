#include "RoundTrip.h"

#include <chrono>

namespace veldor::cli {

RoundTripOutcome RunRoundTrip(BusSession& session, const RoundTripSettings& settings, const RoundTripTick& tick)
{
    RoundTripOutcome outcome;
    std::string error;
    if (!Summarize(settings.original, &outcome.original, &error)) {
        outcome.failure = error;
        return outcome;
    }
    RecordSettings record;
    record.file = settings.recording;
    record.channel = settings.recordChannel;
    record.channel.fd = record.channel.fd || outcome.original.fd;
    ReplaySettings replay;
    replay.file = settings.original;
    replay.channel = settings.replayChannel;
    replay.channel.fd = replay.channel.fd || outcome.original.fd;
    replay.sync = true;
    replay.highSpeed = settings.highSpeed;
    replay.lead = settings.lead;
    replay.sendAhead = settings.sendAhead;
    if (!AddRecording(session, record, &error) || !AddReplay(session, replay, &error) || !session.Run(&error)) {
        outcome.failure = error;
        return outcome;
    }

    const auto start = std::chrono::steady_clock::now();
    ReplayProgress progress(session, replay, outcome.original, 1);
    // Once the replay has ended, the monitor still hands on the last frames
    // it read: the recording is complete when it holds every frame sent, or
    // when nothing more came for a second.
    long long lastRecorded = -1;
    auto quietSince = std::chrono::steady_clock::now();
    auto done = [&] {
        if (!progress.Ended()) return false;
        const long long recorded = session.Figure("recorder.recorded");
        if (recorded >= progress.Sent()) return true;
        const auto now = std::chrono::steady_clock::now();
        if (recorded != lastRecorded) {
            lastRecorded = recorded;
            quietSince = now;
        }
        return now - quietSince > std::chrono::seconds(1);
    };
    auto report = [&] {
        if (tick) tick(progress.Sent(), session.Figure("recorder.recorded"), progress.Remaining());
    };
    const double limit = static_cast<double>(outcome.original.Duration() + settings.lead) / 1e6 + 30;
    outcome.end = session.Watch(done, report, limit);
    outcome.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    outcome.replayed = progress.Sent();
    outcome.dropped = progress.Dropped() + session.DroppedByMonitor();
    outcome.late = progress.Late();
    session.StopDraining({"player", "injector", "replay_status", "monitor"}, {"recorder"});
    outcome.recorded = session.Figure("recorder.recorded");
    outcome.failure = session.Failure();
    if (outcome.end == BusSession::End::Failed || session.NewError(&outcome.failure)) {
        outcome.end = BusSession::End::Failed;
        return outcome;
    }
    if (outcome.end == BusSession::End::TimeUp) {
        outcome.failure = "the replay did not end in time";
        return outcome;
    }

    std::vector<veldor::canlog::CanFrame> original;
    std::vector<veldor::canlog::CanFrame> recorded;
    if (!ReadFrames(settings.original, &original, &error) || !ReadFrames(settings.recording, &recorded, &error)) {
        outcome.failure = error;
        outcome.end = BusSession::End::Failed;
        return outcome;
    }
    outcome.comparison = Compare(original, recorded);
    outcome.compared = true;
    return outcome;
}

}  // namespace veldor::cli
