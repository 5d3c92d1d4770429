// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The lines of the event file, read. Parts of them are what strangers sent: nothing in them is safe to be shown
// as it is, or to be taken for a path.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace ombrel {

struct EventLine {
    std::string time;   ///< as it stands there; see secondsOfEvent
    std::string event;  ///< "archive_failed"
    std::string text;
    std::string job;              ///< of job_died
    std::optional<int> exitCode;  ///< of job_died
    std::string signal;           ///< of job_died
    /// All members but the first three, in their order, known or not.
    std::vector<std::pair<std::string, std::variant<long long, std::string>>> more;
};

/// No event has a longer line: the longest path, every byte of it escaped, and the rest.
constexpr std::size_t kLongestEventLine = std::size_t{64} * 1024;

/// Reads one line without its line break: a JSON object of strings and whole numbers. Members that are not
/// known stand in `more` alone. Nothing when it is anything else, is longer than that, or names no event.
std::optional<EventLine> readEventLine(std::string_view line);

/// Seconds since the epoch of "2024-03-03T12:30:00+01:00" or "...Z" (RFC 3339, without fractions); nothing of
/// anything else.
std::optional<long long> secondsOfEvent(std::string_view time);

}  // namespace ombrel
