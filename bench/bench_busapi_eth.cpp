// The Ethernet bus library on the veth pair of tools/with-sim-bus, all
// figures in one run:
//
//   reading   the highest rate of 64-byte and of 1514-byte frames that the
//             library reads with nothing lost, one read every 5 ms (the
//             monitor's default) into the buffer the interface asks for;
//             beside tcpdump's on the same link, fed by the same sender (the
//             library's TransmitFrames on the other end, paced each
//             millisecond). A rate counts when the sender reached it.
//   replay    how far each frame of a replay strays from start + (T - offset):
//             the kernel's receive timestamp on the other end of the link
//             against the schedule, at 1000 and at 10000 frames/s, with the
//             replay thread's CPU time and the part of it spent spinning.
//
// Runs on the library at its fixed path: under tools/with-sim-bus, into
// which the program puts itself when the library is not there.
//   bench_busapi_eth [reading|replay]
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "EthLinkLoad.h"
#include "NxBusLibraryPaths.h"
#include "OnSimulatedBus.h"
#include "ThreadCpu.h"
#include "WakeLatency.h"
#include "eth_api_table.h"

namespace {

eth_test::Api g;

using Clock = std::chrono::steady_clock;

[[noreturn]] void Fail(const std::string& what)
{
    std::fprintf(stderr, "bench_busapi_eth: %s\n", what.c_str());
    std::exit(1);
}

NXTEthHandle Open(const char* id, bool replay = false)
{
    return veldor_bench::OpenInterface(g, id, replay);
}

void Close(NXTEthHandle h)
{
    veldor_bench::CloseInterface(g, h);
}

uint64_t Now(NXTEthHandle h)
{
    uint64_t ticks = 0;
    g.GetTime(h, &ticks, nullptr);
    return ticks;
}

void PutSequence(uint8_t* frame, uint32_t sequence)
{
    for (int i = 0; i < 4; ++i)
        frame[14 + i] = static_cast<uint8_t>(sequence >> (24 - 8 * i));
}

uint32_t SequenceAt(const uint8_t* frame)
{
    return (uint32_t{frame[14]} << 24) | (uint32_t{frame[15]} << 16) | (uint32_t{frame[16]} << 8) | frame[17];
}

// ---------------------------------------------------------------------------
// Reading

using veldor_bench::LinkBest;
using veldor_bench::LinkOutcome;
using veldor_bench::ThreadCpuNow;

veldor_bench::LinkSent SendAt(NXTEthHandle tx, double rate, uint32_t length, double seconds)
{
    return veldor_bench::SendAt(g, tx, rate, length, seconds,
                                [](uint8_t* frame, uint32_t, uint32_t sequence) { PutSequence(frame, sequence); });
}

// The library reading every 5 ms, as the monitor does by default.
LinkOutcome LibraryReads(NXTEthHandle tx, NXTEthHandle rx, double rate, uint32_t length)
{
    uint32_t size = 0;
    g.GetInterfaceBufferSize(rx, &size);
    std::vector<uint8_t> buffer(size);
    g.FlushReceiveQueue(rx);
    std::atomic<bool> stop{false};
    uint64_t received = 0;
    bool gaps = false;
    bool flagged = false;
    uint64_t cpu = 0;
    std::thread reader([&] {
        const uint64_t cpuAtStart = ThreadCpuNow();
        uint32_t expected = 0;
        auto due = Clock::now();
        for (int quiet = 0; quiet < 20;) {  // 100 ms without a frame after the sender ended
            due += std::chrono::microseconds(NXETH_SAMPLING_PERIOD_US);
            std::this_thread::sleep_until(due);
            uint32_t n = 0;
            if (g.ReadFrames(rx, size, buffer.data(), &n) != NXETH_SUCCESS)
                Fail("reading failed");
            quiet = n == 0 && stop ? quiet + 1 : 0;
            uint32_t at = 0;
            for (uint32_t i = 0; i < n; ++i) {
                NXSEthRawFrameHeader header;
                std::memcpy(&header, &buffer[at], sizeof header);
                flagged = flagged || (header.ulFlags & NXETH_FLAG_RX_BUFFER_OVERFLOW) != 0;
                gaps = gaps || SequenceAt(&buffer[at + sizeof header]) != expected;
                expected = SequenceAt(&buffer[at + sizeof header]) + 1;
                at += sizeof header + header.ulRawDataLength;
            }
            received += n;
        }
        cpu = ThreadCpuNow() - cpuAtStart;
    });
    LinkOutcome o;
    o.sent = SendAt(tx, rate, length, 0.5);
    stop = true;
    reader.join();
    o.received = received;
    o.readerCpuNs = cpu;
    o.lossless = received == o.sent.frames && !gaps && !flagged;
    return o;
}

bool Reading()
{
    std::printf("Reading: the highest rate read with nothing lost (frames/s), one read every 5 ms\n");
    const NXTEthHandle tx = Open("NVX-ETH-1");
    const NXTEthHandle rx = Open("NVX-ETH-2");
    bool pass = true;
    for (const veldor_bench::LinkLadder& s : veldor_bench::LinkLadders()) {
        std::printf("  %u-byte frames (with the check sequence)\n", s.length + 4);
        const LinkBest library =
            veldor_bench::Ladder("library", s.rates, [&](double rate) { return LibraryReads(tx, rx, rate, s.length); });
        g.DeactivateInterface(rx);  // tcpdump alone on the link
        const LinkBest peer = veldor_bench::Ladder("tcpdump", s.rates, [&](double rate) {
            return veldor_bench::TcpdumpReads([&] { return SendAt(tx, rate, s.length, 0.5); });
        });
        g.ActivateInterface(rx);
        // Both at the sender's limit: neither reader was the limit.
        const bool ok = library.rate >= peer.rate || (library.senderLimit && peer.senderLimit);
        pass = pass && ok;
        std::printf("    library %s\n    tcpdump %s\n    goal: tcpdump's rate or more: %s\n",
                    Describe(library).c_str(), Describe(peer).c_str(), ok ? "pass" : "MISS");
        std::printf("    1000BASE-T1 line rate: %.0f frames/s\n", s.lineRate);
        std::fflush(stdout);
    }
    Close(tx);
    Close(rx);
    return pass;
}

// ---------------------------------------------------------------------------
// Replay

double Quantile(const std::vector<double>& sorted, double q)
{
    return sorted[std::min(sorted.size() - 1, static_cast<size_t>(std::ceil(q * sorted.size())) - 1)];
}

bool ReplayAt(NXTEthHandle tx, NXTEthHandle rx, uint32_t rate, uint32_t count)
{
    uint64_t resolution = 0;
    g.GetTimeResolution(tx, &resolution, nullptr);
    const uint64_t period = resolution / rate;
    const uint32_t length = 100;
    std::vector<uint8_t> frame = veldor_bench::LinkBlock(1, length);
    std::vector<uint8_t> stream;
    for (uint32_t i = 0; i < count; ++i) {
        NXSEthReplayData head;
        uint32_t size = 0;
        g.ReplayInitHeader(&head, false, length, &size);
        head.tHeader.ui64Timestamp = i * period;
        const size_t at = stream.size();
        stream.resize(at + size);
        std::memcpy(&stream[at], &head, offsetof(NXSEthReplayData, ui64StartOfFrameData));
        PutSequence(&frame[NXETH_RAW_FRAME_HEADER_SIZE], i);
        std::memcpy(&stream[at + offsetof(NXSEthReplayData, ui64StartOfFrameData)], &frame[NXETH_RAW_FRAME_HEADER_SIZE],
                    length);
    }
    // The times first: records that come after the end of the last replay
    // would otherwise leave at once, on its times.
    g.FlushTransmitQueue(tx);
    const uint64_t start = Now(tx) + resolution * 3 / 10;
    g.SetReplayStartTime(tx, start, 0, NXETH_REPLAY_OPTION_FORCE_APPLY, 0);
    NXSEthReplayStatusInfo before{};
    g.GetReplayStateInfo(tx, &before);
    const uint64_t cpuBefore = veldor_bench::ThreadCpuNs("nxsim-replay");
    for (size_t done = 0; done < stream.size();) {
        uint32_t size = static_cast<uint32_t>(std::min<size_t>(stream.size() - done, 1 << 20));
        if (g.ReplayStreamData(tx, &size, &stream[done]) != NXETH_SUCCESS)
            Fail("streaming failed");
        done += size;
    }

    uint32_t size = 0;
    g.GetInterfaceBufferSize(rx, &size);
    std::vector<uint8_t> buffer(size);
    std::vector<double> errors;
    const auto until = Clock::now() + std::chrono::milliseconds(500) +
                       std::chrono::microseconds(static_cast<uint64_t>(count) * 1000000 / rate);
    while (errors.size() < count && Clock::now() < until) {
        std::this_thread::sleep_for(std::chrono::microseconds(NXETH_SAMPLING_PERIOD_US));
        uint32_t n = 0;
        g.ReadFrames(rx, size, buffer.data(), &n);
        uint32_t at = 0;
        for (uint32_t i = 0; i < n; ++i) {
            NXSEthRawFrameHeader header;
            std::memcpy(&header, &buffer[at], sizeof header);
            const uint32_t sequence = SequenceAt(&buffer[at + sizeof header]);
            const double due = static_cast<double>(start + sequence * period);
            errors.push_back((static_cast<double>(header.ui64Timestamp) - due) * 1e6 / resolution);
            at += sizeof header + header.ulRawDataLength;
        }
    }
    const double seconds = static_cast<double>(count) / rate + 0.3;
    const double cpu = static_cast<double>(veldor_bench::ThreadCpuNs("nxsim-replay") - cpuBefore) / 1e9 / seconds;
    NXSEthReplayStatusInfo after{};
    g.GetReplayStateInfo(tx, &after);
    const double spin = (after.Reserved[3] - before.Reserved[3]) / 1e6 / seconds;
    if (errors.empty())
        Fail("nothing was replayed");
    std::vector<double> magnitude;
    for (double e : errors)
        magnitude.push_back(std::fabs(e));
    std::sort(magnitude.begin(), magnitude.end());
    const double p50 = Quantile(magnitude, 0.5), p99 = Quantile(magnitude, 0.99), p999 = Quantile(magnitude, 0.999);
    const bool ok = errors.size() == count && p99 < 100 && p999 < 1000;
    std::printf("  %5u/s  %6zu of %u  p50 %5.0f  p99 %5.0f (goal < 100: %s)  p99.9 %6.0f (goal < 1000: %s)  "
                "max %6.0f  CPU %3.0f %% of a core, %3.0f %% spinning\n",
                rate, errors.size(), count, p50, p99, p99 < 100 ? "pass" : "MISS", p999, p999 < 1000 ? "pass" : "MISS",
                magnitude.back(), cpu * 100, spin * 100);
    std::fflush(stdout);
    return ok;
}

bool Replay()
{
    std::printf("\nReplay: emission error, the kernel's receive time against start + (T - offset) (us)\n");
    const NXTEthHandle tx = Open("NVX-ETH-1", true);
    const NXTEthHandle rx = Open("NVX-ETH-2");
    bool realtime = false;
    veldor_bench::ThreadCpuNs("nxsim-replay", &realtime);
    std::printf("  the replay thread runs at %s\n", realtime ? "real-time priority (SCHED_FIFO)" : "normal priority");
    const bool ok = ReplayAt(tx, rx, 1000, 3000) & ReplayAt(tx, rx, 10000, 20000);
    const veldor_bench::WakeLatency w = veldor_bench::MeasureWakeLatency();
    std::printf("  peer: how late this machine wakes a %s thread from a timed sleep (us): p50 %.0f  p99 %.0f  "
                "p99.9 %.0f  max %.0f\n",
                w.realtime ? "real-time" : "normal", w.p50, w.p99, w.p999, w.max);
    Close(tx);
    Close(rx);
    return ok;
}

}  // namespace

int main(int argc, char** argv)
{
    veldor_bench::OnSimulatedBus(NX_BUSAPI_ETH_LIBRARY_PATH, argc, argv, "bench_busapi_eth");
    const std::string error = eth_test::LoadApi(NX_BUSAPI_ETH_LIBRARY_PATH, &g);
    if (!error.empty())
        Fail(error);
    const std::string only = argc > 1 ? argv[1] : "";
    bool pass = true;
    if (only.empty() || only == "reading")
        pass = Reading() && pass;
    if (only.empty() || only == "replay")
        pass = Replay() && pass;
    std::printf("\n%s\n", pass ? "all goals met" : "some goals missed");
    return 0;
}
