#include "Console.h"

#include "veld_constants.h"

namespace veldor {

Console::Console()
    : m_printing(true), m_capture(true), m_verbosity(kDefaultVerbosity), m_stream(stderr), m_errorCount(0)
{
}

const char* Console::LevelName(int level)
{
    switch (level) {
    case VELD::Info:
        return "info";
    case VELD::Warning:
        return "warning";
    case VELD::Error:
        return "error";
    case VELD::ParserEcho:
        return "echo";
    default:
        return "report";
    }
}

void Console::Report(const char* message, int level, int verbosity, bool fromKernel)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    std::string text = message ? message : "";
    if (m_printing && (level == VELD::Error || (level == VELD::Warning && m_verbosity > kErrorsOnly) ||
                       verbosity <= m_verbosity)) {
        std::fprintf(m_stream, "%s: %s\n", LevelName(level), text.c_str());
        std::fflush(m_stream);
    }
    if (level == VELD::Error) {
        ++m_errorCount;
        m_lastError = text;
    }
    if (m_capture) m_captured.push_back(ReportRecord{level, verbosity, fromKernel, std::move(text)});
}

void Console::SetPrinting(bool on)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_printing = on;
}

void Console::SetStream(std::FILE* stream)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_stream = stream ? stream : stderr;
}

void Console::SetVerbosity(int verbosity)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_verbosity = verbosity;
}

void Console::SetCapture(bool on)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_capture = on;
}

std::vector<ReportRecord> Console::Captured() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_captured;
}

std::vector<ReportRecord> Console::TakeCaptured()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<ReportRecord> taken;
    taken.swap(m_captured);
    return taken;
}

void Console::ClearCaptured()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_captured.clear();
    m_errorCount = 0;
    m_lastError.clear();
}

size_t Console::CountContaining(const std::string& text, int level) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    size_t n = 0;
    for (const ReportRecord& r : m_captured)
        if ((level < 0 || r.level == level) && r.text.find(text) != std::string::npos) ++n;
    return n;
}

unsigned long Console::ErrorCount() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_errorCount;
}

std::string Console::LastError() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_lastError;
}

bool Console::Contains(const std::string& text, int level) const { return CountContaining(text, level) > 0; }

}  // namespace veldor
