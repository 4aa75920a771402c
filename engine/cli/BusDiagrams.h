// The diagrams of the bus commands, built on a BusSession through the
// engine's C++ API:
//
//   record   NxCanMonitoring "monitor" -> CanFileRecorder "recorder"
//   replay   CanFilePlayer "player" -> NxCanInject "injector"
//            synchronised: the player's four times feed the injector's time
//            inputs, and the injector's replay state feeds
//            CanReplayStatus "replay_status"
//
// Synchronised, the hardware emits a frame recorded at t at replay start +
// (t - log start), on its own clock; the player hands frames on send_ahead
// before that, so that the injector's stream always holds the next ones.
// Unsynchronised, the player hands each frame on when it is due on the
// engine's clock and the injector sends it at once.
#ifndef VELDOR_CLI_BUS_DIAGRAMS_H
#define VELDOR_CLI_BUS_DIAGRAMS_H

#include <string>

#include "BusSession.h"
#include "LogComparison.h"

namespace veldor::cli {

struct RecordSettings {
    std::string file;
    ChannelOptions channel;
    std::string outputType = "universal";  // "classic", "fd" or "universal"
    bool vectorize = false;
    long long pollingPeriod = 0;  // microseconds; 0 reads on the channel's events
};

// The recorder is made first, so that it runs before the monitor does.
bool AddRecording(BusSession& session, const RecordSettings& settings, std::string* error);

struct ReplaySettings {
    std::string file;
    ChannelOptions channel;
    bool sync = false;
    bool highSpeed = false;
    bool stopOnError = false;
    long long lead = 500000;       // microseconds from the start of the run to the first frame
    long long sendAhead = 200000;  // synchronised only
    long long stopAfter = 0;       // synchronised only; 0: no stop
    long long maxGap = 60000000;   // longer gaps between frames are shortened to it; 0: none
};

bool AddReplay(BusSession& session, const ReplaySettings& settings, std::string* error);

// The progress of a replay that runs, read from its components' figures.
class ReplayProgress {
public:
    // `recording` says how long the file lasts; `speed` is the engine's.
    ReplayProgress(BusSession& session, const ReplaySettings& settings, const LogSummary& recording, double speed);

    // True once the last frame has left: synchronised, the bus library says
    // the replay ended (or stopped); unsynchronised, the player is through
    // the file and the engine's time is past the last frame.
    bool Ended();
    long long Sent();
    // Frames lost on the way: by the bus library, synchronised; by a FIFO.
    long long Dropped();
    long long Late();
    long long UnreadableLines();
    // Seconds of real time until the last frame is due.
    double Remaining();

private:
    BusSession& m_session;
    ReplaySettings m_settings;
    LogSummary m_recording;
    double m_speed;
};

// The last states of a synchronised replay, as CanReplayStatus keeps them:
// stopped at the stop time, ended with the end of data. (A flushed stream,
// state 5, is what a channel says before its replay was given a start.)
const long long kReplayStopped = 3;
const long long kReplayEnded = 4;

}  // namespace veldor::cli

#endif
