#include "Console.h"

#include <cstring>

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
    std::string module = fromKernel ? std::string() : ModuleOf(text);
    if (!module.empty() && level >= 0 && level < static_cast<int>(ReportCounts().byLevel.size()))
        ++m_counts[module].byLevel[static_cast<std::size_t>(level)];
    if (m_capture)
        m_captured.push_back(ReportRecord{level, verbosity, fromKernel, std::move(text), std::move(module)});
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

ReportCounts Console::CountsOf(const std::string& module) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto it = m_counts.find(module);
    return it == m_counts.end() ? ReportCounts() : it->second;
}

std::map<std::string, ReportCounts> Console::AllCounts() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_counts;
}

std::string Console::ModuleOf(const std::string& text)
{
    for (const char* kind : {"component ", "module "}) {
        const std::size_t length = std::strlen(kind);
        if (text.compare(0, length, kind) != 0) continue;
        const std::size_t colon = text.find(": ", length);
        return colon == std::string::npos ? std::string() : text.substr(length, colon - length);
    }
    return std::string();
}

bool Console::Contains(const std::string& text, int level) const { return CountContaining(text, level) > 0; }

}  // namespace veldor
