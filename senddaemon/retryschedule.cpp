#include "senddaemon/retryschedule.h"

#include <algorithm>

#include "utility/text.h"

namespace SendDaemon {

namespace {

constexpr std::int64_t LongestStep = 365 * std::int64_t{86400};
constexpr std::size_t MostSteps = 100;
constexpr std::int64_t FirstBackOff = 60;

std::int64_t SecondsOfUnit(char unit) {
    switch (ToLowerAscii(unit)) {
        case 's':
            return 1;
        case 'm':
            return 60;
        case 'h':
            return 3600;
        case 'd':
            return 86400;
        default:
            return 0;
    }
}

// 0 for what is no time.
std::int64_t ParseStep(std::string_view text) {
    text = Trim(text);
    if (text.empty() || text.front() < '0' || text.front() > '9') return 0;
    std::int64_t unit = 60;
    if (text.back() < '0' || text.back() > '9') {
        unit = SecondsOfUnit(text.back());
        text.remove_suffix(1);
    }
    const auto number = ParseNumber(text);
    if (!number || unit == 0 || *number > LongestStep / unit) return 0;
    return *number * unit;
}

}  // namespace

CRetrySchedule::CRetrySchedule() : m_steps{300, 900, 1800, 3600, 7200, 14400, 28800} {}

bool CRetrySchedule::Parse(std::string_view text) {
    std::vector<std::int64_t> steps;
    for (const std::string_view piece : Split(text, ',')) {
        const std::int64_t step = ParseStep(piece);
        if (step == 0 || steps.size() == MostSteps) return false;
        steps.push_back(step);
    }
    m_steps = std::move(steps);
    return true;
}

std::int64_t CRetrySchedule::GetNextTime(std::uint32_t attempts, std::int64_t now) const {
    const std::size_t step = attempts == 0 ? 0 : attempts - 1;
    return now + m_steps[std::min(step, m_steps.size() - 1)];
}

std::int64_t CRetrySchedule::GetLongest() const {
    return *std::max_element(m_steps.begin(), m_steps.end());
}

std::int64_t GetBackOffSeconds(std::uint32_t failures) noexcept {
    std::int64_t seconds = FirstBackOff;
    for (std::uint32_t i = 1; i < failures && seconds < LongestBackOff; ++i)
        seconds *= 2;
    return std::min(seconds, LongestBackOff);
}

}  // namespace SendDaemon
