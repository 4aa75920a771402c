#include "RecordCommand.h"

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

}  // namespace

const char* RecordCommand::Usage()
{
    static const std::string text = std::string(
                                        "usage: veldor record can --channel ID [options] FILE\n"
                                        "Records the frames of a CAN channel into FILE (.asc, .log or .blf, by "
                                        "its\nextension) until Ctrl-C or the end of --duration.\n\n") +
                                    kChannelOptionsUsage +
                                    "  --output-type T      the frame record read from the channel: universal "
                                    "(default),\n"
                                    "                       classic or fd (fd implies --fd)\n"
                                    "  --vectorize          one element per read of the channel, not one per frame\n"
                                    "  --polling PERIOD     read the channel every PERIOD (5ms), not on its events\n"
                                    "  --duration D         stop after D (30s, 2m, 500ms)\n";
    return text.c_str();
}

int RecordCommand::Run(int argc, char** argv)
{
    CommandLine line;
    DeclareChannelOptions(line);
    line.Value("--output-type").Flag("--vectorize").Value("--polling").Value("--duration");
    std::string error;
    RecordSettings settings;
    double duration = 0;
    double polling = 0;
    BusSession session(kWho);
    int exit = 0;
    if (!ParseCommandLine(line, argc, argv, session, Usage(), &exit)) return exit;
    if (!ReadCanFile(line, &settings.file, &error) || !ReadChannelOptions(line, &settings.channel, &error))
        return session.Fail(error) + 1;
    settings.outputType = line.Get("--output-type", "universal");
    if (settings.outputType != "universal" && settings.outputType != "classic" && settings.outputType != "fd")
        return session.Fail("--output-type is universal, classic or fd, not \"" + settings.outputType + "\"") + 1;
    settings.vectorize = line.Has("--vectorize");
    if (line.Has("--duration") && (!ParseDuration(line.Get("--duration"), &duration) || duration <= 0))
        return session.Fail("--duration takes a time such as 30s or 2m, not \"" + line.Get("--duration") + "\"") + 1;
    if (line.Has("--polling") && (!ParseDuration(line.Get("--polling"), &polling) || polling <= 0))
        return session.Fail("--polling takes a period such as 5ms, not \"" + line.Get("--polling") + "\"") + 1;
    settings.pollingPeriod = static_cast<long long>(polling * 1e6);

    if (!session.Open(true, &error) || !AddRecording(session, settings, &error) || !session.Run(&error))
        return session.Fail(error);

    const auto start = std::chrono::steady_clock::now();
    StatusLine status;
    RateMeter rate;
    RateMeter busTime;  // microseconds of bus time a second: the load
    auto show = [&] {
        const long long frames = session.Figure("recorder.recorded");
        const double now = Since(start);
        const double load = busTime.Update(session.Figure("recorder.bus_time")) / 1e6;
        std::string text = "recording " + settings.channel.channel + ": " + std::to_string(frames) + " frames  " +
                           std::to_string(static_cast<long long>(rate.Update(frames) + 0.5)) + "/s  bus load " +
                           Percent(load) + "  " + Seconds(now);
        if (duration > 0) text += " of " + Seconds(duration);
        status.Show(text);
    };
    const BusSession::End end = session.Watch(nullptr, show, duration);
    status.Clear();
    session.StopDraining({"monitor"}, {"recorder"});
    std::string failure = session.Failure();
    if (end == BusSession::End::Failed || session.NewError(&failure)) return session.Fail(failure);

    const long long frames = session.Figure("recorder.recorded");
    const long long dropped = session.DroppedByMonitor() + session.GetEngine().Readers().TotalOverflows();
    std::printf("recorded %lld frames in %s from %s into %s; dropped %lld%s\n", frames, Seconds(Since(start)).c_str(),
                settings.channel.channel.c_str(), settings.file.c_str(), dropped,
                end == BusSession::End::Interrupted ? " (interrupted)" : "");
    const long long refused = session.Figure("recorder.refused");
    if (refused > 0) std::printf("%lld frames could not be written into the file\n", refused);
    return 0;
}

}  // namespace veldor::cli
