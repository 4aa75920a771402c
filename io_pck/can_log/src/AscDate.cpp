#include "AscDate.h"

#include <ctime>

#include "TextFormat.h"
#include "TextScan.h"

namespace veldor::canlog {

namespace {

constexpr const char* kMonths[12] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                     "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
constexpr const char* kWeekdays[7] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};

std::int64_t FloorDiv(std::int64_t a, std::int64_t b) { return a / b - ((a % b != 0) && ((a < 0) != (b < 0))); }

// Month names as the tools write them, English and German, the German
// "März" in UTF-8 and in Latin-1 too. A longer name that starts with one
// (November, Dezember) is that month.
struct MonthName {
    std::string_view name;
    int month;
};
constexpr MonthName kMonthNames[] = {
    {"Jan", 0}, {"Feb", 1}, {"Mar", 2}, {"M\xC3\xA4r", 2}, {"M\xE4r", 2}, {"Mrz", 2}, {"Apr", 3},
    {"May", 4}, {"Mai", 4}, {"Jun", 5}, {"Jul", 6},          {"Aug", 7},    {"Sep", 8}, {"Oct", 9},
    {"Okt", 9}, {"Nov", 10}, {"Dec", 11}, {"Dez", 11},
};

int MonthOf(std::string_view token)
{
    for (const MonthName& m : kMonthNames) {
        if (token.size() >= m.name.size() && EqualsNoCase(token.substr(0, m.name.size()), m.name)) return m.month;
    }
    return -1;
}

// "hh:mm:ss[.fraction]" into its parts, the fraction in microseconds.
bool ParseClock(std::string_view text, int& hour, int& minute, int& second, std::int64_t& micros)
{
    const std::size_t c1 = text.find(':');
    const std::size_t c2 = c1 == std::string_view::npos ? c1 : text.find(':', c1 + 1);
    if (c2 == std::string_view::npos) return false;
    std::uint32_t h = 0;
    std::uint32_t m = 0;
    std::int64_t s = 0;
    if (!ParseDecimal(text.substr(0, c1), h) || !ParseDecimal(text.substr(c1 + 1, c2 - c1 - 1), m) ||
        !ParseSeconds(text.substr(c2 + 1), s) || s < 0) {
        return false;
    }
    if (h > 23 || m > 59 || s >= 61000000) return false;
    hour = static_cast<int>(h);
    minute = static_cast<int>(m);
    second = static_cast<int>(s / 1000000);
    micros = s % 1000000;
    return true;
}

}  // namespace

char* FormatAscDate(char* out, std::int64_t micros, DateZone zone)
{
    const std::int64_t seconds = FloorDiv(micros, 1000000);
    const std::int64_t millis = FloorDiv(micros - seconds * 1000000, 1000);
    const std::time_t t = static_cast<std::time_t>(seconds);
    std::tm tm{};
    if (zone == DateZone::Utc) {
        gmtime_r(&t, &tm);
    } else {
        localtime_r(&t, &tm);
    }
    const int hour12 = tm.tm_hour % 12 == 0 ? 12 : tm.tm_hour % 12;
    out = PutText(out, kWeekdays[tm.tm_wday % 7]);
    *out++ = ' ';
    out = PutText(out, kMonths[tm.tm_mon % 12]);
    *out++ = ' ';
    out = PutUnsigned(out, static_cast<std::uint64_t>(tm.tm_mday), 2);
    *out++ = ' ';
    out = PutUnsigned(out, static_cast<std::uint64_t>(hour12), 2);
    *out++ = ':';
    out = PutUnsigned(out, static_cast<std::uint64_t>(tm.tm_min), 2);
    *out++ = ':';
    out = PutUnsigned(out, static_cast<std::uint64_t>(tm.tm_sec), 2);
    *out++ = '.';
    out = PutUnsigned(out, static_cast<std::uint64_t>(millis), 3);
    out = PutText(out, tm.tm_hour < 12 ? " am " : " pm ");
    return PutUnsigned(out, static_cast<std::uint64_t>(tm.tm_year + 1900));
}

bool ParseAscDate(std::string_view text, DateZone zone, std::int64_t& micros)
{
    Tokens tokens(text);
    std::string_view token = tokens.Next();
    int month = MonthOf(token);
    if (month < 0) month = MonthOf(token = tokens.Next());  // after the weekday
    if (month < 0) return false;

    std::uint32_t day = 0;
    int hour = 0;
    int minute = 0;
    int second = 0;
    std::int64_t fraction = 0;
    if (!ParseDecimal(tokens.Next(), day) || day < 1 || day > 31) return false;
    if (!ParseClock(tokens.Next(), hour, minute, second, fraction)) return false;
    token = tokens.Next();
    const bool am = EqualsNoCase(token, "am") || EqualsNoCase(token, "vorm.");
    const bool pm = EqualsNoCase(token, "pm") || EqualsNoCase(token, "nachm.");
    if (am || pm) {
        if (hour < 1 || hour > 12) return false;
        hour = hour % 12 + (pm ? 12 : 0);
        token = tokens.Next();
    }
    std::uint32_t year = 0;
    if (!ParseDecimal(token, year) || year < 1900 || year > 9999 || !tokens.Next().empty()) return false;

    std::tm tm{};
    tm.tm_year = static_cast<int>(year) - 1900;
    tm.tm_mon = month;
    tm.tm_mday = static_cast<int>(day);
    tm.tm_hour = hour;
    tm.tm_min = minute;
    tm.tm_sec = second;
    tm.tm_isdst = -1;
    const std::time_t t = zone == DateZone::Utc ? timegm(&tm) : mktime(&tm);
    micros = static_cast<std::int64_t>(t) * 1000000 + fraction;
    return true;
}

}  // namespace veldor::canlog
