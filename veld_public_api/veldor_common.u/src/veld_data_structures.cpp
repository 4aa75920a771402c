#include "veld_data_structures.h"

#include <cstdarg>
#include <cstdio>

// ---------------------------------------------------------------------------
// Hash

namespace {

inline VELDUInt64 word64(const unsigned char* k)
{
    return static_cast<VELDUInt64>(k[0]) | static_cast<VELDUInt64>(k[1]) << 8 | static_cast<VELDUInt64>(k[2]) << 16 |
           static_cast<VELDUInt64>(k[3]) << 24 | static_cast<VELDUInt64>(k[4]) << 32 |
           static_cast<VELDUInt64>(k[5]) << 40 | static_cast<VELDUInt64>(k[6]) << 48 |
           static_cast<VELDUInt64>(k[7]) << 56;
}

}  // namespace

VELDUInt64 VELDStringHashFunction::hash(const unsigned char* k, unsigned long length, unsigned long level)
{
    VELDUInt64 a = level, b = level, c = 0x9e3779b97f4a7c13ULL;
    unsigned long len = length;
    while (len >= 24) {
        a += word64(k);
        b += word64(k + 8);
        c += word64(k + 16);
        mix64(a, b, c);
        k += 24;
        len -= 24;
    }
    c += length;
    // The tail: bytes 0-7 into a, 8-15 into b, 16-22 into c one byte up, the
    // low byte of c being the length's.
    for (unsigned long i = 0; i < len; ++i) {
        VELDUInt64 byte = k[i];
        if (i < 8)
            a += byte << (8 * i);
        else if (i < 16)
            b += byte << (8 * (i - 8));
        else
            c += byte << (8 * (i - 15));
    }
    mix64(a, b, c);
    return c;
}

// ---------------------------------------------------------------------------
// Streamed strings

namespace VELDSManip {
VELDIOSBase dec = {0};
VELDIOSBase hex = {1};
VELDIOSBase oct = {2};
VELDIOSBase endl = {16};
VELDIOSBase ends = {17};
}  // namespace VELDSManip

VELDStreamedString& VELDStreamedString::appendFormatted(const char* format, ...)
{
    char text[64];
    va_list args;
    va_start(args, format);
    int n = std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    if (n > 0) concat(n < static_cast<int>(sizeof text) ? n : static_cast<int>(sizeof text) - 1, text);
    return *this;
}

VELDStreamedString& VELDStreamedString::operator<<(const VELDSManip::VELDIOSBase& manip)
{
    if ((manip.value & ~VELDSManip::S_NUMERIC_MASK) == 0)
        m_fmtflags = (m_fmtflags & ~static_cast<unsigned>(VELDSManip::S_NUMERIC_MASK)) |
                     static_cast<unsigned>(manip.value);
    else if (manip.value == VELDSManip::endl.value)
        concat(1, "\n");
    return *this;
}

// Hexadecimal is tested before octal: with both bits set the output is
// hexadecimal.
VELDStreamedString& VELDStreamedString::operator<<(short v)
{
    if (m_fmtflags & 1) return _printHex16(static_cast<VELDUInt16>(v));
    if (m_fmtflags & 2) return _printOct16(static_cast<VELDUInt16>(v));
    return appendFormatted("%d", v);
}

VELDStreamedString& VELDStreamedString::operator<<(unsigned short v)
{
    if (m_fmtflags & 1) return _printHex16(v);
    if (m_fmtflags & 2) return _printOct16(v);
    return appendFormatted("%u", v);
}

VELDStreamedString& VELDStreamedString::operator<<(int v)
{
    if (m_fmtflags & 1) return _printHex32(static_cast<VELDUInt32>(v));
    if (m_fmtflags & 2) return _printOct32(static_cast<VELDUInt32>(v));
    return appendFormatted("%d", v);
}

VELDStreamedString& VELDStreamedString::operator<<(unsigned int v)
{
    if (m_fmtflags & 1) return _printHex32(v);
    if (m_fmtflags & 2) return _printOct32(v);
    return appendFormatted("%u", v);
}

VELDStreamedString& VELDStreamedString::operator<<(long v)
{
    if (m_fmtflags & 1) return _printHex64(static_cast<VELDUInt64>(v));
    if (m_fmtflags & 2) return _printOct64(static_cast<VELDUInt64>(v));
    return appendFormatted("%ld", v);
}

VELDStreamedString& VELDStreamedString::operator<<(unsigned long v)
{
    if (m_fmtflags & 1) return _printHex64(v);
    if (m_fmtflags & 2) return _printOct64(v);
    return appendFormatted("%lu", v);
}

VELDStreamedString& VELDStreamedString::operator<<(float v) { return appendFormatted("%.10g", static_cast<double>(v)); }
VELDStreamedString& VELDStreamedString::operator<<(double v) { return appendFormatted("%.10g", v); }
VELDStreamedString& VELDStreamedString::operator<<(const void* p) { return appendFormatted("%p", p); }

VELDStreamedString& VELDStreamedString::operator<<(char c)
{
    concat(1, &c);
    return *this;
}

VELDStreamedString& VELDStreamedString::operator<<(const char* s)
{
    if (s) concat(VELD::Strlen(s), s);
    return *this;
}

VELDStreamedString& VELDStreamedString::operator<<(const VELDStackedString<40>& s)
{
    concat(s.Length(), s.Beginning());
    return *this;
}

VELDStreamedString& VELDStreamedString::_printHex16(VELDUInt16 v) { return appendFormatted("%x", v); }
VELDStreamedString& VELDStreamedString::_printOct16(VELDUInt16 v) { return appendFormatted("%o", v); }
VELDStreamedString& VELDStreamedString::_printHex32(VELDUInt32 v) { return appendFormatted("%x", v); }
VELDStreamedString& VELDStreamedString::_printOct32(VELDUInt32 v) { return appendFormatted("%o", v); }
VELDStreamedString& VELDStreamedString::_printHex64(VELDUInt64 v) { return appendFormatted("%lx", v); }
VELDStreamedString& VELDStreamedString::_printOct64(VELDUInt64 v) { return appendFormatted("%lo", v); }
