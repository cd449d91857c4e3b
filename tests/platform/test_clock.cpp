#include <gtest/gtest.h>
#include <stdlib.h>

#include "platform/clock.h"

using namespace Platform;

TEST(Clock, BiasFollowsTheZone) {
    constexpr std::int64_t Winter = 1'705'320'000;  // 2024-01-15 12:00 UTC
    constexpr std::int64_t Summer = 1'721'044'800;  // 2024-07-15 12:00 UTC
    struct Row {
        const char* zone;
        int winter, summer;
    };
    // Written out, so that they do not depend on the zones that are installed.
    const Row rows[] = {
        {"UTC0", 0, 0},
        {"EST5EDT,M3.2.0,M11.1.0", 300, 240},
        {"CET-1CEST,M3.5.0,M10.5.0/3", -60, -120},
        {"NST3:30NDT,M3.2.0,M11.1.0", 210, 150},
        {"<+0545>-5:45", -345, -345},
    };
    for (const Row& row : rows) {
        setenv("TZ", row.zone, 1);
        EXPECT_EQ(TimeZoneBias(Winter), row.winter) << row.zone;
        EXPECT_EQ(TimeZoneBias(Summer), row.summer) << row.zone;
        EXPECT_EQ((LocalTime(Winter).tm_hour * 60 + LocalTime(Winter).tm_min + row.winter) % 1440, 720) << row.zone;
    }
    unsetenv("TZ");
    EXPECT_EQ(UtcTime(Winter).tm_hour, 12);
}
