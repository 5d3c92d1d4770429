// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel-upgrade/row_time.h"

namespace ombrel {

namespace {

// -1 when one of them is no digit.
int numberOf(std::string_view digits) {
    int value = 0;
    for (const char c : digits) {
        if (c < '0' || c > '9') return -1;
        value = value * 10 + (c - '0');
    }
    return value;
}

std::optional<std::int64_t> secondsOf(std::string_view time) {
    if (time.size() != 8 || time[2] != ':' || time[5] != ':') return std::nullopt;
    const int hour = numberOf(time.substr(0, 2));
    const int minute = numberOf(time.substr(3, 2));
    const int second = numberOf(time.substr(6, 2));
    const bool isTime = hour >= 0 && hour < 24 && minute >= 0 && minute < 60 && second >= 0 && second < 60;
    if (!isTime) return std::nullopt;
    return hour * 3600 + minute * 60 + second;
}

}  // namespace

std::optional<std::int64_t> WallTime::dayOf(std::string_view day) {
    if (day.size() != 10 || day[4] != '-' || day[7] != '-') return std::nullopt;
    const int year = numberOf(day.substr(0, 4));
    const int month = numberOf(day.substr(5, 2));
    const int number = numberOf(day.substr(8, 2));
    if (year < 0 || month < 1 || month > 12 || number < 1) return std::nullopt;
    const std::int64_t seconds = daysFromCivil(year, month, number) * kDaySeconds;
    // 30 February is some day of March, and a year under 1000 is written with fewer digits.
    if (rendered_.of(seconds) != day) return std::nullopt;
    return seconds;
}

std::optional<std::int64_t> WallTime::of(std::string_view day, std::string_view time) {
    if (day != lastText_) {
        lastDay_ = dayOf(day);
        lastText_ = day;
    }
    const auto seconds = secondsOf(time);
    if (!lastDay_ || !seconds) return std::nullopt;
    return *lastDay_ + *seconds;
}

RowTime rowTimeOf(ZoneClock& clock, std::int64_t wall, std::int64_t before) {
    const std::int64_t utc = clock.fromWall(wall, before);
    // Not the offset that holds at this moment: in an hour that never was it would show another time.
    return {utc, static_cast<int>(wall - utc)};
}

}  // namespace ombrel
