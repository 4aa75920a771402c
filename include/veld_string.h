// The framework's one string class: a mutable byte string that keeps up to
// BUFFER_SIZE - 1 bytes inside the object and moves to the heap beyond that,
// growing by steps of BUFFER_SIZE. Lengths, positions and comparisons are in
// bytes; the class knows nothing of UTF-8 except the optional character walk.
#ifndef VELD_STRING_H
#define VELD_STRING_H

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "veld_containers.h"
#include "veld_os_c_wrappers.h"
#include "veld_types.h"

template <int BUFFER_SIZE>
class VELDStackedString {
public:
    VELDStackedString() { init(0, nullptr); }
    VELDStackedString(const char* s) { init(VELD::Strlen(s), s); }
    VELDStackedString(const VELDStackedString& o)
    {
        init(o.l, o.str);
        tpos = o.tpos;
    }
    VELDStackedString(VELDStackedString&& o) noexcept { take(o); }
    // Reserves room for n bytes. With setLength the length becomes n and the
    // bytes before the terminator are left for the caller to fill.
    VELDStackedString(int n, bool setLength)
    {
        if (n < 0) n = 0;
        init(n, nullptr);
        if (setLength) {
            l = n;
            str[n] = 0;
        }
    }
    virtual ~VELDStackedString() { destroy(); }

    VELDStackedString& operator=(const VELDStackedString& o)
    {
        if (this == &o) return *this;
        assign(o.l, o.str);
        tpos = o.tpos;
        return *this;
    }
    VELDStackedString& operator=(VELDStackedString&& o) noexcept
    {
        if (this != &o) {
            destroy();
            take(o);
        }
        return *this;
    }
    VELDStackedString& operator=(const char* s)
    {
        assign(VELD::Strlen(s), s);
        return *this;
    }

    // --- access ------------------------------------------------------------
    int Length() const { return l; }
    int Len() const { return l; }
    operator const char*() const { return str; }
    const char* Beginning() const { return str; }
    // Valid from 0 to Length(): the terminator may be addressed.
    char& operator[](int i)
    {
        if (i < 0 || i > l) throw "Index out of bounds";
        return str[i];
    }
    const char& operator[](int i) const
    {
        if (i < 0 || i > l) throw "Index out of bounds";
        return str[i];
    }

    // --- comparison --------------------------------------------------------
    // A null text equals the empty string and nothing else.
    bool operator==(const char* s) const
    {
        if (!s) return l == 0;
        for (int i = 0; i < l; ++i)
            if (s[i] == 0 || s[i] != str[i]) return false;
        return s[l] == 0;
    }
    bool operator==(const VELDStackedString& o) const
    {
        if (l != o.l) return false;
        for (int i = 0; i < l; ++i)
            if (str[i] != o.str[i]) return false;
        return true;
    }
    bool operator!=(const char* s) const { return !(*this == s); }
    bool operator!=(const VELDStackedString& o) const { return !(*this == o); }
    // Byte order, a prefix before the longer text.
    bool operator<(const VELDStackedString& o) const { return compare(o) < 0; }
    bool operator>(const VELDStackedString& o) const { return compare(o) > 0; }

    bool Equals(const char* s) const { return *this == s; }
    bool Iequals(const char* s) const { return VELD::Strlen(s) == l && VELD::Strnicmp(str, s, l) == 0; }
    bool StartsWith(const char* s) const
    {
        int n = VELD::Strlen(s);
        return n <= l && std::memcmp(str, s ? s : "", static_cast<std::size_t>(n)) == 0;
    }
    bool EndsWith(const char* s) const
    {
        int n = VELD::Strlen(s);
        return n <= l && std::memcmp(str + l - n, s ? s : "", static_cast<std::size_t>(n)) == 0;
    }
    bool StartsCaseWith(const char* s) const
    {
        int n = VELD::Strlen(s);
        return n <= l && VELD::Strnicmp(str, s ? s : "", n) == 0;
    }
    bool EndsCaseWith(const char* s) const
    {
        int n = VELD::Strlen(s);
        return n <= l && VELD::Strnicmp(str + l - n, s ? s : "", n) == 0;
    }

    // --- search ------------------------------------------------------------
    // First occurrence of s at or after `from`, by a plain scan; -1 when none
    // or when s is empty.
    int FindStr(const char* s, int from = 0) const
    {
        if (!s || !*s) return -1;
        int n = static_cast<int>(std::strlen(s));
        if (from < 0) from = 0;
        for (int i = from; i + n <= l; ++i)
            if (std::memcmp(str + i, s, static_cast<std::size_t>(n)) == 0) return i;
        return -1;
    }
    int FindStr(const VELDStackedString& s, int from = 0) const { return FindStr(s.str, from); }
    // Last occurrence of s starting at or before `from` (-1: from the end).
    int ReverseFindStr(const char* s, int from = -1) const
    {
        if (!s || !*s) return -1;
        int n = static_cast<int>(std::strlen(s));
        if (n > l) return -1;
        int start = (from < 0 || from > l - n) ? l - n : from;
        for (int i = start; i >= 0; --i)
            if (std::memcmp(str + i, s, static_cast<std::size_t>(n)) == 0) return i;
        return -1;
    }
    int Pos(const char* s) const { return FindStr(s, 0); }
    // Position of c at or after `from` into pos; false when absent.
    bool Find(char c, int& pos, int from = 0) const
    {
        for (int i = from < 0 ? 0 : from; i < l; ++i)
            if (str[i] == c) {
                pos = i;
                return true;
            }
        return false;
    }
    // Position of c at or before `from` (-1: from the end) into pos.
    bool ReverseFind(char c, int& pos, int from = -1) const
    {
        for (int i = (from < 0 || from >= l) ? l - 1 : from; i >= 0; --i)
            if (str[i] == c) {
                pos = i;
                return true;
            }
        return false;
    }
    bool Find(const char* s, int& pos, int from = 0) const
    {
        int p = FindStr(s, from);
        if (p < 0) return false;
        pos = p;
        return true;
    }

    // --- pieces ------------------------------------------------------------
    // `count` bytes from `start`, clipped to the text.
    VELDStackedString Mid(int start, int count) const
    {
        if (start < 0) {
            count += start;
            start = 0;
        }
        if (start > l) start = l;
        if (count > l - start) count = l - start;
        if (count < 0) count = 0;
        return VELDStackedString(str + start, count);
    }
    // Bytes `from` to `to`, both included.
    VELDStackedString Part(int from, int to) const { return Mid(from, to - from + 1); }
    VELDStackedString operator()(int from, int to) const { return Part(from, to); }
    VELDStackedString Left(int n) const { return Mid(0, n); }
    VELDStackedString Right(int n) const { return n >= l ? *this : Mid(l - n, n); }
    // The text before the first c, with c when `include`; all of it when c is
    // absent.
    VELDStackedString UpTo(char c, bool include = false) const
    {
        int p;
        return Find(c, p) ? Left(include ? p + 1 : p) : *this;
    }
    // The text before position n, with byte n when `include`.
    VELDStackedString UpTo(int n, bool include = false) const { return Left(include ? n + 1 : n); }
    // UpTo, applied to this string itself.
    VELDStackedString& Up2(char c, bool include = false) { return *this = UpTo(c, include); }
    VELDStackedString& Up2(int n, bool include = false) { return *this = UpTo(n, include); }
    // The text after position n, with byte n when `include`.
    VELDStackedString Tail(int n, bool include = false) const
    {
        int start = include ? n : n + 1;
        return Mid(start, l - start);
    }
    // The text after the first c, with c when `include`; empty when c is
    // absent.
    VELDStackedString Tail(char c, bool include = false) const
    {
        int p;
        return Find(c, p) ? Tail(p, include) : VELDStackedString();
    }

    // --- tokens (cursor `tpos`) ---------------------------------------------
    void TokenReset() { tpos = 0; }
    // The next token between separators into `token`; false at the end.
    bool Token(const char* separators, VELDStackedString& token)
    {
        while (tpos < l && isSeparator(str[tpos], separators)) ++tpos;
        if (tpos >= l) return false;
        int start = tpos;
        while (tpos < l && !isSeparator(str[tpos], separators)) ++tpos;
        token = VELDStackedString(str + start, tpos - start);
        return true;
    }
    // The next token, empty at the end.
    VELDStackedString Strtok(const char* separators)
    {
        VELDStackedString token;
        Token(separators, token);
        return token;
    }

    // --- editing ------------------------------------------------------------
    VELDStackedString& operator+=(const char* s)
    {
        if (s) concat(VELD::Strlen(s), s);
        return *this;
    }
    VELDStackedString& operator+=(const VELDStackedString& s)
    {
        concat(s.l, s.str);
        return *this;
    }
    VELDStackedString& operator+=(char c)
    {
        concat(1, &c);
        return *this;
    }
    // Appends n bytes, NULs included.
    VELDStackedString& Append(const char* s, int n)
    {
        if (s && n > 0) concat(n, s);
        return *this;
    }
    // Removes n bytes from the end.
    void Shorten(int n)
    {
        if (n <= 0) return;
        l = n >= l ? 0 : l - n;
        str[l] = 0;
    }
    // Empties the text; the block stays.
    void Clear()
    {
        l = 0;
        tpos = 0;
        str[0] = 0;
    }
    // Takes the length from the terminator, after a caller wrote the bytes.
    void UpdateLength()
    {
        str[res - 1] = 0;
        l = static_cast<int>(std::strlen(str));
    }
    // Drops line ends at the end of the text.
    void RemoveCRLF()
    {
        while (l > 0 && (str[l - 1] == '\n' || str[l - 1] == '\r')) --l;
        str[l] = 0;
    }
    // Drops white space at both ends.
    void RemoveSpaces()
    {
        int start = 0;
        while (start < l && std::isspace(static_cast<unsigned char>(str[start]))) ++start;
        int end = l;
        while (end > start && std::isspace(static_cast<unsigned char>(str[end - 1]))) --end;
        if (start > 0) std::memmove(str, str + start, static_cast<std::size_t>(end - start));
        l = end - start;
        str[l] = 0;
    }
    void Uppercase()
    {
        for (int i = 0; i < l; ++i) str[i] = static_cast<char>(std::toupper(static_cast<unsigned char>(str[i])));
    }
    void Lowercase()
    {
        for (int i = 0; i < l; ++i) str[i] = static_cast<char>(std::tolower(static_cast<unsigned char>(str[i])));
    }
    void FirstUppercase()
    {
        if (l > 0) str[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(str[0])));
    }
    void Substitute(char from, char to)
    {
        for (int i = 0; i < l; ++i)
            if (str[i] == from) str[i] = to;
    }
    // This string becomes s backwards.
    void Reverse(const VELDStackedString& s)
    {
        VELDStackedString r(s.l, true);
        for (int i = 0; i < s.l; ++i) r.str[i] = s.str[s.l - 1 - i];
        *this = static_cast<VELDStackedString&&>(r);
    }
    // This string becomes the printf text of one argument.
    void Format(const char* format, const char* arg) { formatWith(format, arg); }
    void Format(const char* format, int arg) { formatWith(format, arg); }
    void Format(const char* format, double arg) { formatWith(format, arg); }

    // True for a whole decimal or floating-point number, sign and blanks
    // around it allowed.
    bool IsNum() const
    {
        if (l == 0) return false;
        char* end = nullptr;
        std::strtod(str, &end);
        if (end == str) return false;
        while (*end && std::isspace(static_cast<unsigned char>(*end))) ++end;
        return *end == 0 && static_cast<int>(end - str) == l;
    }

    // Bytes available for text in the block, terminator included.
    int GetCapacity() const { return res; }
    // Makes room for n bytes of text, keeping the text.
    void SetCapacity(int n)
    {
        if (n < res) return;
        int newRes = reserveFor(n);
        char* block = new char[newRes];
        std::memcpy(block, str, static_cast<std::size_t>(l) + 1);
        destroy();
        str = block;
        res = newRes;
    }

    // --- walk by character (cursor `tpos`) -----------------------------------
    void InitNextChar(bool utf8 = false)
    {
        (void)utf8;
        tpos = 0;
    }
    // The character at the cursor (a code point when utf8), 0 at the end.
    // `advance` moves the cursor past it; `ok` tells whether it was well formed.
    unsigned NextChar(bool utf8 = false, bool advance = true, bool* ok = nullptr)
    {
        if (ok) *ok = true;
        if (tpos >= l) return 0;
        const unsigned char* p = reinterpret_cast<const unsigned char*>(str) + tpos;
        if (!utf8 || p[0] < 0x80) {
            if (advance) ++tpos;
            return p[0];
        }
        int n = p[0] >= 0xF0 ? 4 : p[0] >= 0xE0 ? 3 : p[0] >= 0xC0 ? 2 : 1;
        unsigned cp = n == 1 ? p[0] : p[0] & (0x7Fu >> n);
        bool good = n > 1 && tpos + n <= l;
        for (int k = 1; good && k < n; ++k) {
            if ((p[k] & 0xC0) != 0x80) good = false;
            cp = (cp << 6) | (p[k] & 0x3F);
        }
        if (!good) {
            cp = p[0];
            n = 1;
        }
        if (ok) *ok = good;
        if (advance) tpos += n;
        return cp;
    }
    // Characters before the cursor: bytes, or code points when utf8.
    int CharPos(bool utf8 = false) const
    {
        if (!utf8) return tpos;
        int n = 0;
        for (int i = 0; i < tpos && i < l; ++i)
            if ((static_cast<unsigned char>(str[i]) & 0xC0) != 0x80) ++n;
        return n;
    }

    // Fields split at `sep`; adjacent separators give empty fields, and so
    // does a separator at the end.
    VELDArray<VELDStackedString> Split(char sep) const
    {
        VELDArray<VELDStackedString> out;
        if (l == 0) {
            out.Append() = VELDStackedString();
            return out;
        }
        char* scratch = new char[l + 1];
        int n = 0;
        for (int i = 0; i < l; ++i) {
            if (str[i] == sep) {
                scratch[n] = 0;
                out.Append() = scratch;
                n = 0;
            } else {
                scratch[n++] = str[i];
            }
        }
        scratch[n] = 0;
        out.Append() = scratch;
        delete[] scratch;
        return out;
    }

protected:
    // From n bytes of s, which need not be terminated.
    VELDStackedString(const char* s, int n) { init(n, s); }

    static int reserveFor(int n) { return ((n + 1) / BUFFER_SIZE + 1) * BUFFER_SIZE; }

    void init(int n, const char* s)
    {
        tpos = 0;
        if (n < BUFFER_SIZE) {
            res = BUFFER_SIZE;
            str = buf;
        } else {
            res = reserveFor(n);
            str = new char[res];
        }
        if (s) {
            l = n;
            std::memmove(str, s, static_cast<std::size_t>(n));
            str[n] = 0;
        } else {
            str[0] = 0;
            l = 0;
        }
    }
    // Replaces the text with n bytes of s; s may point into this string.
    void assign(int n, const char* s)
    {
        char* old = str != buf ? str : nullptr;
        if (old && s >= old && s < old + res) {
            init(n, s);  // copies out of the old block before it goes
            delete[] old;
            return;
        }
        destroy();
        init(n, s);
    }
    void concat(int n, const char* s)
    {
        if (l + n >= res) {
            int newRes = reserveFor(l + n);
            char* block = new char[newRes];
            std::memcpy(block, str, static_cast<std::size_t>(l));
            std::memcpy(block + l, s, static_cast<std::size_t>(n));  // s may live in the old block
            if (str != buf) delete[] str;
            str = block;
            res = newRes;
        } else {
            std::memmove(str + l, s, static_cast<std::size_t>(n));
        }
        l += n;
        str[l] = 0;
    }
    void destroy()
    {
        if (str && str != buf) delete[] str;
        str = buf;
        res = BUFFER_SIZE;
    }
    void take(VELDStackedString& o)
    {
        l = o.l;
        res = o.res;
        tpos = o.tpos;
        if (o.str == o.buf) {
            str = buf;
            std::memcpy(buf, o.buf, static_cast<std::size_t>(o.l) + 1);
        } else {
            str = o.str;
            o.str = o.buf;
            o.res = BUFFER_SIZE;
        }
        o.l = 0;
        o.tpos = 0;
        o.buf[0] = 0;
    }
    int compare(const VELDStackedString& o) const
    {
        int n = l < o.l ? l : o.l;
        int c = std::memcmp(str, o.str, static_cast<std::size_t>(n));
        return c != 0 ? c : l - o.l;
    }
    static bool isSeparator(char c, const char* separators) { return separators && c && std::strchr(separators, c); }
    template <class A>
    void formatWith(const char* format, A arg)
    {
        char small[128];
        int n = std::snprintf(small, sizeof small, format ? format : "", arg);
        if (n < 0) n = 0;
        if (n < static_cast<int>(sizeof small)) {
            assign(n, small);
            return;
        }
        VELDStackedString big(n, true);
        std::snprintf(big.str, static_cast<std::size_t>(n) + 1, format, arg);
        *this = static_cast<VELDStackedString&&>(big);
    }

    int l;
    int res;
    int tpos;
    char* str;
    char buf[BUFFER_SIZE];

    template <int N>
    friend VELDStackedString<N> operator+(const VELDStackedString<N>&, const VELDStackedString<N>&);
    template <int N>
    friend VELDStackedString<N> operator+(const VELDStackedString<N>&, const char*);
    template <int N>
    friend VELDStackedString<N> operator+(const char*, const VELDStackedString<N>&);
};

typedef VELDStackedString<40> VELDString;

template <int N>
VELDStackedString<N> operator+(const VELDStackedString<N>& a, const VELDStackedString<N>& b)
{
    VELDStackedString<N> r(a.l + b.l, true);
    for (int i = 0; i < a.l; ++i) r.str[i] = a.str[i];
    for (int i = 0; i < b.l; ++i) r.str[a.l + i] = b.str[i];
    return r;
}

template <int N>
VELDStackedString<N> operator+(const VELDStackedString<N>& a, const char* b)
{
    if (!b) return a;
    int n = VELD::Strlen(b);
    VELDStackedString<N> r(a.l + n, true);
    for (int i = 0; i < a.l; ++i) r.str[i] = a.str[i];
    for (int i = 0; i < n; ++i) r.str[a.l + i] = b[i];
    return r;
}

// A null left side gives a copy of the right one, cursor included.
template <int N>
VELDStackedString<N> operator+(const char* a, const VELDStackedString<N>& b)
{
    if (!a) return b;
    int n = VELD::Strlen(a);
    VELDStackedString<N> r(n + b.l, true);
    for (int i = 0; i < n; ++i) r.str[i] = a[i];
    for (int i = 0; i < b.l; ++i) r.str[n + i] = b.str[i];
    return r;
}

// ---------------------------------------------------------------------------
// Stream manipulators. The low four bits of a manipulator select the base of
// the numbers that follow; endl and ends lie outside them and leave the base.

namespace VELDSManip {

struct VELDIOSBase {
    int value;
};

const int S_NUMERIC_MASK = 0x0F;

extern VELDIOSBase dec;   // 0
extern VELDIOSBase hex;   // 1
extern VELDIOSBase oct;   // 2
extern VELDIOSBase endl;  // 16: appends a line feed
extern VELDIOSBase ends;  // 17: ends the text; appends nothing

}  // namespace VELDSManip

// A string that reports and messages are assembled in.
class VELDStreamedString : public VELDStackedString<40> {
public:
    VELDStreamedString() : m_fmtflags(0) {}
    VELDStreamedString(const char* s) : VELDStackedString<40>(s), m_fmtflags(0) {}
    VELDStreamedString(const VELDStackedString<40>& s) : VELDStackedString<40>(s), m_fmtflags(0) {}
    VELDStreamedString(const VELDStreamedString& s) : VELDStackedString<40>(s), m_fmtflags(s.m_fmtflags) {}
    VELDStreamedString& operator=(const VELDStreamedString& s)
    {
        VELDStackedString<40>::operator=(s);
        m_fmtflags = s.m_fmtflags;
        return *this;
    }
    VELDStreamedString& operator=(const char* s)
    {
        VELDStackedString<40>::operator=(s);
        return *this;
    }
    ~VELDStreamedString() override {}

    VELDStreamedString& operator<<(const VELDSManip::VELDIOSBase& manip);
    VELDStreamedString& operator<<(short v);
    VELDStreamedString& operator<<(unsigned short v);
    VELDStreamedString& operator<<(int v);
    VELDStreamedString& operator<<(unsigned int v);
    VELDStreamedString& operator<<(long v);
    VELDStreamedString& operator<<(unsigned long v);
    VELDStreamedString& operator<<(long long v) { return *this << static_cast<long>(v); }
    VELDStreamedString& operator<<(unsigned long long v) { return *this << static_cast<unsigned long>(v); }
    VELDStreamedString& operator<<(float v);
    VELDStreamedString& operator<<(double v);
    VELDStreamedString& operator<<(const void* p);
    VELDStreamedString& operator<<(char c);
    VELDStreamedString& operator<<(const char* s);
    VELDStreamedString& operator<<(const VELDStackedString<40>& s);

    // The same conversions with the base fixed by the name.
    VELDStreamedString& _printHex16(VELDUInt16 v);
    VELDStreamedString& _printOct16(VELDUInt16 v);
    VELDStreamedString& _printHex32(VELDUInt32 v);
    VELDStreamedString& _printOct32(VELDUInt32 v);
    VELDStreamedString& _printHex64(VELDUInt64 v);
    VELDStreamedString& _printOct64(VELDUInt64 v);

    unsigned int m_fmtflags;

private:
    VELDStreamedString& appendFormatted(const char* format, ...) __attribute__((format(printf, 2, 3)));
};

namespace VELD {

// An element's full name "<module>.<rest>" after its module was renamed:
// when the part before the first "." is `oldModule` it becomes `newModule`.
// False when the name was left as it was.
inline bool RenameModulePart(VELDString& fullName, const char* oldModule, const char* newModule)
{
    int dot = 0;
    if (!fullName.Find('.', dot) || fullName.Left(dot) != oldModule) return false;
    VELDString renamed(newModule);
    renamed += fullName.Tail(dot, true);
    fullName = renamed;
    return true;
}

}  // namespace VELD

#endif
