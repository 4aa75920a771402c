#include "BusSession.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

#include "veld_component.h"
#include "veld_constants.h"
#include "veld_property.h"
#include "veld_property_value.h"

namespace veldor::cli {

namespace {

std::atomic<bool> g_interrupted(false);

void OnInterrupt(int signal)
{
    g_interrupted = true;
    ::signal(signal, SIG_DFL);
}

veldor::EngineOptions Silent()
{
    veldor::EngineOptions options;
    options.printReports = false;
    return options;
}

const char* const kCustomChannel = "Custom channel";
const char* const kDiedOfError = "died due to an error";

// The items of an enum property; none for another kind or none at all.
std::vector<std::string> EnumItems(VELDProperty* property)
{
    std::vector<std::string> items;
    if (!property || property->Type() != VELD::EnumProperty) return items;
    VELDEnumStruct values;
    property->Get(values);
    for (int i = 0; i < values.Count(); ++i) items.push_back(values.Item(i).Beginning());
    return items;
}

// The component enums' text of a bit rate: kilobaud among those offered.
bool RateItem(long bitsPerSecond, std::string* item, std::string* error)
{
    for (long kbaud : {8000L, 4000L, 2000L, 1000L, 500L, 250L, 125L, 100L, 50L, 20L, 10L}) {
        if (kbaud * 1000 == bitsPerSecond) {
            *item = std::to_string(kbaud);
            return true;
        }
    }
    *error = "bit rate " + std::to_string(bitsPerSecond) +
             " is not offered; take one of 10k 20k 50k 100k 125k 250k 500k 1M 2M 4M 8M";
    return false;
}

}  // namespace

const std::atomic<bool>* CatchInterrupts()
{
    struct sigaction action;
    std::memset(&action, 0, sizeof action);
    action.sa_handler = OnInterrupt;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    return &g_interrupted;
}

bool Interrupted() { return g_interrupted.load(); }

BusSession::BusSession(const std::string& who) : m_who(who), m_engine(Silent()) {}

BusSession::~BusSession() { m_engine.Graph().Clear(); }

std::string BusSession::PackageFolder()
{
    if (const char* folder = std::getenv("VELDOR_PACKAGE_DIR")) return folder;
    char self[4096];
    const ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
    if (n <= 0) return "packages";
    std::string path(self, static_cast<std::size_t>(n));
    path = path.substr(0, path.rfind('/'));
    return path.substr(0, path.rfind('/')) + "/packages";
}

bool BusSession::HasLibrary(BusKind kind, std::string* error)
{
    const BusKindInfo& info = InfoOf(kind);
    if (access(info.library, R_OK) == 0) return true;
    *error = std::string("the ") + info.name + " bus access library is not installed at " + info.library +
             " (run under tools/with-sim-bus for the simulated bus, or make install-sim)";
    return false;
}

bool BusSession::Open(const std::vector<BusKind>& kinds, std::string* error)
{
    const std::string folder = PackageFolder();
    for (const char* package : {"veldor_bus_norvex.pck", "veldor_io.pck"}) {
        if (!m_engine.LoadPackage(folder + "/" + package, error)) return false;
    }
    for (BusKind kind : kinds)
        if (!HasLibrary(kind, error)) return false;
    // Each component starts once the one before it was born: a diagram made
    // readers first misses nothing of what its senders send.
    return m_engine.Graph().SetProperty("Engine.sequentialStart", "true", false, error);
}

bool BusSession::Channels(const std::string& ip, BusKind kind, std::vector<ChannelEntry>* channels,
                          std::string* error)
{
    const std::string scout = "channel_scout";
    if (!Make(InfoOf(kind).monitor, scout, error) || !Set(scout + ".ip", ip, error)) return false;
    for (const std::string& id : EnumItems(m_engine.Property((scout + ".channel").c_str()))) {
        if (id == kCustomChannel) continue;
        ChannelEntry entry{id, ""};
        if (Set(scout + ".channel", id, error)) {
            VELDProperty* description = m_engine.Property((scout + ".channel_description").c_str());
            if (description) entry.description = description->StringValue().Beginning();
        }
        channels->push_back(entry);
    }
    m_engine.Graph().Kill(scout);
    m_engine.GetConsole().TakeCaptured();  // what the scout said is of no use
    return true;
}

bool BusSession::KindOfChannel(const std::string& ip, const std::string& channel, BusKind* kind, std::string* error)
{
    std::string offered;
    std::string missing;
    for (const BusKindInfo& info : BusKinds()) {
        std::string absent;
        if (!HasLibrary(info.kind, &absent)) {
            missing += "; " + absent;
            continue;
        }
        std::vector<ChannelEntry> channels;
        if (!Channels(ip, info.kind, &channels, error)) return false;
        std::string names;
        for (const ChannelEntry& c : channels) {
            if (c.id == channel) {
                *kind = info.kind;
                return true;
            }
            names += (names.empty() ? "" : ", ") + c.id;
        }
        if (!names.empty()) offered += std::string("; ") + info.name + " " + info.channelNoun + "s: " + names;
    }
    *error = "unknown channel \"" + channel + "\" at " + ip +
             (offered.empty() && missing.empty() ? ": the bus libraries offer no channel there" : offered + missing);
    return false;
}

bool BusSession::MakeOnChannel(bool injector, const std::string& name, const ChannelOptions& options,
                               const std::string& replayMode, std::string* error)
{
    const BusKindInfo& kind = InfoOf(options.kind);
    const bool can = options.kind == BusKind::Can;
    std::string arbitration;
    std::string data;
    // A classic channel runs at one rate.
    if (can && (!RateItem(options.bitRate, &arbitration, error) ||
                !RateItem(options.fd ? options.dataBitRate : options.bitRate, &data, error)))
        return false;
    if (!Make(injector ? kind.injector : kind.monitor, name, error)) return false;
    if (!replayMode.empty() && !Set(name + ".replay_mode", replayMode, error)) return false;
    if (!Set(name + ".ip", options.ip, error)) return false;
    const std::vector<std::string> offered = EnumItems(m_engine.Property((name + ".channel").c_str()));
    bool known = false;
    std::string names;
    for (const std::string& id : offered) {
        if (id == kCustomChannel) continue;
        known = known || id == options.channel;
        names += (names.empty() ? "" : ", ") + id;
    }
    if (!known) {
        const std::string what = can ? "channel" : kind.name + std::string(" interface");
        *error = "unknown " + what + " \"" + options.channel + "\" at " + options.ip +
                 (names.empty() ? ": the bus library offers no " + what + " there"
                                : "; " + what + (replayMode == "Synchronized" ? "s that can replay: " : "s: ") + names);
        return false;
    }
    const unsigned long errors = m_engine.GetConsole().ErrorCount();
    if (!Set(name + ".channel", options.channel, error)) return false;
    if (m_engine.GetConsole().ErrorCount() != errors) {
        *error = Plain(m_engine.GetConsole().LastError());
        return false;
    }
    if (!can) return !injector || replayMode != "Synchronized" || Set(name + ".protocol_type", options.protocol, error);
    return Set(name + ".can_fd", options.fd ? "true" : "false", error) &&
           Set(name + ".arbitration_baudrate", arbitration, error) && Set(name + ".data_baudrate", data, error);
}

bool BusSession::Make(const std::string& model, const std::string& name, std::string* error)
{
    return m_engine.Graph().Create(model, name, error) != nullptr;
}

bool BusSession::Set(const std::string& property, const std::string& value, std::string* error)
{
    return m_engine.Graph().SetProperty(property, value, false, error);
}

bool BusSession::Connect(const std::string& output, const std::string& input, std::string* error)
{
    return m_engine.Graph().Connect(output, input, error);
}

bool BusSession::Run(std::string* error)
{
    CatchInterrupts();
    // What was said while the diagram was made was told by then; a
    // component that fails its birth after the run started is Watch's to
    // see.
    Relay();
    m_failed = false;
    m_firstError.clear();
    if (m_engine.Graph().Run(error)) {
        // Started one after the other, every component is born by now: what
        // they report from here on is what they met while running.
        m_countsAtRun = m_engine.GetConsole().AllCounts();
        return true;
    }
    // The component's own words say it best.
    NewError(error);
    return false;
}

BusSession::End BusSession::Watch(const std::function<bool()>& done, const std::function<void()>& tick,
                                  double limitSeconds, double periodSeconds)
{
    const auto start = std::chrono::steady_clock::now();
    for (;;) {
        Relay();
        if (NewError(&m_failure)) return End::Failed;
        if (tick) tick();
        if (Interrupted()) return End::Interrupted;
        if (done && done()) return End::Done;
        const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        if (limitSeconds > 0 && elapsed >= limitSeconds) return End::TimeUp;
        double nap = periodSeconds;
        if (limitSeconds > 0 && limitSeconds - elapsed < nap) nap = limitSeconds - elapsed;
        std::this_thread::sleep_for(std::chrono::duration<double>(nap));
    }
}

void BusSession::StopDraining(const std::vector<std::string>& sources, const std::vector<std::string>& sinks)
{
    for (const std::string& source : sources) m_engine.Graph().Shutdown(source);
    for (const std::string& sink : sinks) {
        // A sink that died or stays busy is not waited for long.
        for (int i = 0; i < 400 && !m_engine.Graph().IsDead(sink) && Figure(sink + ".idle") == 0; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    m_engine.Graph().Shutdown();
    Relay();
}

long long BusSession::Figure(const std::string& property)
{
    bool ok = false;
    const long long value = m_engine.GetIntegerProperty(property.c_str(), &ok);
    if (!ok) throw MissingFigure(property);
    return value;
}

std::string BusSession::Text(const std::string& property)
{
    VELDProperty* p = m_engine.Property(property.c_str());
    return p ? std::string(p->StringValue().Beginning()) : std::string();
}

long long BusSession::WarningsOf(const std::string& component)
{
    return static_cast<long long>(m_engine.GetConsole().CountsOf(component).Warnings() -
                                  m_countsAtRun[component].Warnings());
}

long long BusSession::ErrorsOf(const std::string& component)
{
    return static_cast<long long>(m_engine.GetConsole().CountsOf(component).Errors() - m_countsAtRun[component].Errors());
}

void BusSession::Relay()
{
    for (const veldor::ReportRecord& report : m_engine.GetConsole().TakeCaptured()) {
        if (report.level == VELD::Error) {
            // A component that failed marked itself before it said why; one
            // that reports an error and goes on (a frame the hardware marked
            // bad) is told like a warning.
            int state = 0;
            const bool goesOn = !report.module.empty() && m_engine.States().Get(report.module, &state) &&
                                (state & VELD::ErrorState) == 0;
            if (goesOn) {
                Tell("error: " + Plain(report.text));
            } else if (!m_failed) {
                m_failed = true;
                m_firstError = Plain(report.text);
            }
        }
        // That a component died of its error says nothing the error did not.
        if (report.level == VELD::Warning && report.text.find(kDiedOfError) == std::string::npos)
            Tell("warning: " + Plain(report.text));
    }
}

bool BusSession::NewError(std::string* reason)
{
    Relay();
    if (!m_failed) return false;
    // The first error is the cause; what follows tells its consequences.
    *reason = m_firstError;
    m_failed = false;
    m_firstError.clear();
    return true;
}

int BusSession::Fail(const std::string& text) const
{
    Tell(text);
    return 1;
}

void BusSession::Tell(const std::string& text) const
{
    std::fprintf(stderr, "%s: %s\n", m_who.c_str(), text.c_str());
    std::fflush(stderr);
}

std::string BusSession::Plain(const std::string& report)
{
    const std::string prefix = "component ";
    if (report.compare(0, prefix.size(), prefix) != 0) return report;
    const std::size_t colon = report.find(": ", prefix.size());
    return colon == std::string::npos ? report : report.substr(colon + 2);
}

}  // namespace veldor::cli
