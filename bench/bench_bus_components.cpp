// The CAN bus components through the engine, on the simulated bus:
//
//   throughput  the highest rate, in frames per second, at which every frame
//               sent reaches a reader downstream of NxCanMonitoring, for
//               classic and FD frames, vectorised or not, event-based or
//               polling (1 ms sampling); the frames go out on the virtual
//               channel, which takes no bus time, so that the bus does not
//               set the limit
//   latency     from a frame's reception by the simulated hardware to its
//               arrival in the StartReading of a reader downstream of an
//               event-based monitor (p50, p99, max)
//   replay      a synchronised replay by NxCanInject: how far each frame's
//               emission strays from its schedule (p50, p99, max), and the
//               frames more than 1 ms late
//
// Runs on the simulator at the package's fixed path: under
// tools/with-sim-bus, into which the program puts itself when the library is
// not there.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "Engine.h"
#include "NxBusLibraryPaths.h"
#include "OnSimulatedBus.h"

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
                   const std::string& replayMode = "")
    {
        Make(model, name);
        if (!replayMode.empty()) Set(name + ".replay_mode", replayMode);
        Check(m_engine.Graph().Trigger(name + ".Refresh_Devices", nullptr, &m_error));
        Set(name + ".channel", channel);
        Set(name + ".can_fd", fd ? "true" : "false");
        Set(name + ".arbitration_baudrate", "500");
        Set(name + ".data_baudrate", fd ? "2000" : "500");
    }
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

struct Flow {
    bool fd;
    bool vectorize;
    bool polling;
};

// Sends `rate` frames a second for half a second; true when every frame
// came, in order, once.
bool Lossless(const Flow& flow, int rate, double* achieved)
{
    Diagram d;
    d.OnChannel("NxCanMonitoring", "rx", "NVX-CAN-2", flow.fd);
    d.Set("rx.vectorize_frames", flow.vectorize ? "true" : "false");
    if (flow.polling) {
        d.Set("rx.sampling_mode", "Polling");
        d.Set("rx.sampling_period", "1000");
    }
    d.Make("CanFrameStats", "stats");
    d.Connect("rx.oCAN", "stats.iCAN");

    const int perElement = std::max(1, std::min(256, rate / 1000));
    const long long count = std::max(500, rate / 2);
    d.Make("CanGenerator", "gen");
    d.Set("gen.output_type", flow.fd ? "CAN FD" : "CAN");
    d.Set("gen.length", flow.fd ? "64" : "8");
    d.Set("gen.count", std::to_string(count));
    d.Set("gen.period", std::to_string(std::max(1, 1000000 / rate)));
    d.Set("gen.frames_per_element", std::to_string(perElement));
    d.OnChannel("NxCanInject", "tx", "NVX-VIRT-1", flow.fd, "Unsynchronized");
    d.Connect("gen.oCAN", "tx.iCAN");
    d.Run();
    Eventually([&] { return d.Figure("stats.frames") >= count; }, 3.0 + count / static_cast<double>(rate));
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    d.Shutdown();
    const long long frames = d.Figure("stats.frames");
    const long long span = d.Figure("stats.last_arrival") - d.Figure("stats.first_arrival");
    *achieved = span > 0 ? (frames - 1) * 1e6 / static_cast<double>(span) : 0;
    return frames == count && d.Figure("stats.lost") == 0 && d.Figure("stats.disordered") == 0;
}

void Throughput()
{
    std::printf("Throughput: frames per second from the bus to a reader downstream, nothing lost\n");
    std::printf("  %-8s %-12s %-12s %12s %12s\n", "frames", "elements", "reader", "lossless", "measured");
    const int rates[] = {2000, 5000, 10000, 20000, 50000, 100000, 200000};
    for (bool fd : {false, true})
        for (bool vectorize : {false, true})
            for (bool polling : {false, true}) {
                const Flow flow{fd, vectorize, polling};
                int best = 0;
                double measured = 0;
                for (int rate : rates) {
                    double achieved = 0;
                    if (!Lossless(flow, rate, &achieved)) break;
                    best = rate;
                    measured = achieved;
                }
                std::printf("  %-8s %-12s %-12s %12d %12.0f\n", fd ? "FD 64 B" : "CAN 8 B",
                            vectorize ? "vectorised" : "one frame", polling ? "polling" : "event-based", best,
                            measured);
                std::fflush(stdout);
            }
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

void Replay()
{
    std::printf("\nSynchronised replay: emission minus schedule (us), frames more than 1 ms late;\n"
                "goals on an idle machine: p99 below 100 us, p99.9 below 1 ms\n");
    std::printf("  %-10s %8s %8s %8s %8s %8s %8s %8s\n", "path", "frames", "p50", "p99", "p99.9", "max", "min", "late");
    const long long logStart = 1000000, period = 1000, frameTime = 270;  // 8-byte standard frame at 500 kbit/s
    const int count = 2000;
    for (bool highSpeed : {false, true}) {
        char folder[] = "/tmp/bench_bus_components.XXXXXX";
        if (!mkdtemp(folder)) return;
        const std::string csv = std::string(folder) + "/frames.csv";
        long long start = 0;
        {
            Diagram d;
            d.OnChannel("NxCanMonitoring", "rx", "NVX-CAN-2", false);
            d.Set("rx.ts_behavior", kTs);
            d.Make("CanFrameStats", "stats");
            d.Set("stats.csv", csv);
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
            // The replay times last: the lead counts from an injector that is up.
            d.Make("ReplayTimeSource", "times");
            d.Set("times.log_start", std::to_string(logStart));
            d.Set("times.replay_lead", "300000");
            d.Set("times.log_end", std::to_string(logStart + count * period));
            d.Set("times.eof_delay", "200000");
            for (const char* input : {"LogStartTime", "ReplayStartTime", "ReplayStopTime", "ReplayEofTime"})
                d.Connect(std::string("times.o") + input, std::string("tx.i") + input);
            d.Run();
            Eventually([&] { return d.Figure("stats.frames") >= count; }, 10);
            start = d.Figure("times.replay_start_time");
            d.Shutdown();
        }
        std::vector<long long> errors;
        std::ifstream file(csv);
        std::string line;
        while (std::getline(file, line)) {
            long long counter = 0, ts = 0, arrival = 0;
            char comma;
            std::istringstream(line) >> counter >> comma >> ts >> comma >> arrival;
            errors.push_back(ts - frameTime - (start + counter * period));
        }
        std::remove(csv.c_str());
        rmdir(folder);
        std::vector<long long> magnitudes;
        for (long long e : errors) magnitudes.push_back(e < 0 ? -e : e);
        const Percentiles p = Of(magnitudes);
        const long long late = std::count_if(errors.begin(), errors.end(), [](long long e) { return e > 1000; });
        const long long min = errors.empty() ? 0 : *std::min_element(errors.begin(), errors.end());
        std::printf("  %-10s %8zu %8lld %8lld %8lld %8lld %8lld %8lld   p99 %s, p99.9 %s\n",
                    highSpeed ? "high-speed" : "normal", errors.size(), p.p50, p.p99, p.p999, p.max, min, late,
                    p.p99 < 100 ? "pass" : "MISS", p.p999 < 1000 ? "pass" : "MISS");
        std::fflush(stdout);
    }
}

}  // namespace

int main(int argc, char** argv)
{
    veldor_bench::OnSimulatedBus(kLibrary, argc, argv, "bench_bus_components");
    const std::string only = argc > 1 ? argv[1] : "";
    if (only.empty() || only == "throughput") Throughput();
    if (only.empty() || only == "latency") Latency();
    if (only.empty() || only == "replay") Replay();
    return 0;
}
