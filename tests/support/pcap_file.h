// Ethernet frames as an independent tool sees them: a classic pcap file
// (link type 1, microsecond times) and tshark run over it.
#ifndef VELDOR_TESTS_PCAP_FILE_H
#define VELDOR_TESTS_PCAP_FILE_H

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

struct CapturedFrame {
    long long time;  // microseconds
    std::vector<std::uint8_t> bytes;
};

inline bool WritePcap(const std::string& path, const std::vector<CapturedFrame>& frames)
{
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (!file) return false;
    // magic, version 2.4, zone, accuracy, snapshot length, link type
    const std::uint32_t head[6] = {0xA1B2C3D4u, 2u | 4u << 16, 0, 0, 65535, 1};
    std::fwrite(head, sizeof head, 1, file);
    for (const CapturedFrame& f : frames) {
        const std::uint32_t record[4] = {static_cast<std::uint32_t>(f.time / 1000000),
                                         static_cast<std::uint32_t>(f.time % 1000000),
                                         static_cast<std::uint32_t>(f.bytes.size()),
                                         static_cast<std::uint32_t>(f.bytes.size())};
        std::fwrite(record, sizeof record, 1, file);
        std::fwrite(f.bytes.data(), 1, f.bytes.size(), file);
    }
    return std::fclose(file) == 0;
}

// The lines tshark prints for `arguments` (its reports left out).
inline std::vector<std::string> Tshark(const std::string& arguments)
{
    std::vector<std::string> lines;
    std::FILE* pipe = popen(("/usr/bin/tshark " + arguments + " 2>/dev/null").c_str(), "r");
    if (!pipe) return lines;
    std::string line;
    for (int c; (c = std::fgetc(pipe)) != EOF;) {
        if (c != '\n') {
            line += static_cast<char>(c);
            continue;
        }
        lines.push_back(line);
        line.clear();
    }
    pclose(pipe);
    return lines;
}

#endif
