// retryschedule.h - when a message that failed for now is tried again.
//
// Threads  Any; pure functions.

#ifndef LISTHAVEN_SENDDAEMON_RETRYSCHEDULE_H
#define LISTHAVEN_SENDDAEMON_RETRYSCHEDULE_H

#include <cstdint>
#include <string_view>
#include <vector>

namespace SendDaemon {

// Seconds after the first, second ... failed attempt; the last one holds for all that follow.
class CRetrySchedule {
public:
    CRetrySchedule();  // 5, 15, 30 minutes, 1, 2, 4, 8 hours, then every 8 hours

    // Times separated by commas: a number with s, m, h or d ("5m,1h"), without a
    // letter minutes.  False leaves the schedule as it was: also for a time of 0
    // or of more than a year, and for more than 100 of them.
    bool Parse(std::string_view text);

    // attempts: that have failed, at least 1.
    std::int64_t GetNextTime(std::uint32_t attempts, std::int64_t now) const;
    std::int64_t GetLongest() const;
    const std::vector<std::int64_t>& GetSteps() const noexcept { return m_steps; }

private:
    std::vector<std::int64_t> m_steps;
};

// Seconds that a host which takes no messages is left alone: after the first
// failure a minute, then twice as long each time, at most half an hour.
std::int64_t GetBackOffSeconds(std::uint32_t failures) noexcept;
inline constexpr std::int64_t LongestBackOff = 1800;

inline constexpr std::int64_t DefaultDeferralLimit = 5 * 86400;  // seconds, when messages do not expire otherwise

}  // namespace SendDaemon

#endif  // LISTHAVEN_SENDDAEMON_RETRYSCHEDULE_H
