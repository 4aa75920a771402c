// How fast the io package's EthGenerator offers frames, through the engine
// into an EthFrameStats that reads every element (no bus): 64-byte and
// 1514-byte frames, one read's worth to an element (256) or one frame an
// element, unpaced. Beside it, its peer: a plain loop that copies the same
// frames into a buffer with their 24-byte headers, the most any writer of
// the record could do on this machine.
//
// The generator is meant to feed the Ethernet monitor's benchmarks, so its
// vectorised 64-byte rate must stay well above what they measure: the goal
// is 1.5 M frames/s.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "Engine.h"

namespace {

const double kGoal = 1.5e6;
const double kSeconds = 2.0;

double Now() { return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count(); }

// Frames per second through the engine.
double Generator(int frameSize, int perElement)
{
    veldor::EngineOptions options;
    options.printReports = false;
    veldor::Engine engine(options);
    std::string error;
    auto check = [&](bool ok) {
        if (ok) return;
        std::fprintf(stderr, "bench_eth_generator: %s\n", error.c_str());
        std::exit(1);
    };
    check(engine.LoadPackage(VELDOR_IO_PACKAGE, &error));
    check(engine.Graph().SetProperty("Engine.sequentialStart", "true", false, &error));
    check(engine.Graph().Create("EthFrameStats", "stats", &error));
    check(engine.Graph().SetProperty("stats.capacity", "0", false, &error));
    check(engine.Graph().Create("EthGenerator", "gen", &error));
    check(engine.Graph().SetProperty("gen.rate", "0", false, &error));
    check(engine.Graph().SetProperty("gen.frame_size", std::to_string(frameSize), false, &error));
    check(engine.Graph().SetProperty("gen.frames_per_element", std::to_string(perElement), false, &error));
    check(engine.Graph().Connect("gen.oEth", "stats.iEth", &error));
    check(engine.Graph().Run(&error));
    bool ok = false;
    std::this_thread::sleep_for(std::chrono::milliseconds(200));  // warm-up
    const long long first = engine.GetIntegerProperty("stats.frames", &ok);
    const double start = Now();
    std::this_thread::sleep_for(std::chrono::duration<double>(kSeconds));
    const long long last = engine.GetIntegerProperty("stats.frames", &ok);
    const double took = Now() - start;
    engine.Graph().Shutdown();
    if (engine.GetIntegerProperty("stats.lost", &ok) != 0 || engine.GetIntegerProperty("stats.disordered", &ok) != 0)
        std::fprintf(stderr, "bench_eth_generator: frames lost or out of order\n");
    return static_cast<double>(last - first) / took;
}

// The same frames copied into a buffer, 256 to a block.
double Peer(int frameSize)
{
    std::vector<unsigned char> frame(static_cast<std::size_t>(frameSize), 0x5A), block(256 * (24 + frameSize) + 64);
    unsigned char header[24] = {};
    long long frames = 0;
    const double start = Now();
    while (Now() - start < kSeconds / 2) {
        unsigned char* at = block.data();
        for (int i = 0; i < 256; ++i, ++frames) {
            std::memcpy(at, header, 24);
            std::memcpy(at + 24, frame.data(), frame.size());
            std::memcpy(at + 24 + frameSize - 4, &frames, 4);
            at += 24 + frameSize;
        }
        asm volatile("" : : "r"(block.data()) : "memory");
    }
    return static_cast<double>(frames) / (Now() - start);
}

}  // namespace

int main()
{
    std::printf("%-36s %14s %14s %8s\n", "EthGenerator -> EthFrameStats", "frames/s", "peer copy", "goal");
    for (int size : {64, 1514})
        for (int perElement : {256, 1}) {
            const double rate = Generator(size, perElement);
            const double peer = Peer(size);
            const bool judged = size == 64 && perElement > 1;
            char name[64];
            std::snprintf(name, sizeof name, "%d-byte frames, %d an element", size, perElement);
            std::printf("%-36s %14.0f %14.0f %8s %s\n", name, rate, peer, judged ? "1.5 M" : "-",
                        judged ? (rate >= kGoal ? "pass" : "miss") : "");
        }
    return 0;
}
