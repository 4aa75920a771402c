// Frames per second through the simulated bus, one sender and one receiver,
// and the emission error of hardware-timed replay.
//   build/bench/bench_busapi_sim [--benchmark_filter=...]
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "NXBusApiCan.h"

namespace {

const char* kConfig = R"(
[bus bench]
address = 127.0.0.1
bitrate = 1000000
data_bitrate = 8000000
tx_queue_limit = 4096
replay_queue_limit = 4096
[channel TX]
vendor = Norvex
interface = Bench
[channel RX]
vendor = Norvex
interface = Bench
[channel VTX]
vendor = Norvex
interface = Virtual
[channel VHS]
vendor = Norvex
interface = Virtual
capabilities = 0x100
)";

NXTCanHandle Open(const char* id, bool replay = false, bool highSpeed = false)
{
    char vendor[] = "Norvex";
    char iface[32];
    std::strcpy(iface, id[0] == 'V' ? "Virtual" : "Bench");
    char serial[] = "";
    char name[32];
    std::strcpy(name, id);
    NXTCanHandle h = NXCAN_INVALID_HANDLE;
    const NXTCanError rc = replay ? NXCAN_RegisterReplayChannel(vendor, iface, serial, name, &h, highSpeed, 0)
                                  : NXCAN_RegisterChannel(vendor, iface, serial, name, &h);
    bool fd = false;
    if (rc != NXCAN_SUCCESS || NXCAN_InitChannel(h, NXCAN_IDENTIFIER_TYPE_STD_XTD, 32768, true, &fd) != NXCAN_SUCCESS ||
        NXCAN_ActivateChannel(h) != NXCAN_SUCCESS) {
        std::fprintf(stderr, "cannot open %s: %d\n", id, rc);
        std::exit(1);
    }
    return h;
}

// Sends `batch` frames and reads them back on the receiver, per iteration.
void Throughput(benchmark::State& state, const char* sender, bool fd)
{
    const NXTCanHandle tx = Open(sender);
    const NXTCanHandle rx = Open("RX");
    constexpr uint32_t kBatch = 256;
    std::vector<NXSCanMessage> frames(kBatch);
    for (uint32_t i = 0; i < kBatch; ++i) {
        NXSCanMessage& m = frames[i];
        m.tMessageType = NXCAN_MESSAGE_TYPE_DATA;
        m.tCanIdentifierType = NXCAN_IDENTIFIER_TYPE_STD;
        m.ulCanIdentifier = 0x100 + i % 0x600;
        m.usDLC = fd ? 15 : 8;
        m.ulFlags = fd ? (NXCAN_FLAG_TX_FD | NXCAN_FLAG_TX_BRS) : 0;
    }
    std::vector<NXSCanMessage> in(32768);
    for (auto _ : state) {
        while (NXCAN_TransmitMessages(tx, kBatch, frames.data()) == NXCAN_ERR_TX_QUEUE_FULL)
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        uint32_t received = 0;
        while (received < kBatch) {
            uint32_t n = static_cast<uint32_t>(in.size());
            NXCAN_ReadReceiveQueue(rx, &n, in.data());
            received += n;
            if (n == 0)
                std::this_thread::sleep_for(std::chrono::microseconds(50));
        }
    }
    state.SetItemsProcessed(state.iterations() * kBatch);
    state.counters["frames_per_s"] =
        benchmark::Counter(static_cast<double>(state.iterations() * kBatch), benchmark::Counter::kIsRate);
    NXCAN_UnregisterChannel(tx);
    NXCAN_UnregisterChannel(rx);
}

void BM_VirtualSenderClassic(benchmark::State& state) { Throughput(state, "VTX", false); }
void BM_VirtualSenderFd64(benchmark::State& state) { Throughput(state, "VTX", true); }
void BM_Bus1MbitClassic(benchmark::State& state) { Throughput(state, "TX", false); }
void BM_Bus1M8MbitFd64(benchmark::State& state) { Throughput(state, "TX", true); }

// Streams frames 2 ms apart and measures how far each reception (a channel
// without bus time, so reception = emission) lies behind its schedule.
void ReplayError(benchmark::State& state, const char* channel, bool highSpeed)
{
    const NXTCanHandle replay = Open(channel, true, highSpeed);
    const NXTCanHandle rx = Open("RX");
    uint64_t resolution = 0;
    NXCAN_GetHardwareTimeResolution(replay, &resolution);
    const uint64_t perUs = resolution / 1000000;
    constexpr int kFrames = 300;
    std::vector<double> errorsUs;
    for (auto _ : state) {
        std::vector<uint8_t> stream;
        for (int i = 0; i < kFrames; ++i) {
            const size_t at = stream.size();
            stream.resize(at + sizeof(NXSCanReplayData));
            auto* r = reinterpret_cast<NXSCanReplayData*>(stream.data() + at);
            uint32_t size = 0;
            NXCAN_ReplayInitHeader(r, false, 8, &size);
            r->tHeader.ui64Timestamp = static_cast<uint64_t>(i) * 2000 * perUs;
            r->tMsgHeader.ulCanId = 0x10;
            r->tMsgHeader.tMsgFormat = NXCAN_IDENTIFIER_TYPE_STD;
        }
        uint64_t now = 0;
        NXCAN_GetHardwareTime(replay, &now);
        const uint64_t start = now + 20000 * perUs;
        NXCAN_SetReplayStartTime(replay, start, 0, NXCAN_REPLAY_OPTION_FORCE_APPLY, 0);
        uint32_t size = static_cast<uint32_t>(stream.size());
        NXCAN_ReplayStreamData(replay, &size, stream.data());
        std::vector<NXSCanMessage> in(kFrames);
        int received = 0;
        while (received < kFrames) {
            uint32_t n = static_cast<uint32_t>(kFrames - received);
            NXCAN_ReadReceiveQueue(rx, &n, in.data() + received);
            received += static_cast<int>(n);
            if (n == 0)
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        for (int i = 0; i < kFrames; ++i) {
            const uint64_t due = start + static_cast<uint64_t>(i) * 2000 * perUs;
            errorsUs.push_back(static_cast<double>(static_cast<int64_t>(in[i].ui64Timestamp - due)) / perUs);
        }
    }
    std::sort(errorsUs.begin(), errorsUs.end());
    state.counters["p50_us"] = errorsUs[errorsUs.size() / 2];
    state.counters["p99_us"] = errorsUs[errorsUs.size() * 99 / 100];
    state.counters["max_us"] = errorsUs.back();
    NXCAN_UnregisterChannel(replay);
    NXCAN_UnregisterChannel(rx);
}

void BM_ReplayEmissionError(benchmark::State& state) { ReplayError(state, "VTX", false); }
void BM_ReplayEmissionErrorHighSpeed(benchmark::State& state) { ReplayError(state, "VHS", true); }

}  // namespace

BENCHMARK(BM_VirtualSenderClassic)->Unit(benchmark::kMicrosecond)->MinTime(0.5)->UseRealTime();
BENCHMARK(BM_VirtualSenderFd64)->Unit(benchmark::kMicrosecond)->MinTime(0.5)->UseRealTime();
BENCHMARK(BM_Bus1MbitClassic)->Unit(benchmark::kMillisecond)->Iterations(30)->UseRealTime();
BENCHMARK(BM_Bus1M8MbitFd64)->Unit(benchmark::kMillisecond)->Iterations(30)->UseRealTime();
BENCHMARK(BM_ReplayEmissionError)->Unit(benchmark::kMillisecond)->Iterations(2);
BENCHMARK(BM_ReplayEmissionErrorHighSpeed)->Unit(benchmark::kMillisecond)->Iterations(2);

int main(int argc, char** argv)
{
    char path[] = "/tmp/nxsim-bench-XXXXXX";
    const int fd = mkstemp(path);
    if (fd < 0)
        return 1;
    close(fd);
    std::ofstream(path) << kConfig;
    setenv("NXBUSAPI_SIM_CONFIG", path, 1);
    setenv("NXBUSAPI_SIM_NAMESPACE", ("bench-" + std::to_string(getpid())).c_str(), 1);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    std::remove(path);
    return 0;
}
