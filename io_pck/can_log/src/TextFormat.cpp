#include "TextFormat.h"

#include <cstring>

namespace veldor::canlog {

namespace {

constexpr char kHex[] = "0123456789ABCDEF";

}  // namespace

char* PutHexByte(char* out, std::uint8_t value)
{
    out[0] = kHex[value >> 4];
    out[1] = kHex[value & 0x0F];
    return out + 2;
}

char* PutHex(char* out, std::uint32_t value, int minDigits)
{
    int digits = 1;
    while (digits < 8 && (value >> (4 * digits)) != 0) ++digits;
    if (digits < minDigits) digits = minDigits;
    for (int i = digits - 1; i >= 0; --i) {
        out[i] = kHex[value & 0x0F];
        value >>= 4;
    }
    return out + digits;
}

char* PutUnsigned(char* out, std::uint64_t value, int minDigits)
{
    char reversed[20];
    int n = 0;
    do {
        reversed[n++] = static_cast<char>('0' + value % 10);
        value /= 10;
    } while (value != 0);
    while (n < minDigits && n < 20) reversed[n++] = '0';
    for (int i = 0; i < n; ++i) out[i] = reversed[n - 1 - i];
    return out + n;
}

char* PutSeconds(char* out, std::int64_t micros, int minWholeDigits)
{
    // The magnitude as unsigned, so that the most negative value is no trap.
    std::uint64_t magnitude = static_cast<std::uint64_t>(micros);
    if (micros < 0) {
        *out++ = '-';
        magnitude = ~magnitude + 1;
    }
    out = PutUnsigned(out, magnitude / 1000000, minWholeDigits);
    *out++ = '.';
    return PutUnsigned(out, magnitude % 1000000, 6);
}

char* PutPadded(char* out, std::string_view text, int width, bool right)
{
    const int pad = width > static_cast<int>(text.size()) ? width - static_cast<int>(text.size()) : 0;
    if (right) {
        std::memset(out, ' ', static_cast<std::size_t>(pad));
        out += pad;
    }
    out = PutText(out, text);
    if (!right) {
        std::memset(out, ' ', static_cast<std::size_t>(pad));
        out += pad;
    }
    return out;
}

char* PutText(char* out, std::string_view text)
{
    std::memcpy(out, text.data(), text.size());
    return out + text.size();
}

}  // namespace veldor::canlog
