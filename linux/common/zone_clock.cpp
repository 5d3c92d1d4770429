// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/common/zone_clock.h"

#include <ctime>

namespace ombrel {

namespace {

constexpr std::int64_t kBlockSeconds = 900;

}  // namespace

// Years begin in March here, so that the leap day is the last of its year.
std::int64_t daysFromCivil(int year, int month, int day) noexcept {
    const std::int64_t y = year - (month <= 2 ? 1 : 0);
    const std::int64_t era = floorDiv(y, 400);
    const std::int64_t yearOfEra = y - era * 400;
    const std::int64_t dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    const std::int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + dayOfEra - 719468;
}

void ZoneClock::refresh() {
    ::tzset();
    blocks_.fill(Block{});
}

int ZoneClock::offsetAt(std::int64_t seconds) {
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

ZoneClock::Stamp ZoneClock::stamp(std::int64_t seconds) {
    const int offset = offsetAt(seconds);
    return {day_.of(seconds + offset), offset};
}

std::int64_t ZoneClock::fromWall(std::int64_t wall, std::int64_t reference) {
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

}  // namespace ombrel
