#include "engine/incoming/cycleschedule.h"

#include <gtest/gtest.h>

#include <chrono>

#include "engine/incoming/mailboxturns.h"
#include "platform/clock.h"

namespace {

// UTC; Berlin is an hour ahead, two from 01:00 on 29 March to 01:00 on 25 October.
std::int64_t Utc(unsigned month, unsigned day, int hour, int minute) {
    const std::chrono::year_month_day date{std::chrono::year(2026), std::chrono::month(month), std::chrono::day(day)};
    return (std::chrono::sys_days(date).time_since_epoch().count() * 24 + hour) * 3600 + minute * 60;
}

class CycleSchedule : public testing::Test {
protected:
    // A program's zone is that of its start; ctest starts this one in Berlin's.
    void SetUp() override {
        if (Platform::TimeZoneBias(Utc(1, 5, 0, 0)) != -60 || Platform::TimeZoneBias(Utc(7, 5, 0, 0)) != -120)
            GTEST_SKIP() << "the zone is not Berlin's: Windows itself takes no other from TZ than the machine's, other "
                            "systems TZ=CET-1CEST,M3.5.0,M10.5.0/3";
    }
};

TEST_F(CycleSchedule, EachTimeIsDueOnce) {
    const struct {
        const char* times;
        std::int64_t last;
        std::int64_t now;
        bool isDue;
        const char* why;
    } rows[] = {
        {"10;11:30;23", Utc(1, 5, 9, 0), Utc(1, 5, 10, 29), false, "done, the next is to come"},
        {"10;11:30;23", Utc(1, 5, 9, 0), Utc(1, 5, 10, 30), true, "11:30"},
        {"10;11:30;23", Utc(1, 1, 9, 0), Utc(1, 5, 8, 0), true, "nobody was there"},
        {"10;11:30;23", Utc(1, 5, 8, 0), Utc(1, 5, 8, 59), false, "made up for"},
        {"23:50;0:10", Utc(1, 5, 22, 50), Utc(1, 5, 23, 9), false, "midnight alone is none"},
        {"23:50", Utc(1, 4, 22, 50), Utc(1, 5, 23, 30), true, "yesterday's, noticed after midnight"},
        {"2:30", Utc(3, 28, 1, 30), Utc(3, 29, 1, 29), false, "the clock leaves it out"},
        {"2:30", Utc(3, 28, 1, 30), Utc(3, 29, 1, 30), true, "so it is at 3:30"},
        {"2:30", Utc(3, 29, 1, 30), Utc(3, 30, 0, 29), false, "once that day"},
        {"2:30;3", Utc(3, 29, 1, 0), Utc(3, 29, 1, 30), true, "a time left out comes behind a later one"},
        {"2:30", Utc(10, 24, 0, 30), Utc(10, 25, 0, 30), true, "the first 2:30 of two"},
        {"2:30", Utc(10, 25, 0, 30), Utc(10, 25, 1, 30), false, "the second one"},
        {"10", 0, Utc(1, 5, 8, 59), false, "a new list waits for the first time behind its creation"},
        {"10", Utc(6, 1, 0, 0), Utc(1, 5, 8, 0), true, "a last cycle in the future"},
        {"", Utc(1, 1, 0, 0), Utc(1, 5, 9, 0), false, "no time at all"},
    };
    for (const auto& row : rows) {
        const CCycleSchedule schedule{false, 60, ParseScheduleTimes(row.times)};
        EXPECT_EQ(IsCycleDue(schedule, row.last, Utc(1, 5, 8, 0), row.now), row.isDue) << row.times << ": " << row.why;
    }
    const CCycleSchedule period{true, 3600, {}};
    EXPECT_FALSE(IsCycleDue(period, 1000, 0, 4599));
    EXPECT_TRUE(IsCycleDue(period, 1000, 0, 4600));
    EXPECT_TRUE(IsCycleDue(period, 9000, 0, 4600)) << "the clock was set back";
    std::vector<std::string> invalid;
    EXPECT_EQ(ParseScheduleTimes(" 23 ;10;;x;24;1:60;-1;1:2:3;10:00;:;7:5", &invalid),
              (std::vector<int>{7 * 60 + 5, 600, 23 * 60}));
    EXPECT_EQ(invalid, (std::vector<std::string>{"x", "24", "1:60", "-1", "1:2:3", ":"}));
}

TEST_F(CycleSchedule, HoursMayCrossMidnightAndTheDayIsThatOfTheirBeginning) {
    const struct {
        CCycleHours hours;
        std::int64_t now;  // 5 January is a Monday
        bool isWithin;
    } rows[] = {{{true, 360, 1320, 127}, Utc(1, 5, 4, 59), false}, {{true, 360, 1320, 127}, Utc(1, 5, 21, 0), true},
                {{true, 360, 1320, 127}, Utc(1, 5, 21, 1), false}, {{true, 360, 1320, 64}, Utc(1, 4, 12, 0), true},
                {{true, 1320, 360, 1}, Utc(1, 5, 22, 0), true},    {{true, 1320, 360, 1}, Utc(1, 6, 4, 0), true},
                {{true, 1320, 360, 1}, Utc(1, 5, 4, 0), false},    {{true, 0, 0, 1}, Utc(1, 6, 12, 0), false}};
    for (const auto& row : rows)
        EXPECT_EQ(IsWithinHours(row.hours, row.now), row.isWithin) << &row - rows;
}

// A mailbox that brings nothing gets more time twice, then none until its next
// cycle; one that brings something begins anew.
TEST(MailboxTurns, AMailboxThatBringsNothingIsGivenUp) {
    constexpr std::int64_t Began = 1000;
    const struct {
        bool hasCome;
        bool goesOn;
        int seconds;  // of the next turn
    } cuts[] = {{false, true, 240}, {false, true, 480},  {true, true, 120}, {false, true, 240},
                {false, true, 480}, {false, false, 120}, {false, true, 240}};
    CMailboxTurns turns;
    EXPECT_EQ(turns.GetLimit(1, 120).count(), 120);
    for (const auto& cut : cuts) {
        EXPECT_EQ(turns.NoteCut(1, cut.hasCome, Began, Began + 50), cut.goesOn) << &cut - cuts;
        EXPECT_EQ(turns.TakeCut(), cut.goesOn) << &cut - cuts;
        EXPECT_EQ(turns.GetLimit(1, 120).count(), cut.seconds) << &cut - cuts;
        EXPECT_EQ(turns.WasCut(1), cut.goesOn) << &cut - cuts;
    }
    EXPECT_TRUE(turns.IsPausing(1, Began + 99));
    EXPECT_FALSE(turns.IsPausing(1, Began + 100));
    EXPECT_FALSE(turns.IsPausing(1, Began - 1)) << "the clock was set back";
    EXPECT_FALSE(turns.IsPausing(2, Began + 60)) << "another list";
}

}  // namespace
