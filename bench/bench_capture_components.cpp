// How fast a capture file goes through the engine: a CaptureFilePlayer of
// a multi-bus pcapng (64-byte frames on two Ethernet ports, every fourth
// frame a CAN FD frame) into a CaptureFileRecorder of every interface, the
// engine's clock running a million times fast so that every frame is due at
// once; vectorised (up to 256 frames an element) and one frame an element.
// Beside it, its peer in the same run: editcap copying the same file
// (Wireshark's own reading and writing, no engine). The goal is the line
// rate of 1000BASE-T1 in its smallest frames, 1.49 M frames a second: the
// pair keeps up with a saturated link. Each figure is the best of three
// runs, the machine being shared.
//
//     build/bench/bench_capture_components [frames]
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "Engine.h"
#include "pcap_log/PacketWriter.h"

namespace {

using namespace veldor::pcaplog;
using Clock = std::chrono::steady_clock;

constexpr double kLineRate = 1e9 / (84 * 8);
constexpr int kRuns = 3;

std::string TempFile(const char* name)
{
    return (std::filesystem::temp_directory_path() / (std::string("bench_capture_components.") + name)).string();
}

[[noreturn]] void Fail(const std::string& why)
{
    std::fprintf(stderr, "bench_capture_components: %s\n", why.c_str());
    std::exit(1);
}

void WriteDrive(const std::string& path, long long frames)
{
    std::vector<Interface> interfaces(3);
    interfaces[0].name = "eth0";
    interfaces[1].name = "can0";
    interfaces[1].linkType = kLinkTypeSocketCan;
    interfaces[2].name = "eth1";
    std::string error;
    std::unique_ptr<PacketWriter> writer = OpenPacketWriter(path, interfaces, error);
    if (!writer) Fail(error);
    std::uint8_t frame[64] = {0x01, 0x00, 0x5E, 0x00, 0x00, 0x01, 0x02, 0x00, 0x00, 0x00, 0x00, 0x01, 0x08, 0x00};
    veldor::canlog::CanFrame can;
    can.fd = can.bitRateSwitch = true;
    can.length = 64;
    Packet packet;
    packet.capturedLength = packet.originalLength = sizeof frame;
    packet.data = frame;
    for (long long i = 0; i < frames; ++i) {
        const std::int64_t time = 1700000000000000000 + i * 10000;
        WriteResult r;
        if (i % 4 == 3) {
            can.timestamp = time / 1000;
            can.id = static_cast<std::uint32_t>(i & 0x7FF);
            r = writer->Write(1, can);
        } else {
            frame[20] = static_cast<std::uint8_t>(i);
            packet.time = time;
            packet.interface = i % 2 == 0 ? 0 : 2;
            r = writer->Write(packet);
        }
        if (r != WriteResult::Written) Fail(writer->Error());
    }
    if (!writer->Close()) Fail(writer->Error());
}

// Seconds from the run's start until the recorder holds every frame.
double ThroughEngine(const std::string& in, const std::string& out, long long frames, bool vectorise)
{
    veldor::EngineOptions options;
    options.printReports = false;
    veldor::Engine engine(options);
    std::string error;
    auto check = [&](bool ok) {
        if (!ok) Fail(error);
    };
    check(engine.LoadPackage(VELDOR_IO_PACKAGE, &error));
    check(engine.Graph().SetProperty("Engine.sequentialStart", "true", false, &error));
    check(engine.Graph().Create("CaptureFileRecorder", "rec", &error));
    check(engine.Graph().SetProperty("rec.file", out, false, &error));
    check(engine.Graph().SetProperty("rec.channels", "eth0:eth,can0:can,eth1:eth", false, &error));
    check(engine.Graph().Create("CaptureFilePlayer", "player", &error));
    check(engine.Graph().SetProperty("player.file", in, false, &error));
    check(engine.Graph().SetProperty("player.replay_lead", "0", false, &error));
    check(engine.Graph().SetProperty("player.vectorize_frames", vectorise ? "true" : "false", false, &error));
    for (const char* link : {"player.oeth0 rec.iEth0", "player.ocan0 rec.iCan0", "player.oeth1 rec.iEth1"}) {
        const std::string words = link;
        const std::size_t blank = words.find(' ');
        check(engine.Graph().Connect(words.substr(0, blank), words.substr(blank + 1), &error));
    }
    engine.Clock().SetSpeed(1000000000);
    const auto start = Clock::now();
    check(engine.Graph().Run(&error));
    bool ok = false;
    while (engine.GetIntegerProperty("rec.recorded", &ok) < frames) {
        if (std::chrono::duration<double>(Clock::now() - start).count() > 120) Fail("the recorder did not get every frame");
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    const double took = std::chrono::duration<double>(Clock::now() - start).count();
    engine.Graph().Shutdown();
    return took;
}

double Editcap(const std::string& in, const std::string& out)
{
    const auto start = Clock::now();
    if (std::system(("editcap " + in + " " + out + " >/dev/null 2>&1").c_str()) != 0) return -1;
    return std::chrono::duration<double>(Clock::now() - start).count();
}

}  // namespace

int main(int argc, char** argv)
{
    const long long frames = argc > 1 ? std::atoll(argv[1]) : 200000;
    const std::string in = TempFile("in.pcapng"), out = TempFile("out.pcapng");
    WriteDrive(in, frames);
    std::printf("%lld frames, 64-byte Ethernet on two ports and CAN FD, into one pcapng\n", frames);
    std::printf("%-44s %14s %8s\n", "", "frames/s", "goal");
    for (bool vectorise : {true, false}) {
        double best = 1e30;
        for (int i = 0; i < kRuns; ++i) best = std::min(best, ThroughEngine(in, out, frames, vectorise));
        const double rate = static_cast<double>(frames) / best;
        std::printf("%-44s %14.0f %8s %s\n",
                    vectorise ? "player -> recorder, 256 an element" : "player -> recorder, 1 an element", rate,
                    vectorise ? "1.49 M" : "-", vectorise ? (rate >= kLineRate ? "pass" : "miss") : "");
    }
    double peer = 1e30;
    for (int i = 0; i < kRuns; ++i) {
        const double took = Editcap(in, out);
        if (took < 0) {
            peer = -1;
            break;
        }
        peer = std::min(peer, took);
    }
    if (peer > 0) {
        std::printf("%-44s %14.0f\n", "peer: editcap copying the file", static_cast<double>(frames) / peer);
    } else {
        std::printf("%-44s %14s\n", "peer: editcap copying the file", "(no editcap)");
    }
    std::filesystem::remove(in);
    std::filesystem::remove(out);
    return 0;
}
