// Scanning of log lines: whitespace tokens and the number forms that the
// two formats use. Everything works on views into the reader's buffer and
// allocates nothing.
#ifndef VELDOR_CAN_LOG_TEXT_SCAN_H
#define VELDOR_CAN_LOG_TEXT_SCAN_H

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace veldor::canlog {

// Splits a line at runs of spaces and tabs. A copy of a Tokens is a
// bookmark: scanning the copy looks ahead without moving the original.
class Tokens {
public:
    explicit Tokens(std::string_view text) : m_rest(text) {}
    // The next token, or an empty view at the end.
    std::string_view Next();
    // How many tokens are left; counts without consuming.
    std::size_t Count() const;
    std::string_view Rest() const { return m_rest; }

private:
    std::string_view m_rest;
};

int HexDigit(char c);
bool IsDecimalDigit(char c);
bool EqualsNoCase(std::string_view a, std::string_view b);

// 1 to 8 hexadecimal digits.
bool ParseHex(std::string_view text, std::uint32_t& value);
// 1 to 9 decimal digits.
bool ParseDecimal(std::string_view text, std::uint32_t& value);
// A data byte: two hex digits (one is accepted), or 1 to 3 decimal digits
// up to 255.
bool ParseByte(std::string_view text, bool hex, std::uint8_t& value);
// "[-]seconds[.fraction]" in microseconds. A fraction beyond six digits
// is rounded to the nearest microsecond; at most nine digits.
bool ParseSeconds(std::string_view text, std::int64_t& micros);

}  // namespace veldor::canlog

#endif
