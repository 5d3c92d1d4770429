// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The local day and time of an old row as the moment and the offset that the current layout keeps. Pure but for
// the zone of this machine.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "linux/common/zone_clock.h"

namespace ombrel {

/// Seconds since 1970-01-01 00:00 local time of "YYYY-MM-DD" and "HH:MM:SS". Nothing for whatever would not read
/// the same again when it is made of this number: another form, a day or time that there is none, a leap second.
class WallTime {
public:
    std::optional<std::int64_t> of(std::string_view day, std::string_view time);

private:
    std::optional<std::int64_t> dayOf(std::string_view day);

    DayText rendered_;
    std::string lastText_;  // rows come in runs of the same day
    std::optional<std::int64_t> lastDay_;
};

struct RowTime {
    std::int64_t utc = 0;  ///< seconds since the epoch
    int offset = 0;        ///< local time less UTC, in seconds
};

/// The moment that is shown as `wall`. Of two moments in an hour that occurs twice it is the one with the offset
/// of `before`, the row before this one.
RowTime rowTimeOf(ZoneClock& clock, std::int64_t wall, std::int64_t before);

}  // namespace ombrel
