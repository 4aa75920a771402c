// Character set conversions between the locale, UTF-8 and wide text, through
// the system's iconv.
#ifndef VELD_OS_HELPERS_H
#define VELD_OS_HELPERS_H

#include <cstddef>
#include <string>

#include "veld_string.h"

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
