#include <gtest/gtest.h>

#include "platform/clock.h"

using namespace Platform;

TEST(Clock, CalendarIsRightBeforeAndAfterNow) {
    struct Row {
        std::int64_t time;
        int year, month, day, hour, weekday, dayOfYear;
    };
    const Row rows[] = {
        {0, 1970, 1, 1, 0, 4, 0},
        {-1, 1969, 12, 31, 23, 3, 364},
        {1'709'208'000, 2024, 2, 29, 12, 4, 59},
        {4'102'444'800, 2100, 1, 1, 0, 5, 0},
    };
    for (const Row& row : rows) {
        const std::tm time = UtcTime(row.time);
        EXPECT_EQ(time.tm_year + 1900, row.year) << row.time;
        EXPECT_EQ(time.tm_mon + 1, row.month) << row.time;
        EXPECT_EQ(time.tm_mday, row.day) << row.time;
        EXPECT_EQ(time.tm_hour, row.hour) << row.time;
        EXPECT_EQ(time.tm_wday, row.weekday) << row.time;
        EXPECT_EQ(time.tm_yday, row.dayOfYear) << row.time;
    }
}
