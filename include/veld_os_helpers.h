// Character set conversions between the locale, UTF-8 and wide text, through
// the system's iconv.
#ifndef VELD_OS_HELPERS_H
#define VELD_OS_HELPERS_H

#include <cstddef>
#include <string>

#include "veld_string.h"
#include "veld_types.h"

// Microseconds since 1970-01-01 00:00:00 UTC.
typedef VELDInt64 VELDAbsoluteTime;

namespace VELD {

// Sleeps that long; a signal restarts the whole sleep, not the rest of it.
void Sleep(VELDInt64 microseconds);
// The short pause of polling loops: 10 milliseconds.
void Wait4AWhile();
// Gives the processor to another thread.
void ReleaseCurrentThread();
// Prints "<title>: <text>" (with "Warning: " for kind 1 on standard output,
// "Error: " for kind 2 on standard error), then shows a window until a key,
// a click or its closing, unless "SILENT" or "VELDOR_SILENT" is set or no
// display opens.
void MsgBox(const char* title, const char* text, int kind);
// A detached thread that sets LC_NUMERIC to "C" and runs body(arg). False
// when the system refuses the thread.
bool CreateThread(void* (*body)(void*), void* arg);

// "[-][H:]MM:SS.uuuuuu": hours only when there are any.
VELDString Timestamp2String(VELDInt64 microseconds);
// Reads "S", "M:S" or "H:M:S" with up to six digits of fraction, into
// microseconds; -1 for a null or empty text. `end` receives the first
// character not read.
VELDInt64 TimestampFromString(const char* text, char** end);
// "YYYY/MM/DD hh:mm:ss.uuuuuu" in local time.
VELDString AbsoluteTime2String(VELDAbsoluteTime time);

}  // namespace VELD

// A Perl-compatible regular expression. Copies share one reference-counted
// record holding the compiled pattern and the state of the last match.
class VELDRegExp {
public:
    explicit VELDRegExp(const char* pattern = nullptr, int options = 0);
    VELDRegExp(const VELDRegExp& other);
    VELDRegExp& operator=(const VELDRegExp& other);
    ~VELDRegExp();

    // Compile anew; a record shared with copies is left to them.
    void SetPattern(const char* pattern);
    void SetOptions(int options);
    // True on a match. `options` go to the matcher.
    bool exec(const char* subject, int options = 0);

    bool Ok() const;
    const char* LastError() const;
    // Offset of a compilation error; -1 when none is recorded.
    int ErrorOffset() const;
    // Substrings of the last match, the whole match included.
    int Substrings() const;
    // Start offset of substring i of the last match, or -1.
    int Position(int i) const;
    // Length of substring i of the last match, or -1.
    int Length(int i) const;

private:
    struct Record;
    void addref();
    void decref();
    // Gives this object a record of its own.
    void newbase();
    void compile();

    Record* m_record;
};

class VELDIconvHandle;
class VELDIconvImplementation;

// Static front over one process-wide converter. Every result block is new[]
// and goes back through the matching release operation.
//
// The four descriptors are paired with the operations as the framework has
// always paired them: UTF8ToLocale runs the descriptor whose source is the
// locale and whose target is UTF-8, localeToUTF8 the opposite one, and the
// same goes for the two wide forms. On a UTF-8 locale the first pair is the
// same either way; callers that want UTF-8 from locale text use
// UTF8ToLocale (see VELDStringHelper).
class VELDIconv {
public:
    static VELDIconvHandle* open(const char* from, const char* to);
    static void close(VELDIconvHandle* handle);
    // A new block, or null for a null input or a failed conversion.
    static char* convert(VELDIconvHandle* handle, const char* in, std::size_t inBytes);

    static bool isLocaleUTF8();
    static const char* localeCodeset();

    static char* localeToUTF8(const char* text);
    static char* wideToUTF8(const wchar_t* text);
    // False, and `out` untouched, for a null input or a failed conversion.
    static bool localeToUTF8(const char* text, VELDString& out);
    static bool wideToUTF8(const wchar_t* text, VELDString& out);
    static char* UTF8ToLocale(const char* text);
    static wchar_t* UTF8ToWide(const char* text);
    // Characters of a UTF-8 text, or -1.
    static int NbColumns(const VELDString& text);

    static void releaseLocale(char* block);
    static void releaseWide(wchar_t* block);
    static void releaseUTF8(char* block);

private:
    static VELDIconvImplementation& impl();
};

// Conversions for the bus side, which works with std::string.
class VELDStringHelper {
public:
    static std::string UTF8ToLocale(const char* text);
    static std::string UTF8ToLocale(const VELDString& text);
    static VELDString LocaleToUTF8(const char* text);
    static VELDString LocaleToUTF8(const std::string& text);
};

#endif
