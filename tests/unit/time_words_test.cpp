// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/time_words.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

namespace ombrel::test::time_words {

namespace {

constexpr long long kNow = 1'709'467'200;  // 2024-03-03 12:00 UTC, 13:00 in Berlin

class TimeWords : public ::testing::Test {
protected:
    TimeWords() {
        ::setenv("TZ", "Europe/Berlin", 1);
        ::tzset();
    }
    ~TimeWords() override {
        ::unsetenv("TZ");
        ::tzset();
    }
};

struct Words {
    const char* words;
    const char* first;  ///< RFC 3339; null of words that mean no time
    const char* last;
};

TEST_F(TimeWords, MeanTheirFirstAndTheirLastSecond) {
    const std::vector<Words> table = {
        {"2024-03-03", "2024-03-03T00:00:00+01:00", "2024-03-03T23:59:59+01:00"},
        {"2024-07-01", "2024-07-01T00:00:00+02:00", "2024-07-01T23:59:59+02:00"},
        {"2024-02-29", "2024-02-29T00:00:00+01:00", "2024-02-29T23:59:59+01:00"},
        {"2024-03-03 12:30", "2024-03-03T12:30:00+01:00", "2024-03-03T12:30:59+01:00"},
        {"2024-03-03T12:30", "2024-03-03T12:30:00+01:00", "2024-03-03T12:30:59+01:00"},
        {"2024-03-03 12:30:05", "2024-03-03T12:30:05+01:00", "2024-03-03T12:30:05+01:00"},
        {"12:30", "2024-03-03T12:30:00+01:00", "2024-03-03T12:30:59+01:00"},
        {"12:30:05", "2024-03-03T12:30:05+01:00", "2024-03-03T12:30:05+01:00"},
        {"23:00", "2024-03-03T23:00:00+01:00", "2024-03-03T23:00:59+01:00"},
        {"2024-03-03T12:30:00Z", "2024-03-03T13:30:00+01:00", "2024-03-03T13:30:00+01:00"},
        {"2024-03-03t12:30:00.125z", "2024-03-03T13:30:00+01:00", "2024-03-03T13:30:00+01:00"},
        {"2024-03-03 12:30:00-05:30", "2024-03-03T19:00:00+01:00", "2024-03-03T19:00:00+01:00"},
        {"2024-03-03T12:30+00:00", "2024-03-03T13:30:00+01:00", "2024-03-03T13:30:59+01:00"},
        {"today", "2024-03-03T00:00:00+01:00", "2024-03-03T23:59:59+01:00"},
        {"yesterday", "2024-03-02T00:00:00+01:00", "2024-03-02T23:59:59+01:00"},
        {"30s", "2024-03-03T12:59:30+01:00", "2024-03-03T12:59:30+01:00"},
        {"90m", "2024-03-03T11:30:00+01:00", "2024-03-03T11:30:00+01:00"},
        {"12h", "2024-03-03T01:00:00+01:00", "2024-03-03T01:00:00+01:00"},
        {"7d", "2024-02-25T13:00:00+01:00", "2024-02-25T13:00:00+01:00"},
        {"0s", "2024-03-03T13:00:00+01:00", "2024-03-03T13:00:00+01:00"},
        // The clocks went forward at 2 o'clock that night: a time that never came, and a day of 23 hours.
        {"2024-03-31 02:30", "2024-03-31T03:00:00+02:00", "2024-03-31T01:59:59+01:00"},
        {"2024-03-31", "2024-03-31T00:00:00+01:00", "2024-03-31T23:59:59+02:00"},
        {"2024-03-31 01:59", "2024-03-31T01:59:00+01:00", "2024-03-31T01:59:59+01:00"},
        {"2024-03-31 03:00", "2024-03-31T03:00:00+02:00", "2024-03-31T03:00:59+02:00"},
        // And back at 3 o'clock: a time that came twice.
        {"2024-10-27 02:30", "2024-10-27T02:30:00+02:00", "2024-10-27T02:30:59+01:00"},
        {"2024-10-27", "2024-10-27T00:00:00+02:00", "2024-10-27T23:59:59+01:00"},
        {"2024-10-27 01:59", "2024-10-27T01:59:00+02:00", "2024-10-27T01:59:59+02:00"},
        {"2024-10-27 03:00", "2024-10-27T03:00:00+01:00", "2024-10-27T03:00:59+01:00"},
        {"", nullptr, nullptr},
        {"now", nullptr, nullptr},
        {"2024-3-3", nullptr, nullptr},
        {"2024-02-30", nullptr, nullptr},
        {"2023-02-29", nullptr, nullptr},
        {"2024-13-01", nullptr, nullptr},
        {"2024-00-01", nullptr, nullptr},
        {"2024-03-03 ", nullptr, nullptr},
        {"2024-03-03 24:00", nullptr, nullptr},
        {"2024-03-03 12:60", nullptr, nullptr},
        {"2024-03-03 12:30:60", nullptr, nullptr},
        {"2024-03-03 12:30:00.", nullptr, nullptr},
        {"2024-03-03 12:30:00 ", nullptr, nullptr},
        {"2024-03-03 12:30:00+1", nullptr, nullptr},
        {"2024-03-03Z", nullptr, nullptr},
        {"12", nullptr, nullptr},
        {"7w", nullptr, nullptr},
        {"d", nullptr, nullptr},
        {"-7d", nullptr, nullptr},
        {"1000000000d", nullptr, nullptr},
        {"2024-03-03\n", nullptr, nullptr},
    };
    for (const Words& each : table) {
        const auto first = timeOfWords(each.words, kNow, DayEnd::kFirstSecond);
        const auto last = timeOfWords(each.words, kNow, DayEnd::kLastSecond);
        EXPECT_EQ(first ? timeJson(*first) : "none", each.first == nullptr ? "none" : each.first) << each.words;
        EXPECT_EQ(last ? timeJson(*last) : "none", each.last == nullptr ? "none" : each.last) << each.words;
    }
}

TEST_F(TimeWords, AreOfTheDayThatTheMachineIsIn) {
    constexpr long long kHalfPastMidnight = 1'709'508'600;  // 2024-03-03 23:30 UTC
    EXPECT_EQ(localDay(kHalfPastMidnight), "2024-03-04");
    EXPECT_EQ(localTimeText(*timeOfWords("today", kHalfPastMidnight, DayEnd::kFirstSecond)),
              "2024-03-04 00:00:00");
    EXPECT_EQ(localTimeText(*timeOfWords("12:30", kHalfPastMidnight, DayEnd::kFirstSecond)),
              "2024-03-04 12:30:00");
}

TEST_F(TimeWords, OfEveryMinuteAroundAChangeLieWithinEachOther) {
    for (const char* day : {"2024-03-31", "2024-10-27"}) {
        const long long begin = *timeOfWords(day, kNow, DayEnd::kFirstSecond);
        const long long end = *timeOfWords(day, kNow, DayEnd::kLastSecond);
        for (long long moment = begin; moment <= end; moment += 60) {
            const std::string words = localTimeText(moment).substr(0, 16);
            EXPECT_LE(*timeOfWords(words, kNow, DayEnd::kFirstSecond), moment) << words;
            EXPECT_GE(*timeOfWords(words, kNow, DayEnd::kLastSecond), moment + 59) << words;
        }
    }
}

TEST_F(TimeWords, AreWrittenOfAnyNumber) {
    EXPECT_EQ(timeJson(0), "1970-01-01T01:00:00+01:00");
    EXPECT_EQ(timeJson(-1), "1970-01-01T00:59:59+01:00");
    EXPECT_EQ(localTimeText(9'000'000'000'000'000'000), "9000000000000000000");
    EXPECT_EQ(localTimeText(253'402'300'800), "10000-01-01 01:00:00");
}

}  // namespace

}  // namespace ombrel::test::time_words
