#include "DemoCommand.h"

#include <stdlib.h>
#include <unistd.h>

#include <cstdio>

#include "CommandLine.h"
#include "CommonOptions.h"
#include "RoundTrip.h"
#include "StatusLine.h"

namespace veldor::cli {

namespace {

const char* const kWho = "veldor demo";

std::string DefaultSample() { return std::string(VELDOR_SOURCE_DIR) + "/examples/data/sample_drive.pcapng"; }

void PrintFigures(const char* what, const ErrorFigures& e)
{
    std::printf("%s p50 %.0f us, p99 %.0f us, p99.9 %.0f us, max %.0f us\n", what, e.p50, e.p99, e.p999, e.max);
}

}  // namespace

const char* DemoCommand::Usage()
{
    return "usage: veldor demo [options] [FILE]\n"
           "Replays FILE (the bundled examples/data/sample_drive.pcapng by default: 20 s of a\n"
           "vehicle's CAN bus and automotive Ethernet) in sync, its CAN bus on one CAN channel\n"
           "and its Ethernet on one Ethernet interface, while another channel of each bus is\n"
           "recorded into one file; then compares the recording with the original, bus by bus,\n"
           "and the buses' timelines with each other. A CAN log file (.asc, .log, .blf) is\n"
           "replayed and recorded on the CAN bus alone. Made for the simulated buses: make demo\n"
           "runs it there.\n\n"
           "  --replay-channel ID    the CAN channel that replays (NVX-CAN-1)\n"
           "  --record-channel ID    the CAN channel that records (NVX-CAN-2)\n"
           "  --replay-interface ID  the Ethernet interface that replays (NVX-ETH-1)\n"
           "  --record-interface ID  the Ethernet interface that records (NVX-ETH-2)\n"
           "  --ip ADDR              where the bus libraries find them (127.0.0.1)\n"
           "  --bitrate R            the CAN bus's arbitration bit rate (500k)\n"
           "  --data-bitrate R       its data phase bit rate (2M)\n"
           "  --out FILE             keep the recording there (.pcapng; .asc or .log for a CAN\n"
           "                         log file); else it goes to a temporary folder that is removed\n";
}

int DemoCommand::Run(int argc, char** argv)
{
    BusSession session(kWho);
    CommandLine line;
    line.Value("--replay-channel").Value("--record-channel").Value("--replay-interface").Value("--record-interface");
    line.Value("--ip").Value("--bitrate").Value("--data-bitrate").Value("--out").Flag("-h").Flag("--help");
    int exit = 0;
    if (!ParseCommandLine(line, argc, argv, session, Usage(), &exit)) return exit;
    std::string error;
    if (line.Arguments().size() > 1) return session.Fail(std::string("one recording at a time\n") + Usage()) + 1;
    RoundTripSettings settings;
    settings.original = line.Arguments().empty() ? DefaultSample() : line.Arguments()[0];
    const FileKindInfo* file = FileKindOf(settings.original);
    if (!file) return session.Fail(settings.original + ": the demo replays a .asc, .log, .blf, .pcap or .pcapng file") + 1;
    const bool log = file->kind == FileKind::CanLog;

    LogSummary original;
    if (!Summarize(settings.original, &original, &error)) return session.Fail(error);
    // The file's first bus of each kind, each on its pair of channels.
    for (const BusKindInfo& kind : BusKinds()) {
        const bool can = kind.kind == BusKind::Can;
        for (const SourceSummary& source : original.sources) {
            if (source.kind != kind.kind) continue;
            RoundTripBus bus;
            bus.source = log ? "" : source.name.empty() ? std::to_string(source.index) : source.name;
            bus.replayChannel.channel = line.Get(can ? "--replay-channel" : "--replay-interface", can ? "NVX-CAN-1" : "NVX-ETH-1");
            bus.recordChannel.channel = line.Get(can ? "--record-channel" : "--record-interface", can ? "NVX-CAN-2" : "NVX-ETH-2");
            for (ChannelOptions* channel : {&bus.replayChannel, &bus.recordChannel}) {
                channel->kind = kind.kind;
                channel->ip = line.Get("--ip", channel->ip);
                if ((line.Has("--bitrate") && !ParseBitRate(line.Get("--bitrate"), &channel->bitRate)) ||
                    (line.Has("--data-bitrate") && !ParseBitRate(line.Get("--data-bitrate"), &channel->dataBitRate)))
                    return session.Fail("a bit rate is a number such as 500k or 2M") + 1;
            }
            settings.buses.push_back(bus);
            break;
        }
    }
    if (settings.buses.empty()) return session.Fail(settings.original + " holds no CAN and no Ethernet frames");
    std::string folder;
    if (line.Has("--out")) {
        settings.recording = line.Get("--out");
        const FileKindInfo* out = FileKindOf(settings.recording);
        if (!out || (!log && !HasExtension(settings.recording, {".pcapng"})))
            return session.Fail(settings.recording + ": the recording goes into a " +
                                (log ? ".asc, .log, .blf or .pcapng" : ".pcapng") + " file") +
                   1;
    } else {
        char pattern[] = "/tmp/veldor-demo.XXXXXX";
        if (!mkdtemp(pattern)) return session.Fail("cannot make a temporary folder");
        folder = pattern;
        settings.recording = folder + (log ? "/recording.asc" : "/recording.pcapng");
    }

    std::string replayOn;
    std::string recordOn;
    std::string holds;
    for (const RoundTripBus& bus : settings.buses) {
        const SourceSummary* source = log ? &original.sources.front() : original.Find(bus.source);
        replayOn += (replayOn.empty() ? "" : " and ") + bus.replayChannel.channel;
        recordOn += (recordOn.empty() ? "" : " and ") + bus.recordChannel.channel;
        holds += (holds.empty() ? "" : ", ") + std::to_string(source->frames) + " " + InfoOf(source->kind).name +
                 (log ? "" : " on " + source->Label());
    }
    std::printf("replaying  %s (%zu frames: %s; %s)\n", settings.original.c_str(), original.frames, holds.c_str(),
                Seconds(static_cast<double>(original.Duration()) / 1e6).c_str());
    std::printf("           in sync on %s, the hardware timing the frames on one clock\n", replayOn.c_str());
    std::printf("recording  %s into %s\n", recordOn.c_str(), settings.recording.c_str());
    std::fflush(stdout);

    int code = 1;
    StatusLine status;
    std::vector<BusKind> kinds;
    for (const RoundTripBus& bus : settings.buses) kinds.push_back(bus.replayChannel.kind);
    if (!session.Open(kinds, &error)) {
        code = session.Fail(error);
    } else {
        const RoundTripOutcome outcome = RunRoundTrip(session, settings, [&](long long sent, long long recorded, double left) {
            status.Show("replayed " + std::to_string(sent) + "  recorded " + std::to_string(recorded) + "  of " +
                        std::to_string(original.frames) + " frames   " + Seconds(left) + " to go");
        });
        status.Clear();
        if (outcome.end == BusSession::End::Failed || outcome.end == BusSession::End::TimeUp) {
            code = session.Fail(outcome.failure);
        } else {
            std::printf("\nreplayed %lld frames, recorded %lld, in %s; dropped %lld, late %lld%s\n", outcome.replayed,
                        outcome.recorded, Seconds(outcome.seconds).c_str(), outcome.dropped, outcome.late,
                        outcome.end == BusSession::End::Interrupted ? " (interrupted)" : "");
            if (outcome.compared) {
                std::printf("the recording against the original:\n");
                for (const BusOutcome& bus : outcome.buses) {
                    std::printf("  %s: %s%s replayed on %s, recorded on %s\n", InfoOf(bus.kind).name,
                                bus.bus.source.c_str(), bus.bus.source.empty() ? "the file" : "",
                                bus.bus.replayChannel.channel.c_str(), bus.bus.recordChannel.channel.c_str());
                    Print(bus.comparison, stdout, "    ");
                }
                if (outcome.strayMeasured) {
                    std::printf("  between the buses: each CAN frame against the Ethernet frame nearest to it, their\n"
                                "  distance in the recording against the original:");
                    PrintFigures("", outcome.stray);
                }
            }
            code = outcome.end == BusSession::End::Interrupted || outcome.Lossless() ? 0 : 1;
        }
    }
    if (!folder.empty()) {
        unlink(settings.recording.c_str());
        rmdir(folder.c_str());
    }
    return code;
}

}  // namespace veldor::cli
