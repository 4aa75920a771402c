#include <cerrno>
#include <cstring>
#include <clocale>
#include <cwchar>
#include <iconv.h>
#include <langinfo.h>

#include "veld_os_c_wrappers_posix.h"
#include "veld_os_helpers.h"
#include "veld_reference.h"

class VELDIconvHandle {
public:
    explicit VELDIconvHandle(iconv_t d) : descriptor(d) {}
    ~VELDIconvHandle() { iconv_close(descriptor); }

    iconv_t descriptor;
    VELDMutex mutex;
};

class VELDIconvImplementation {
public:
    VELDIconvImplementation();
    ~VELDIconvImplementation();

    VELDIconvHandle* open(const char* from, const char* to);
    void close(VELDIconvHandle* handle);
    char* convert(VELDIconvHandle* handle, const char* in, std::size_t inBytes);

    VELDMutex mutex;  // one conversion at a time
    VELDString locale;
    VELDString wide;
    VELDIconvHandle* utf8FromLocale;  // UTF8ToLocale
    VELDIconvHandle* localeFromUtf8;  // localeToUTF8
    VELDIconvHandle* utf8FromWide;    // UTF8ToWide
    VELDIconvHandle* wideFromUtf8;    // wideToUTF8
};

VELDIconvImplementation::VELDIconvImplementation()
    : utf8FromLocale(nullptr), localeFromUtf8(nullptr), utf8FromWide(nullptr), wideFromUtf8(nullptr)
{
    std::setlocale(LC_ALL, "");
    const char* codeset = nl_langinfo(CODESET);
    locale = codeset;
    // Numbers are written and read the same whatever the user's locale.
    std::setlocale(LC_NUMERIC, "C");
    wide = "UTF-32";
    if (!codeset) return;
    mutex.Lock();
    // iconv_open takes the target first.
    utf8FromLocale = open(locale, "UTF-8");
    localeFromUtf8 = open("UTF-8", locale);
    utf8FromWide = open(wide, "UTF-8");
    wideFromUtf8 = open("UTF-8", wide);
    mutex.Release();
}

VELDIconvImplementation::~VELDIconvImplementation()
{
    close(utf8FromLocale);
    close(localeFromUtf8);
    close(utf8FromWide);
    close(wideFromUtf8);
}

VELDIconvHandle* VELDIconvImplementation::open(const char* from, const char* to)
{
    iconv_t d = iconv_open(to, from);
    if (d == reinterpret_cast<iconv_t>(-1)) return nullptr;
    return new VELDIconvHandle(d);
}

void VELDIconvImplementation::close(VELDIconvHandle* handle) { delete handle; }

char* VELDIconvImplementation::convert(VELDIconvHandle* handle, const char* in, std::size_t inBytes)
{
    if (!in || !handle) return nullptr;
    std::size_t size = inBytes ? inBytes : 1;
    char* out = new char[size];
    handle->mutex.Lock();
    mutex.Lock();
    for (;;) {
        iconv(handle->descriptor, nullptr, nullptr, nullptr, nullptr);  // fresh shift state
        char* src = const_cast<char*>(in);
        std::size_t srcLeft = inBytes;
        char* dst = out;
        std::size_t dstLeft = size;
        if (iconv(handle->descriptor, &src, &srcLeft, &dst, &dstLeft) != static_cast<std::size_t>(-1)) break;
        int error = errno;
        delete[] out;
        out = nullptr;
        if (error != E2BIG) break;  // EINVAL, EILSEQ and the rest: no result
        size *= 2;
        out = new char[size];
    }
    mutex.Release();
    handle->mutex.Release();
    return out;
}

VELDIconvImplementation& VELDIconv::impl()
{
    static VELDReference<VELDIconvImplementation> m_impl(new VELDIconvImplementation());
    return *m_impl;
}

VELDIconvHandle* VELDIconv::open(const char* from, const char* to) { return impl().open(from, to); }
void VELDIconv::close(VELDIconvHandle* handle) { impl().close(handle); }

char* VELDIconv::convert(VELDIconvHandle* handle, const char* in, std::size_t inBytes)
{
    return impl().convert(handle, in, inBytes);
}

const char* VELDIconv::localeCodeset() { return impl().locale; }

bool VELDIconv::isLocaleUTF8()
{
    VELDString codeset(impl().locale);
    codeset.Lowercase();
    return codeset.FindStr("utf8") >= 0 || codeset.FindStr("utf-8") >= 0;
}

char* VELDIconv::localeToUTF8(const char* text)
{
    if (!text) return nullptr;
    return impl().convert(impl().localeFromUtf8, text, std::strlen(text) + 1);
}

char* VELDIconv::wideToUTF8(const wchar_t* text)
{
    if (!text) return nullptr;
    return impl().convert(impl().wideFromUtf8, reinterpret_cast<const char*>(text),
                          (std::wcslen(text) + 1) * sizeof(wchar_t));
}

bool VELDIconv::localeToUTF8(const char* text, VELDString& out)
{
    char* block = localeToUTF8(text);
    if (!block) return false;
    out = block;
    releaseUTF8(block);
    return true;
}

bool VELDIconv::wideToUTF8(const wchar_t* text, VELDString& out)
{
    char* block = wideToUTF8(text);
    if (!block) return false;
    out = block;
    releaseUTF8(block);
    return true;
}

char* VELDIconv::UTF8ToLocale(const char* text)
{
    if (!text) return nullptr;
    return impl().convert(impl().utf8FromLocale, text, static_cast<std::size_t>(VELD::Strlen(text)) + 1);
}

wchar_t* VELDIconv::UTF8ToWide(const char* text)
{
    if (!text) return nullptr;
    char* block = impl().convert(impl().utf8FromWide, text, static_cast<std::size_t>(VELD::Strlen(text)) + 1);
    return reinterpret_cast<wchar_t*>(block);
}

int VELDIconv::NbColumns(const VELDString& text)
{
    if (!text.Beginning()) return -1;
    wchar_t* block = UTF8ToWide(text);
    if (!block) return -1;
    int n = static_cast<int>(std::wcslen(block));
    releaseWide(block);
    return n;
}

void VELDIconv::releaseLocale(char* block) { delete[] block; }
void VELDIconv::releaseWide(wchar_t* block) { delete[] reinterpret_cast<char*>(block); }
void VELDIconv::releaseUTF8(char* block) { delete[] block; }
