#include "ReplayCommand.h"

#include <algorithm>
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

// Why a CAN channel can't carry its bus of the file, or nothing when it
// can: the share of the bus that the busiest second needs at the speed,
// against the whole bus.
std::string Overload(const SourceSummary& source, const ChannelOptions& c, bool sync, double speed)
{
    if (source.peakLoad <= 1.0) return "";
    std::string text = "the file needs " + Number(source.peakLoad * 100, 1) + "% of the bus at " + RateText(c.bitRate) +
                       (c.fd ? "/" + RateText(c.dataBitRate) : "") + " bit/s" +
                       (sync ? "" : " and speed " + Number(speed, 2)) + " in its busiest second (ending " +
                       Number(source.peakEnd, 1) + " s into the replay), more than the 100% the channel carries";
    // The busiest second at another speed spans other frames: about.
    const double fits = static_cast<long long>(speed / source.peakLoad * 100) / 100.0;
    if (!sync && fits > 0) text += "; a speed of about " + Number(fits, 2) + " would fit";
    return text;
}

std::string Interfaces(const LogSummary& summary)
{
    std::string list;
    for (const SourceSummary& s : summary.sources)
        list += (list.empty() ? "" : ", ") + s.Label() + " (" + InfoOf(s.kind).name + ")";
    return list;
}

// The routes of "replay <kind> --channel ID FILE": the file's one bus of
// that kind onto the channel; the file's other buses are skipped, with a
// note for each.
bool KindRoutes(const CommandLine& line, const BusKindInfo& kind, const LogSummary& summary,
                std::vector<std::string>* notes, ReplaySettings* settings, std::string* error)
{
    ReplayRoute route;
    route.channel.channel = line.Get("--channel");
    if (route.channel.channel.empty()) {
        *error = "--channel is needed (veldor channels lists them)";
        return false;
    }
    if (!ReadChannelOptions(line, kind.kind, &route.channel, error)) return false;
    if (FileKindOf(settings->file)->kind == FileKind::CanLog) {
        route.channel.fd = route.channel.fd || summary.fd;
        settings->routes.push_back(route);
        return true;
    }
    std::vector<const SourceSummary*> ofKind;
    for (const SourceSummary& s : summary.sources) {
        if (s.kind == kind.kind) ofKind.push_back(&s);
        else settings->skip.push_back(s.name.empty() ? std::to_string(s.index) : s.name);
    }
    if (ofKind.size() != 1) {
        *error = settings->file + (ofKind.empty() ? std::string(" holds no ") + kind.name + " " + kind.channelNoun
                                                  : std::string(" holds ") + std::to_string(ofKind.size()) + " " +
                                                        kind.name + " " + kind.channelNoun +
                                                        "s; veldor replay --map NAME=ID puts each on a channel") +
                 ": " + Interfaces(summary);
        return false;
    }
    route.source = ofKind[0]->name.empty() ? std::to_string(ofKind[0]->index) : ofKind[0]->name;
    route.channel.fd = route.channel.fd || ofKind[0]->fd;
    for (const SourceSummary& s : summary.sources)
        if (&s != ofKind[0]) notes->push_back(s.Label() + " (" + InfoOf(s.kind).name + ") of " + settings->file + " is not replayed");
    settings->routes.push_back(route);
    return true;
}

// The routes of "replay --map NAME=ID... FILE": each named interface onto
// its channel, of the kind the bus libraries say; the interfaces without a
// mapping are skipped, with a note for each.
bool MappedRoutes(const CommandLine& line, const LogSummary& summary, BusSession& session,
                  std::vector<std::string>* notes, ReplaySettings* settings, std::string* error)
{
    const std::vector<std::string> maps = line.All("--map");
    std::vector<const SourceSummary*> mapped;
    for (const std::string& map : maps) {
        const std::size_t equals = map.find('=');
        if (equals == std::string::npos || equals == 0 || equals + 1 == map.size()) {
            *error = "--map takes NAME=ID, an interface of the file and a channel, not \"" + map + "\"";
            return false;
        }
        ReplayRoute route;
        route.source = map.substr(0, equals);
        route.channel.channel = map.substr(equals + 1);
        route.channel.ip = line.Get("--ip", route.channel.ip);
        const SourceSummary* source = summary.Find(route.source);
        if (!source) {
            *error = settings->file + " has no interface \"" + route.source + "\"; it has " + Interfaces(summary);
            return false;
        }
        if (std::find(mapped.begin(), mapped.end(), source) != mapped.end()) {
            *error = "--map " + route.source + " is given twice";
            return false;
        }
        for (const ReplayRoute& r : settings->routes) {
            if (r.channel.channel == route.channel.channel) {
                *error = "--map puts two interfaces on " + route.channel.channel;
                return false;
            }
        }
        BusKind kind = BusKind::Can;
        if (!session.KindOfChannel(route.channel.ip, route.channel.channel, &kind, error)) return false;
        if (kind != source->kind) {
            *error = source->Label() + " holds " + InfoOf(source->kind).name + " frames; " + route.channel.channel +
                     " is " + (kind == BusKind::Ethernet ? "an " : "a ") + InfoOf(kind).name + " " +
                     InfoOf(kind).channelNoun;
            return false;
        }
        if (!ReadChannelOptions(line, kind, &route.channel, error)) return false;
        route.channel.fd = route.channel.fd || source->fd;
        mapped.push_back(source);
        settings->routes.push_back(route);
    }
    if (mapped.empty()) {
        *error = "no interface of " + settings->file + " is mapped onto a channel (--map NAME=ID); it has " +
                 Interfaces(summary);
        return false;
    }
    for (const SourceSummary& s : summary.sources) {
        if (std::find(mapped.begin(), mapped.end(), &s) != mapped.end()) continue;
        notes->push_back(s.Label() + " (" + InfoOf(s.kind).name + ") of " + settings->file +
                         " has no --map: its frames are not replayed");
        settings->skip.push_back(s.name.empty() ? std::to_string(s.index) : s.name);
    }
    return true;
}

}  // namespace

const char* ReplayCommand::Usage()
{
    static const std::string text =
        "usage: veldor replay can --channel ID [options] FILE\n"
        "       veldor replay eth --channel ID [options] FILE\n"
        "       veldor replay --map NAME=ID [--map NAME=ID]... [options] FILE.pcapng\n"
        "Replays FILE onto a channel with its recorded timing, until its end or Ctrl-C: a CAN\n"
        "file (.asc, .log, .blf, or the CAN interface of a .pcapng) onto a CAN channel, an\n"
        "Ethernet file (.pcap, or the Ethernet interface of a .pcapng) onto an Ethernet\n"
        "interface; or the interfaces of a .pcapng of several buses, each onto the channel\n"
        "that --map names for it (by its name, or its number from 0), all on one timeline.\n"
        "An interface without a --map is told and not replayed. CAN FD frames in the file\n"
        "make a CAN channel a CAN FD one. A file that needs more of a CAN bus than the\n"
        "channel carries, at its rates and the speed, or a capture file that can't be read\n"
        "to its end, is refused before anything is sent.\n\n" +
        ChannelOptionsUsage(nullptr) +
        "  --map NAME=ID        the file's interface NAME onto the channel ID\n"
        "  --sync               hardware-timed synchronised replay (channels that can replay)\n"
        "  --high-speed         with --sync: the channels' high-speed replay path\n"
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
    line.Value("--max-gap").Repeated("--map");
    std::string error;
    ReplaySettings settings;
    double speed = 1;
    BusSession session(kWho);
    int exit = 0;
    if (!ParseCommandLine(line, argc, argv, session, Usage(), &exit)) return exit;
    const BusKindInfo* kind = nullptr;
    if (!ReadKindAndFile(line, &kind, &settings.file, &error) || (kind && !RefuseOtherKinds(line, kind->kind, &error)) ||
        !ReadTime(line, "--lead", &settings.lead, &error) || !ReadTime(line, "--stop-after", &settings.stopAfter, &error) ||
        !ReadTime(line, "--max-gap", &settings.maxGap, &error))
        return session.Fail(error) + 1;
    if (kind && line.Has("--map"))
        return session.Fail(std::string("--map is for a file of several buses: veldor replay --map NAME=ID FILE.pcapng")) + 1;
    if (!kind && line.Has("--channel"))
        return session.Fail("--channel is for a file of one bus (replay can|eth --channel ID FILE); a file of several "
                            "takes --map NAME=ID for each interface") +
               1;
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

    // What the file holds, for the routes, the channels' kind, the bus load
    // and the remaining time, its gaps shortened as the player will. A CAN
    // log file that can't be read is the player's to tell, in its own
    // words; a capture file is read here whole first.
    const bool capture = FileKindOf(settings.file)->kind == FileKind::Capture;
    LogSummary recording;
    std::string unreadable;
    SummaryOptions reading;
    ChannelOptions canOptions;
    if (!ReadChannelOptions(line, BusKind::Can, &canOptions, &error)) return session.Fail(error) + 1;
    reading.maxGap = settings.maxGap;
    reading.bitRate = canOptions.bitRate;
    reading.dataBitRate = canOptions.dataBitRate;
    reading.speed = speed;
    const bool read = Summarize(settings.file, &recording, &unreadable, reading);
    if (capture && !read) return session.Fail(unreadable);
    if (capture && !recording.unreadable.empty())
        return session.Fail(recording.unreadable + "; nothing was sent");

    std::vector<std::string> notes;
    if (!session.Open(kind ? std::vector<BusKind>{kind->kind} : std::vector<BusKind>{}, &error) ||
        !(kind ? KindRoutes(line, *kind, recording, &notes, &settings, &error)
               : MappedRoutes(line, recording, session, &notes, &settings, &error)))
        return session.Fail(error);
    for (const ReplayRoute& route : settings.routes) {
        const SourceSummary* source = capture ? recording.Find(route.source) : (read ? &recording.sources.front() : nullptr);
        const std::string overload = source ? Overload(*source, route.channel, settings.sync, speed) : "";
        if (!overload.empty()) return session.Fail(overload);
    }
    session.GetEngine().Clock().SetSpeed(static_cast<int>(speed * 1000 + 0.5));
    // The news of the speed is told before any component listens: none
    // hears it while it is being made.
    session.GetEngine().Clock().Flush();
    ReplayDiagram diagram;
    if (!AddReplay(session, settings, &diagram, &error) || !session.Run(&error)) return session.Fail(error);
    for (const std::string& note : notes) session.Tell(note);

    std::string channels;
    for (const ReplayRoute& route : settings.routes) channels += (channels.empty() ? "" : ", ") + route.channel.channel;
    const auto start = std::chrono::steady_clock::now();
    ReplayProgress progress(session, settings, diagram, recording, speed);
    StatusLine status;
    RateMeter rate;
    RateMeter busTime;  // microseconds of bus time a second: the load
    auto show = [&] {
        const long long sent = progress.Sent();
        const double now = Since(start);
        std::string text = "replaying onto " + channels + ": " + std::to_string(sent) + " of " +
                           std::to_string(recording.frames) + " frames  " +
                           std::to_string(static_cast<long long>(rate.Update(sent) + 0.5)) + "/s  ";
        if (!diagram.capture) text += "bus load " + Percent(busTime.Update(session.Figure("player.bus_time")) / 1e6) + "  ";
        status.Show(text + Seconds(now) + ", " + Seconds(progress.Remaining()) + " to go");
    };
    // The replay lasts the file's time, the lead and a margin for the bus.
    const double limit = (static_cast<double>(recording.Duration() + settings.lead) / 1e6) / speed + 30;
    const BusSession::End end = session.Watch([&] { return progress.Ended(); }, show, limit);
    status.Clear();
    const long long sent = progress.Sent();
    std::vector<long long> sentOn;
    for (std::size_t k = 0; k < settings.routes.size(); ++k) sentOn.push_back(progress.SentOn(k));
    const long long dropped = progress.Dropped();
    const long long late = progress.Late();
    const long long refused = progress.Refused();
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
        std::string onto = channels;
        if (settings.routes.size() > 1) {
            onto.clear();
            for (std::size_t k = 0; k < settings.routes.size(); ++k)
                onto += (onto.empty() ? "" : ", ") + settings.routes[k].channel.channel + " (" +
                        std::to_string(sentOn[k]) + " from " + settings.routes[k].source + ")";
        }
        std::printf("replayed %lld frames of %s in %s onto %s (%s); dropped %lld, late %lld", sent,
                    settings.file.c_str(), Seconds(Since(start)).c_str(), onto.c_str(),
                    settings.sync ? "synchronised" : ("speed " + std::to_string(speed).substr(0, 4)).c_str(), dropped,
                    late);
        if (refused > 0) std::printf(", too long for the interface %lld", refused);
        if (unreadableLines > 0) std::printf(", unreadable %s %lld", diagram.capture ? "blocks" : "lines", unreadableLines);
        if (gaps > 0) std::printf(", gaps shortened %lld", gaps);
        if (others > 0) std::printf(", %s passed over %lld", diagram.capture ? "blocks of other kinds" : "objects of other kinds", others);
        const char* how = failed                                  ? " (failed)"
                          : end == BusSession::End::Interrupted ? " (interrupted)"
                          : end == BusSession::End::TimeUp      ? " (not ended in time)"
                                                                : "";
        std::printf("%s\n", how);
        std::fflush(stdout);
    }
    if (failed) return session.Fail("the replay onto " + channels + " stopped: " + failure);
    if (end == BusSession::End::TimeUp) return session.Fail("the replay did not end in time");
    return 0;
}

}  // namespace veldor::cli
