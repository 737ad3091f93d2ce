#include <ctime>

#include "plugins/builtin/TimingPlugin.h"
#include "tests/plugins/SenseTest.h"

namespace KR {

struct TimingPluginTest : SenseTest<TimingPlugin> {
    void SetUp() override
    {
        make();
        follow("Year Month MonthName Day DayName Date Hour Minute Week MinuteOfDay");
    }
    /// Sets the wall clock to a local time, whatever the machine's time zone is.
    void setLocalTime(int year, int month, int date, int hour, int minute, int second)
    {
        std::tm local{second, minute, hour, date, month - 1, year - 1900, 0, 0, -1, 0, nullptr};
        const auto time = vo::TimePoint(seconds(std::mktime(&local)));
        platform.clock->jumpWallClock(time - platform.clock->now());
    }
};

TEST_F(TimingPluginTest, first_reading_raises_everything_and_later_ones_what_changed)
{
    setLocalTime(2024, 12, 31, 23, 58, 58);
    EXPECT_EQ(start(),
              "Year=2024 Month=12 MonthName='December' Day=366 DayName='Tuesday' Date=31 Hour=23 "
              "Minute=58 Week=53 MinuteOfDay=1438");
    EXPECT_EQ(inTurn({start(), after(seconds(2) - kMoment)}), "");
    EXPECT_EQ(after(kMoment), "Minute=59 MinuteOfDay=1439");
    EXPECT_EQ(after(seconds(60)),
              "Year=2025 Month=1 MonthName='January' Day=1 DayName='Wednesday' Date=1 Hour=0 "
              "Minute=0 Week=0 MinuteOfDay=0");
}

TEST_F(TimingPluginTest, stop_blanks_nothing_and_jumps_of_the_clock_are_followed)
{
    setLocalTime(2024, 3, 6, 10, 5, 0);
    start();
    for (const std::string change : {"", "Minute=6 MinuteOfDay=606"}) {
        EXPECT_EQ(inTurn({stop(), after(seconds(30))}), "");
        EXPECT_EQ(start(), change);
    }
    platform.clock->jumpWallClock(-std::chrono::hours(1));
    EXPECT_EQ(after(seconds(2)), "Hour=9 MinuteOfDay=546");
    setLocalTime(2025, 3, 6, 9, 6, 30);
    EXPECT_EQ(after(seconds(2)), "Year=2025 Day=65 DayName='Thursday' Week=9");
}

}  // namespace KR
