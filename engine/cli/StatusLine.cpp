#include "StatusLine.h"

#include <unistd.h>

#include <cstdio>

namespace veldor::cli {

StatusLine::StatusLine() : m_on(isatty(STDERR_FILENO) != 0) {}

void StatusLine::Show(const std::string& text)
{
    if (!m_on) return;
    // Back to the start of the line, the text, the rest of the line erased.
    std::fprintf(stderr, "\r%s\033[K", text.c_str());
    std::fflush(stderr);
    m_shown = true;
}

void StatusLine::Clear()
{
    if (!m_shown) return;
    std::fputs("\r\033[K", stderr);
    std::fflush(stderr);
    m_shown = false;
}

double RateMeter::Update(long long count)
{
    const auto now = std::chrono::steady_clock::now();
    if (m_started) {
        const double seconds = std::chrono::duration<double>(now - m_last).count();
        if (seconds > 0) m_rate = static_cast<double>(count - m_lastCount) / seconds;
    }
    m_started = true;
    m_last = now;
    m_lastCount = count;
    return m_rate;
}

std::string Seconds(double seconds)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.1f s", seconds);
    return text;
}

std::string Percent(double share)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.1f %%", share * 100);
    return text;
}

}  // namespace veldor::cli
