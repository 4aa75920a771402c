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
#include <string>

#include "EthernetDrive.h"
#include "SampleDrive.h"
#include "can_log/AscWriter.h"
#include "can_log/CanUtilsLogWriter.h"

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
    if (!sample::WriteCapture(base + ".pcapng", frames, sample::SimulateEthernet(settings, ethernet), error)) {
        std::fprintf(stderr, "can_sample_recording: %s\n", error.c_str());
        return 1;
    }

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
