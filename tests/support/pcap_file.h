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

// The frames of an EthPrinter's file with dump_bytes -1: time and bytes,
// and with element_info the element's time and the frame's place in it.
struct PrintedEthFrame : CapturedFrame {
    long long elementTime = 0;
    int index = 0;  // in its element
    int count = 0;  // frames of its element
};

inline std::vector<PrintedEthFrame> ReadPrintedEthFrames(const std::string& path)
{
    std::vector<PrintedEthFrame> frames;
    std::FILE* file = std::fopen(path.c_str(), "r");
    if (!file) return frames;
    auto time = [](const std::string& text) {
        const std::size_t dot = text.find('.');
        return std::stoll(text.substr(0, dot)) * 1000000 + std::stoll(text.substr(dot + 1, 6));
    };
    char buffer[1 << 16];
    while (std::fgets(buffer, sizeof buffer, file)) {
        std::string line(buffer);
        if (!line.empty() && line.back() == '\n') line.pop_back();
        PrintedEthFrame frame;
        frame.time = time(line.substr(1, line.find(')') - 1));
        const std::size_t element = line.find("  elt=");
        const std::size_t end = element == std::string::npos ? line.size() : element;
        for (std::size_t at = line.find(" | ") + 3; at + 1 < end; at += 3)
            frame.bytes.push_back(static_cast<std::uint8_t>(std::stoul(line.substr(at, 2), nullptr, 16)));
        if (element != std::string::npos) {
            const std::size_t hash = line.find(" #", element);
            frame.elementTime = time(line.substr(element + 6, hash - element - 6));
            std::sscanf(line.c_str() + hash + 2, "%d/%d", &frame.index, &frame.count);
        }
        frames.push_back(frame);
    }
    std::fclose(file);
    return frames;
}

template <class Frame>
bool WritePcap(const std::string& path, const std::vector<Frame>& frames)
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
