// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Counts the rows of databases by what they have in common.
#pragma once

#include <atomic>
#include <optional>
#include <string>
#include <string_view>

#include "tools/ombrel/log_files.h"
#include "tools/ombrel/log_filter.h"
#include "tools/ombrel/stats_counts.h"

namespace ombrel {

enum class StatsBy { kHost, kProgram, kSeverity, kHour, kDay };

/// Of the words host, program, severity, hour and day.
StatsBy statsByOf(std::string_view word);

struct StatsWanted {
    StatsBy by = StatsBy::kHost;
    const LogFilter& filter;
    bool hasRegex = false;  ///< the database cannot tell alone which rows are wanted
};

/// Counts one database, by asking for the number of rows of each name where that is cheaper than reading them all.
/// @param passed  goes up with the rows that were looked at
/// @param stop    ends the counting between two stretches of rows
/// @return nothing, or why it could not be counted: "PATH: WHY"; `counts` holds what was counted before then
std::optional<std::string> countDatabase(const std::string& path, bool isWorking, const StatsWanted& wanted,
                                         NameCounts& counts, std::atomic<unsigned long long>& passed,
                                         const std::atomic<bool>& stop);

}  // namespace ombrel
