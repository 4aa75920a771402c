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

#include "ChildProcess.h"
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
    uint32_t count = 8;
    NXSEthInterfaceInfo infos[8];
    if (g.GetAvailableInterfaces(&count, infos, 0, nullptr) != NXETH_SUCCESS)
        Fail("discovery failed");
    for (uint32_t i = 0; i < count; ++i) {
        NXSEthInterfaceInfo& in = infos[i];
        if (std::strcmp(in.szInterfaceIdentifier, id) != 0)
            continue;
        NXTEthHandle h = NXETH_INVALID_HANDLE;
        const NXTEthError rc =
            replay ? g.RegisterReplayInterface(in.szAccessProviderName, in.szInterfaceName, in.szInterfaceSerialNumber,
                                               in.szInterfaceIdentifier, &h, true, 0)
                   : g.RegisterInterface(in.szAccessProviderName, in.szInterfaceName, in.szInterfaceSerialNumber,
                                         in.szInterfaceIdentifier, &h);
        if (rc != NXETH_SUCCESS || g.InitInterface(h) != NXETH_SUCCESS || g.ActivateInterface(h) != NXETH_SUCCESS ||
            g.FlushReceiveQueue(h) != NXETH_SUCCESS)
            Fail(std::string("cannot open ") + id);
        return h;
    }
    Fail(std::string("no interface ") + id);
}

void Close(NXTEthHandle h)
{
    g.DeactivateInterface(h);
    g.UnregisterInterface(h);
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

// A block of `count` raw frames of `length` bytes (type 3), to nvxeth2.
std::vector<uint8_t> Block(uint32_t count, uint32_t length)
{
    std::vector<uint8_t> block(count * (NXETH_RAW_FRAME_HEADER_SIZE + length));
    for (uint32_t i = 0; i < count; ++i) {
        uint8_t* at = &block[i * (NXETH_RAW_FRAME_HEADER_SIZE + length)];
        NXSEthRawFrameHeader header{};
        header.tFrameType = NXETH_FRAME_TYPE_ETHERNET_FRAME_WITHOUT_FCS;
        header.ulRawDataLength = length;
        std::memcpy(at, &header, sizeof header);
        uint8_t* frame = at + sizeof header;
        const uint8_t head[14] = {0x02, 0x4e, 0x58, 0x45, 0x00, 0x02, 0x02, 0x4e, 0x58, 0x45, 0x00, 0x01, 0x88, 0xB5};
        std::memcpy(frame, head, sizeof head);
        for (uint32_t b = 18; b < length; ++b)
            frame[b] = static_cast<uint8_t>(b);
    }
    return block;
}

// ---------------------------------------------------------------------------
// Reading

struct Sent {
    uint64_t frames = 0;
    double seconds = 0;
};

// Sends `rate` frames/s of `length` bytes on `tx` for `seconds`, a batch
// each millisecond.
Sent SendAt(NXTEthHandle tx, double rate, uint32_t length, double seconds)
{
    const uint32_t most = static_cast<uint32_t>(std::ceil(rate / 1000)) * 4 + 16;
    std::vector<uint8_t> block = Block(most, length);
    const uint32_t stride = NXETH_RAW_FRAME_HEADER_SIZE + length;
    const auto begin = Clock::now();
    auto due = begin;
    Sent sent;
    for (;;) {
        const double elapsed = std::chrono::duration<double>(Clock::now() - begin).count();
        if (elapsed >= seconds)
            break;
        const uint64_t wanted = static_cast<uint64_t>(rate * elapsed);
        const uint32_t n = static_cast<uint32_t>(std::min<uint64_t>(wanted - sent.frames, most));
        for (uint32_t i = 0; i < n; ++i)
            PutSequence(&block[i * stride + NXETH_RAW_FRAME_HEADER_SIZE], static_cast<uint32_t>(sent.frames + i));
        uint32_t out = 0;
        if (n > 0 && g.TransmitFrames(tx, n * stride, block.data(), &out) != NXETH_SUCCESS)
            Fail("transmission failed");
        sent.frames += out;
        due += std::chrono::milliseconds(1);
        std::this_thread::sleep_until(due);
    }
    sent.seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    return sent;
}

struct Outcome {
    Sent sent;
    uint64_t received = 0;
    bool lossless = false;
    uint64_t readerCpuNs = 0;  // the reading thread's time on the CPU
};

uint64_t ThreadCpuNow()
{
    timespec t;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<uint64_t>(t.tv_sec) * 1000000000 + static_cast<uint64_t>(t.tv_nsec);
}

// The library reading every 5 ms, as the monitor does by default.
Outcome LibraryReads(NXTEthHandle tx, NXTEthHandle rx, double rate, uint32_t length)
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
    Outcome o;
    o.sent = SendAt(tx, rate, length, 0.5);
    stop = true;
    reader.join();
    o.received = received;
    o.readerCpuNs = cpu;
    o.lossless = received == o.sent.frames && !gaps && !flagged;
    return o;
}

// tcpdump on the same end, with a ring as large as the library's, in its
// default mode (blocks handed over when full or after a second); its own
// count at the end tells what it captured and what the kernel dropped.
Outcome TcpdumpReads(NXTEthHandle tx, double rate, uint32_t length)
{
    nxtest::ChildProcess tcpdump("/bin/sh", {"-c", "exec tcpdump -i nvxeth2 -p -B 8192 -Z root -w /dev/null 2>&1"});
    Outcome o;
    const std::string said = tcpdump.Line();
    if (said.find("listening on") == std::string::npos) {
        std::printf("    (tcpdump did not start: %s)\n", said.c_str());
        return o;
    }
    o.sent = SendAt(tx, rate, length, 0.5);
    // Its ring hands a block over after a second at the latest.
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    std::ifstream(std::string("/proc/") + std::to_string(tcpdump.Pid()) + "/schedstat") >> o.readerCpuNs;
    kill(tcpdump.Pid(), SIGINT);
    uint64_t dropped = 1;
    for (std::string line = tcpdump.Line(); !line.empty(); line = tcpdump.Line()) {
        const uint64_t n = std::strtoull(line.c_str(), nullptr, 10);
        if (line.find(" packets captured") != std::string::npos)
            o.received = n;
        if (line.find(" packets dropped by kernel") != std::string::npos)
            dropped = n;
    }
    tcpdump.Reap();
    o.lossless = o.received == o.sent.frames && dropped == 0;
    return o;
}

// The highest rate read with nothing lost, climbing the ladder until a
// frame is lost or the sender falls short of the rate asked (then the
// figure is the sender's limit, and the reader was not the limit).
struct Best {
    double rate = 0;  // as sent
    bool senderLimit = false;
    double cpuPerFrameNs = 0;  // what reading a frame cost the reader there
};

template <class Attempt>
Best Ladder(const char* who, const std::vector<double>& rates, Attempt attempt)
{
    Best best;
    for (double rate : rates) {
        const Outcome o = attempt(rate);
        const double achieved = o.sent.frames / o.sent.seconds;
        if (!o.lossless) {
            std::printf("    (%s at %.0f/s: %llu of %llu frames)\n", who, achieved,
                        static_cast<unsigned long long>(o.received), static_cast<unsigned long long>(o.sent.frames));
            break;
        }
        if (achieved > best.rate) {
            best.rate = achieved;
            best.cpuPerFrameNs = o.received > 0 ? static_cast<double>(o.readerCpuNs) / o.received : 0;
        }
        if (achieved < 0.95 * rate) {
            best.senderLimit = true;
            break;
        }
    }
    return best;
}

std::string Figure(const Best& b)
{
    char text[64];
    std::snprintf(text, sizeof text, "%9.0f%s, %5.0f ns of CPU a frame", b.rate,
                  b.senderLimit ? " (all the sender made)" : "", b.cpuPerFrameNs);
    return text;
}

bool Reading()
{
    std::printf("Reading: the highest rate read with nothing lost (frames/s), one read every 5 ms\n");
    const NXTEthHandle tx = Open("NVX-ETH-1");
    const NXTEthHandle rx = Open("NVX-ETH-2");
    bool pass = true;
    const struct {
        uint32_t length;
        double lineRate;  // 1 Gbit/s: the frame, preamble, check sequence and gap on the wire
        std::vector<double> rates;
    } sizes[] = {
        {60, 1e9 / 8 / 84, {25000, 50000, 100000, 200000, 400000, 800000, 1488095}},
        {1514, 1e9 / 8 / 1538, {5000, 10000, 20000, 40000, 81274, 160000, 320000}},
    };
    for (const auto& s : sizes) {
        std::printf("  %u-byte frames (with the check sequence)\n", s.length + 4);
        const Best library = Ladder("library", s.rates, [&](double rate) { return LibraryReads(tx, rx, rate, s.length); });
        g.DeactivateInterface(rx);  // tcpdump alone on the link
        const Best peer = Ladder("tcpdump", s.rates, [&](double rate) { return TcpdumpReads(tx, rate, s.length); });
        g.ActivateInterface(rx);
        // Both at the sender's limit: neither reader was the limit.
        const bool ok = library.rate >= peer.rate || (library.senderLimit && peer.senderLimit);
        pass = pass && ok;
        std::printf("    library %s\n    tcpdump %s\n    goal: tcpdump's rate or more: %s\n",
                    Figure(library).c_str(), Figure(peer).c_str(), ok ? "pass" : "MISS");
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
    std::vector<uint8_t> frame = Block(1, length);
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
