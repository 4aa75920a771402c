#include "RoundTrip.h"

#include <algorithm>
#include <chrono>

namespace veldor::cli {

namespace {

// The source of a file that a bus names: by the interface's name, or the
// file's only source.
const Source* FindSource(const std::vector<Source>& sources, const std::string& name)
{
    for (const Source& s : sources)
        if (s.summary.Named(name)) return &s;
    return sources.size() == 1 && name.empty() ? &sources.front() : nullptr;
}

}  // namespace

bool RoundTripOutcome::Lossless() const
{
    if (!compared) return false;
    for (const BusOutcome& b : buses)
        if (b.comparison.recordedFrames != b.comparison.originalFrames || b.comparison.differing != 0) return false;
    return dropped == 0;
}

RoundTripOutcome RunRoundTrip(BusSession& session, const RoundTripSettings& settings, const RoundTripTick& tick)
{
    RoundTripOutcome outcome;
    std::string error;
    if (!Summarize(settings.original, &outcome.original, &error)) {
        outcome.failure = error;
        return outcome;
    }
    std::vector<RoundTripBus> buses = settings.buses;
    if (buses.empty()) buses.push_back(RoundTripBus{"", settings.replayChannel, settings.recordChannel});

    RecordSettings record;
    record.file = settings.recording;
    ReplaySettings replay;
    replay.file = settings.original;
    replay.sync = true;
    replay.highSpeed = settings.highSpeed;
    replay.lead = settings.lead;
    replay.sendAhead = settings.sendAhead;
    for (RoundTripBus& bus : buses) {
        const SourceSummary* source = outcome.original.Find(bus.source);
        if (!source) {
            outcome.failure = settings.original + " has no interface \"" + bus.source + "\"";
            return outcome;
        }
        for (ChannelOptions* channel : {&bus.replayChannel, &bus.recordChannel}) {
            channel->kind = source->kind;
            channel->fd = channel->fd || source->fd;
        }
        record.channels.push_back(bus.recordChannel);
        replay.routes.push_back(ReplayRoute{bus.source, bus.replayChannel});
        outcome.buses.push_back(BusOutcome{bus, source->kind, 0, Comparison()});
    }
    // The original's other buses stay quiet.
    for (const SourceSummary& s : outcome.original.sources) {
        const bool routed = std::any_of(buses.begin(), buses.end(), [&](const RoundTripBus& b) { return s.Named(b.source); });
        if (!routed && !s.name.empty()) replay.skip.push_back(s.name);
    }
    std::vector<std::string> inputs;
    ReplayDiagram diagram;
    if (!AddRecording(session, record, &inputs, &error) || !AddReplay(session, replay, &diagram, &error) ||
        !session.Run(&error)) {
        outcome.failure = error;
        return outcome;
    }

    const auto start = std::chrono::steady_clock::now();
    ReplayProgress progress(session, replay, diagram, outcome.original, 1);
    // Once the replay has ended, the monitors still hand on the last frames
    // they read: the recording is complete when it holds every frame sent,
    // or when nothing more came for a second.
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
    for (std::size_t k = 0; k < buses.size(); ++k) outcome.buses[k].replayed = progress.SentOn(k);
    outcome.late = progress.Late();
    std::vector<std::string> sources{"player"};
    for (std::size_t k = 0; k < buses.size(); ++k) {
        sources.push_back(ReplayDiagram::Injector(k));
        sources.push_back(ReplayDiagram::Status(k));
    }
    for (std::size_t k = 0; k < buses.size(); ++k) sources.push_back(MonitorName(k));
    session.StopDraining(sources, {"recorder"});
    outcome.recorded = session.Figure("recorder.recorded");
    // The bus libraries' losses and every FIFO's, the last ones drained.
    outcome.dropped = progress.Dropped();
    outcome.monitorTroubles = MonitorTroubles(session, record);
    outcome.failure = session.Failure();
    if (outcome.end == BusSession::End::Failed || session.NewError(&outcome.failure)) {
        outcome.end = BusSession::End::Failed;
        return outcome;
    }
    if (outcome.end == BusSession::End::TimeUp) {
        outcome.failure = "the replay did not end in time";
        return outcome;
    }

    std::vector<Source> original;
    std::vector<Source> recorded;
    if (!ReadSources(settings.original, &original, &error) || !ReadSources(settings.recording, &recorded, &error)) {
        outcome.failure = error;
        outcome.end = BusSession::End::Failed;
        return outcome;
    }
    static const std::vector<BusFrame> kNone;
    std::vector<const std::vector<BusFrame>*> originalFrames;
    std::vector<const std::vector<BusFrame>*> recordedFrames;
    const bool log = FileKindOf(settings.recording)->kind == FileKind::CanLog;
    for (BusOutcome& bus : outcome.buses) {
        const Source* o = FindSource(original, bus.bus.source);
        // A capture file recorder names each interface by its channel.
        const Source* r = FindSource(recorded, log ? "" : bus.bus.recordChannel.channel);
        originalFrames.push_back(o ? &o->frames : &kNone);
        recordedFrames.push_back(r ? &r->frames : &kNone);
        bus.comparison = Compare(*originalFrames.back(), *recordedFrames.back());
    }
    outcome.comparison = outcome.buses.front().comparison;
    for (std::size_t a = 0; a < outcome.buses.size() && !outcome.strayMeasured; ++a) {
        for (std::size_t b = 0; b < outcome.buses.size() && !outcome.strayMeasured; ++b) {
            if (outcome.buses[a].kind != BusKind::Can || outcome.buses[b].kind != BusKind::Ethernet) continue;
            outcome.stray = Stray(*originalFrames[a], *recordedFrames[a], *originalFrames[b], *recordedFrames[b]);
            outcome.strayMeasured = true;
        }
    }
    outcome.compared = true;
    return outcome;
}

}  // namespace veldor::cli
