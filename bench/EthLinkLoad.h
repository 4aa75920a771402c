// Load on the simulated Ethernet link, for the benchmarks that read it: the
// library's interfaces opened by identifier, a sender on NVX-ETH-1 paced each
// millisecond, tcpdump's lossless rate on nvxeth2 as the peer of every
// reader, and the ladder that finds the highest rate a reader takes with
// nothing lost. The frames are of the local experimental type 0x88B5, to
// nvxeth2's address; each carries its sequence where its reader looks.
#pragma once

#include <signal.h>
#include <time.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "ChildProcess.h"
#include "eth_api_table.h"

namespace veldor_bench {

[[noreturn]] inline void LinkFail(const std::string& what)
{
    std::fprintf(stderr, "%s\n", what.c_str());
    std::exit(1);
}

// Registers, initialises, activates and flushes interface `id`.
inline NXTEthHandle OpenInterface(const eth_test::Api& api, const char* id, bool replay = false)
{
    uint32_t count = 8;
    NXSEthInterfaceInfo infos[8];
    if (api.GetAvailableInterfaces(&count, infos, 0, nullptr) != NXETH_SUCCESS) LinkFail("discovery failed");
    for (uint32_t i = 0; i < count; ++i) {
        NXSEthInterfaceInfo& in = infos[i];
        if (std::strcmp(in.szInterfaceIdentifier, id) != 0) continue;
        NXTEthHandle h = NXETH_INVALID_HANDLE;
        const NXTEthError rc = replay ? api.RegisterReplayInterface(in.szAccessProviderName, in.szInterfaceName,
                                                                    in.szInterfaceSerialNumber,
                                                                    in.szInterfaceIdentifier, &h, true, 0)
                                      : api.RegisterInterface(in.szAccessProviderName, in.szInterfaceName,
                                                              in.szInterfaceSerialNumber, in.szInterfaceIdentifier,
                                                              &h);
        if (rc != NXETH_SUCCESS || api.InitInterface(h) != NXETH_SUCCESS || api.ActivateInterface(h) != NXETH_SUCCESS ||
            api.FlushReceiveQueue(h) != NXETH_SUCCESS)
            LinkFail(std::string("cannot open ") + id);
        return h;
    }
    LinkFail(std::string("no interface ") + id);
}

inline void CloseInterface(const eth_test::Api& api, NXTEthHandle h)
{
    api.DeactivateInterface(h);
    api.UnregisterInterface(h);
}

// A block of `count` raw frames of `length` bytes (type 3), to nvxeth2.
inline std::vector<uint8_t> LinkBlock(uint32_t count, uint32_t length)
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
        for (uint32_t b = 18; b < length; ++b) frame[b] = static_cast<uint8_t>(b);
    }
    return block;
}

struct LinkSent {
    uint64_t frames = 0;
    double seconds = 0;
};

// Sends `rate` frames/s of `length` bytes on `tx` for `seconds`, a batch
// each millisecond; stamp(frame, length, sequence) marks each frame.
template <class Stamp>
LinkSent SendAt(const eth_test::Api& api, NXTEthHandle tx, double rate, uint32_t length, double seconds, Stamp stamp)
{
    using Clock = std::chrono::steady_clock;
    const uint32_t most = static_cast<uint32_t>(std::ceil(rate / 1000)) * 4 + 16;
    std::vector<uint8_t> block = LinkBlock(most, length);
    const uint32_t stride = NXETH_RAW_FRAME_HEADER_SIZE + length;
    const auto begin = Clock::now();
    auto due = begin;
    LinkSent sent;
    for (;;) {
        const double elapsed = std::chrono::duration<double>(Clock::now() - begin).count();
        if (elapsed >= seconds) break;
        const uint64_t wanted = static_cast<uint64_t>(rate * elapsed);
        const uint32_t n = static_cast<uint32_t>(std::min<uint64_t>(wanted - sent.frames, most));
        for (uint32_t i = 0; i < n; ++i)
            stamp(&block[i * stride + NXETH_RAW_FRAME_HEADER_SIZE], length, static_cast<uint32_t>(sent.frames + i));
        uint32_t out = 0;
        if (n > 0 && api.TransmitFrames(tx, n, block.data(), &out) != NXETH_SUCCESS) LinkFail("transmission failed");
        sent.frames += out;
        due += std::chrono::milliseconds(1);
        std::this_thread::sleep_until(due);
    }
    sent.seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    return sent;
}

struct LinkOutcome {
    LinkSent sent;
    uint64_t received = 0;
    bool lossless = false;
    uint64_t readerCpuNs = 0;  // what the reader used of the CPU
};

inline uint64_t ThreadCpuNow()
{
    timespec t;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<uint64_t>(t.tv_sec) * 1000000000 + static_cast<uint64_t>(t.tv_nsec);
}

// tcpdump on nvxeth2, with a ring as large as the library's, in its default
// mode (blocks handed over when full or after a second); its own count at
// the end tells what it captured and what the kernel dropped. `send` sends
// at the rate and returns LinkSent.
template <class Send>
LinkOutcome TcpdumpReads(Send send)
{
    nxtest::ChildProcess tcpdump("/bin/sh", {"-c", "exec tcpdump -i nvxeth2 -p -B 8192 -Z root -w /dev/null 2>&1"});
    LinkOutcome o;
    const std::string said = tcpdump.Line();
    if (said.find("listening on") == std::string::npos) {
        std::printf("    (tcpdump did not start: %s)\n", said.c_str());
        return o;
    }
    o.sent = send();
    // Its ring hands a block over after a second at the latest.
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    std::ifstream(std::string("/proc/") + std::to_string(tcpdump.Pid()) + "/schedstat") >> o.readerCpuNs;
    kill(tcpdump.Pid(), SIGINT);
    uint64_t dropped = 1;
    for (std::string line = tcpdump.Line(); !line.empty(); line = tcpdump.Line()) {
        const uint64_t n = std::strtoull(line.c_str(), nullptr, 10);
        if (line.find(" packets captured") != std::string::npos) o.received = n;
        if (line.find(" packets dropped by kernel") != std::string::npos) dropped = n;
    }
    tcpdump.Reap();
    o.lossless = o.received == o.sent.frames && dropped == 0;
    return o;
}

// The highest rate read with nothing lost, climbing the ladder until a
// frame is lost or the sender falls short of the rate asked (then the
// figure is the sender's limit, and the reader was not the limit).
struct LinkBest {
    double rate = 0;  // as sent
    bool senderLimit = false;
    double cpuPerFrameNs = 0;  // what reading a frame cost the reader there
};

template <class Attempt>
LinkBest Ladder(const char* who, const std::vector<double>& rates, Attempt attempt)
{
    LinkBest best;
    for (double rate : rates) {
        const LinkOutcome o = attempt(rate);
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

inline std::string Describe(const LinkBest& b)
{
    char text[96];
    std::snprintf(text, sizeof text, "%9.0f%s, %5.0f ns of CPU a frame", b.rate,
                  b.senderLimit ? " (all the sender made)" : "", b.cpuPerFrameNs);
    return text;
}

// The rates tried, for frames of 60 and of 1514 bytes, up to past the
// 1000BASE-T1 line rate (the frame, preamble, check sequence and gap).
struct LinkLadder {
    uint32_t length;
    double lineRate;
    std::vector<double> rates;
};
inline const std::vector<LinkLadder>& LinkLadders()
{
    static const std::vector<LinkLadder> ladders = {
        {60, 1e9 / 8 / 84, {25000, 50000, 100000, 200000, 400000, 800000, 1488095}},
        {1514, 1e9 / 8 / 1538, {5000, 10000, 20000, 40000, 81274, 160000, 320000}},
    };
    return ladders;
}

}  // namespace veldor_bench
