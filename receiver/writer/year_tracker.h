// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The years of the lines of a log file whose times have none. Lines follow one another in time: where the
// month falls back, a new year has begun. Pure.
#pragma once

namespace ombrel {

class YearTracker {
public:
    explicit YearTracker(int firstYear) : year_(firstYear) {}

    /// The year of the next line, given its month (1..12).
    int next(int month) noexcept {
        const int step = lastMonth_ == 0 ? 0 : month - lastMonth_;
        // One month back is a line that came late; a December right behind a January too.
        if (step == 11) return year_ - 1;
        if (step <= -2) ++year_;
        lastMonth_ = month;
        return year_;
    }
    [[nodiscard]] int year() const noexcept { return year_; }

private:
    int year_;
    int lastMonth_ = 0;
};

}  // namespace ombrel
