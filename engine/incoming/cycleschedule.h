// cycleschedule.h - when the mail of a list is to be processed.
//
// Times are seconds since 1970, times of day are minutes since midnight of the
// system's time zone.
//
// Every time of the schedule counts once a day: one that the clock shows twice
// counts the first time, one that it leaves out counts as late after midnight
// as if the clock had not been changed.  What was missed, because no program
// ran or because it lay outside the list's hours, is made up for by one cycle.
//
// Threads  Any; all but the Read functions are pure.

#ifndef LISTHAVEN_ENGINE_INCOMING_CYCLESCHEDULE_H
#define LISTHAVEN_ENGINE_INCOMING_CYCLESCHEDULE_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

struct CCycleSchedule {
    bool usePeriod = true;
    std::int64_t period = 3600;  // seconds
    std::vector<int> times;      // of day, ascending, each once; without one no cycle is ever due
};

// "10;11:30;23": hours, or hours and minutes.  Entries that are no time of day
// are left out; invalid, if not null, gets them.
std::vector<int> ParseScheduleTimes(std::string_view text, std::vector<std::string>* invalid = nullptr);

// Hours in which the mail of a list may be processed.
struct CCycleHours {
    bool isLimited = false;
    int from = 0;          // the window begins with this minute
    int to = 24 * 60 - 1;  // and ends with this one; before "from": of the next day.  Equal to it: the whole day
    int days = 127;        // on which it begins: 1 Monday to 64 Sunday
};
bool IsWithinHours(const CCycleHours& hours, std::int64_t now);

// last: when the last cycle was; one in the future is not believed.  since: when
// the list came to be, for one that has had no cycle (last is 0).
bool IsCycleDue(const CCycleSchedule& schedule, std::int64_t last, std::int64_t since, std::int64_t now);

// [Service] UsePeriod, Period and Schedule.  Invalid entries are logged when
// the setting has changed since the last call.
CCycleSchedule ReadCycleSchedule();
CCycleHours ReadCycleHours(std::int32_t listIndex);  // throws CLhvException

#endif  // LISTHAVEN_ENGINE_INCOMING_CYCLESCHEDULE_H
