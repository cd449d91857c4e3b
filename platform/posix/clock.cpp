#include "platform/clock.h"

#include <time.h>

#include <cerrno>

namespace Platform {

int TimeZoneBias(std::int64_t secondsSince1970) {
    return static_cast<int>(-LocalTime(secondsSince1970).tm_gmtoff / 60);
}

std::tm LocalTime(std::int64_t secondsSince1970) {
    tzset();  // localtime_r() alone may not look at the environment again
    std::tm result{};
    const std::time_t time = secondsSince1970;
    localtime_r(&time, &result);
    return result;
}

std::tm UtcTime(std::int64_t secondsSince1970) {
    std::tm result{};
    const std::time_t time = secondsSince1970;
    gmtime_r(&time, &result);
    return result;
}

std::uint32_t ClockMilliseconds() noexcept {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint32_t>(static_cast<std::uint64_t>(now.tv_sec) * 1000 +
                                      static_cast<std::uint64_t>(now.tv_nsec) / 1'000'000);
}

void SleepMilliseconds(std::uint32_t milliseconds) {
    timespec rest{};
    rest.tv_sec = milliseconds / 1000;
    rest.tv_nsec = static_cast<long>(milliseconds % 1000) * 1'000'000;
    while (nanosleep(&rest, &rest) != 0 && errno == EINTR) {
    }
}

}  // namespace Platform
