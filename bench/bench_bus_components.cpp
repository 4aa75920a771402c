// The bus components through the engine, on the simulated CAN bus and the
// simulated Ethernet link, all figures in one run:
//
//   throughput  the highest rate, in frames per second, at which every frame
//               sent reaches a reader downstream of NxCanMonitoring, for
//               classic and FD frames, vectorised or not, event-based or
//               polling (1 ms sampling), beside the goal of 50000; the
//               frames go out evenly on the virtual channel, which takes no
//               bus time, so that the bus does not set the limit
//   channels    16 monitors on 16 buses that carry the most frames their bit
//               timing allows, at once: nothing may be lost
//   latency     from a frame's reception by the simulated hardware to its
//               arrival in the StartReading of a reader downstream of an
//               event-based monitor (p50, p99, max)
//   replay      a synchronised replay by NxCanInject: how far each frame's
//               emission strays from its schedule (p50, p99, p99.9, max),
//               and the frames more than 1 ms late
//   ethernet    NxEthMonitoring: the highest rate of 64-byte and of 1518-byte
//               frames (with their check sequence) that reaches a reader
//               downstream with nothing lost, one frame or one read an
//               element, beside tcpdump's on the same link, with the CPU a
//               frame costs each; NxEthInject: direct sending, and a
//               synchronised replay's emission error at 1000 and 10000
//               frames/s with the CPU a frame costs
//
// Runs on the simulated libraries at the package's fixed paths: under
// tools/with-sim-bus, into which the program puts itself when they are not
// there.
//   bench_bus_components [throughput|channels|latency|replay|ethernet|ethernet-monitoring|ethernet-sending|ethernet-replay]
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "BusDiagrams.h"
#include "Engine.h"
#include "EthLinkLoad.h"
#include "NxBusLibraryPaths.h"
#include "OnSimulatedBus.h"
#include "can_load.h"
#include "sim_frame.h"
#include "ThreadCpu.h"
#include "WakeLatency.h"

namespace {

const char* const kLibrary = NX_BUSAPI_CAN_LIBRARY_PATH;
const char* const kTs = "3|1|Convert HW timestamps to Veldor timebase|Keep HW timestamps (apply this on output)|Keep "
                        "HW timestamps (use Veldor timebase on output)";

veldor::EngineOptions Quiet()
{
    veldor::EngineOptions options;
    options.printReports = false;
    return options;
}

bool Eventually(const std::function<bool()>& done, double seconds)
{
    auto until = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!done()) {
        if (std::chrono::steady_clock::now() > until) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

// One diagram: an engine with the packages, set up by full names.
class Diagram {
public:
    Diagram() : m_engine(Quiet())
    {
        Check(m_engine.LoadPackage(VELDOR_BUS_PACKAGE, &m_error));
        Check(m_engine.LoadPackage(VELDOR_IO_PACKAGE, &m_error));
        Set("Engine.sequentialStart", "true");
    }
    ~Diagram() { m_engine.Graph().Clear(); }

    void Make(const std::string& model, const std::string& name) { Check(m_engine.Graph().Create(model, name, &m_error)); }
    void Set(const std::string& property, const std::string& value)
    {
        Check(m_engine.Graph().SetProperty(property, value, false, &m_error));
    }
    void Connect(const std::string& output, const std::string& input)
    {
        Check(m_engine.Graph().Connect(output, input, &m_error));
    }
    void OnChannel(const std::string& model, const std::string& name, const std::string& channel, bool fd,
                   const std::string& replayMode = "", int kbit = 500, int dataKbit = 2000)
    {
        Make(model, name);
        if (!replayMode.empty()) Set(name + ".replay_mode", replayMode);
        Check(m_engine.Graph().Trigger(name + ".Refresh_Devices", nullptr, &m_error));
        Set(name + ".channel", channel);
        Set(name + ".can_fd", fd ? "true" : "false");
        Set(name + ".arbitration_baudrate", std::to_string(kbit));
        Set(name + ".data_baudrate", std::to_string(fd ? dataKbit : kbit));
    }
    void OnInterface(const std::string& model, const std::string& name, const std::string& interface,
                     const std::string& replayMode = "")
    {
        Make(model, name);
        if (!replayMode.empty()) Set(name + ".replay_mode", replayMode);
        Check(m_engine.Graph().Trigger(name + ".Refresh_Devices", nullptr, &m_error));
        Set(name + ".channel", interface);
    }
    bool Reported(const std::string& text) { return m_engine.GetConsole().Contains(text); }
    std::size_t Told(const std::string& text) { return m_engine.GetConsole().CountContaining(text); }
    void Run() { Check(m_engine.Graph().Run(&m_error)); }
    void Shutdown() { m_engine.Graph().Shutdown(); }
    long long Figure(const std::string& property)
    {
        bool ok = false;
        long long value = m_engine.GetIntegerProperty(property.c_str(), &ok);
        return ok ? value : -1;
    }
    long long Now() { return m_engine.CurrentTime(true, true); }

private:
    template <class T>
    void Check(T ok)
    {
        if (ok) return;
        std::fprintf(stderr, "bench_bus_components: %s\n", m_error.c_str());
        std::exit(1);
    }

    veldor::Engine m_engine;
    std::string m_error;
};

struct Percentiles {
    long long p50, p99, p999, max;
};

Percentiles Of(std::vector<long long> values)
{
    if (values.empty()) return {0, 0, 0, 0};
    std::sort(values.begin(), values.end());
    auto at = [&](double q) { return values[static_cast<std::size_t>(q * static_cast<double>(values.size() - 1))]; };
    return {at(0.5), at(0.99), at(0.999), values.back()};
}

// ---------------------------------------------------------------------------
// Throughput

const double kThroughputGoal = 50000;  // frames/s, lossless, in every mode

// The monitor's settings that the tools choose (veldor record can, the
// examples): a read a millisecond, an element a read, room for a quarter of
// a second of elements.
void RecordingDefaults(Diagram& d, const std::string& monitor)
{
    using namespace veldor::cli;
    for (const auto& [name, value] : MonitorSettings(RecordSettings(), BusKind::Can)) d.Set(monitor + "." + name, value);
}

struct Flow {
    bool fd;
    bool vectorize;
    bool polling;
};

// The sender of the throughput runs, on the virtual channel, which takes no
// bus time, so that the bus does not set the limit.
veldor_test::CanLoad* g_virtual = nullptr;

// Sends `rate` frames a second for half a second; true when every frame
// came, in order, once.
bool Lossless(const Flow& flow, int rate, double* achieved)
{
    Diagram d;
    d.OnChannel("NxCanMonitoring", "rx", "NVX-CAN-2", flow.fd);
    d.Set("rx.vectorize_frames", flow.vectorize ? "true" : "false");
    // Room for a read of 256 frames, one an element: the reader downstream,
    // which is the harness, does not hold the monitor back.
    d.Set("rx.oCAN.fifosize", std::to_string(veldor::cli::kCanMonitorFifo));
    if (flow.polling) {
        d.Set("rx.sampling_mode", "Polling");
        d.Set("rx.sampling_period", "1000");
    }
    d.Make("CanFrameStats", "stats");
    d.Connect("rx.oCAN", "stats.iCAN");
    d.Run();
    const long long count = std::max(500, rate / 2);
    g_virtual->SetFrames(flow.fd, flow.fd ? 64 : 8);
    const long long sent = static_cast<long long>(g_virtual->Send(count, rate));
    Eventually([&] { return d.Figure("stats.frames") >= sent; }, 3.0);
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    d.Shutdown();
    const long long frames = d.Figure("stats.frames");
    const long long span = d.Figure("stats.last_arrival") - d.Figure("stats.first_arrival");
    *achieved = span > 0 ? (frames - 1) * 1e6 / static_cast<double>(span) : 0;
    return sent == count && frames == count && d.Figure("stats.lost") == 0 && d.Figure("stats.disordered") == 0;
}

void Throughput()
{
    std::printf("Throughput: frames per second from the bus to a reader downstream of NxCanMonitoring, nothing\n"
                "lost (a rate passes when one of two runs of half a second loses nothing); the frames go out\n"
                "on the virtual channel, evenly, from a thread of this program\n");
    std::printf("  %-8s %-12s %-12s %12s %12s   goal\n", "frames", "elements", "reader", "lossless", "measured");
    veldor_test::CanLoad sender(kLibrary, "NVX-VIRT-1", "Norvex", "Virtual");
    if (!sender.Error().empty()) {
        std::fprintf(stderr, "bench_bus_components: %s\n", sender.Error().c_str());
        std::exit(1);
    }
    g_virtual = &sender;
    const int rates[] = {2000, 5000, 10000, 20000, 50000, 100000, 200000};
    for (bool fd : {false, true})
        for (bool vectorize : {false, true})
            for (bool polling : {false, true}) {
                const Flow flow{fd, vectorize, polling};
                int best = 0;
                double measured = 0;
                for (int rate : rates) {
                    double achieved = 0;
                    if (!Lossless(flow, rate, &achieved) && !Lossless(flow, rate, &achieved)) break;
                    best = rate;
                    measured = achieved;
                }
                std::printf("  %-8s %-12s %-12s %12d %12.0f   %.0f: %s\n", fd ? "FD 64 B" : "CAN 8 B",
                            vectorize ? "vectorised" : "one frame", polling ? "polling" : "event-based", best,
                            measured, kThroughputGoal, best >= kThroughputGoal ? "pass" : "MISS");
                std::fflush(stdout);
            }
    g_virtual = nullptr;
}

// ---------------------------------------------------------------------------
// Many channels

const int kLoadedChannels = 16;

// The simulated library's configuration of the many-channel run: 16 buses
// at 1 Mbit/s (8 Mbit/s in the data phase), each with a sending and a
// monitored channel.
std::string LoadedBuses()
{
    std::string text;
    for (int k = 1; k <= kLoadedChannels; ++k) {
        const std::string n = std::to_string(k);
        text += "[bus LOAD" + n + "]\naddress = 127.0.0.1\nbitrate = 1000000\ndata_bitrate = 8000000\n";
        for (const char* end : {"TX", "RX"})
            text += "[channel LOAD-" + n + "-" + end + "]\nbus = LOAD" + n + "\nvendor = Norvex\ninterface = Bench\n";
    }
    return text;
}

// The library reads its configuration once, at its first call: the
// many-channel run is a process of its own, this program again with
// "channels" and that configuration.
bool ManyChannelsApart()
{
    char folder[] = "/tmp/bench_bus_components.XXXXXX";
    if (!mkdtemp(folder)) return false;
    const std::string path = std::string(folder) + "/sim.conf";
    std::ofstream(path) << LoadedBuses();
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        setenv("NXBUSAPI_SIM_CONFIG", path.c_str(), 1);
        execl("/proc/self/exe", "bench_bus_components", "channels", static_cast<char*>(nullptr));
        _exit(127);
    }
    int status = 0;
    if (child > 0) waitpid(child, &status, 0);
    std::remove(path.c_str());
    rmdir(folder);
    return child > 0 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// How the monitors of the many-channel case are set.
struct LoadedMonitor {
    const char* name;
    bool recording;  // as veldor record sets them
    bool deepFifo;   // event-based, a frame an element, the recording's FIFO size
};
const LoadedMonitor kLoadedMonitors[] = {
    {"as veldor record sets it", true, false}, {"event-based, a frame", false, true}, {"as it comes", false, false}};

// 16 monitors on 16 channels whose buses carry the most frames that their
// bit timing allows, at once, for a second: every frame must be counted.
bool ManyChannels()
{
    std::printf("\nMany channels: %d NxCanMonitoring on %d buses at full load at once (a sender keeps each\n"
                "bus's wire busy), every frame counted by a CanFrameStats each; the monitors as veldor record\n"
                "sets them, and event-based with an element a frame in a FIFO of %d, goal: nothing lost; for\n"
                "comparison, as the component comes (the same in a FIFO of 16, which couples the monitor to\n"
                "its reader's every wake-up)\n",
                kLoadedChannels, kLoadedChannels, veldor::cli::kCanMonitorFifo);
    std::printf("  %-8s %-26s %10s %8s %8s %8s %8s   goal\n", "frames", "monitor", "wire max/s", "rate/s",
                "frames", "lost", "reads>256");
    bool pass = true;
    for (bool fd : {false, true})
        for (const LoadedMonitor& m : kLoadedMonitors) {
            const unsigned length = fd ? 64 : 8;
            nxsim::FrameShape shape;
            shape.fd = shape.brs = fd;
            shape.length = length;
            const double wire = 1e9 / static_cast<double>(nxsim::FrameDurationNs(shape, 1000000, 8000000));
            const long long count = static_cast<long long>(wire);  // a second of frames
            std::vector<std::unique_ptr<veldor_test::CanLoad>> senders;
            Diagram d;
            for (int k = 1; k <= kLoadedChannels; ++k) {
                const std::string n = std::to_string(k), rx = "rx" + n, stats = "stats" + n;
                d.OnChannel("NxCanMonitoring", rx, "LOAD-" + n + "-RX", fd, "", 1000, 8000);
                if (m.recording) RecordingDefaults(d, rx);
                if (m.deepFifo) d.Set(rx + ".oCAN.fifosize", std::to_string(veldor::cli::kCanMonitorFifo));
                d.Make("CanFrameStats", stats);
                d.Set(stats + ".capacity", "0");
                d.Connect(rx + ".oCAN", stats + ".iCAN");
                senders.emplace_back(new veldor_test::CanLoad(kLibrary, "LOAD-" + n + "-TX", "Norvex", "Bench"));
                senders.back()->SetFrames(fd, length);
            }
            d.Run();
            for (auto& s : senders) s->Start(count, 0);
            long long sent = 0;
            for (auto& s : senders) sent += static_cast<long long>(s->Join());
            auto counted = [&] {
                long long frames = 0;
                for (int k = 1; k <= kLoadedChannels; ++k) frames += d.Figure("stats" + std::to_string(k) + ".frames");
                return frames;
            };
            Eventually([&] { return counted() >= sent; }, 5.0);
            std::this_thread::sleep_for(std::chrono::milliseconds(30));
            d.Shutdown();
            long long frames = 0, lost = 0;
            double rate = 0;
            for (int k = 1; k <= kLoadedChannels; ++k) {
                const std::string stats = "stats" + std::to_string(k);
                frames += d.Figure(stats + ".frames");
                lost += d.Figure(stats + ".lost") + d.Figure(stats + ".disordered");
                const long long span = d.Figure(stats + ".last_arrival") - d.Figure(stats + ".first_arrival");
                if (span > 0) rate += (d.Figure(stats + ".frames") - 1) * 1e6 / static_cast<double>(span);
            }
            const long long expected = count * kLoadedChannels;
            lost += expected - frames;
            const bool ok = sent == expected && lost == 0;
            if (m.recording || m.deepFifo) pass = pass && ok;
            const std::string goal =
                m.recording || m.deepFifo ? std::string("nothing lost: ") + (ok ? "pass" : "MISS") : "-";
            std::printf("  %-8s %-26s %10.0f %8.0f %8lld %8lld %8zu   %s\n", fd ? "FD 64 B" : "CAN 8 B",
                        m.name, wire, rate / kLoadedChannels, frames,
                        lost, d.Told("Too many messages"), goal.c_str());
            std::fflush(stdout);
        }
    return pass;
}

// ---------------------------------------------------------------------------
// Latency

void Latency()
{
    std::printf("\nLatency, event-based: hardware reception to the downstream reader's StartReading (us)\n");
    std::printf("  %-12s %8s %8s %8s %8s\n", "elements", "frames", "p50", "p99", "max");
    for (bool vectorize : {false, true}) {
        Diagram d;
        d.OnChannel("NxCanMonitoring", "rx", "NVX-CAN-2", false);
        d.Set("rx.ts_behavior", kTs);  // hardware time, which is the engine's on this bus
        d.Set("rx.vectorize_frames", vectorize ? "true" : "false");
        d.Make("CanFrameStats", "stats");
        d.Connect("rx.oCAN", "stats.iCAN");
        const int count = 2000;
        d.Make("CanGenerator", "gen");
        d.Set("gen.count", std::to_string(count));
        d.Set("gen.period", "500");
        d.OnChannel("NxCanInject", "tx", "NVX-VIRT-1", false, "Unsynchronized");
        d.Connect("gen.oCAN", "tx.iCAN");
        d.Run();
        Eventually([&] { return d.Figure("stats.frames") >= count; }, 10);
        d.Shutdown();
        std::printf("  %-12s %8lld %8lld %8lld %8lld\n", vectorize ? "vectorised" : "one frame",
                    d.Figure("stats.frames"), d.Figure("stats.latency_p50"), d.Figure("stats.latency_p99"),
                    d.Figure("stats.latency_max"));
        std::fflush(stdout);
    }
}

// ---------------------------------------------------------------------------
// Synchronised replay

// The frames a statistics component saw, one line each in its csv file
// ("counter,frame_time,arrival"); the file goes with the object.
class FramesCsv {
public:
    FramesCsv()
    {
        char folder[] = "/tmp/bench_bus_components.XXXXXX";
        if (mkdtemp(folder)) m_folder = folder;
        m_path = m_folder + "/frames.csv";
    }
    ~FramesCsv()
    {
        std::remove(m_path.c_str());
        rmdir(m_folder.c_str());
    }
    const std::string& Path() const { return m_path; }

    // Each frame's emission, the time it was stamped with, minus its
    // schedule, start + counter x period.
    std::vector<long long> EmissionErrors(long long start, long long period) const
    {
        std::vector<long long> errors;
        std::ifstream file(m_path);
        std::string line;
        while (std::getline(file, line)) {
            long long counter = 0, ts = 0, arrival = 0;
            char comma;
            std::istringstream(line) >> counter >> comma >> ts >> comma >> arrival;
            errors.push_back(ts - (start + counter * period));
        }
        return errors;
    }

private:
    std::string m_folder;
    std::string m_path;
};

const char* const kEmissionGoals = "goals on an idle machine: p99 below 100 us, p99.9 below 1 ms";

void PrintEmissionHeader(const char* path)
{
    std::printf("  %-10s %8s %8s %8s %8s %8s %8s %8s\n", path, "frames", "p50", "p99", "p99.9", "max", "min", "late");
}

// One row: the size of the errors' percentiles, the earliest, the frames
// more than 1 ms late, and the goals.
void PrintEmission(const char* path, const std::vector<long long>& errors)
{
    std::vector<long long> magnitudes;
    for (long long e : errors) magnitudes.push_back(e < 0 ? -e : e);
    const Percentiles p = Of(magnitudes);
    const long long late = std::count_if(errors.begin(), errors.end(), [](long long e) { return e > 1000; });
    const long long min = errors.empty() ? 0 : *std::min_element(errors.begin(), errors.end());
    std::printf("  %-10s %8zu %8lld %8lld %8lld %8lld %8lld %8lld   p99 %s, p99.9 %s\n", path, errors.size(), p.p50,
                p.p99, p.p999, p.max, min, late, p.p99 < 100 ? "pass" : "MISS", p.p999 < 1000 ? "pass" : "MISS");
    std::fflush(stdout);
}

// The four replay times of a ReplayTimeSource "times" on injector "tx",
// made last so that the lead counts from an injector that is up.
void ReplayTimes(Diagram& d, long long logStart, long long logEnd, long long lead, long long eofDelay)
{
    d.Make("ReplayTimeSource", "times");
    d.Set("times.log_start", std::to_string(logStart));
    d.Set("times.replay_lead", std::to_string(lead));
    d.Set("times.log_end", std::to_string(logEnd));
    d.Set("times.eof_delay", std::to_string(eofDelay));
    for (const char* input : {"LogStartTime", "ReplayStartTime", "ReplayStopTime", "ReplayEofTime"})
        d.Connect(std::string("times.o") + input, std::string("tx.i") + input);
}

void Replay()
{
    std::printf("\nSynchronised replay: emission minus schedule (us), frames more than 1 ms late;\n%s\n",
                kEmissionGoals);
    PrintEmissionHeader("path");
    const long long logStart = 1000000, period = 1000;
    const int count = 2000;
    for (bool highSpeed : {false, true}) {
        FramesCsv csv;
        long long start = 0;
        {
            Diagram d;
            d.OnChannel("NxCanMonitoring", "rx", "NVX-CAN-2", false);
            d.Set("rx.ts_behavior", kTs);
            d.Make("CanFrameStats", "stats");
            d.Set("stats.csv", csv.Path());
            d.Connect("rx.oCAN", "stats.iCAN");
            d.Make("CanGenerator", "gen");
            d.Set("gen.count", std::to_string(count));
            d.Set("gen.period", std::to_string(period));
            d.Set("gen.first_timestamp", std::to_string(logStart));
            d.Set("gen.paced", "false");
            d.Set("gen.frames_per_element", "100");
            d.OnChannel("NxCanInject", "tx", "NVX-CAN-1", false, "Synchronized");
            d.Set("tx.high_speed", highSpeed ? "true" : "false");
            d.Connect("gen.oCAN", "tx.iCAN");
            ReplayTimes(d, logStart, logStart + count * period, 300000, 200000);
            d.Run();
            Eventually([&] { return d.Figure("stats.frames") >= count; }, 10);
            start = d.Figure("times.replay_start_time");
            d.Shutdown();
        }
        PrintEmission(highSpeed ? "high-speed" : "normal", csv.EmissionErrors(start, period));
    }
}

// ---------------------------------------------------------------------------
// Ethernet

eth_test::Api g_eth;  // the library, for the sender on NVX-ETH-1

using veldor_bench::LinkBest;
using veldor_bench::LinkOutcome;
using veldor_bench::LinkSent;

uint64_t ProcessCpuNs()
{
    timespec t;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return static_cast<uint64_t>(t.tv_sec) * 1000000000 + static_cast<uint64_t>(t.tv_nsec);
}

double Seconds(std::chrono::steady_clock::time_point since)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

// The CPU the process uses a second (ns) while the diagram that `build`
// makes runs with nothing to do: the engine's and the components' resting
// and polling, which a figure of CPU a frame leaves out.
double IdleCpuPerSecond(const std::function<void(Diagram&)>& build)
{
    Diagram d;
    build(d);
    d.Run();
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    const uint64_t cpu = ProcessCpuNs();
    const auto begin = std::chrono::steady_clock::now();
    std::this_thread::sleep_for(std::chrono::seconds(1));
    const double perSecond = static_cast<double>(ProcessCpuNs() - cpu) / Seconds(begin);
    d.Shutdown();
    return perSecond;
}

// The CPU a frame beyond the idle diagram's: `busy` ns over `seconds`.
double CpuPerFrame(double busy, double seconds, double idlePerSecond, uint64_t frames)
{
    return frames > 0 ? std::max(0.0, busy - idlePerSecond * seconds) / static_cast<double>(frames) : 0;
}

// Frames sent on NVX-ETH-1, each ending with its counter, where the
// statistics of the io package read it.
LinkSent SendCounted(NXTEthHandle tx, double rate, uint32_t length)
{
    return veldor_bench::SendAt(g_eth, tx, rate, length, 0.5, [](uint8_t* frame, uint32_t bytes, uint32_t counter) {
        std::memcpy(frame + bytes - 4, &counter, 4);
    });
}

// NxEthMonitoring on NVX-ETH-2, reading every 5 ms (its default), into an
// EthFrameStats.
void BuildMonitor(Diagram& d, bool vectorize)
{
    d.OnInterface("NxEthMonitoring", "rx", "NVX-ETH-2");
    d.Set("rx.vectorize_frames", vectorize ? "true" : "false");
    d.Make("EthFrameStats", "stats");
    d.Set("stats.capacity", "0");
    d.Connect("rx.oEth", "stats.iEth");
}

// The monitor while the sender sends `rate` frames a second for half a
// second; its CPU: the process's but the sender's, beyond the idle
// diagram's.
LinkOutcome MonitorReads(NXTEthHandle tx, double rate, uint32_t length, bool vectorize, double idlePerSecond)
{
    Diagram d;
    BuildMonitor(d, vectorize);
    d.Run();
    const uint64_t cpu = ProcessCpuNs();
    const uint64_t senderCpu = veldor_bench::ThreadCpuNow();
    const auto begin = std::chrono::steady_clock::now();
    LinkOutcome o;
    o.sent = SendCounted(tx, rate, length);
    const uint64_t sender = veldor_bench::ThreadCpuNow() - senderCpu;
    Eventually([&] { return d.Figure("stats.frames") >= static_cast<long long>(o.sent.frames); }, 2);
    const double busy = static_cast<double>(ProcessCpuNs() - cpu) - static_cast<double>(sender);
    const double seconds = Seconds(begin);
    d.Shutdown();
    o.received = static_cast<uint64_t>(d.Figure("stats.frames"));
    o.lossless = o.received == o.sent.frames && d.Figure("stats.lost") == 0 && d.Figure("stats.disordered") == 0 &&
                 !d.Reported("Receive buffer overflow.");
    // The ladder divides by the frames received.
    o.readerCpuNs = static_cast<uint64_t>(CpuPerFrame(busy, seconds, idlePerSecond, o.received) * o.received);
    return o;
}

bool EthernetMonitoring()
{
    std::printf("\nEthernet monitoring: the highest rate (frames/s) that reaches an EthFrameStats downstream of\n"
                "NxEthMonitoring with nothing lost, one read every 5 ms, beside tcpdump's on the same link; the CPU\n"
                "a frame costs the diagram (monitor, statistics, engine: beyond what it uses idle) and tcpdump\n");
    const NXTEthHandle tx = veldor_bench::OpenInterface(g_eth, "NVX-ETH-1");
    bool pass = true;
    for (const veldor_bench::LinkLadder& s : veldor_bench::LinkLadders()) {
        std::printf("  %u-byte frames (with the check sequence)\n", s.length + 4);
        const LinkBest peer = veldor_bench::Ladder("tcpdump", s.rates, [&](double rate) {
            return veldor_bench::TcpdumpReads([&] { return SendCounted(tx, rate, s.length); });
        });
        for (bool vectorize : {false, true}) {
            const char* who = vectorize ? "monitor, a read an element" : "monitor, a frame an element";
            const double idle = IdleCpuPerSecond([&](Diagram& d) { BuildMonitor(d, vectorize); });
            const LinkBest best = veldor_bench::Ladder(
                who, s.rates, [&](double rate) { return MonitorReads(tx, rate, s.length, vectorize, idle); });
            // Both at the sender's limit: neither reader was the limit.
            const bool ok = best.rate >= peer.rate || (best.senderLimit && peer.senderLimit);
            const char* line = best.rate >= 0.99 * s.lineRate ? "pass"
                               : best.senderLimit                 ? "not reached by the sender"
                                                                  : "MISS";
            pass = pass && ok;
            std::printf("    %-27s %s   goals: tcpdump's rate or more: %s; the line rate: %s\n", who,
                        veldor_bench::Describe(best).c_str(), ok ? "pass" : "MISS", line);
        }
        std::printf("    %-27s %s\n    1000BASE-T1 line rate: %.0f frames/s\n", "tcpdump",
                    veldor_bench::Describe(peer).c_str(), s.lineRate);
        std::fflush(stdout);
    }
    veldor_bench::CloseInterface(g_eth, tx);
    return pass;
}

// Frames sent at once by NxEthInject, a millisecond apart, as fast as the
// generator gives them; the CPU a frame costs the diagram (generator,
// injector, engine), beyond what it uses idle.
void EthernetDirectSending()
{
    auto build = [](Diagram& d, int count) {
        d.Make("EthGenerator", "gen");
        d.Set("gen.count", std::to_string(count));
        d.Set("gen.rate", "0");
        d.OnInterface("NxEthInject", "tx", "NVX-ETH-1", "Unsynchronized");
        d.Connect("gen.oEth", "tx.iEth");
    };
    const double idle = IdleCpuPerSecond([&](Diagram& d) { build(d, 1); });
    const int count = 2000;
    Diagram d;
    build(d, count);
    const uint64_t cpu = ProcessCpuNs();
    const auto begin = std::chrono::steady_clock::now();
    d.Run();
    Eventually([&] { return d.Figure("gen.sent") >= count; }, 20);
    const double seconds = Seconds(begin);
    const double perFrame = CpuPerFrame(static_cast<double>(ProcessCpuNs() - cpu), seconds, idle, count);
    d.Shutdown();
    // The generator is at most the FIFO's 16 elements ahead of the sender.
    const double rate = (count - 16) / seconds;
    // The peer: a thread that pauses a millisecond at a time, as the
    // injector does after each frame, on this machine now.
    const auto paused = std::chrono::steady_clock::now();
    for (int i = 0; i < 500; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    const double pauses = 500 / Seconds(paused);
    std::printf("\nEthernet direct sending (Unsynchronized, a pause of 1 ms after each frame): %.0f frames/s,\n"
                "%.0f ns of CPU a frame beyond an idle diagram's; peer: a thread pausing 1 ms at a time, %.0f/s;\n"
                "goal: 90 %% of the peer's rate or more: %s\n",
                rate, perFrame, pauses, rate >= 0.9 * pauses ? "pass" : "MISS");
    std::fflush(stdout);
}

// A synchronised replay by NxEthInject on NVX-ETH-1 of a generator's frames
// (frame k at log time 1 s + k / rate), read by NxEthMonitoring on
// NVX-ETH-2 in hardware time: each frame's reception against the replay
// start + (frame time - log start). The CPU a frame costs the diagram
// (generator, injector and pre-processing, monitor, statistics, engine;
// beyond what it uses idle) beside the library's replay thread's, which
// sleeps to each frame's time and spins the last stretch.
void BuildReplay(Diagram& d, int rate, int count, long long logStart, const std::string& csv)
{
    const long long period = 1000000 / rate;
    d.OnInterface("NxEthMonitoring", "rx", "NVX-ETH-2");
    d.Set("rx.ts_behavior", kTs);
    d.Set("rx.vectorize_frames", "true");
    d.Make("EthFrameStats", "stats");
    d.Set("stats.csv", csv);
    d.Connect("rx.oEth", "stats.iEth");
    d.Make("EthGenerator", "gen");
    d.Set("gen.count", std::to_string(count));
    d.Set("gen.rate", std::to_string(rate));
    d.Set("gen.frames_per_element", std::to_string(std::max(1, rate / 1000)));
    d.Set("gen.first_timestamp", std::to_string(logStart));
    d.OnInterface("NxEthInject", "tx", "NVX-ETH-1", "Synchronized");
    d.Connect("gen.oEth", "tx.iEth");
    // The end of the data once the generator is through, before the last
    // frames that the stage holds back are due.
    ReplayTimes(d, logStart, logStart + count * period, 500000, count * period + 250000);
}

bool EthernetReplay()
{
    std::printf("\nEthernet synchronised replay: reception minus schedule (us), frames more than 1 ms late;\n%s\n",
                kEmissionGoals);
    PrintEmissionHeader("rate");
    const long long logStart = 1000000;
    bool pass = true;
    for (const int rate : {1000, 10000}) {
        const int count = rate == 1000 ? 2000 : 10000;
        const double idle = IdleCpuPerSecond([&](Diagram& d) { BuildReplay(d, rate, 1, logStart, ""); });
        FramesCsv csv;
        long long start = 0;
        veldor_bench::ThreadCpuWatch replayThread("nxsim-replay");
        const uint64_t cpu = ProcessCpuNs();
        const auto begin = std::chrono::steady_clock::now();
        {
            Diagram d;
            BuildReplay(d, rate, count, logStart, csv.Path());
            d.Run();
            Eventually([&] { return d.Figure("stats.frames") >= count; }, 10 + count / rate);
            start = d.Figure("times.replay_start_time");
            d.Shutdown();
        }
        const double replay = static_cast<double>(replayThread.Ns());
        const double diagram =
            CpuPerFrame(static_cast<double>(ProcessCpuNs() - cpu) - replay, Seconds(begin), idle, count);
        const std::vector<long long> errors = csv.EmissionErrors(start, 1000000 / rate);
        PrintEmission((std::to_string(rate) + "/s").c_str(), errors);
        std::printf("  %-10s CPU a frame: the diagram %.0f ns, the library's replay thread %.0f ns\n", "", diagram,
                    replay / count);
        pass = pass && errors.size() == static_cast<std::size_t>(count);
    }
    const veldor_bench::WakeLatency w = veldor_bench::MeasureWakeLatency();
    std::printf("  peer: how late this machine wakes a %s thread from a timed sleep (us): p50 %.0f  p99 %.0f  "
                "p99.9 %.0f  max %.0f\n",
                w.realtime ? "real-time" : "normal", w.p50, w.p99, w.p999, w.max);
    std::fflush(stdout);
    return pass;
}

}  // namespace

int main(int argc, char** argv)
{
    veldor_bench::OnSimulatedBus(kLibrary, argc, argv, "bench_bus_components");
    const std::string only = argc > 1 ? argv[1] : "";
    if (only.empty() || only == "throughput") Throughput();
    if (only == "channels" && std::getenv("NXBUSAPI_SIM_CONFIG")) return ManyChannels() ? 0 : 1;
    if (only.empty() || only == "channels") ManyChannelsApart();
    if (only.empty() || only == "latency") Latency();
    if (only.empty() || only == "replay") Replay();
    if (only.empty() || only.rfind("ethernet", 0) == 0) {
        const std::string error = eth_test::LoadApi(NX_BUSAPI_ETH_LIBRARY_PATH, &g_eth);
        if (!error.empty()) {
            std::fprintf(stderr, "bench_bus_components: %s\n", error.c_str());
            return 1;
        }
    }
    if (only.empty() || only == "ethernet" || only == "ethernet-monitoring") EthernetMonitoring();
    if (only.empty() || only == "ethernet" || only == "ethernet-sending") EthernetDirectSending();
    if (only.empty() || only == "ethernet" || only == "ethernet-replay") EthernetReplay();
    return 0;
}
