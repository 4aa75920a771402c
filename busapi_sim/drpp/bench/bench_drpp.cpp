// Cost of one record through the replay pre-processing stage, as the replay
// wrapper drives it: one record per NxDRPP_InsertFrames, NxDRPP_GetFrames
// every 8 records into a 2 MiB buffer, fill level 10, depth 1000. The time
// is per record in and out, the best of 5 runs of 200000 records, beside the
// least any stage must spend (a copy in and a copy out, unlocked, and with a
// mutex queue). The records come from a pool of 1024 that the wrapper could
// have just built (in cache), each stamped anew as it is used.
//   bench_drpp [records [case]]   (case: the rows whose name holds it)
#include <time.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <functional>
#include <mutex>
#include <vector>

#include "../../../tests/drpp/DrppRecords.h"

namespace {

using drpp_test::AppendRecord;

constexpr double kGoalNs = 1000;  // well under a microsecond per record: pass below it

void Be16(std::vector<uint8_t>& f, size_t at, uint32_t v)
{
    f[at] = static_cast<uint8_t>(v >> 8);
    f[at + 1] = static_cast<uint8_t>(v);
}

void Be32(std::vector<uint8_t>& f, size_t at, uint32_t v)
{
    Be16(f, at, v >> 16);
    Be16(f, at + 2, v & 0xFFFF);
}

// Ethernet, IPv4 (no checksum: the stage does not look at it), then `l4`.
std::vector<uint8_t> Ipv4(uint8_t protocol, uint16_t id, uint16_t fragmentField, const std::vector<uint8_t>& l4)
{
    std::vector<uint8_t> f(14 + 20);
    Be16(f, 12, 0x0800);
    f[14] = 0x45;
    Be16(f, 16, static_cast<uint32_t>(20 + l4.size()));
    Be16(f, 18, id);
    Be16(f, 20, fragmentField);
    f[22] = 64;
    f[23] = protocol;
    Be32(f, 26, 0x0A000001);
    Be32(f, 30, 0x0A000002);
    f.insert(f.end(), l4.begin(), l4.end());
    return f;
}

std::vector<uint8_t> Udp(const std::vector<uint8_t>& payload, uint16_t port = 5000)
{
    std::vector<uint8_t> u(8);
    Be16(u, 0, port);
    Be16(u, 2, port);
    Be16(u, 4, static_cast<uint32_t>(8 + payload.size()));
    u.insert(u.end(), payload.begin(), payload.end());
    return u;
}

constexpr uint32_t kPool = 1024;

// A pool of records, used in turn; record i is stamped 10 us after i - 1,
// with every fifth pair swapped (a merged capture), and given what keeps it
// apart from the pool's earlier rounds (IPv4 identification, SOME/IP
// session, TCP sequence number).
using Renew = void (*)(uint8_t* frame, uint32_t k);

struct Stream {
    std::vector<std::vector<uint8_t>> pool;
    uint32_t count;
    Renew renew;

    uint8_t* Record(uint32_t i)
    {
        const uint32_t k = i % 5 == 3 ? i + 1 : i % 5 == 4 ? i - 1 : i;
        uint8_t* record = pool[k % kPool].data();
        const uint64_t time = 1000000 + 10ull * k;
        std::memcpy(record + offsetof(NxDRPPRecord, tHeader.ui64Timestamp), &time, sizeof time);
        if (renew != nullptr)
            renew(record + NXDRPP_RECORD_FRAME_OFFSET, k);
        return record;
    }
    uint32_t Size(uint32_t i) const
    {
        const uint32_t k = i % 5 == 3 ? i + 1 : i % 5 == 4 ? i - 1 : i;
        return static_cast<uint32_t>(pool[k % kPool].size());
    }
};

void Store16(uint8_t* p, uint32_t v)
{
    p[0] = static_cast<uint8_t>(v >> 8);
    p[1] = static_cast<uint8_t>(v);
}

Stream Make(const std::function<std::vector<uint8_t>(uint32_t)>& frame, uint32_t count, Renew renew = nullptr)
{
    Stream s{{}, count - count % 5, renew};
    for (uint32_t k = 0; k < kPool; ++k) {
        const std::vector<uint8_t> f = frame(k);
        s.pool.emplace_back();
        AppendRecord(s.pool.back(), f.data(), static_cast<uint32_t>(f.size()), 0);
    }
    return s;
}

std::vector<uint8_t> Payload(size_t n, uint32_t seed)
{
    std::vector<uint8_t> p(n);
    for (size_t i = 0; i < n; ++i)
        p[i] = static_cast<uint8_t>(seed * 31 + i);
    return p;
}

// Every fourth datagram of 2944 bytes in three fragments, the rest whole.
std::vector<uint8_t> UdpTraffic(uint32_t k)
{
    const uint32_t datagram = k / 4, part = k % 4;
    if (datagram % 4 != 0 || part == 3)
        return Ipv4(17, static_cast<uint16_t>(k), 0, Udp(Payload(400, k)));
    const std::vector<uint8_t> whole = Udp(Payload(2944 - 8, datagram));
    const size_t at = part * 984, n = std::min<size_t>(984, whole.size() - at);
    return Ipv4(17, static_cast<uint16_t>(datagram), static_cast<uint16_t>((part < 2 ? 0x2000 : 0) | at / 8),
                std::vector<uint8_t>(whole.begin() + static_cast<ptrdiff_t>(at), whole.begin() + static_cast<ptrdiff_t>(at + n)));
}

// Messages of four 1392-byte SOME/IP TP segments, one per session.
std::vector<uint8_t> TpTraffic(uint32_t k)
{
    const uint32_t session = k / 4 + 1, part = k % 4;
    std::vector<uint8_t> m(20);
    Be32(m, 0, 0x12340001);
    Be32(m, 4, 8 + 4 + 1392);
    Be16(m, 8, 1);
    Be16(m, 10, static_cast<uint16_t>(session));
    m[12] = 1;
    m[13] = 1;
    m[14] = 0x22;
    Be32(m, 16, part * 1392 | (part < 3 ? 1 : 0));
    const std::vector<uint8_t> chunk = Payload(1392, k);
    m.insert(m.end(), chunk.begin(), chunk.end());
    return Ipv4(17, static_cast<uint16_t>(k), 0, Udp(m, 30501));
}

std::vector<uint8_t> TcpTraffic(uint32_t k)
{
    std::vector<uint8_t> t(20);
    Be16(t, 0, 4000);
    Be16(t, 2, 80);
    Be32(t, 4, 1000 + k * 1200);
    t[12] = 0x50;
    t[13] = 0x18;
    const std::vector<uint8_t> p = Payload(1200, k);
    t.insert(t.end(), p.begin(), p.end());
    return Ipv4(6, static_cast<uint16_t>(k), 0, t);
}

double ThreadCpuNs()
{
    timespec t;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return t.tv_sec * 1e9 + t.tv_nsec;
}

// Nanoseconds of this thread's processor time per record, best of five
// runs: on a shared machine, the time the thread waited for a processor
// is not the stage's.
double Measure(const std::function<void()>& run, uint32_t records)
{
    double best = 1e300;
    for (int i = 0; i < 5; ++i) {
        const double start = ThreadCpuNs();
        run();
        best = std::min(best, (ThreadCpuNs() - start) / records);
    }
    return best;
}

// The wrapper's loop; the stage must give back every record.
double ThroughStage(Stream& s, NxDRPPProtocolType protocol)
{
    std::vector<uint8_t> staging(1 << 21);
    return Measure(
        [&] {
            NxDRPPHandle h = nullptr;
            NxDRPP_CreateHandle(&h, 10, 1000, protocol);
            uint64_t in = 0, out = 0, written = 0, consumed = 0;
            bool end = false;
            for (uint32_t i = 0; i < s.count; ++i) {
                while (NxDRPP_InsertFrames(h, s.Record(i), s.Size(i), &end, &consumed) == NXDRPP_BUFFER_FULL) {
                    NxDRPP_GetFrames(h, staging.data(), staging.size(), false, &written);
                    out += written;
                }
                in += consumed;
                if (i % 8 == 7) {
                    NxDRPP_GetFrames(h, staging.data(), staging.size(), false, &written);
                    out += written;
                }
            }
            std::vector<uint8_t> closing;
            drpp_test::AppendClosing(closing);
            end = true;
            NxDRPP_InsertFrames(h, closing.data(), closing.size(), &end, &consumed);
            in += consumed;
            NxDRPP_GetFrames(h, staging.data(), staging.size(), false, &written);
            out += written;
            NxDRPP_DestroyHandle(&h);
            if (out != in) {
                std::fprintf(stderr, "bench_drpp: the stage gave back %llu of %llu bytes\n",
                             static_cast<unsigned long long>(out), static_cast<unsigned long long>(in));
                std::exit(1);
            }
        },
        s.count);
}

// The least a stage costs: each record copied in, and out into the staging buffer.
double Copies(Stream& s, bool locked)
{
    std::vector<uint8_t> staging(1 << 21);
    return Measure(
        [&] {
            std::mutex mutex;
            std::deque<std::vector<uint8_t>> queue;
            size_t at = 0;
            for (uint32_t i = 0; i < s.count; ++i) {
                {
                    const uint8_t* p = s.Record(i);
                    std::unique_lock<std::mutex> lock(mutex, std::defer_lock);
                    if (locked)
                        lock.lock();
                    queue.emplace_back(p, p + s.Size(i));
                }
                if (i % 8 == 7) {
                    std::unique_lock<std::mutex> lock(mutex, std::defer_lock);
                    if (locked)
                        lock.lock();
                    for (; !queue.empty(); queue.pop_front()) {
                        if (at + queue.front().size() > staging.size())
                            at = 0;
                        std::memcpy(staging.data() + at, queue.front().data(), queue.front().size());
                        at += queue.front().size();
                    }
                }
            }
            if (at == 1)
                std::puts("");
        },
        s.count);
}

}  // namespace

int main(int argc, char** argv)
{
    const uint32_t records = argc > 1 ? static_cast<uint32_t>(std::atoi(argv[1])) : 200000;
    Stream small = Make([](uint32_t k) { return Ipv4(17, static_cast<uint16_t>(k), 0, Udp(Payload(18, k))); }, records);
    Stream large = Make([](uint32_t k) { return Ipv4(17, static_cast<uint16_t>(k), 0, Udp(Payload(1472, k))); }, records);
    Stream udp = Make(UdpTraffic, records, [](uint8_t* f, uint32_t k) { Store16(f + 18, k / 4); });
    Stream tp = Make(TpTraffic, records, [](uint8_t* f, uint32_t k) { Store16(f + 14 + 20 + 8 + 10, k / 4 + 1); });
    Stream tcp = Make(TcpTraffic, records, [](uint8_t* f, uint32_t k) {
        Store16(f + 14 + 20 + 4, (1000 + k * 1200) >> 16);
        Store16(f + 14 + 20 + 6, (1000 + k * 1200) & 0xFFFF);
    });

    std::printf("Replay pre-processing: processor ns per record in and out, one record per insertion, taken every 8\n");
    std::printf("%-44s %10s %10s  %s\n", "case", "ns/record", "goal", "");
    const char* only = argc > 2 ? argv[2] : "";
    enum Kind { Goal, Figure, Peer };
    const auto row = [only](const char* name, const std::function<double()>& measure, Kind kind) {
        if (std::strstr(name, only) == nullptr)
            return;
        const double ns = measure();
        if (kind == Goal)
            std::printf("%-44s %10.0f %10.0f  %s\n", name, ns, kGoalNs, ns < kGoalNs ? "pass" : "MISS");
        else
            std::printf("%-44s %10.0f %10s  %s\n", name, ns, "-", kind == Peer ? "peer" : "");
    };
    row("generic, 60-byte frames", [&] { return ThroughStage(small, NXDRPP_GENERIC); }, Goal);
    row("generic, 1514-byte frames", [&] { return ThroughStage(large, NXDRPP_GENERIC); }, Goal);
    row("udp, 60-byte frames (nothing to join)", [&] { return ThroughStage(small, NXDRPP_UDP); }, Figure);
    row("udp, a quarter in 3 fragments", [&] { return ThroughStage(udp, NXDRPP_UDP); }, Figure);
    row("some/ip tp, 4-segment messages", [&] { return ThroughStage(tp, NXDRPP_SOMEIP); }, Figure);
    row("tcp, one connection, 1254-byte segments", [&] { return ThroughStage(tcp, NXDRPP_TCP); }, Figure);
    row("copy in and out, 60-byte frames", [&] { return Copies(small, false); }, Peer);
    row("mutex queue in and out, 60-byte frames", [&] { return Copies(small, true); }, Peer);
    row("copy in and out, 1514-byte frames", [&] { return Copies(large, false); }, Peer);
    row("mutex queue in and out, 1514-byte frames", [&] { return Copies(large, true); }, Peer);
    return 0;
}
