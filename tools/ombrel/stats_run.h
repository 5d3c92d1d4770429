// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Counts many databases side by side.
#pragma once

#include <string>
#include <vector>

#include "tools/ombrel/progress.h"
#include "tools/ombrel/stats_reading.h"

namespace ombrel {

struct StatsResult {
    NameCounts counts;
    std::size_t read = 0;             ///< files that were counted
    std::vector<std::string> failed;  ///< "PATH: WHY", in the order of the files
};

/// Those of the files whose days may hold rows between the times of the filter.
std::vector<LogFile> filesBetween(std::vector<LogFile> files, const LogFilter& filter);

/// As many at a time as there are cores.
StatsResult countFiles(const std::vector<LogFile>& files, const StatsWanted& wanted, Progress& progress);

}  // namespace ombrel
