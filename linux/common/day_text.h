// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Local days as texts. Rows come in runs of the same day, so the last one is remembered; an object belongs to
// one thread.
#pragma once

#include <array>
#include <cstdint>
#include <ctime>
#include <string_view>

namespace ombrel {

constexpr std::int64_t kDaySeconds = 86400;

constexpr std::int64_t floorDiv(std::int64_t value, std::int64_t divisor) noexcept {
    return value / divisor - (value % divisor < 0 ? 1 : 0);
}

class DayText {
public:
    /// YYYY-MM-DD of a local time in seconds since 1970-01-01 00:00 local time; valid until the next call.
    /// Empty for a year that has no number of type int.
    std::string_view of(std::int64_t localSeconds) noexcept {
        const std::int64_t number = floorDiv(localSeconds, kDaySeconds);
        if (number != number_) {
            const time_t value = number * kDaySeconds;
            struct tm day {};
            const bool known = gmtime_r(&value, &day) != nullptr;
            length_ = known ? std::strftime(text_.data(), text_.size(), "%Y-%m-%d", &day) : 0;
            number_ = number;
        }
        return {text_.data(), length_};
    }

private:
    std::int64_t number_ = INT64_MIN;  // of the day in text_; out of reach of a division
    std::array<char, 24> text_{};
    size_t length_ = 0;
};

}  // namespace ombrel
