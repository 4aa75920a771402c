// Where the engine's reports go: the terminal, and a capture that tests and
// tools can read back.
#ifndef VELDOR_ENGINE_CONSOLE_H
#define VELDOR_ENGINE_CONSOLE_H

#include <array>
#include <cstdio>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace veldor {

struct ReportRecord {
    int level;  // VELD::Info, Warning, Error, ParserEcho
    int verbosity;
    bool fromKernel;
    std::string text;
    // The module that made the report ("component <name>: ..."); empty for
    // the engine's own and the package-wide reports.
    std::string module;
};

// How many reports a module made, by level.
struct ReportCounts {
    std::array<unsigned long, 4> byLevel{};  // indexed by VELD::Info, Warning, Error, ParserEcho
    unsigned long Infos() const { return byLevel[0]; }
    unsigned long Warnings() const { return byLevel[1]; }
    unsigned long Errors() const { return byLevel[2]; }
};

class Console {
public:
    // Errors are always printed, warnings unless the verbosity is
    // kErrorsOnly, infos and echoes only up to the verbosity.
    static const int kDefaultVerbosity = 1;
    static const int kErrorsOnly = -1;

    Console();

    void Report(const char* message, int level, int verbosity, bool fromKernel);

    // Printing can be switched off (a quiet tool, a test) and sent elsewhere
    // than the standard error stream; the capture goes on in every case.
    void SetPrinting(bool on);
    void SetStream(std::FILE* stream);
    void SetVerbosity(int verbosity);
    void SetCapture(bool on);

    std::vector<ReportRecord> Captured() const;
    // Forgets what was said: the capture, the error count and the last error.
    void ClearCaptured();
    // What was captured so far, the capture left empty: a tool that relays
    // reports as they come takes them in turns and misses none.
    std::vector<ReportRecord> TakeCaptured();
    // True when a captured report at `level` (or any level for -1) contains
    // `text`.
    bool Contains(const std::string& text, int level = -1) const;
    size_t CountContaining(const std::string& text, int level = -1) const;

    // Error reports so far, and the text of the last one: what an operation
    // that failed after a report tells its caller. Kept whether capturing or
    // not.
    unsigned long ErrorCount() const;
    std::string LastError() const;
    // The reports of a module so far, counted whether capturing or not, so
    // that a figure such as "the monitor's warnings while it ran" needs no
    // reading of texts. Kept across ClearCaptured; a module made anew under
    // the same name counts on.
    ReportCounts CountsOf(const std::string& module) const;
    std::map<std::string, ReportCounts> AllCounts() const;

    // The module named at the front of a report's text, as modules write
    // them ("<kind> <name>: <text>"); empty when there is none.
    static std::string ModuleOf(const std::string& text);

    static const char* LevelName(int level);

private:
    mutable std::mutex m_mutex;
    bool m_printing;
    bool m_capture;
    int m_verbosity;
    std::FILE* m_stream;
    std::vector<ReportRecord> m_captured;
    unsigned long m_errorCount;
    std::string m_lastError;
    std::map<std::string, ReportCounts> m_counts;
};

}  // namespace veldor

#endif
