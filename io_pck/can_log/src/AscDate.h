// The calendar dates of an ASC header, as in "Tue Nov 14 10:13:20.123 pm
// 2023" or "Do Mär 19 22:13:20.123 2020": written with English names, a
// 12-hour clock and milliseconds; read with English or German names, either
// clock.
#ifndef VELDOR_CAN_LOG_ASC_DATE_H
#define VELDOR_CAN_LOG_ASC_DATE_H

#include <cstdint>
#include <string_view>

#include "can_log/LogOptions.h"

namespace veldor::canlog {

// Longest text that FormatAscDate writes.
constexpr int kAscDateMaxLength = 40;

// Writes the date of `micros` (microseconds since the epoch) to the
// millisecond, and returns the end of what it wrote.
char* FormatAscDate(char* out, std::int64_t micros, DateZone zone);

// Reads "[weekday] month day hh:mm:ss[.fraction] [am|pm] year"; the
// weekday is not checked, the month is an English or German name, and
// "vorm." and "nachm." stand for am and pm. A fraction of up to six digits
// is kept.
bool ParseAscDate(std::string_view text, DateZone zone, std::int64_t& micros);

}  // namespace veldor::canlog

#endif
