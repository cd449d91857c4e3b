#include "platform/clock.h"

#include <windows.h>

#include <algorithm>
#include <chrono>

namespace Platform {

namespace {

constexpr std::int64_t SecondsPerDay = 86'400;

// What SYSTEMTIME can say and civil calendars agree on.
constexpr std::int64_t Earliest = -11'644'473'600;  // 1601
constexpr std::int64_t Latest = 253'402'300'799;    // the end of 9999

SYSTEMTIME ToSystemTime(const std::tm& time) {
    SYSTEMTIME result{};
    result.wYear = static_cast<WORD>(time.tm_year + 1900);
    result.wMonth = static_cast<WORD>(time.tm_mon + 1);
    result.wDay = static_cast<WORD>(time.tm_mday);
    result.wHour = static_cast<WORD>(time.tm_hour);
    result.wMinute = static_cast<WORD>(time.tm_min);
    result.wSecond = static_cast<WORD>(time.tm_sec);
    return result;
}

std::int64_t ToSeconds(const SYSTEMTIME& time) {
    const std::chrono::year_month_day day{std::chrono::year(time.wYear), std::chrono::month(time.wMonth),
                                          std::chrono::day(time.wDay)};
    return std::chrono::sys_days(day).time_since_epoch().count() * SecondsPerDay + time.wHour * 3600 +
           time.wMinute * 60 + time.wSecond;
}

// The zone with the rules of a year; those of now where the system keeps no
// others.
bool GetZone(int year, TIME_ZONE_INFORMATION& zone) {
    return GetTimeZoneInformationForYear(static_cast<USHORT>(year), nullptr, &zone) ||
           GetTimeZoneInformation(&zone) != TIME_ZONE_ID_INVALID;
}

}  // namespace

int TimeZoneBias(std::int64_t secondsSince1970) {
    constexpr std::int64_t LongestOffset = 2 * SecondsPerDay;
    const std::int64_t utc = std::clamp(secondsSince1970, Earliest + LongestOffset, Latest - LongestOffset);
    const SYSTEMTIME universal = ToSystemTime(UtcTime(utc));
    TIME_ZONE_INFORMATION zone{};
    SYSTEMTIME local{};
    if (!GetZone(universal.wYear, zone)) return 0;
    if (!SystemTimeToTzSpecificLocalTime(&zone, &universal, &local)) return static_cast<int>(zone.Bias);
    return static_cast<int>((utc - ToSeconds(local)) / 60);
}

std::tm LocalTime(std::int64_t secondsSince1970) {
    const int bias = TimeZoneBias(secondsSince1970);
    std::tm result = UtcTime(secondsSince1970 - bias * std::int64_t{60});
    TIME_ZONE_INFORMATION zone{};
    result.tm_isdst = GetZone(result.tm_year + 1900, zone) && bias != zone.Bias + zone.StandardBias ? 1 : 0;
    return result;
}

std::tm UtcTime(std::int64_t secondsSince1970) {
    using namespace std::chrono;
    const std::int64_t time = std::clamp(secondsSince1970, Earliest, Latest);
    const sys_days day = floor<days>(sys_seconds(seconds(time)));
    const year_month_day date(day);
    const auto inDay = static_cast<int>(time - day.time_since_epoch().count() * SecondsPerDay);
    std::tm result{};
    result.tm_year = static_cast<int>(date.year()) - 1900;
    result.tm_mon = static_cast<int>(static_cast<unsigned>(date.month())) - 1;
    result.tm_mday = static_cast<int>(static_cast<unsigned>(date.day()));
    result.tm_hour = inDay / 3600;
    result.tm_min = inDay / 60 % 60;
    result.tm_sec = inDay % 60;
    result.tm_wday = static_cast<int>(weekday(day).c_encoding());
    result.tm_yday = static_cast<int>((day - sys_days(date.year() / January / 1)).count());
    return result;
}

std::uint32_t ClockMilliseconds() noexcept {
    LARGE_INTEGER frequency;
    LARGE_INTEGER now;
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&now);
    return static_cast<std::uint32_t>(now.QuadPart / frequency.QuadPart * 1000 +
                                      now.QuadPart % frequency.QuadPart * 1000 / frequency.QuadPart);
}

void SleepMilliseconds(std::uint32_t milliseconds) {
    Sleep(std::min<DWORD>(milliseconds, INFINITE - 1));
}

}  // namespace Platform
