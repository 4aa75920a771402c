// Formatting for the writers: each function writes at `out`, which must
// have room, and returns the end of what it wrote. No locale, no allocation.
#ifndef VELDOR_CAN_LOG_TEXT_FORMAT_H
#define VELDOR_CAN_LOG_TEXT_FORMAT_H

#include <cstdint>
#include <string_view>

namespace veldor::canlog {

// Two upper-case hex digits.
char* PutHexByte(char* out, std::uint8_t value);
// Upper-case hex, at least `minDigits` digits with leading zeros.
char* PutHex(char* out, std::uint32_t value, int minDigits);
// Decimal, at least `minDigits` digits with leading zeros.
char* PutUnsigned(char* out, std::uint64_t value, int minDigits = 1);
// "[-]seconds.micros" with six decimals, the seconds with at least
// `minWholeDigits` digits.
char* PutSeconds(char* out, std::int64_t micros, int minWholeDigits = 1);
// `text` padded with spaces to `width`, on the left when `right` is set.
char* PutPadded(char* out, std::string_view text, int width, bool right);
char* PutText(char* out, std::string_view text);

}  // namespace veldor::canlog

#endif
