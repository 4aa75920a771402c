#include "BlfFormat.h"

#include <ctime>

namespace veldor::canlog::blf {

bool ReadCalendarTime(const std::uint8_t* p, DateZone zone, std::int64_t& micros)
{
    const int year = Get16(p);
    const int month = Get16(p + 2);
    const int day = Get16(p + 6);
    const int hour = Get16(p + 8);
    const int minute = Get16(p + 10);
    const int second = Get16(p + 12);
    const int millisecond = Get16(p + 14);
    if (year < 1601 || month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 60 ||
        millisecond > 999) {
        return false;
    }
    std::tm tm{};
    tm.tm_year = year - 1900;
    tm.tm_mon = month - 1;
    tm.tm_mday = day;
    tm.tm_hour = hour;
    tm.tm_min = minute;
    tm.tm_sec = second;
    tm.tm_isdst = -1;
    const std::time_t t = zone == DateZone::Utc ? timegm(&tm) : mktime(&tm);
    micros = static_cast<std::int64_t>(t) * 1000000 + millisecond * 1000;
    return true;
}

void WriteCalendarTime(std::uint8_t* p, std::int64_t micros, DateZone zone)
{
    std::memset(p, 0, 16);
    if (micros < kEarliestCalendarTime) return;
    const std::time_t t = static_cast<std::time_t>(micros / 1000000);
    std::tm tm{};
    if (zone == DateZone::Utc) {
        gmtime_r(&t, &tm);
    } else {
        localtime_r(&t, &tm);
    }
    Put16(p, static_cast<std::uint16_t>(tm.tm_year + 1900));
    Put16(p + 2, static_cast<std::uint16_t>(tm.tm_mon + 1));
    Put16(p + 4, static_cast<std::uint16_t>(tm.tm_wday));
    Put16(p + 6, static_cast<std::uint16_t>(tm.tm_mday));
    Put16(p + 8, static_cast<std::uint16_t>(tm.tm_hour));
    Put16(p + 10, static_cast<std::uint16_t>(tm.tm_min));
    Put16(p + 12, static_cast<std::uint16_t>(tm.tm_sec));
    Put16(p + 14, static_cast<std::uint16_t>(micros / 1000 % 1000));
}

}  // namespace veldor::canlog::blf
