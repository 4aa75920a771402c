// can_sample_recording: writes the bundled sample drive: the CAN bus alone,
// the same frames as an ASC and as a can-utils log, and the CAN bus with the
// vehicle's automotive Ethernet in one pcapng file.
//
//     can_sample_recording [--out DIR] [--name NAME] [--seconds N] [--seed N]
//
// writes DIR/NAME.asc, DIR/NAME.log and DIR/NAME.pcapng (default:
// ./sample_drive.*) and prints what they hold. The ASC header dates are in
// UTC, so that the file is the same wherever it is made.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "EthernetDrive.h"
#include "SampleDrive.h"
#include "can_log/AscWriter.h"
#include "can_log/CanUtilsLogWriter.h"
#include "pcap_log/PacketWriter.h"

namespace {

using namespace veldor;

int Usage()
{
    std::fprintf(stderr, "usage: can_sample_recording [--out DIR] [--name NAME] [--seconds N] [--seed N]\n");
    return 2;
}

bool WriteAll(canlog::FrameWriter* writer, const std::string& error, const std::vector<canlog::CanFrame>& frames)
{
    if (writer == nullptr) {
        std::fprintf(stderr, "can_sample_recording: %s\n", error.c_str());
        return false;
    }
    for (const canlog::CanFrame& frame : frames) {
        if (writer->Write(frame) != canlog::WriteResult::Written) break;
    }
    if (!writer->Close()) {
        std::fprintf(stderr, "can_sample_recording: %s\n", writer->Error().c_str());
        return false;
    }
    return true;
}

// The CAN bus as interface 0 and the Ethernet link as interface 1, the
// frames of both in time order.
bool WriteDrive(const std::string& path, const std::vector<canlog::CanFrame>& can,
                const std::vector<sample::EthernetFrame>& ethernet)
{
    pcaplog::Interface canBus;
    canBus.name = "can0";
    canBus.description = "chassis CAN FD, 500 kbit/s, data phase 2 Mbit/s";
    canBus.linkType = pcaplog::kLinkTypeSocketCan;
    pcaplog::Interface backbone;
    backbone.name = "eth0";
    backbone.description = "Ethernet backbone, 100 Mbit/s";
    std::string error;
    std::unique_ptr<pcaplog::PacketWriter> writer = pcaplog::OpenPacketWriter(path, {canBus, backbone}, error);
    if (!writer) {
        std::fprintf(stderr, "can_sample_recording: %s\n", error.c_str());
        return false;
    }
    std::size_t c = 0;
    std::size_t e = 0;
    bool written = true;
    while (written && (c < can.size() || e < ethernet.size())) {
        if (e == ethernet.size() || (c < can.size() && can[c].timestamp * 1000 <= ethernet[e].time)) {
            written = writer->Write(0, can[c++]) == canlog::WriteResult::Written;
            continue;
        }
        pcaplog::Packet packet;
        packet.interface = 1;
        packet.time = ethernet[e].time;
        packet.data = ethernet[e].bytes.data();
        packet.capturedLength = packet.originalLength = static_cast<std::uint32_t>(ethernet[e].bytes.size());
        written = writer->Write(packet) == canlog::WriteResult::Written;
        ++e;
    }
    if (!written || !writer->Close()) {
        std::fprintf(stderr, "can_sample_recording: %s: %s\n", path.c_str(), writer->Error().c_str());
        return false;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv)
{
    std::string out = ".";
    std::string name = "sample_drive";
    sample::DriveSettings settings;
    for (int i = 1; i < argc; ++i) {
        const bool hasValue = i + 1 < argc;
        if (std::strcmp(argv[i], "--out") == 0 && hasValue) {
            out = argv[++i];
        } else if (std::strcmp(argv[i], "--name") == 0 && hasValue) {
            name = argv[++i];
        } else if (std::strcmp(argv[i], "--seconds") == 0 && hasValue) {
            settings.duration = std::atoll(argv[++i]) * 1000000;
        } else if (std::strcmp(argv[i], "--seed") == 0 && hasValue) {
            settings.seed = std::strtoull(argv[++i], nullptr, 10);
        } else {
            return Usage();
        }
    }
    if (settings.duration <= 0) return Usage();

    sample::DriveStats stats;
    const std::vector<canlog::CanFrame> frames = sample::SimulateDrive(settings, stats);

    canlog::WriterOptions options;
    options.measurementStart = settings.start;
    options.dateZone = canlog::DateZone::Utc;
    std::string error;
    const std::string base = out + "/" + name;
    if (!WriteAll(canlog::AscWriter::Open(base + ".asc", error, options).get(), error, frames)) return 1;
    if (!WriteAll(canlog::CanUtilsLogWriter::Open(base + ".log", error, options).get(), error, frames)) return 1;
    sample::EthernetStats ethernet;
    if (!WriteDrive(base + ".pcapng", frames, sample::SimulateEthernet(settings, ethernet))) return 1;

    std::printf("%s.asc, %s.log: %zu frames in %lld s: %zu extended, %zu FD (%zu with bit rate switch), %zu Tx\n",
                base.c_str(), base.c_str(), stats.frames, static_cast<long long>(settings.duration / 1000000),
                stats.extended, stats.fd, stats.bitRateSwitch, stats.transmitted);
    std::printf("bus load at %u/%u kbit/s: %.1f %% mean, %.1f %% in the busiest 100 ms\n",
                settings.rates.arbitration / 1000, settings.rates.data / 1000, stats.meanLoad * 100,
                stats.peakLoad * 100);
    std::printf("%s.pcapng: the CAN bus as can0 and %zu Ethernet frames as eth0: %zu SOME/IP events, %zu service "
                "offers, %zu SOME/IP-TP messages in %zu segments, %zu UDP datagrams in %zu IPv4 fragments; "
                "link load %.2f %% at 100 Mbit/s\n",
                base.c_str(), ethernet.frames, ethernet.events, ethernet.offers, ethernet.tpMessages,
                ethernet.tpSegments, ethernet.datagrams, ethernet.fragments, ethernet.meanLoad * 100);
    return 0;
}
