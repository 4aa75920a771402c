// The live status line of a command on a terminal, rewritten in place, and
// the figures it shows: a rate over the last turn, times in seconds.
// Nothing is shown when the standard error stream is no terminal.
#ifndef VELDOR_CLI_STATUS_LINE_H
#define VELDOR_CLI_STATUS_LINE_H

#include <chrono>
#include <string>

namespace veldor::cli {

class StatusLine {
public:
    StatusLine();
    ~StatusLine() { Clear(); }
    StatusLine(const StatusLine&) = delete;
    StatusLine& operator=(const StatusLine&) = delete;

    bool On() const { return m_on; }
    void Show(const std::string& text);
    // Removes the line, so that what follows starts on a clean one.
    void Clear();

private:
    bool m_on;
    bool m_shown = false;
};

// Counts per second between two readings.
class RateMeter {
public:
    double Update(long long count);

private:
    std::chrono::steady_clock::time_point m_last{};
    long long m_lastCount = 0;
    double m_rate = 0;
    bool m_started = false;
};

// "12.3 s"
std::string Seconds(double seconds);
// "9.9 %"
std::string Percent(double share);

}  // namespace veldor::cli

#endif
