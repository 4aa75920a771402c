#include "TextScan.h"

namespace veldor::canlog {

namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

char Lower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

}  // namespace

std::string_view Tokens::Next()
{
    std::size_t i = 0;
    while (i < m_rest.size() && IsBlank(m_rest[i])) ++i;
    std::size_t j = i;
    while (j < m_rest.size() && !IsBlank(m_rest[j])) ++j;
    const std::string_view token = m_rest.substr(i, j - i);
    m_rest.remove_prefix(j);
    return token;
}

std::size_t Tokens::Count() const
{
    Tokens copy(*this);
    std::size_t n = 0;
    while (!copy.Next().empty()) ++n;
    return n;
}

int HexDigit(char c)
{
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

bool IsDecimalDigit(char c) { return c >= '0' && c <= '9'; }

bool EqualsNoCase(std::string_view a, std::string_view b)
{
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (Lower(a[i]) != Lower(b[i])) return false;
    }
    return true;
}

bool ParseHex(std::string_view text, std::uint32_t& value)
{
    if (text.empty() || text.size() > 8) return false;
    std::uint32_t v = 0;
    for (char c : text) {
        const int d = HexDigit(c);
        if (d < 0) return false;
        v = (v << 4) | static_cast<std::uint32_t>(d);
    }
    value = v;
    return true;
}

bool ParseDecimal(std::string_view text, std::uint32_t& value)
{
    if (text.empty() || text.size() > 9) return false;
    std::uint32_t v = 0;
    for (char c : text) {
        if (!IsDecimalDigit(c)) return false;
        v = v * 10 + static_cast<std::uint32_t>(c - '0');
    }
    value = v;
    return true;
}

bool ParseByte(std::string_view text, bool hex, std::uint8_t& value)
{
    std::uint32_t v = 0;
    if (hex ? (text.size() > 2 || !ParseHex(text, v)) : (text.size() > 3 || !ParseDecimal(text, v) || v > 255)) {
        return false;
    }
    value = static_cast<std::uint8_t>(v);
    return true;
}

bool ParseSeconds(std::string_view text, std::int64_t& micros)
{
    bool negative = false;
    if (!text.empty() && text.front() == '-') {
        negative = true;
        text.remove_prefix(1);
    }
    const std::size_t dot = text.find('.');
    const std::string_view whole = text.substr(0, dot);
    const std::string_view fraction = dot == std::string_view::npos ? std::string_view() : text.substr(dot + 1);
    // 12 digits of seconds keep every sum below in range by far.
    if (whole.empty() || whole.size() > 12 || fraction.size() > 9) return false;
    if (dot != std::string_view::npos && fraction.empty()) return false;
    std::int64_t seconds = 0;
    for (char c : whole) {
        if (!IsDecimalDigit(c)) return false;
        seconds = seconds * 10 + (c - '0');
    }
    std::int64_t sub = 0;  // in units of 1e-9 seconds
    std::int64_t scale = 100000000;
    for (char c : fraction) {
        if (!IsDecimalDigit(c)) return false;
        sub += (c - '0') * scale;
        scale /= 10;
    }
    const std::int64_t magnitude = seconds * 1000000 + (sub + 500) / 1000;
    micros = negative ? -magnitude : magnitude;
    return true;
}

}  // namespace veldor::canlog
