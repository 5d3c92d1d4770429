// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/message/local_clock.h"

#include <charconv>
#include <cstdlib>
#include <ctime>

namespace ombrel {

namespace {

constexpr std::int64_t kBlockSeconds = 900;

// Days since 1970-01-01 of a day of the Gregorian calendar; years begin in March here, so that the leap
// day is the last of its year.
std::int64_t daysFromCivil(int year, int month, int day) noexcept {
    const std::int64_t y = year - (month <= 2 ? 1 : 0);
    const std::int64_t era = floorDiv(y, 400);
    const std::int64_t yearOfEra = y - era * 400;
    const std::int64_t dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    const std::int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + dayOfEra - 719468;
}

bool isLeapYear(int year) noexcept {
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

}  // namespace

void LocalClock::refresh() {
    ::tzset();
    blocks_.fill(Block{});
}

int LocalClock::offsetAt(std::int64_t seconds) {
    const std::int64_t number = floorDiv(seconds, kBlockSeconds);
    Block& block = blocks_[static_cast<size_t>(number) % blocks_.size()];
    if (block.number != number) {
        const time_t value = number * kBlockSeconds;
        struct tm local {};
        block.offset = localtime_r(&value, &local) != nullptr ? static_cast<int>(local.tm_gmtoff) : 0;
        block.number = number;
    }
    return block.offset;
}

LocalClock::Stamp LocalClock::stamp(std::int64_t seconds) {
    const int offset = offsetAt(seconds);
    return {day_.of(seconds + offset), offset};
}

std::int64_t LocalClock::resolveIn(const SenderTime& time, int year, std::int64_t reference) {
    const std::int64_t wall = daysFromCivil(year, time.month, time.day) * kDaySeconds +
                              std::int64_t{time.hour} * 3600 + std::int64_t{time.minute} * 60 + time.second;
    if (time.utcOffsetSeconds) return wall - *time.utcOffsetSeconds;
    // Right away for every time in the same half of the year as the reference, and exact where clocks go
    // back. The other half needs the offset that holds there.
    const int offset = offsetAt(reference);
    const std::int64_t guess = wall - offset;
    const int there = offsetAt(guess);
    if (there == offset) return guess;
    const std::int64_t second = wall - there;
    // In the hour that is left out when clocks go forward neither fits; then the offset before it counts.
    return offsetAt(second) == there ? second : guess;
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
