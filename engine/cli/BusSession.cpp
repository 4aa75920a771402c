#include "BusSession.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

#include "NxBusLibraryPaths.h"
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

const char* const kBusLibrary = NX_BUSAPI_CAN_LIBRARY_PATH;
const char* const kCustomChannel = "Custom channel";
const char* const kDiedOfError = "died due to an error";
const char* const kDropWarning = "Too many messages [msgBufferSize:";
// Frames one read of a monitor can hand on; the rest of a larger read is
// dropped, and the monitor says how large the read was.
const long long kMonitorBatch = 256;

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

const char* BusSession::BusLibraryPath() { return kBusLibrary; }

bool BusSession::Open(bool needBus, std::string* error)
{
    const std::string folder = PackageFolder();
    for (const char* package : {"veldor_bus_norvex.pck", "veldor_io.pck"}) {
        if (!m_engine.LoadPackage(folder + "/" + package, error)) return false;
    }
    if (needBus && access(kBusLibrary, R_OK) != 0) {
        *error = std::string("the CAN bus access library is not installed at ") + kBusLibrary +
                 " (run under tools/with-sim-bus for the simulated bus, or make install-sim)";
        return false;
    }
    // Each component starts once the one before it was born: a diagram made
    // readers first misses nothing of what its senders send.
    return m_engine.Graph().SetProperty("Engine.sequentialStart", "true", false, error);
}

bool BusSession::Channels(const std::string& ip, std::vector<ChannelEntry>* channels, std::string* error,
                          const std::string& model)
{
    const std::string scout = "channel_scout";
    if (!Make(model, scout, error) || !Set(scout + ".ip", ip, error)) return false;
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

bool BusSession::MakeOnChannel(const std::string& model, const std::string& name, const ChannelOptions& options,
                               const std::string& replayMode, std::string* error)
{
    std::string arbitration;
    std::string data;
    // A classic channel runs at one rate.
    if (!RateItem(options.bitRate, &arbitration, error) ||
        !RateItem(options.fd ? options.dataBitRate : options.bitRate, &data, error))
        return false;
    if (!Make(model, name, error)) return false;
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
        *error = "unknown channel \"" + options.channel + "\" at " + options.ip +
                 (names.empty() ? std::string(": the bus library offers no channel there")
                                : (replayMode == "Synchronized" ? "; channels that can replay: " : "; channels: ") + names);
        return false;
    }
    const unsigned long errors = m_engine.GetConsole().ErrorCount();
    if (!Set(name + ".channel", options.channel, error)) return false;
    if (m_engine.GetConsole().ErrorCount() != errors) {
        *error = Plain(m_engine.GetConsole().LastError());
        return false;
    }
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
    const unsigned long errors = m_engine.GetConsole().ErrorCount();
    // A component that fails its birth after the run started is Watch's to
    // see: the count before the run stays the reference.
    m_errorsSeen = errors;
    Relay();
    m_firstError.clear();
    if (m_engine.Graph().Run(error)) return true;
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
    return ok ? value : 0;
}

void BusSession::Relay()
{
    for (const veldor::ReportRecord& report : m_engine.GetConsole().TakeCaptured()) {
        if (report.level == VELD::Error && m_firstError.empty()) m_firstError = Plain(report.text);
        // That a component died of its error says nothing the error did not.
        if (report.level == VELD::Warning && report.text.find(kDiedOfError) == std::string::npos) {
            const std::size_t at = report.text.find(kDropWarning);
            if (at != std::string::npos) {
                const long long read = std::atoll(report.text.c_str() + at + std::strlen(kDropWarning));
                if (read > kMonitorBatch) m_monitorDrops += read - kMonitorBatch;
            }
            Tell("warning: " + Plain(report.text));
        }
    }
}

bool BusSession::NewError(std::string* reason)
{
    Relay();
    const unsigned long errors = m_engine.GetConsole().ErrorCount();
    if (errors == m_errorsSeen) return false;
    m_errorsSeen = errors;
    // The first error is the cause; what follows tells its consequences.
    *reason = m_firstError.empty() ? Plain(m_engine.GetConsole().LastError()) : m_firstError;
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
