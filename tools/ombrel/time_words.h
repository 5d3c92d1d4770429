// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Times as people write them, in the zone of this machine. Pure.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace ombrel {

constexpr const char* kTimeWords =
    "a time such as 2024-03-03, \"2024-03-03 12:30\", 12:30, 2024-03-03T12:30:00Z, today, yesterday, 90m, 12h or "
    "7d";

enum class DayEnd { kFirstSecond, kLastSecond };

/// Seconds since the epoch. A day without an hour means its first or its last second, a minute without seconds
/// likewise; "90m", "12h", "7d" and "30s" that long before `now`; a zone is "Z" or "+01:00" (RFC 3339).
std::optional<long long> timeOfWords(std::string_view words, long long now, DayEnd end);

/// "2024-03-03 12:30:00", local.
std::string localTimeText(long long seconds);
/// "2024-03-03T12:30:00+01:00" (RFC 3339), for JSON.
std::string timeJson(long long seconds);
/// The local day, YYYY-MM-DD.
std::string localDay(long long seconds);

}  // namespace ombrel
