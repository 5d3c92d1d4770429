// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Between seconds since the epoch and the local days and times of this machine. The zone's rules are asked
// once for each quarter of an hour (no zone of today changes its offset in between) and remembered. One
// object belongs to one thread.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "linux/common/day_text.h"

namespace ombrel {

/// Days from 1970-01-01 to a day of the Gregorian calendar.
std::int64_t daysFromCivil(int year, int month, int day) noexcept;

class ZoneClock {
public:
    /// Forgets what is remembered and looks whether the machine's zone has changed. Once a transaction.
    void refresh();

    struct Stamp {
        std::string_view day;  ///< local day, YYYY-MM-DD; valid until the next call
        int utcOffset = 0;     ///< seconds east of Greenwich
    };
    Stamp stamp(std::int64_t seconds);

    /// What a clock on the wall shows (seconds since 1970-01-01 00:00 local time) in seconds since the epoch. An
    /// hour that occurs twice when clocks go back is taken with the offset that holds at `reference`; one that is
    /// left out when they go forward with that offset too.
    std::int64_t fromWall(std::int64_t wall, std::int64_t reference);

private:
    struct Block {
        std::int64_t number = INT64_MIN;  // quarter of an hour since the epoch
        int offset = 0;                   // seconds east of Greenwich
    };
    int offsetAt(std::int64_t seconds);

    std::array<Block, 64> blocks_{};
    DayText day_;
};

}  // namespace ombrel
