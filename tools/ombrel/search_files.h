// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Which files a search has to look into, and what became of those that are archived meanwhile.
#pragma once

#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "ombrel/logarchiver.h"
#include "tools/ombrel/log_files.h"
#include "tools/ombrel/log_filter.h"
#include "tools/ombrel/log_reader.h"

namespace ombrel {

/// Whether rows of these times may be in the file, by the days in its name.
bool mayHold(const LogFile& file, std::optional<long long> since, std::optional<long long> until);

class SearchFiles {
public:
    SearchFiles(LogPlaces places, const LogFilter& filter);

    /// Folders that could not be read.
    [[nodiscard]] const std::vector<std::string>& notes() const { return found_.notes; }
    /// The files, once.
    std::vector<LogFile> take() { return std::move(found_.files); }

    // Safe for several threads.
    /// An archive of that number that was not there when the search began.
    std::optional<std::string> findArchived(const LogReader::Identity& identity);
    [[nodiscard]] bool wasThere(const std::string& path) const { return paths_.contains(path); }

private:
    LogArchiver archiver_;
    LogFiles found_;
    std::set<std::string> paths_;  // of archives
    std::mutex mutex_;
};

}  // namespace ombrel
