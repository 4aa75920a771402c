// The diagrams of the bus commands, built on a BusSession through the
// engine's C++ API, the same for every kind of bus (BusKinds.h):
//
//   record   one monitor a channel, "monitor<k>" -> the file's recorder
//            "recorder": CanFileRecorder (one CAN channel) or
//            CaptureFileRecorder (any mix, an input a channel)
//   replay   the file's player "player": CanFilePlayer, or
//            CaptureFilePlayer with an output an interface -> one injector
//            a route, "injector<k>", on its channel
//            synchronised: the player's four times feed every injector's
//            time inputs, and each injector's replay state feeds a
//            CanReplayStatus "status<k>"
//
// Synchronised, the hardware emits a frame recorded at t at replay start +
// (t - log start), on its own clock, which all the channels share; the
// player hands frames on send_ahead before that, so that each injector's
// stream always holds the next ones. Unsynchronised, the player hands each
// frame on when it is due on the engine's clock and the injector sends it
// at once.
#ifndef VELDOR_CLI_BUS_DIAGRAMS_H
#define VELDOR_CLI_BUS_DIAGRAMS_H

#include <string>
#include <utility>
#include <vector>

#include "BusSession.h"
#include "LogComparison.h"

namespace veldor::cli {

struct RecordSettings {
    std::string file;
    std::vector<ChannelOptions> channels;
    // CAN monitors. By default they read their channel each millisecond into
    // one element a read, with room for 256 elements: at the most frames that
    // a bus carries (empty frames back to back: 18000 a second classic at
    // 1 Mbit/s, 26000 FD at 1/8 Mbit/s) a read holds some 20 frames, far from
    // the 256 that one read takes, and the recorder may fall a quarter of a
    // second behind.
    std::string outputType = "universal";  // "classic", "fd" or "universal"
    bool vectorize = true;
    bool canEvents = false;       // read CAN channels on their events, not periodically
    long long pollingPeriod = 0;  // microseconds; 0: kCanReadPeriod for CAN, the monitor's own for Ethernet
};

const long long kCanReadPeriod = 1000;  // microseconds
const int kCanMonitorFifo = 256;        // elements
// A monitor has a read's 256 frames of margin (10 ms of a full CAN FD bus),
// the recorder a FIFO's 256 elements: the threads of a recording, monitors
// and recorder alike, come first when the machine is busy, at the highest
// priority short of real time (nice -9, where the system lets the process
// raise it). Alike, since a monitor that waits for the FIFO's lock waits for
// the recorder to run again if that lost its processor holding it. Real-time
// monitors lost frames with 16 full buses: they sit below the simulated
// hardware's real-time threads and under the system's cap on real time.
const int kRecordingPriority = 249;

std::string MonitorName(std::size_t k);
// The properties, beyond its channel, that a recording gives a monitor of a
// bus of `kind`: name and value.
std::vector<std::pair<std::string, std::string>> MonitorSettings(const RecordSettings& settings, BusKind kind);
// The recorder is made first, so that it runs before the monitors do.
// `inputs` gets the recorder's input of each channel.
bool AddRecording(BusSession& session, const RecordSettings& settings, std::vector<std::string>* inputs,
                  std::string* error);
// The frames lost on the way into the file: those that the recorder's
// FIFOs lost to the monitors.
long long RecordingDropped(BusSession& session, const RecordSettings& settings);
// How often the monitors said they lost frames or took bad ones (a read
// larger than a CAN monitor takes, a frame the Ethernet hardware marked),
// as the engine counts their reports.
long long MonitorTroubles(BusSession& session, const RecordSettings& settings);

// One bus of the file onto one channel.
struct ReplayRoute {
    // The file's interface (its name, or its number from 0); empty for the
    // frames of a CAN log file.
    std::string source;
    ChannelOptions channel;
};

struct ReplaySettings {
    std::string file;
    std::vector<ReplayRoute> routes;
    // Interfaces of a capture file that are left out.
    std::vector<std::string> skip;
    bool sync = false;
    bool highSpeed = false;
    bool stopOnError = false;
    long long lead = 500000;       // microseconds from the start of the run to the first frame
    long long sendAhead = 200000;  // synchronised only
    long long stopAfter = 0;       // synchronised only; 0: no stop
    long long maxGap = 60000000;   // longer gaps between frames are shortened to it; 0: none
};

// What AddReplay made: per route, the player's output that feeds it.
struct ReplayDiagram {
    bool capture = false;  // a CaptureFilePlayer
    std::vector<std::string> outputs;
    static std::string Injector(std::size_t k) { return "injector" + std::to_string(k); }
    static std::string Status(std::size_t k) { return "status" + std::to_string(k); }
};

bool AddReplay(BusSession& session, const ReplaySettings& settings, ReplayDiagram* diagram, std::string* error);

// The progress of a replay that runs, read from its components' figures.
class ReplayProgress {
public:
    // `recording` says how long the file lasts; `speed` is the engine's.
    ReplayProgress(BusSession& session, const ReplaySettings& settings, const ReplayDiagram& diagram,
                   const LogSummary& recording, double speed);

    // True once the last frame has left: synchronised, the bus library says
    // each replay ended (or stopped); unsynchronised, the player is through
    // the file and the engine's time is past the last frame.
    bool Ended();
    long long Sent();
    long long SentOn(std::size_t route);
    // Frames lost on the way: by the player's FIFOs; synchronised, by the
    // bus library too.
    long long Dropped();
    long long Late();
    long long UnreadableLines();
    // Frames an Ethernet injector refused, longer than its interface takes.
    long long Refused();
    // Seconds of real time until the last frame is due.
    double Remaining();

private:
    BusSession& m_session;
    ReplaySettings m_settings;
    ReplayDiagram m_diagram;
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
