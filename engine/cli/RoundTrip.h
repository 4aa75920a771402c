// A replay recorded on the same buses: a file replayed in sync, each of its
// buses on one channel, while another channel of each bus is recorded into
// a second file, in one diagram of one engine; then the recording compared
// with the original, bus by bus, and the buses with each other. What the
// demo shows, and what the round-trip tests and the benchmark measure.
#ifndef VELDOR_CLI_ROUND_TRIP_H
#define VELDOR_CLI_ROUND_TRIP_H

#include <functional>
#include <string>
#include <vector>

#include "BusDiagrams.h"
#include "BusSession.h"
#include "LogComparison.h"

namespace veldor::cli {

// One bus of the original: replayed on one channel, recorded on another
// channel of the same bus.
struct RoundTripBus {
    std::string source;  // the original's interface; empty for a CAN log file
    ChannelOptions replayChannel;
    ChannelOptions recordChannel;
};

struct RoundTripSettings {
    std::string original;
    // A CAN log file for a CAN log original, else a .pcapng file whose
    // interfaces are named by the recorded channels.
    std::string recording;
    std::vector<RoundTripBus> buses;
    // Without buses: the one CAN bus of the original on these.
    ChannelOptions replayChannel;
    ChannelOptions recordChannel;
    bool highSpeed = true;
    long long lead = 500000;
    long long sendAhead = 200000;
};

struct BusOutcome {
    RoundTripBus bus;
    BusKind kind = BusKind::Can;
    long long replayed = 0;
    Comparison comparison;
};

struct RoundTripOutcome {
    BusSession::End end = BusSession::End::Failed;
    std::string failure;  // when end is Failed or TimeUp
    LogSummary original;
    long long replayed = 0;
    long long recorded = 0;
    long long dropped = 0;
    long long late = 0;
    long long monitorTroubles = 0;  // as MonitorTroubles counts them
    double seconds = 0;
    bool compared = false;
    std::vector<BusOutcome> buses;
    // The first bus's comparison.
    Comparison comparison;
    // Between the first CAN and the first Ethernet bus, when there are both:
    // how far their timelines in the recording stray from each other
    // against the original (Stray).
    bool strayMeasured = false;
    ErrorFigures stray;

    // Every bus recorded whole and unchanged.
    bool Lossless() const;
};

// The progress as the round trip goes: frames replayed, frames recorded,
// seconds left of the replay.
typedef std::function<void(long long, long long, double)> RoundTripTick;

// Builds and runs the diagram on `session` (opened), waits for the end of
// the replay and the last frame recorded, stops, and compares the files.
RoundTripOutcome RunRoundTrip(BusSession& session, const RoundTripSettings& settings, const RoundTripTick& tick);

}  // namespace veldor::cli

#endif
