// The record-while-replay round trip at 80 % bus load (as the simulator
// counts bus time) with 100000 frames
// (about 32 s of bus time at 500 kbit/s and 2 Mbit/s): the synchronised
// replay on NVX-CAN-1 recorded on NVX-CAN-2 in one engine, as veldor demo
// does, then the recording compared with the original. Runs under
// tools/with-sim-bus (make bench does so); prints the figures.
//
// The stated tolerance of the replayed gaps between frames, against the
// original's: median within 100 us (the frames' own difference in length
// on the bus is up to about 60 us of it), 99 % within 1 ms. The run fails
// when a frame is lost or changed, or the gaps are outside it.
//
//   tools/with-sim-bus build/bench/bench_round_trip [FRAMES]
#include <stdlib.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "LoadedBus.h"
#include "RoundTrip.h"
#include "can_log/LogFiles.h"
#include "SimulatedDuration.h"

namespace {

const double kGapP50 = 100;
const double kGapP99 = 1000;

}  // namespace

int main(int argc, char** argv)
{
    const std::size_t count = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 100000;
    char pattern[] = "/tmp/bench_round_trip.XXXXXX";
    const std::string folder = mkdtemp(pattern);
    const auto frames = veldor::sample::LoadedBus(count, 0.8, veldor::sample::SimulatedDuration(), 1700000000000000);
    const std::string original = folder + "/loaded.asc";
    std::string error;
    auto writer = veldor::canlog::OpenFrameWriter(original, error);
    if (!writer) return std::fprintf(stderr, "%s\n", error.c_str()), 1;
    for (const auto& f : frames) writer->Write(f);
    if (!writer->Close()) return std::fprintf(stderr, "%s\n", writer->Error().c_str()), 1;

    veldor::cli::BusSession session("bench_round_trip");
    if (!session.Open({veldor::cli::BusKind::Can}, &error)) return std::fprintf(stderr, "%s\n", error.c_str()), 1;
    veldor::cli::RoundTripSettings settings;
    settings.original = original;
    settings.recording = folder + "/recorded.log";
    settings.replayChannel.channel = "NVX-CAN-1";
    settings.recordChannel.channel = "NVX-CAN-2";
    const auto outcome = veldor::cli::RunRoundTrip(session, settings, nullptr);
    std::system(("rm -rf " + folder).c_str());
    if (!outcome.compared) return std::fprintf(stderr, "round trip failed: %s\n", outcome.failure.c_str()), 1;
    const auto& c = outcome.comparison;
    std::printf("round trip: %zu frames, %.1f s of bus time at %.1f %% load, took %.1f s\n", count,
                static_cast<double>(frames.back().timestamp - frames.front().timestamp) / 1e6,
                veldor::sample::BusLoad(frames, veldor::sample::SimulatedDuration()) * 100, outcome.seconds);
    std::printf("  replayed %lld, recorded %zu (of %zu), differing %zu, dropped %lld, late %lld\n", outcome.replayed,
                c.recordedFrames, c.originalFrames, c.differing, outcome.dropped, outcome.late);
    std::printf("  gap error:               p50 %6.0f us  p99 %6.0f us  max %6.0f us\n", c.gaps.p50, c.gaps.p99,
                c.gaps.max);
    std::printf("  error relative to first: p50 %6.0f us  p99 %6.0f us  max %6.0f us\n", c.relativeToFirst.p50,
                c.relativeToFirst.p99, c.relativeToFirst.max);
    const bool lossless = c.recordedFrames == c.originalFrames && c.differing == 0 && outcome.dropped == 0;
    const bool timed = c.gaps.p50 <= kGapP50 && c.gaps.p99 <= kGapP99;
    std::printf("  %s; gaps %s the stated tolerance (p50 <= %.0f us, p99 <= %.0f us)\n",
                lossless ? "nothing lost or changed" : "FRAMES LOST OR CHANGED", timed ? "within" : "OUTSIDE", kGapP50,
                kGapP99);
    return lossless && timed ? 0 : 1;
}
