#include "platform/clock.h"

#include <time.h>

#include <cerrno>
#include <cstdlib>
#include <mutex>
#include <string>
#include <string_view>

namespace Platform {

namespace {

// tzset() looks at the file of the zone each time, and localtime_r() need not:
// a zone that the operator changes is seen within this time.
constexpr std::uint32_t ZoneStay = 60'000;  // milliseconds

struct CZone {
    std::mutex lock;
    std::string name;
    std::uint32_t setAt = 0;
    bool isSet = false;
};

void SetZone() {
    static CZone& zone = *new CZone;  // outlives every thread, and what logs when the process ends
    const char* const variable = std::getenv("TZ");
    const std::string_view wanted = variable ? variable : "";
    const std::uint32_t now = ClockMilliseconds();
    const std::lock_guard guard(zone.lock);
    if (zone.isSet && now - zone.setAt < ZoneStay && zone.name == wanted) return;
    tzset();
    zone.name = wanted;
    zone.setAt = now;
    zone.isSet = true;
}

}  // namespace

int TimeZoneBias(std::int64_t secondsSince1970) {
    return static_cast<int>(-LocalTime(secondsSince1970).tm_gmtoff / 60);
}

std::tm LocalTime(std::int64_t secondsSince1970) {
    SetZone();
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
