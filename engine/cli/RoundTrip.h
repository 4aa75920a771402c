// A replay recorded on the same bus: a log file replayed in sync on one
// channel while another channel of the bus is recorded into a second file,
// in one diagram of one engine; then the recording compared with the
// original. What the demo shows, and what the round-trip tests and the
// benchmark measure.
#ifndef VELDOR_CLI_ROUND_TRIP_H
#define VELDOR_CLI_ROUND_TRIP_H

#include <functional>
#include <string>

#include "BusDiagrams.h"
#include "BusSession.h"
#include "LogComparison.h"

namespace veldor::cli {

struct RoundTripSettings {
    std::string original;
    std::string recording;
    ChannelOptions replayChannel;  // both on one bus, with its rates
    ChannelOptions recordChannel;
    bool highSpeed = true;
    long long lead = 500000;
    long long sendAhead = 200000;
};

struct RoundTripOutcome {
    BusSession::End end = BusSession::End::Failed;
    std::string failure;  // when end is Failed or TimeUp
    LogSummary original;
    long long replayed = 0;
    long long recorded = 0;
    long long dropped = 0;
    long long late = 0;
    double seconds = 0;
    bool compared = false;
    Comparison comparison;
};

// The progress as the round trip goes: frames replayed, frames recorded,
// seconds left of the replay.
typedef std::function<void(long long, long long, double)> RoundTripTick;

// Builds and runs the diagram on `session` (opened), waits for the end of
// the replay and the last frame recorded, stops, and compares the files.
RoundTripOutcome RunRoundTrip(BusSession& session, const RoundTripSettings& settings, const RoundTripTick& tick);

}  // namespace veldor::cli

#endif
