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

std::string DefaultSample() { return std::string(VELDOR_SOURCE_DIR) + "/examples/data/sample_drive.asc"; }

}  // namespace

const char* DemoCommand::Usage()
{
    return "usage: veldor demo [options] [FILE]\n"
           "Replays FILE (the bundled examples/data/sample_drive.asc by default) in sync on\n"
           "one channel while recording another channel of the same bus, then compares the\n"
           "recording with the original. Made for the simulated bus: make demo runs it there.\n\n"
           "  --replay-channel ID  the channel that replays (NVX-CAN-1)\n"
           "  --record-channel ID  the channel that records (NVX-CAN-2)\n"
           "  --ip ADDR            where the bus library finds them (127.0.0.1)\n"
           "  --bitrate R          the bus's arbitration bit rate (500k)\n"
           "  --data-bitrate R     its data phase bit rate (2M)\n"
           "  --out FILE           keep the recording there (.asc or .log); else it goes to a\n"
           "                       temporary folder that is removed\n";
}

int DemoCommand::Run(int argc, char** argv)
{
    BusSession session(kWho);
    CommandLine line;
    line.Value("--replay-channel").Value("--record-channel").Value("--ip").Value("--bitrate").Value("--data-bitrate");
    line.Value("--out").Flag("-h").Flag("--help");
    int exit = 0;
    if (!ParseCommandLine(line, argc, argv, session, Usage(), &exit)) return exit;
    std::string error;
    if (line.Arguments().size() > 1) return session.Fail(std::string("one recording at a time\n") + Usage()) + 1;
    RoundTripSettings settings;
    settings.original = line.Arguments().empty() ? DefaultSample() : line.Arguments()[0];
    settings.replayChannel.channel = line.Get("--replay-channel", "NVX-CAN-1");
    settings.recordChannel.channel = line.Get("--record-channel", "NVX-CAN-2");
    for (ChannelOptions* channel : {&settings.replayChannel, &settings.recordChannel}) {
        channel->ip = line.Get("--ip", channel->ip);
        if ((line.Has("--bitrate") && !ParseBitRate(line.Get("--bitrate"), &channel->bitRate)) ||
            (line.Has("--data-bitrate") && !ParseBitRate(line.Get("--data-bitrate"), &channel->dataBitRate)))
            return session.Fail("a bit rate is a number such as 500k or 2M") + 1;
    }
    std::string folder;
    if (line.Has("--out")) {
        settings.recording = line.Get("--out");
    } else {
        char pattern[] = "/tmp/veldor-demo.XXXXXX";
        if (!mkdtemp(pattern)) return session.Fail("cannot make a temporary folder");
        folder = pattern;
        settings.recording = folder + "/recording.asc";
    }

    LogSummary original;
    if (!Summarize(settings.original, &original, &error)) return session.Fail(error);
    std::printf("replaying  %s (%zu frames, %s)\n", settings.original.c_str(), original.frames,
                Seconds(static_cast<double>(original.Duration()) / 1e6).c_str());
    std::printf("           in sync on %s, the bus's hardware timing the frames\n",
                settings.replayChannel.channel.c_str());
    std::printf("recording  %s into %s\n", settings.recordChannel.channel.c_str(), settings.recording.c_str());
    std::fflush(stdout);

    int code = 1;
    StatusLine status;
    if (!session.Open(true, &error)) {
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
                Print(outcome.comparison, stdout);
            }
            const Comparison& c = outcome.comparison;
            code = outcome.end == BusSession::End::Interrupted ||
                           (c.recordedFrames == c.originalFrames && c.differing == 0)
                       ? 0
                       : 1;
        }
    }
    if (!folder.empty()) {
        unlink(settings.recording.c_str());
        rmdir(folder.c_str());
    }
    return code;
}

}  // namespace veldor::cli
