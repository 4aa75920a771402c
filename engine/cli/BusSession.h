// What the bus commands of veldor share: an engine with the bus package and
// the io package loaded from the build's package folder, components on a bus
// channel chosen by name, the run of the diagram with Ctrl-C, the component
// reports relayed to the user, and the orderly stop that leaves no frame in
// a FIFO behind.
//
// Everything the user is told goes to the standard error stream as
// "<command>: <text>"; the engine's own printing is off. A failure is told
// once, by the caller, with the reason that these operations hand back.
#ifndef VELDOR_CLI_BUS_SESSION_H
#define VELDOR_CLI_BUS_SESSION_H

#include <atomic>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "BusKinds.h"
#include "Engine.h"

namespace veldor::cli {

struct ChannelEntry {
    std::string id;
    std::string description;
};

// A channel as the bus components take it. Rates in bit/s.
struct ChannelOptions {
    BusKind kind = BusKind::Can;
    std::string ip = "127.0.0.1";
    std::string channel;
    // CAN
    bool fd = false;
    long bitRate = 500000;
    long dataBitRate = 2000000;
    // Ethernet, synchronised replay: the injector's protocol_type item.
    std::string protocol = "Generic";
};

// A figure asked for by a name that the diagram does not have: a fault of
// the command, never a figure of 0.
class MissingFigure : public std::runtime_error {
public:
    explicit MissingFigure(const std::string& name)
        : std::runtime_error("the diagram has no figure \"" + name + "\"")
    {
    }
};

class BusSession {
public:
    // `who` prefixes every line told: "veldor record".
    explicit BusSession(const std::string& who);
    ~BusSession();
    BusSession(const BusSession&) = delete;
    BusSession& operator=(const BusSession&) = delete;

    veldor::Engine& GetEngine() { return m_engine; }
    const std::string& Who() const { return m_who; }

    // The folder of the package files: $VELDOR_PACKAGE_DIR, else "packages"
    // beside the folder of this program.
    static std::string PackageFolder();
    // Loads both packages; fails when the bus access library of one of
    // `kinds` is missing.
    bool Open(const std::vector<BusKind>& kinds, std::string* error);
    // Fails, with what to do, when the bus access library of `kind` is
    // missing.
    static bool HasLibrary(BusKind kind, std::string* error);

    // The channels of a kind that its bus library offers at `ip`, through
    // the discovery of its monitor, with their descriptions.
    bool Channels(const std::string& ip, BusKind kind, std::vector<ChannelEntry>* channels, std::string* error);
    // The kind of a channel, by the discovery of each kind; false with the
    // channels there are when no library offers it.
    bool KindOfChannel(const std::string& ip, const std::string& channel, BusKind* kind, std::string* error);

    // The monitor or the injector of the channel's kind on the channel; an
    // injector's replay mode ("Synchronized", "Unsynchronized") first, as it
    // decides the list of channels. Its settings by kind.
    bool MakeOnChannel(bool injector, const std::string& name, const ChannelOptions& options,
                       const std::string& replayMode, std::string* error);
    bool Make(const std::string& model, const std::string& name, std::string* error);
    bool Set(const std::string& property, const std::string& value, std::string* error);
    bool Connect(const std::string& output, const std::string& input, std::string* error);

    // Runs the diagram; Ctrl-C is caught from here on.
    bool Run(std::string* error);

    // Watches the run every `periodSeconds` until `done` answers true, the
    // user interrupts, a component fails or `limitSeconds` (> 0) pass;
    // `tick` runs at each turn. The reports of the components are relayed.
    enum class End { Done, Interrupted, Failed, TimeUp };
    End Watch(const std::function<bool()>& done, const std::function<void()>& tick, double limitSeconds,
              double periodSeconds = 0.25);
    // The reason of the last failure Watch saw.
    const std::string& Failure() const { return m_failure; }
    // True, with the reason, when a component reported an error since the
    // run started or since the last call.
    bool NewError(std::string* reason);

    // Stops `sources` first, then waits until each of `sinks` has taken all
    // that reached it (its "idle" figure), then stops the rest.
    void StopDraining(const std::vector<std::string>& sources, const std::vector<std::string>& sinks);

    // An integer property of a component; throws MissingFigure when there
    // is none of that name.
    long long Figure(const std::string& property);
    // The string property, or "" when there is none.
    std::string Text(const std::string& property);
    long long Now() { return m_engine.CurrentTime(true, true); }

    // Prints the warnings of the components reported so far, and the
    // errors of components that go on (the error of one that failed is the
    // caller's to tell).
    void Relay();
    // How many warnings and how many errors a component reported since it
    // was born (Run returns once every component is), as the engine counts
    // them.
    long long WarningsOf(const std::string& component);
    long long ErrorsOf(const std::string& component);

    // Tells `text` as one line; returns 1, the exit code of a failure.
    int Fail(const std::string& text) const;
    void Tell(const std::string& text) const;

    // A component's error as the user reads it: without the "component
    // <name>: " in front.
    static std::string Plain(const std::string& report);

private:
    std::string m_who;
    veldor::Engine m_engine;
    std::string m_failure;
    std::string m_firstError;  // the first failure reported since the last NewError
    bool m_failed = false;     // a failure was reported since the last NewError
    std::map<std::string, ReportCounts> m_countsAtRun;
};

// Ctrl-C and SIGTERM: the first one asks the running command to stop; a
// second one ends the process as usual. Returns the flag that the first one
// sets.
const std::atomic<bool>* CatchInterrupts();
bool Interrupted();

}  // namespace veldor::cli

#endif
