// Serialized elements: writing and reading back one element of universal CAN
// records, a single frame and a full vector of 256, beside a plain copy of
// the same payload (the floor: the head and its checks are what the format
// adds). An element file records a bus by these two calls, so a saturated
// CAN FD bus (about 20000 frames a second) wants single-frame elements at
// far more than that; the goal is 1000000 a second each way.
#include <benchmark/benchmark.h>
#include <time.h>

#include <cstdio>
#include <cstring>
#include <vector>

#include "veld_io_elt_impl.h"

namespace {

const double kGoal = 1e6;  // elements a second, single frames

struct Elements {
    explicit Elements(int frames) : source(96 * frames), target(96 * frames)
    {
        for (std::size_t i = 0; i < source.size(); ++i) source[i] = static_cast<unsigned char>(i * 7);
        for (VELDIOEltImplementation* e : {&from, &to}) {
            e->type = VELDTypeInfo(VELD::CANUniFrame | VELD::VectorFlag, "frames", nullptr);
            e->bufferSize = frames;
            e->vectorSize = frames;
        }
        from.data = source.data();
        to.data = target.data();
        block.resize(from.Serialize(nullptr, 0));
    }
    ~Elements() { from.data = to.data = nullptr; }

    std::vector<unsigned char> source, target, block;
    VELDIOEltImplementation from, to;
};

void Serialize(benchmark::State& state)
{
    Elements e(static_cast<int>(state.range(0)));
    const unsigned int size = static_cast<unsigned int>(e.block.size());
    for (auto _ : state) benchmark::DoNotOptimize(e.from.Serialize(e.block.data(), size));
    state.SetItemsProcessed(state.iterations());
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(size));
}

void Deserialize(benchmark::State& state)
{
    Elements e(static_cast<int>(state.range(0)));
    e.from.Serialize(e.block.data(), static_cast<unsigned int>(e.block.size()));
    for (auto _ : state) benchmark::DoNotOptimize(e.to.Deserialize(e.block.data(), e.block.size(), false));
    state.SetItemsProcessed(state.iterations());
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(e.block.size()));
}

void CopyPayload(benchmark::State& state)
{
    Elements e(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        std::memcpy(e.target.data(), e.source.data(), e.source.size());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations());
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(e.source.size()));
}

BENCHMARK(Serialize)->Arg(1)->Arg(256);
BENCHMARK(Deserialize)->Arg(1)->Arg(256);
BENCHMARK(CopyPayload)->Arg(1)->Arg(256);

double ThreadSeconds()
{
    timespec t;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return t.tv_sec + t.tv_nsec * 1e-9;
}

// Single-frame elements each way, beside the goal, in the processor time of
// this thread: the machines we share are busy.
void Verdict()
{
    Elements e(1);
    const int n = 2000000;
    auto rate = [&](auto&& call) {
        const double start = ThreadSeconds();
        for (int i = 0; i < n; ++i) call();
        return n / (ThreadSeconds() - start);
    };
    const unsigned int size = static_cast<unsigned int>(e.block.size());
    const double written = rate([&] { benchmark::DoNotOptimize(e.from.Serialize(e.block.data(), size)); });
    const double read = rate([&] { benchmark::DoNotOptimize(e.to.Deserialize(e.block.data(), size, false)); });
    std::printf("single-frame elements: %.0f/s serialized, %.0f/s read back; goal %.0f/s each: %s\n", written, read,
                kGoal, written >= kGoal && read >= kGoal ? "pass" : "miss");
}

}  // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    Verdict();
    return 0;
}
