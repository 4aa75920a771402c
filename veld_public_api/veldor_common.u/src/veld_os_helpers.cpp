#include "veld_os_helpers.h"

#include <pcre.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// Gives a conversion's block back on every path.
class LocaleBlockGuard {
public:
    explicit LocaleBlockGuard(char* block) : m_block(block) {}
    LocaleBlockGuard(const LocaleBlockGuard&) = delete;
    LocaleBlockGuard& operator=(const LocaleBlockGuard&) = delete;
    ~LocaleBlockGuard() { VELDIconv::releaseLocale(m_block); }
    const char* get() const { return m_block; }

private:
    char* m_block;
};

}  // namespace

// A failed conversion gives null, and std::string refuses to be built from
// null: that failure is the caller's to see.
std::string VELDStringHelper::UTF8ToLocale(const char* text)
{
    LocaleBlockGuard block(VELDIconv::UTF8ToLocale(text));
    return std::string(block.get());
}

std::string VELDStringHelper::UTF8ToLocale(const VELDString& text) { return UTF8ToLocale(text.Beginning()); }

VELDString VELDStringHelper::LocaleToUTF8(const char* text)
{
    LocaleBlockGuard block(VELDIconv::UTF8ToLocale(text));
    return VELDString(block.get());
}

VELDString VELDStringHelper::LocaleToUTF8(const std::string& text) { return LocaleToUTF8(text.c_str()); }

// ---------------------------------------------------------------------------
// Timestamp texts

VELDString VELD::Timestamp2String(VELDInt64 t)
{
    VELDStreamedString text;
    if (t < 0) {
        text << '-';
        t = -t;
    }
    VELDInt64 hours = t / 3600000000LL;
    char buffer[64];
    if (hours != 0) {
        std::snprintf(buffer, sizeof buffer, "%ld:", static_cast<long>(hours));
        text << buffer;
    }
    std::snprintf(buffer, sizeof buffer, "%02ld:%02ld.%06ld", static_cast<long>(t / 60000000LL % 60),
                  static_cast<long>(t / 1000000LL % 60), static_cast<long>(t % 1000000LL));
    text << buffer;
    return text;
}

VELDInt64 VELD::TimestampFromString(const char* text, char** end)
{
    if (!text || !*text) {
        if (end) *end = const_cast<char*>(text);
        return -1;
    }
    char* p = nullptr;
    VELDInt64 value = std::strtoll(text, &p, 10);
    const char* q = text;
    while (std::isspace(static_cast<unsigned char>(*q))) ++q;
    bool negative = *q == '-';
    for (int part = 0; part < 2 && *p == ':'; ++part) {
        VELDInt64 next = static_cast<VELDInt64>(std::strtoul(p + 1, &p, 10));
        value = value * 60 + (negative ? -next : next);
    }
    value *= 1000000;
    if (*p == '.') {
        ++p;
        VELDInt64 scale = 100000, fraction = 0;
        for (int digits = 0; digits < 6 && std::isdigit(static_cast<unsigned char>(*p)); ++digits, ++p) {
            fraction += (*p - '0') * scale;
            scale /= 10;
        }
        value += negative ? -fraction : fraction;
    }
    if (end) *end = p;
    return value;
}

// ---------------------------------------------------------------------------
// Regular expressions

struct VELDRegExp::Record {
    int refs = 1;
    VELDString pattern;
    int options = 0;
    pcre* code = nullptr;
    pcre_extra* extra = nullptr;
    VELDString error;
    int errorOffset = -1;
    int* offsets = nullptr;
    int nbOffsets = 0;  // a multiple of 3
    int matches = 0;

    ~Record()
    {
        if (extra) pcre_free_study(extra);
        if (code) pcre_free(code);
        delete[] offsets;
    }
};

VELDRegExp::VELDRegExp(const char* pattern, int options) : m_record(new Record())
{
    m_record->pattern = pattern;
    m_record->options = options;
    compile();
}

VELDRegExp::VELDRegExp(const VELDRegExp& other) : m_record(other.m_record) { addref(); }

VELDRegExp& VELDRegExp::operator=(const VELDRegExp& other)
{
    if (m_record != other.m_record) {
        decref();
        m_record = other.m_record;
        addref();
    }
    return *this;
}

VELDRegExp::~VELDRegExp() { decref(); }

void VELDRegExp::addref() { ++m_record->refs; }

void VELDRegExp::decref()
{
    if (m_record && --m_record->refs == 0) delete m_record;
    m_record = nullptr;
}

void VELDRegExp::newbase()
{
    Record* fresh = new Record();
    fresh->pattern = m_record->pattern;
    fresh->options = m_record->options;
    decref();
    m_record = fresh;
}

void VELDRegExp::compile()
{
    Record& r = *m_record;
    if (r.extra) pcre_free_study(r.extra);
    if (r.code) pcre_free(r.code);
    r.extra = nullptr;
    r.code = nullptr;
    r.error = "";
    r.errorOffset = -1;
    r.matches = 0;
    const char* error = nullptr;
    int offset = -1;
    r.code = pcre_compile(r.pattern, r.options, &error, &offset, nullptr);
    if (!r.code) {
        r.error = error;
        r.errorOffset = offset;
        return;
    }
    r.extra = pcre_study(r.code, 0, &error);
}

void VELDRegExp::SetPattern(const char* pattern)
{
    newbase();
    m_record->pattern = pattern;
    compile();
}

void VELDRegExp::SetOptions(int options)
{
    newbase();
    m_record->options = options;
    compile();
}

bool VELDRegExp::exec(const char* subject, int options)
{
    Record& r = *m_record;
    r.matches = 0;
    if (!r.code || !subject) return false;
    if (!r.offsets) {
        r.nbOffsets = 30;
        r.offsets = new int[r.nbOffsets];
    }
    for (;;) {
        int result = pcre_exec(r.code, r.extra, subject, VELD::Strlen(subject), 0, options, r.offsets, r.nbOffsets);
        if (result > 0) {
            r.matches = result;
            return true;
        }
        if (result < 0) return false;
        // 0: the offset vector is too small for all the substrings.
        delete[] r.offsets;
        r.nbOffsets += 30;
        r.offsets = new int[r.nbOffsets];
    }
}

bool VELDRegExp::Ok() const { return m_record->code != nullptr; }
const char* VELDRegExp::LastError() const { return m_record->error; }
int VELDRegExp::ErrorOffset() const { return m_record->errorOffset; }
int VELDRegExp::Substrings() const { return m_record->matches; }

int VELDRegExp::Position(int i) const
{
    return i >= 0 && i < m_record->matches ? m_record->offsets[2 * i] : -1;
}

int VELDRegExp::Length(int i) const
{
    return i >= 0 && i < m_record->matches ? m_record->offsets[2 * i + 1] - m_record->offsets[2 * i] : -1;
}

// ---------------------------------------------------------------------------
// Path arithmetic

namespace {

// The elements of a path, empty ones and "." left out.
VELDArray<VELDString> Elements(const VELDString& path)
{
    VELDArray<VELDString> all = path.Split('/');
    VELDArray<VELDString> kept;
    for (int i = 0; i < all.Size(); ++i)
        if (all[i].Length() > 0 && all[i] != ".") kept.Append(all[i]);
    return kept;
}

// The path without its trailing separators; a lone "/" stays.
VELDString WithoutTrailingSeparators(const VELDString& path)
{
    int n = path.Length();
    while (n > 1 && path[n - 1] == '/') --n;
    VELDString trimmed(path);
    trimmed.Shorten(path.Length() - n);
    return trimmed;
}

VELDString Joined(const char* folder, const VELDString& path)
{
    VELDString joined(folder);
    if (joined.Length() > 0 && joined[joined.Length() - 1] != '/') joined += "/";
    joined += path.Beginning();
    return joined;
}

}  // namespace

void VELDFile::SetLongName(const char* path)
{
    m_longName = path;
    const char* text = m_longName.Beginning();
    const char* slash = std::strrchr(text, '/');
    m_shortName = slash ? slash + 1 : text;
}

bool VELDFile::IsAbsolute() const
{
    return m_longName.Length() > 0 && (m_longName[0] == '/' || m_longName[0] == '\\');
}

VELDString VELDFile::GetExtension() const
{
    const char* text = m_longName.Beginning();
    for (int i = m_longName.Length() - 1; i >= 0; --i)
        if (text[i] == '.') return VELDString(text + i + 1);
    return VELDString();
}

bool VELDFile::CompactPath()
{
    const bool rooted = m_longName.Length() > 0 && m_longName[0] == '/';
    const VELDArray<VELDString> elements = Elements(m_longName);
    VELDArray<VELDString> kept;
    for (int i = 0; i < elements.Size(); ++i) {
        if (elements[i] != "..") {
            kept.Append(elements[i]);
        } else if (kept.Size() >= 2 && kept[kept.Size() - 1] != "..") {
            kept.RemoveLast();
        } else if (IsAbsolute()) {
            return false;
        } else {
            kept.Append(elements[i]);
        }
    }
    VELDString compact(rooted ? "/" : "");
    for (int i = 0; i < kept.Size(); ++i) {
        compact += kept[i].Beginning();
        compact += "/";
    }
    SetLongName(compact);
    return true;
}

VELDString VELDFile::GetAbsolutePath(const char* base) const
{
    if (IsAbsolute()) return GetFullPath();
    return Joined(base ? base : VELD::GetCurrentFolder().Beginning(), m_longName);
}

VELDString VELDFile::GetRelativePath(const char* base) const
{
    if (!IsAbsolute()) return GetFullPath();
    VELDFile from(base);
    from.SetLongName(from.GetAbsolutePath(nullptr));
    from.CompactPath();
    VELDFile to(*this);
    to.CompactPath();
    const VELDArray<VELDString> fromElements = Elements(from.m_longName);
    const VELDArray<VELDString> toElements = Elements(to.m_longName);
    int common = 0;
    while (common < fromElements.Size() && common < toElements.Size() &&
           fromElements[common] == toElements[common])
        ++common;
    VELDString relative;
    for (int i = common; i < fromElements.Size(); ++i) relative += relative.Length() ? "/.." : "..";
    for (int i = common; i < toElements.Size(); ++i) {
        if (relative.Length()) relative += "/";
        relative += toElements[i].Beginning();
    }
    return relative.Length() ? relative : VELDString(".");
}

VELDString VELDFile::GetName() const
{
    const VELDString path = WithoutTrailingSeparators(m_longName);
    if (path == "/") return VELDString();
    const char* slash = std::strrchr(path.Beginning(), '/');
    return VELDString(slash ? slash + 1 : path.Beginning());
}

VELDString VELDFile::GetParentFolder() const
{
    VELDString path = WithoutTrailingSeparators(m_longName);
    const char* text = path.Beginning();
    const char* slash = std::strrchr(text, '/');
    if (!slash) return VELDString();
    const int kept = slash == text ? 1 : static_cast<int>(slash - text);
    path.Shorten(path.Length() - kept);
    return path;
}
