// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/message/local_clock.h"

#include <charconv>
#include <cstdlib>

namespace ombrel {

namespace {

bool isLeapYear(int year) noexcept {
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

}  // namespace

std::int64_t LocalClock::resolveIn(const SenderTime& time, int year, std::int64_t reference) {
    const std::int64_t wall = daysFromCivil(year, time.month, time.day) * kDaySeconds +
                              std::int64_t{time.hour} * 3600 + std::int64_t{time.minute} * 60 + time.second;
    if (time.utcOffsetSeconds) return wall - *time.utcOffsetSeconds;
    return fromWall(wall, reference);
}

std::int64_t LocalClock::resolve(const SenderTime& time, std::int64_t reference) {
    if (time.year) return resolveIn(time, *time.year, reference);
    // The year is that of the reference but for the time around New Year.
    const std::string_view today = stamp(reference).day;
    int middle = 1970;
    (void)std::from_chars(today.data(), today.data() + today.size(), middle);  // always begins with a year
    std::optional<std::int64_t> best;
    for (const int year : {middle, middle - 1, middle + 1}) {
        if (time.month == 2 && time.day == 29 && !isLeapYear(year)) continue;
        const std::int64_t candidate = resolveIn(time, year, reference);
        if (!best || std::llabs(candidate - reference) < std::llabs(*best - reference)) best = candidate;
        if (std::llabs(*best - reference) < 180 * kDaySeconds) break;  // no other year comes nearer
    }
    if (best) return *best;
    // 29 February, and no leap year next to the reference: a device that counts wrongly.
    SenderTime dayAfter = time;
    dayAfter.month = 3;
    dayAfter.day = 1;
    return resolveIn(dayAfter, middle, reference);
}

std::int64_t ownTime(std::optional<std::int64_t> sent, std::int64_t received) noexcept {
    return sent && std::llabs(*sent - received) <= kDaySeconds ? *sent : received;
}

}  // namespace ombrel
