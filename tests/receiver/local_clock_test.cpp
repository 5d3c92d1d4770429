// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/message/local_clock.h"

#include <gtest/gtest.h>

#include <ctime>
#include <string>

#include "tests/receiver/in_zone.h"

namespace ombrel {
namespace {

SenderTime wallTime(int month, int day, int hour, int minute, int second) {
    return {std::nullopt, month, day, hour, minute, second, std::nullopt};
}

std::string shown(LocalClock& clock, std::int64_t seconds) {
    const LocalClock::Stamp stamp = clock.stamp(seconds);
    const time_t value = seconds + stamp.utcOffset;
    struct tm wall {};
    char time[16];
    EXPECT_GT(std::strftime(time, sizeof time, " %H:%M:%S", gmtime_r(&value, &wall)), 0U);
    return std::string(stamp.day) + time;
}

constexpr std::int64_t kJuly = 1784548800;     // 2026-07-20 12:00:00 UTC
constexpr std::int64_t kNewYear = 1798761600;  // 2027-01-01 00:00:00 UTC
constexpr std::int64_t kForward = 1774746000;  // 2026-03-29 01:00:00 UTC: clocks go forward in Berlin
constexpr std::int64_t kBack = 1792890000;     // 2026-10-25 01:00:00 UTC: clocks go back

TEST(LocalClock, AgreesWithTheSystemInManyZones) {
    for (const char* const zone : {"UTC", "Europe/Berlin", "America/St_Johns", "Asia/Kathmandu", "Pacific/Apia"}) {
        const InZone inZone(zone);
        LocalClock clock;
        for (std::int64_t at = kForward - 90'000; at < kBack + 90'000; at += 99'991) {
            const time_t value = at;
            struct tm local {};
            ASSERT_NE(localtime_r(&value, &local), nullptr);
            char expected[32];
            ASSERT_GT(std::strftime(expected, sizeof expected, "%Y-%m-%d %H:%M:%S", &local), 0U);
            EXPECT_EQ(shown(clock, at), expected) << zone;
            const SenderTime sent =
                wallTime(local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
            EXPECT_EQ(clock.resolve(sent, at), at) << zone;
        }
    }
}

TEST(LocalClock, ShowsBothSidesOfAChangeOfOffset) {
    const InZone inZone("Europe/Berlin");
    LocalClock clock;
    EXPECT_EQ(shown(clock, kForward - 1), "2026-03-29 01:59:59");
    EXPECT_EQ(shown(clock, kForward), "2026-03-29 03:00:00");
    EXPECT_EQ(shown(clock, kBack - 1), "2026-10-25 02:59:59");
    EXPECT_EQ(shown(clock, kBack), "2026-10-25 02:00:00");
}

TEST(LocalClock, TakesAnHourThatOccursTwiceAsTheOneOfTheReference) {
    const InZone inZone("Europe/Berlin");
    LocalClock clock;
    const SenderTime halfPastTwo = wallTime(10, 25, 2, 30, 0);
    EXPECT_EQ(clock.resolve(halfPastTwo, kBack - 1800), kBack - 1800);
    EXPECT_EQ(clock.resolve(halfPastTwo, kBack + 1800), kBack + 1800);
}

TEST(LocalClock, FindsATimeOfTheOtherHalfOfTheYear) {
    const InZone inZone("Europe/Berlin");
    LocalClock clock;
    SenderTime winter = wallTime(1, 15, 12, 0, 0);
    winter.year = 2026;
    EXPECT_EQ(clock.resolve(winter, kJuly), 1768474800) << "2026-01-15 11:00:00 UTC";
}

TEST(LocalClock, ChoosesTheNearestYear) {
    const InZone inZone("UTC");
    LocalClock clock;
    EXPECT_EQ(clock.resolve(wallTime(12, 31, 23, 59, 58), kNewYear + 5), kNewYear - 2);
    EXPECT_EQ(clock.resolve(wallTime(1, 1, 0, 0, 3), kNewYear - 5), kNewYear + 3);
    EXPECT_EQ(clock.resolve(wallTime(7, 20, 12, 0, 0), kJuly), kJuly);
}

TEST(LocalClock, TakesLeapDayOfANeighbouringYear) {
    const InZone inZone("UTC");
    LocalClock clock;
    constexpr std::int64_t kLeapDay = 1835395200;  // 2028-02-29 00:00:00 UTC
    EXPECT_EQ(clock.resolve(wallTime(2, 29, 0, 0, 0), kLeapDay + 3600), kLeapDay);
    EXPECT_EQ(shown(clock, clock.resolve(wallTime(2, 29, 0, 0, 0), kJuly)), "2026-03-01 00:00:00")
        << "no leap year near 2026";
}

TEST(LocalClock, CountsAnOffsetThatTheSenderGives) {
    const InZone inZone("Europe/Berlin");
    LocalClock clock;
    SenderTime sent = wallTime(7, 20, 7, 30, 0);
    sent.year = 2026;
    sent.utcOffsetSeconds = -(4 * 3600 + 30 * 60);
    EXPECT_EQ(clock.resolve(sent, kJuly), kJuly);
}

TEST(LocalClock, FollowsAChangedZoneAfterRefresh) {
    LocalClock clock;
    {
        const InZone inZone("UTC");
        clock.refresh();
        EXPECT_EQ(shown(clock, kJuly), "2026-07-20 12:00:00");
    }
    const InZone inZone("Asia/Tokyo");
    clock.refresh();
    EXPECT_EQ(shown(clock, kJuly), "2026-07-20 21:00:00");
}

TEST(OwnTime, IsTheSendersOnlyWithinADay) {
    EXPECT_EQ(ownTime(kJuly - 86400, kJuly), kJuly - 86400);
    EXPECT_EQ(ownTime(kJuly + 86400, kJuly), kJuly + 86400);
    EXPECT_EQ(ownTime(kJuly - 86401, kJuly), kJuly);
    EXPECT_EQ(ownTime(kJuly + 86401, kJuly), kJuly);
    EXPECT_EQ(ownTime(std::nullopt, kJuly), kJuly);
}

}  // namespace
}  // namespace ombrel
