#include "ReplayCommand.h"

#include <chrono>
#include <cstdio>

#include "BusDiagrams.h"
#include "CommonOptions.h"
#include "StatusLine.h"

namespace veldor::cli {

namespace {

const char* const kWho = "veldor replay";

double Since(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

bool ReadTime(const CommandLine& line, const char* option, long long* microseconds, std::string* error)
{
    if (!line.Has(option)) return true;
    double seconds = 0;
    if (!ParseDuration(line.Get(option), &seconds)) {
        *error = std::string(option) + " takes a time such as 500ms or 2s, not \"" + line.Get(option) + "\"";
        return false;
    }
    *microseconds = static_cast<long long>(seconds * 1e6);
    return true;
}

// "500k", "2M": a bit rate as the options take it.
std::string RateText(long bitsPerSecond)
{
    if (bitsPerSecond % 1000000 == 0) return std::to_string(bitsPerSecond / 1000000) + "M";
    if (bitsPerSecond % 1000 == 0) return std::to_string(bitsPerSecond / 1000) + "k";
    return std::to_string(bitsPerSecond);
}

std::string Number(double value, int decimals)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
    return text;
}

// Why the channel can't carry the replay, or nothing when it can: the
// share of the bus that the busiest second of the file needs at the speed,
// against the whole bus.
std::string Overload(const LogSummary& recording, const ReplaySettings& settings, double speed)
{
    if (recording.peakLoad <= 1.0) return "";
    const ChannelOptions& c = settings.channel;
    std::string text = "the file needs " + Number(recording.peakLoad * 100, 1) + "% of the bus at " +
                       RateText(c.bitRate) + (c.fd ? "/" + RateText(c.dataBitRate) : "") + " bit/s" +
                       (settings.sync ? "" : " and speed " + Number(speed, 2)) + " in its busiest second (ending " +
                       Number(recording.peakEnd, 1) + " s into the replay), more than the 100% the channel carries";
    // The busiest second at another speed spans other frames: about.
    const double fits = static_cast<long long>(speed / recording.peakLoad * 100) / 100.0;
    if (!settings.sync && fits > 0) text += "; a speed of about " + Number(fits, 2) + " would fit";
    return text;
}

}  // namespace

const char* ReplayCommand::Usage()
{
    static const std::string text =
        std::string("usage: veldor replay can --channel ID [options] FILE\n"
                    "Replays FILE (.asc, .log or .blf) onto a CAN channel with its recorded timing, until\n"
                    "its end or Ctrl-C. CAN FD frames in the file make the channel a CAN FD one. A file\n"
                    "that needs more of the bus than the channel carries, at its rates and the speed, is\n"
                    "refused before anything is sent.\n\n") +
        kChannelOptionsUsage +
        "  --sync               hardware-timed synchronised replay (a channel that can replay)\n"
        "  --high-speed         with --sync: the channel's high-speed replay path\n"
        "  --speed X            X times faster than recorded (0.5 slower); not with --sync\n"
        "  --lead D             from the start to the first frame (500ms)\n"
        "  --stop-after D       with --sync: the hardware stops D after the replay start\n"
        "  --max-gap D          a longer gap between two frames is shortened to D, and told (60s;\n"
        "                       0 keeps every gap)\n"
        "  --on-error ACTION    a line that can't be read: skip (told with its number; default)\n"
        "                       or stop\n";
    return text.c_str();
}

int ReplayCommand::Run(int argc, char** argv)
{
    CommandLine line;
    DeclareChannelOptions(line);
    line.Flag("--sync").Flag("--high-speed").Value("--speed").Value("--lead").Value("--stop-after").Value("--on-error");
    line.Value("--max-gap");
    std::string error;
    ReplaySettings settings;
    double speed = 1;
    BusSession session(kWho);
    int exit = 0;
    if (!ParseCommandLine(line, argc, argv, session, Usage(), &exit)) return exit;
    if (!ReadCanFile(line, &settings.file, &error) || !ReadChannelOptions(line, &settings.channel, &error) ||
        !ReadTime(line, "--lead", &settings.lead, &error) || !ReadTime(line, "--stop-after", &settings.stopAfter, &error) ||
        !ReadTime(line, "--max-gap", &settings.maxGap, &error))
        return session.Fail(error) + 1;
    settings.sync = line.Has("--sync");
    settings.highSpeed = line.Has("--high-speed");
    if (line.Has("--speed") && !ParseSpeed(line.Get("--speed"), &speed))
        return session.Fail("--speed takes a positive number such as 2 or 0.5, not \"" + line.Get("--speed") + "\"") + 1;
    if (settings.sync && speed != 1)
        return session.Fail("--speed is for a replay paced here; a synchronised replay runs on the hardware's clock, "
                            "in real time") +
               1;
    const std::string onError = line.Get("--on-error", "skip");
    if (onError != "skip" && onError != "stop")
        return session.Fail("--on-error is skip or stop, not \"" + onError + "\"") + 1;
    settings.stopOnError = onError == "stop";

    // What the file holds, for the channel's kind, the bus load and the
    // remaining time, its gaps shortened as the player will. A file that
    // can't be read is the player's to tell, in its own words.
    LogSummary recording;
    std::string unreadable;
    SummaryOptions reading;
    reading.maxGap = settings.maxGap;
    reading.bitRate = settings.channel.bitRate;
    reading.dataBitRate = settings.channel.dataBitRate;
    reading.speed = speed;
    if (Summarize(settings.file, &recording, &unreadable, reading)) settings.channel.fd = settings.channel.fd || recording.fd;
    const std::string overload = Overload(recording, settings, speed);
    if (!overload.empty()) return session.Fail(overload);

    if (!session.Open(true, &error)) return session.Fail(error);
    session.GetEngine().Clock().SetSpeed(static_cast<int>(speed * 1000 + 0.5));
    // The news of the speed is told before any component listens: none
    // hears it while it is being made.
    session.GetEngine().Clock().Flush();
    if (!AddReplay(session, settings, &error) || !session.Run(&error)) return session.Fail(error);

    const auto start = std::chrono::steady_clock::now();
    ReplayProgress progress(session, settings, recording, speed);
    StatusLine status;
    RateMeter rate;
    RateMeter busTime;  // microseconds of bus time a second: the load
    auto show = [&] {
        const long long sent = progress.Sent();
        const double now = Since(start);
        const double load = busTime.Update(session.Figure("player.bus_time")) / 1e6;
        status.Show("replaying onto " + settings.channel.channel + ": " + std::to_string(sent) + " of " +
                    std::to_string(recording.frames) + " frames  " +
                    std::to_string(static_cast<long long>(rate.Update(sent) + 0.5)) + "/s  bus load " +
                    Percent(load) + "  " + Seconds(now) + ", " + Seconds(progress.Remaining()) + " to go");
    };
    // The replay lasts the file's time, the lead and a margin for the bus.
    const double limit = (static_cast<double>(recording.Duration() + settings.lead) / 1e6) / speed + 30;
    const BusSession::End end = session.Watch([&] { return progress.Ended(); }, show, limit);
    status.Clear();
    const long long sent = progress.Sent();
    const long long dropped = progress.Dropped();
    const long long late = progress.Late();
    const long long unreadableLines = progress.UnreadableLines();
    const long long gaps = session.Figure("player.gaps_shortened");
    const long long others = session.Figure("player.other_objects");
    // A player that could not read its file never started a replay.
    const bool started = session.Figure("player.replay_start_time") != 0;
    session.GetEngine().Graph().Shutdown();
    session.Relay();
    std::string failure = session.Failure();
    const bool failed = end == BusSession::End::Failed || session.NewError(&failure);

    // The summary of a replay that started, whatever its end; a failure is
    // told after it.
    if (started) {
        std::printf("replayed %lld frames of %s in %s onto %s (%s); dropped %lld, late %lld", sent,
                    settings.file.c_str(), Seconds(Since(start)).c_str(), settings.channel.channel.c_str(),
                    settings.sync ? "synchronised" : ("speed " + std::to_string(speed).substr(0, 4)).c_str(), dropped,
                    late);
        if (unreadableLines > 0) std::printf(", unreadable lines %lld", unreadableLines);
        if (gaps > 0) std::printf(", gaps shortened %lld", gaps);
        if (others > 0) std::printf(", objects of other kinds passed over %lld", others);
        const char* how = failed                                  ? " (failed)"
                          : end == BusSession::End::Interrupted ? " (interrupted)"
                          : end == BusSession::End::TimeUp      ? " (not ended in time)"
                                                                : "";
        std::printf("%s\n", how);
        std::fflush(stdout);
    }
    if (failed) return session.Fail("the replay onto " + settings.channel.channel + " stopped: " + failure);
    if (end == BusSession::End::TimeUp) return session.Fail("the replay did not end in time");
    return 0;
}

}  // namespace veldor::cli
