// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Counts as a bar chart, as lines, or as JSON. Pure.
#pragma once

#include <string>
#include <vector>

#include "tools/ombrel/context.h"
#include "tools/ombrel/stats_run.h"

namespace ombrel {

struct StatsAnswer {
    StatsBy by = StatsBy::kHost;
    std::string byWord;                     ///< "host"
    std::vector<NameCounts::Entry> counts;  ///< in the order in which they are shown
    unsigned long long others = 0;          ///< rows of names that are left out
    unsigned long long rows = 0;            ///< all of them
    std::size_t filesRead = 0;
    std::size_t filesFailed = 0;
};

/// Largest first, but hours and days in their order. Of more than `limit` (0: none) names the largest ones stay,
/// of hours and days the last ones.
StatsAnswer statsAnswer(StatsResult result, StatsBy by, std::string byWord, std::size_t limit);

std::string statsText(const StatsAnswer& answer, const Context& context);

}  // namespace ombrel
