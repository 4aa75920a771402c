// Speed of the capture file writers and readers, in frames and megabytes
// per second, beside tcpdump reading the same files in the same run. The
// goal is the line rate of 1000BASE-T1 in its smallest frames: 64-byte
// frames with their preamble and gap are 84 bytes on the wire, 1.49 million
// a second; a recorder and a player keep up with a saturated link. Files go
// to the temporary folder, so the figures include the page cache but rarely
// the disk. Each figure is the best of three runs, the machine being shared.
//
//     build/bench/bench_pcap_log [frames]
#include <sys/wait.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "pcap_log/PacketReader.h"
#include "pcap_log/PacketWriter.h"

namespace {

using namespace veldor::pcaplog;
using Clock = std::chrono::steady_clock;

constexpr double kLineRate = 1e9 / (84 * 8);  // frames a second
constexpr int kRuns = 3;

std::string TempFile(const char* name)
{
    return (std::filesystem::temp_directory_path() / (std::string("bench_pcap_log.") + name)).string();
}

double BestSeconds(const std::function<bool()>& run)
{
    double best = 1e30;
    for (int i = 0; i < kRuns; ++i) {
        const auto start = Clock::now();
        if (!run()) return -1;
        best = std::min(best, std::chrono::duration<double>(Clock::now() - start).count());
    }
    return best;
}

// 64-byte frames on Ethernet ports, every fourth one a CAN FD frame when the
// drive is multi-bus, 1 to 2 microseconds apart.
bool Write(const std::string& path, std::size_t frames, bool multiBus, bool nanoseconds)
{
    std::vector<Interface> interfaces(1);
    interfaces[0].name = "eth0";
    if (multiBus) {
        interfaces.resize(2);
        interfaces[1].name = "can0";
        interfaces[1].linkType = kLinkTypeSocketCan;
    }
    std::string error;
    WriterOptions options;
    options.pcapNanoseconds = nanoseconds;
    std::unique_ptr<PacketWriter> writer = OpenPacketWriter(path, interfaces, error, options);
    if (!writer) return std::fprintf(stderr, "%s\n", error.c_str()), false;
    std::uint8_t frame[64] = {0x01, 0x00, 0x5E, 0x00, 0x00, 0x01, 0x02, 0x00, 0x00, 0x00, 0x00, 0x01, 0x08, 0x00};
    veldor::canlog::CanFrame can;
    can.fd = can.bitRateSwitch = true;
    can.length = 64;
    Packet packet;
    packet.capturedLength = packet.originalLength = sizeof frame;
    packet.data = frame;
    std::int64_t time = 1700000000000000000;
    for (std::size_t i = 0; i < frames; ++i) {
        time += 1000 + static_cast<std::int64_t>(i % 1000);
        frame[20] = static_cast<std::uint8_t>(i);
        WriteResult r;
        if (multiBus && i % 4 == 3) {
            can.timestamp = time / 1000;
            can.id = i & 0x7FF;
            r = writer->Write(1, can);
        } else {
            packet.time = time;
            r = writer->Write(packet);
        }
        if (r != WriteResult::Written) return std::fprintf(stderr, "%s\n", writer->Error().c_str()), false;
    }
    if (!writer->Close()) return std::fprintf(stderr, "%s\n", writer->Error().c_str()), false;
    return true;
}

bool Read(const std::string& path, std::size_t frames)
{
    std::string error;
    std::unique_ptr<PacketReader> reader = OpenPacketReader(path, error);
    if (!reader) return std::fprintf(stderr, "%s\n", error.c_str()), false;
    Packet packet;
    std::size_t read = 0;
    std::uint32_t sum = 0;
    for (ReadResult r; (r = reader->Next(packet)) != ReadResult::End;) {
        if (r == ReadResult::Issue) return std::fprintf(stderr, "%s\n", reader->Issue().Describe().c_str()), false;
        ++read;
        sum += packet.data[packet.capturedLength - 1];
    }
    asm volatile("" : : "r"(sum));
    if (read != frames) return std::fprintf(stderr, "%s: %zu frames of %zu\n", path.c_str(), read, frames), false;
    return true;
}

bool Tcpdump(const std::string& path)
{
    const std::string command = "tcpdump -r " + path + " -w /dev/null 2>/dev/null";
    return std::system(command.c_str()) == 0;
}

void Print(const char* what, std::size_t frames, const std::string& path, double seconds, bool goal)
{
    if (seconds < 0) {
        std::printf("  %-44s %12s\n", what, "failed");
        return;
    }
    const double rate = static_cast<double>(frames) / seconds;
    const double megabytes = static_cast<double>(std::filesystem::file_size(path)) / 1e6 / seconds;
    std::printf("  %-44s %12.0f %10.0f  %12s  %s\n", what, rate, megabytes, goal ? ">= 1490000" : "peer",
                goal ? (rate >= kLineRate ? "pass" : "miss") : "");
}

}  // namespace

int main(int argc, char** argv)
{
    const std::size_t frames = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 1000000;
    const bool haveTcpdump = std::system("command -v tcpdump >/dev/null 2>&1") == 0;
    std::printf("Capture files: %zu frames of 64 bytes, best of %d runs\n", frames, kRuns);
    std::printf("  %-44s %12s %10s  %12s\n", "", "frames/s", "MB/s", "goal");
    const struct {
        const char* name;
        const char* file;
        bool multiBus;
        bool nanoseconds;
    } files[] = {
        {"pcap, microseconds (libpcap)", "us.pcap", false, false},
        {"pcap, nanoseconds (libpcap)", "ns.pcap", false, true},
        {"pcapng, Ethernet", "eth.pcapng", false, true},
        {"pcapng, multi-bus: Ethernet and CAN FD", "multi.pcapng", true, true},
    };
    bool ok = true;
    for (const auto& f : files) {
        const std::string path = TempFile(f.file);
        const double write = BestSeconds([&] { return Write(path, frames, f.multiBus, f.nanoseconds); });
        Print((std::string("write ") + f.name).c_str(), frames, path, write, true);
        const double read = BestSeconds([&] { return Read(path, frames); });
        Print((std::string("read ") + f.name).c_str(), frames, path, read, true);
        if (haveTcpdump && !f.multiBus) {
            // libpcap reads one link type a file: no multi-bus file for tcpdump.
            Print((std::string("  tcpdump -r -w /dev/null, ") + f.file).c_str(), frames, path,
                  BestSeconds([&] { return Tcpdump(path); }), false);
        }
        ok = ok && write > 0 && read > 0 && write <= frames / kLineRate && read <= frames / kLineRate;
        std::filesystem::remove(path);
    }
    if (!haveTcpdump) std::printf("  (no tcpdump here: make setup installs it)\n");
    return ok ? 0 : 1;
}
