// Throughput of the CAN log writers and readers, in frames per second, for
// every format (BLF with its default compression). A recording mix: mostly
// classic 8-byte frames, some with extended identifiers, every fifth an FD
// frame of 32 or 64 bytes. Files go to the temporary folder, so the figures
// include the page cache but rarely the disk.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "can_log/LogFiles.h"

namespace {

using namespace veldor::canlog;

constexpr std::size_t kFrames = 100000;

const std::vector<CanFrame>& RecordingMix()
{
    static const std::vector<CanFrame> frames = [] {
        std::vector<CanFrame> out(kFrames);
        std::uint32_t x = 12345;
        std::int64_t time = 1700000000000000;
        for (std::size_t i = 0; i < out.size(); ++i) {
            CanFrame& f = out[i];
            x = x * 1664525u + 1013904223u;
            time += 100 + (x >> 24);
            f.timestamp = time;
            f.extended = i % 4 == 3;
            f.id = f.extended ? (x & CanFrame::kMaxExtendedId) : ((x >> 8) & CanFrame::kMaxStandardId);
            f.fd = i % 5 == 0;
            f.bitRateSwitch = f.fd && i % 2 == 0;
            f.length = f.fd ? (i % 10 == 0 ? 64 : 32) : 8;
            for (std::size_t b = 0; b < f.length; ++b) f.data[b] = static_cast<std::uint8_t>(x >> (b % 24));
        }
        return out;
    }();
    return frames;
}

std::string BenchPath(const char* extension)
{
    return (std::filesystem::temp_directory_path() / (std::string("bench_can_log.") + extension)).string();
}

void WriteFile(const std::string& path)
{
    std::string error;
    std::unique_ptr<FrameWriter> writer = OpenFrameWriter(path, error);
    if (!writer) throw std::runtime_error(error);
    for (const CanFrame& f : RecordingMix()) writer->Write(f);
    if (!writer->Close()) throw std::runtime_error(writer->Error());
}

void Write(benchmark::State& state, const char* extension)
{
    const std::string path = BenchPath(extension);
    for (auto _ : state) WriteFile(path);
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kFrames));
    state.counters["bytes_per_frame"] = static_cast<double>(std::filesystem::file_size(path)) / kFrames;
    std::remove(path.c_str());
}

void Read(benchmark::State& state, const char* extension)
{
    const std::string path = BenchPath(extension);
    WriteFile(path);
    std::size_t frames = 0;
    for (auto _ : state) {
        std::string error;
        std::unique_ptr<FrameReader> reader = OpenFrameReader(path, error);
        CanFrame frame;
        for (ReadResult r; (r = reader->Next(frame)) != ReadResult::End;) frames += r == ReadResult::Frame;
        benchmark::DoNotOptimize(frame);
    }
    if (frames != state.iterations() * kFrames) state.SkipWithError("frames lost on reading");
    state.SetItemsProcessed(static_cast<std::int64_t>(frames));
    std::remove(path.c_str());
}

BENCHMARK_CAPTURE(Write, asc, "asc")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Write, log, "log")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Write, blf, "blf")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Read, asc, "asc")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Read, log, "log")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Read, blf, "blf")->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
