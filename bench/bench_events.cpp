// How fast the engine's events and timers answer: the lateness of a timed
// trigger and the round trip of a Set between two threads.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <thread>
#include <vector>

#include "Engine.h"
#include "veld_constants.h"
#include "veld_event.h"

namespace {

veldor::EngineOptions Quiet()
{
    veldor::EngineOptions options;
    options.printReports = false;
    return options;
}

void Percentiles(benchmark::State& state, std::vector<long>& samples, const char* unit)
{
    if (samples.empty()) return;
    std::sort(samples.begin(), samples.end());
    auto at = [&](double q) { return static_cast<double>(samples[static_cast<size_t>(q * (samples.size() - 1))]); };
    state.counters[std::string("p50_") + unit] = at(0.50);
    state.counters[std::string("p99_") + unit] = at(0.99);
    state.counters[std::string("max_") + unit] = static_cast<double>(samples.back());
}

// A trigger armed `delay` microseconds ahead; the waiter measures how late
// it woke after the due time.
void TriggerLateness(benchmark::State& state)
{
    veldor::Engine engine(Quiet());
    const long delay = state.range(0);
    VELDEvent event;
    std::vector<long> lateness;
    for (auto _ : state) {
        VELDTimestamp due = veldor::EngineClock::Monotonic() + delay;
        engine.Events().SetTrigger(&event, due);
        event.Wait(VELD::Infinite);
        lateness.push_back(veldor::EngineClock::Monotonic() - due);
        event.Reset();
    }
    Percentiles(state, lateness, "late_us");
}
BENCHMARK(TriggerLateness)->Arg(1000)->Arg(10000)->Iterations(500)->UseRealTime()->Unit(benchmark::kMicrosecond);

// Two threads hand a token back and forth through two events, the waiter
// side using the multi-event wait as the runtime does.
void SetRoundTrip(benchmark::State& state)
{
    veldor::Engine engine(Quiet());
    VELDEvent ping, pong, stop;
    std::thread partner([&] {
        VELDEvent* events[2] = {&ping, &stop};
        for (;;) {
            if (VELDEvent::Wait(2, events, VELD::Infinite) == 1) return;
            ping.Reset();
            pong.Set();
        }
    });
    VELDEvent* mine[1] = {&pong};
    for (auto _ : state) {
        ping.Set();
        VELDEvent::Wait(1, mine, VELD::Infinite);
        pong.Reset();
    }
    stop.Set();
    partner.join();
}
BENCHMARK(SetRoundTrip)->UseRealTime()->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
