#include "engine/incoming/cycleschedule.h"

#include <algorithm>
#include <chrono>
#include <mutex>
#include <optional>

#include "app/settings.h"
#include "engine/catalogue.h"
#include "engine/eventlog.h"
#include "platform/clock.h"
#include "utility/text.h"

namespace {

constexpr int MinutesOfDay = 24 * 60;
constexpr std::int64_t DaySeconds = 86400;

std::optional<int> NumberUpTo(std::string_view text, int most) {
    if (text.empty() || text.size() > 2) return std::nullopt;
    if (text.find_first_not_of("0123456789") != std::string_view::npos) return std::nullopt;
    const int number = LeadingNumber(text);
    return number <= most ? std::optional(number) : std::nullopt;
}

std::optional<int> ParseTimeOfDay(std::string_view text) {
    const std::size_t colon = text.find(':');
    const auto hours = NumberUpTo(Trim(text.substr(0, colon)), 23);
    const auto minutes = colon == std::string_view::npos ? 0 : NumberUpTo(Trim(text.substr(colon + 1)), 59);
    if (!hours || !minutes) return std::nullopt;
    return *hours * 60 + *minutes;
}

// Days since 1970 of the local date.
std::int64_t LocalDay(std::int64_t time) {
    const std::tm local = Platform::LocalTime(time);
    const std::chrono::year_month_day date{std::chrono::year(local.tm_year + 1900),
                                           std::chrono::month(static_cast<unsigned>(local.tm_mon) + 1),
                                           std::chrono::day(static_cast<unsigned>(local.tm_mday))};
    return std::chrono::sys_days(date).time_since_epoch().count();
}

int MinuteOf(const std::tm& local) {
    return local.tm_hour * 60 + local.tm_min;
}

// The instant at which that local day shows that time of day: of two the first.
// A time that is left out gives the instant by the offset before the change.
std::int64_t InstantOf(std::int64_t day, int minute) {
    const std::int64_t asUtc = day * DaySeconds + minute * 60;
    const std::int64_t before = asUtc + Platform::TimeZoneBias(asUtc - DaySeconds) * std::int64_t{60};
    const std::int64_t after = asUtc + Platform::TimeZoneBias(asUtc + DaySeconds) * std::int64_t{60};
    const auto fits = [&](std::int64_t instant) {
        return LocalDay(instant) == day && MinuteOf(Platform::LocalTime(instant)) == minute;
    };
    if (fits(before) && fits(after)) return std::min(before, after);
    return fits(after) ? after : before;
}

// The latest time of the schedule that is not after now.
std::optional<std::int64_t> LatestTime(const std::vector<int>& times, std::int64_t now) {
    std::optional<std::int64_t> latest;
    const std::int64_t today = LocalDay(now);
    for (const std::int64_t day : {today - 1, today}) {
        for (const int time : times) {
            const std::int64_t instant = InstantOf(day, time);
            if (instant <= now && instant > latest.value_or(0)) latest = instant;
        }
    }
    return latest;
}

}  // namespace

std::vector<int> ParseScheduleTimes(std::string_view text, std::vector<std::string>* invalid) {
    std::vector<int> times;
    for (const std::string_view entry : Split(text, ';')) {
        if (Trim(entry).empty()) continue;
        if (const auto time = ParseTimeOfDay(Trim(entry)))
            times.push_back(*time);
        else if (invalid != nullptr)
            invalid->emplace_back(Trim(entry));
    }
    std::sort(times.begin(), times.end());
    times.erase(std::unique(times.begin(), times.end()), times.end());
    return times;
}

bool IsWithinHours(const CCycleHours& hours, std::int64_t now) {
    if (!hours.isLimited) return true;
    const std::tm local = Platform::LocalTime(now);
    const int minute = MinuteOf(local);
    const int today = (local.tm_wday + 6) % 7;  // Monday is 0
    const auto isAllowed = [&](int day) { return (hours.days >> day & 1) != 0; };
    if (hours.from == hours.to) return isAllowed(today);
    if (hours.from < hours.to) return minute >= hours.from && minute <= hours.to && isAllowed(today);
    if (minute >= hours.from) return isAllowed(today);
    return minute <= hours.to && isAllowed((today + 6) % 7);
}

bool IsCycleDue(const CCycleSchedule& schedule, std::int64_t last, std::int64_t since, std::int64_t now) {
    const bool isKnown = last > 0 && last <= now;
    if (schedule.usePeriod) return !isKnown || now - last >= schedule.period;
    const auto latest = LatestTime(schedule.times, now);
    return latest && *latest > (isKnown ? last : last > now ? 0 : since);
}

CCycleSchedule ReadCycleSchedule() {
    static std::mutex mutex;
    static std::string complainedOf;
    CCycleSchedule schedule;
    schedule.usePeriod = ReadSetting("Service", "UsePeriod", 1) != 0;
    schedule.period = std::max(1, ReadSetting("Service", "Period", 60)) * std::int64_t{60};
    if (schedule.usePeriod) return schedule;
    const std::string text = ReadSettingText("Service", "Schedule", "");
    std::vector<std::string> invalid;
    schedule.times = ParseScheduleTimes(text, &invalid);
    const std::lock_guard lock(mutex);
    if (text == complainedOf) return schedule;
    complainedOf = text;
    if (!invalid.empty())
        Log(LogError, "The setting Schedule holds what is no time of day, which is left out: %s",
            OneLine(Join(invalid, "; ")).c_str());
    return schedule;
}

CCycleHours ReadCycleHours(std::int32_t listIndex) {
    CCatalogue& catalogue = GetCatalogue();
    CCycleHours hours;
    hours.isLimited = catalogue.GetFlag(listIndex, ListColumn::LimitHours);
    if (!hours.isLimited) return hours;
    hours.from = ParseTimeOfDay(catalogue.GetText(listIndex, ListColumn::LimitFrom)).value_or(0);
    hours.to = ParseTimeOfDay(catalogue.GetText(listIndex, ListColumn::LimitTo)).value_or(MinutesOfDay - 1);
    hours.days = static_cast<int>(catalogue.GetNumber(listIndex, ListColumn::LimitDays));
    return hours;
}
