// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include <gtest/gtest.h>

#include <ctime>

#include "tests/receiver/in_zone.h"
#include "tools/ombrel-upgrade/row_time.h"

namespace ombrel {
namespace {

struct TimeText {
    std::string name;
    std::string day;
    std::string time;
    std::optional<std::int64_t> wall;
};

class WallTimeOf : public testing::TestWithParam<TimeText> {};

TEST_P(WallTimeOf, IsSecondsOnlyForWhatReadsTheSameAgain) {
    WallTime wallTime;
    EXPECT_EQ(wallTime.of(GetParam().day, GetParam().time), GetParam().wall);
    EXPECT_EQ(wallTime.of("2024-03-03", "00:00:01"), 1709424001) << "whatever came before";
    EXPECT_EQ(wallTime.of(GetParam().day, GetParam().time), GetParam().wall);
}

INSTANTIATE_TEST_SUITE_P(Texts, WallTimeOf,
                         testing::Values(TimeText{"Usual", "2024-03-03", "12:34:56", 1709469296},
                                         TimeText{"Epoch", "1970-01-01", "00:00:00", 0},
                                         TimeText{"BeforeTheEpoch", "1969-12-31", "23:59:59", -1},
                                         TimeText{"LeapDay", "2024-02-29", "00:00:00", 1709164800},
                                         TimeText{"LastOfAll", "9999-12-31", "23:59:59", 253402300799},
                                         TimeText{"NoLeapYear", "2023-02-29", "00:00:00", std::nullopt},
                                         TimeText{"NoSuchDay", "2024-04-31", "00:00:00", std::nullopt},
                                         TimeText{"DayNought", "2024-04-00", "00:00:00", std::nullopt},
                                         TimeText{"MonthNought", "0000-00-00", "00:00:00", std::nullopt},
                                         TimeText{"Month13", "2024-13-01", "00:00:00", std::nullopt},
                                         TimeText{"EarlyYear", "0999-01-01", "00:00:00", std::nullopt},
                                         TimeText{"OneDigit", "2024-3-5", "00:00:00", std::nullopt},
                                         TimeText{"NothingAtAll", "", "", std::nullopt},
                                         TimeText{"NoDay", "", "12:34:56", std::nullopt},
                                         TimeText{"NoTime", "2024-03-03", "", std::nullopt},
                                         TimeText{"OtherMarks", "2024/03/03", "12:34:56", std::nullopt},
                                         TimeText{"Letters", "2O24-03-03", "12:34:56", std::nullopt},
                                         TimeText{"Sign", "-024-03-03", "12:34:56", std::nullopt},
                                         TimeText{"Blank", "2024-03-03 ", "12:34:56", std::nullopt},
                                         TimeText{"LeapSecond", "2016-12-31", "23:59:60", std::nullopt},
                                         TimeText{"Hour24", "2024-03-03", "24:00:00", std::nullopt},
                                         TimeText{"Minute60", "2024-03-03", "12:60:00", std::nullopt},
                                         TimeText{"Fraction", "2024-03-03", "12:34:56.789", std::nullopt},
                                         TimeText{"OneDigitHour", "2024-03-03", "1:34:56", std::nullopt},
                                         TimeText{"OtherTimeMarks", "2024-03-03", "12.34.56", std::nullopt},
                                         TimeText{"FirstTimeMark", "2024-03-03", "12.34:56", std::nullopt},
                                         TimeText{"SecondTimeMark", "2024-03-03", "12:34.56", std::nullopt},
                                         TimeText{"SignInTime", "2024-03-03", "12:-4:56", std::nullopt},
                                         TimeText{"Nul", std::string("2024-03-0\0", 10), "12:34:56",
                                                  std::nullopt}),
                         [](const auto& row) { return row.param.name; });

constexpr std::int64_t kForward = 1774746000;  // 2026-03-29 01:00:00 UTC: clocks go forward in Berlin
constexpr std::int64_t kBack = 1792890000;     // 2026-10-25 01:00:00 UTC: clocks go back

// Seconds from wall clock to UTC and back, whatever the zone does in between.
TEST(RowTimeOf, ShowsTheSameTimeAgainInEveryZone) {
    for (const char* const zone : {"UTC", "Europe/Berlin", "America/St_Johns", "Asia/Kathmandu", "Pacific/Apia"}) {
        const InZone inZone(zone);
        ZoneClock clock;
        clock.refresh();
        std::int64_t before = kForward;
        for (std::int64_t wall = kForward - 90'000; wall < kBack + 90'000; wall += 1'799) {
            const RowTime time = rowTimeOf(clock, wall, before);
            EXPECT_EQ(time.utc + time.offset, wall) << zone;
            before = time.utc;
        }
    }
}

TEST(RowTimeOf, IsTheMomentOfTheClockAndNotOnlyOfTheText) {
    const InZone inZone("Europe/Berlin");
    ZoneClock clock;
    clock.refresh();
    const RowTime summer = rowTimeOf(clock, 1784548800 + 7200, kForward);
    EXPECT_EQ(summer.utc, 1784548800);
    EXPECT_EQ(summer.offset, 7200);
    const RowTime winter = rowTimeOf(clock, 1798761600 + 3600, kForward - 1);
    EXPECT_EQ(winter.utc, 1798761600);
    EXPECT_EQ(winter.offset, 3600);
}

TEST(RowTimeOf, TakesAnHourThatOccursTwiceAsTheRowBefore) {
    const InZone inZone("Europe/Berlin");
    ZoneClock clock;
    clock.refresh();
    const std::int64_t halfPastTwo = kBack + 3600 + 1800;  // on the wall
    EXPECT_EQ(rowTimeOf(clock, halfPastTwo, kBack - 3600).utc, kBack - 1800);
    EXPECT_EQ(rowTimeOf(clock, halfPastTwo, kBack + 60).utc, kBack + 1800);
}

TEST(RowTimeOf, KeepsAnHourThatNeverWas) {
    const InZone inZone("Europe/Berlin");
    ZoneClock clock;
    clock.refresh();
    const std::int64_t halfPastTwo = kForward + 3600 + 1800;  // on the wall, where it was never shown
    const RowTime time = rowTimeOf(clock, halfPastTwo, kForward - 60);
    EXPECT_EQ(time.utc, kForward + 1800);
    EXPECT_EQ(time.offset, 3600);
}

}  // namespace
}  // namespace ombrel
