#include "RecordCommand.h"

#include <algorithm>
#include <chrono>
#include <cstdio>

#include "BusDiagrams.h"
#include "CommonOptions.h"
#include "StatusLine.h"

namespace veldor::cli {

namespace {

const char* const kWho = "veldor record";

double Since(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

std::string Names(const std::vector<ChannelOptions>& channels)
{
    std::string names;
    for (const ChannelOptions& c : channels) names += (names.empty() ? "" : ", ") + c.channel;
    return names;
}

// The channels of the line, each with its kind: `kind`'s for a command of
// one kind (one channel), else what the bus libraries say of each.
bool ReadChannels(const CommandLine& line, const BusKindInfo* kind, BusSession& session, RecordSettings* settings,
                  std::string* error)
{
    const std::vector<std::string> ids = line.All("--channel");
    if (ids.empty() || (kind && ids.size() > 1)) {
        *error = ids.empty() ? "--channel is needed (veldor channels lists them)"
                             : std::string("one --channel for record ") + kind->word +
                                   "; several channels go into one .pcapng file: veldor record --channel A --channel B FILE.pcapng";
        return false;
    }
    for (std::size_t i = 0; i < ids.size(); ++i) {
        if (std::find(ids.begin(), ids.begin() + static_cast<std::ptrdiff_t>(i), ids[i]) != ids.begin() + static_cast<std::ptrdiff_t>(i)) {
            *error = "--channel " + ids[i] + " is given twice";
            return false;
        }
        ChannelOptions channel;
        channel.channel = ids[i];
        channel.ip = line.Get("--ip", channel.ip);
        BusKind of = kind ? kind->kind : BusKind::Can;
        if (!kind && !session.KindOfChannel(channel.ip, ids[i], &of, error)) return false;
        if (!ReadChannelOptions(line, of, &channel, error)) return false;
        settings->channels.push_back(channel);
    }
    return true;
}

}  // namespace

const char* RecordCommand::Usage()
{
    static const std::string text =
        "usage: veldor record can --channel ID [options] FILE\n"
        "       veldor record eth --channel ID [options] FILE\n"
        "       veldor record --channel ID [--channel ID]... [options] FILE.pcapng\n"
        "Records the frames of a CAN channel into FILE (.asc, .log, .blf or .pcapng, by its\n"
        "extension), of an Ethernet interface into FILE (.pcap or .pcapng), or of any mix of\n"
        "channels, CAN and Ethernet, into one .pcapng file on one timeline, an interface a\n"
        "channel, until Ctrl-C or the end of --duration.\n\n" +
        ChannelOptionsUsage(nullptr) +
        "  --output-type T      the CAN frame record read from the channel: universal (default),\n"
        "                       classic or fd (fd implies --fd)\n"
        "  --polling PERIOD     read CAN channels every PERIOD (1ms); the period at which\n"
        "                       Ethernet interfaces are read (5ms)\n"
        "  --events             read CAN channels on their events, not every PERIOD\n"
        "  --one-frame          one element per frame, not one per read of the channel\n"
        "  --duration D         stop after D (30s, 2m, 500ms)\n";
    return text.c_str();
}

int RecordCommand::Run(int argc, char** argv)
{
    CommandLine line;
    DeclareChannelOptions(line);
    line.Value("--output-type").Flag("--vectorize").Flag("--one-frame").Flag("--events").Value("--polling").Value(
        "--duration");
    std::string error;
    RecordSettings settings;
    std::vector<std::string> inputs;
    double duration = 0;
    double polling = 0;
    BusSession session(kWho);
    int exit = 0;
    if (!ParseCommandLine(line, argc, argv, session, Usage(), &exit)) return exit;
    const BusKindInfo* kind = nullptr;
    if (!ReadKindAndFile(line, &kind, &settings.file, &error) || (kind && !RefuseOtherKinds(line, kind->kind, &error)))
        return session.Fail(error) + 1;
    settings.outputType = line.Get("--output-type", "universal");
    if (settings.outputType != "universal" && settings.outputType != "classic" && settings.outputType != "fd")
        return session.Fail("--output-type is universal, classic or fd, not \"" + settings.outputType + "\"") + 1;
    // --vectorize, the default, stays accepted.
    settings.vectorize = !line.Has("--one-frame");
    settings.canEvents = line.Has("--events");
    if (line.Has("--duration") && (!ParseDuration(line.Get("--duration"), &duration) || duration <= 0))
        return session.Fail("--duration takes a time such as 30s or 2m, not \"" + line.Get("--duration") + "\"") + 1;
    if (line.Has("--polling") && (!ParseDuration(line.Get("--polling"), &polling) || polling <= 0))
        return session.Fail("--polling takes a period such as 5ms, not \"" + line.Get("--polling") + "\"") + 1;
    settings.pollingPeriod = static_cast<long long>(polling * 1e6);

    if (!session.Open(kind ? std::vector<BusKind>{kind->kind} : std::vector<BusKind>{}, &error) ||
        !ReadChannels(line, kind, session, &settings, &error) || !AddRecording(session, settings, &inputs, &error) ||
        !session.Run(&error))
        return session.Fail(error);

    const auto start = std::chrono::steady_clock::now();
    const std::string names = Names(settings.channels);
    // Bus load is what a CAN log recorder measures.
    const bool load = FileKindOf(settings.file)->kind == FileKind::CanLog;
    StatusLine status;
    RateMeter rate;
    RateMeter busTime;  // microseconds of bus time a second: the load
    auto show = [&] {
        const long long frames = session.Figure("recorder.recorded");
        const double now = Since(start);
        std::string text = "recording " + names + ": " + std::to_string(frames) + " frames  " +
                           std::to_string(static_cast<long long>(rate.Update(frames) + 0.5)) + "/s  ";
        if (load) text += "bus load " + Percent(busTime.Update(session.Figure("recorder.bus_time")) / 1e6) + "  ";
        text += Seconds(now);
        if (duration > 0) text += " of " + Seconds(duration);
        status.Show(text);
    };
    const BusSession::End end = session.Watch(nullptr, show, duration);
    status.Clear();
    std::vector<std::string> monitors;
    for (std::size_t k = 0; k < settings.channels.size(); ++k) monitors.push_back(MonitorName(k));
    session.StopDraining(monitors, {"recorder"});
    std::string failure = session.Failure();
    if (end == BusSession::End::Failed || session.NewError(&failure)) return session.Fail(failure);

    const long long frames = session.Figure("recorder.recorded");
    std::printf("recorded %lld frames in %s from %s into %s; dropped %lld", frames, Seconds(Since(start)).c_str(),
                names.c_str(), settings.file.c_str(), RecordingDropped(session, settings));
    const long long troubles = MonitorTroubles(session, settings);
    if (troubles > 0) std::printf(", frames lost or marked bad by the hardware, as told above: %lld times", troubles);
    std::printf("%s\n", end == BusSession::End::Interrupted ? " (interrupted)" : "");
    if (settings.channels.size() > 1) {
        for (std::size_t k = 0; k < settings.channels.size(); ++k)
            std::printf("  %-12s %lld frames\n", settings.channels[k].channel.c_str(),
                        session.Figure("recorder.recorded_" + inputs[k]));
    }
    const long long refused = session.Figure("recorder.refused");
    if (refused > 0) std::printf("%lld frames could not be written into the file\n", refused);
    return 0;
}

}  // namespace veldor::cli
