// clock.h - the local time zone, and a clock for measuring spans.

#ifndef LISTHAVEN_PLATFORM_CLOCK_H
#define LISTHAVEN_PLATFORM_CLOCK_H

#include <cstdint>
#include <ctime>

namespace Platform {

// Minutes to add to local time to get UTC at that instant, daylight saving
// time included: 300 in New York in winter, -60 in Berlin in winter.
int TimeZoneBias(std::int64_t secondsSince1970);

// A changed zone of the system is seen within a minute.
std::tm LocalTime(std::int64_t secondsSince1970);
std::tm UtcTime(std::int64_t secondsSince1970);

std::uint32_t ClockMilliseconds() noexcept;  // of the process; wraps; not affected by setting the time

void SleepMilliseconds(std::uint32_t milliseconds);

}  // namespace Platform

#endif  // LISTHAVEN_PLATFORM_CLOCK_H
