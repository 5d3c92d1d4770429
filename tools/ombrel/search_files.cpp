// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/search_files.h"

#include <sys/stat.h>

#include "tools/ombrel/archive_name.h"
#include "tools/ombrel/time_words.h"

namespace ombrel {

bool mayHold(const LogFile& file, std::optional<long long> since, std::optional<long long> until) {
    if (file.firstDay.empty() || file.lastDay.empty() || file.lastDay == kUnknownDay) return true;
    const auto first = timeOfWords(file.firstDay, 0, DayEnd::kFirstSecond);
    const auto last = timeOfWords(file.lastDay, 0, DayEnd::kLastSecond);
    const bool isBefore = since && last && *last < *since;
    const bool isBehind = until && first && *first > *until;
    return !isBefore && !isBehind;
}

SearchFiles::SearchFiles(LogPlaces places, const LogFilter& filter) : found_(findLogFiles(archiver_, places)) {
    // Also when only working databases are wanted: one of them may become an archive, which is then to be found.
    const LogFiles archives = findLogFiles(archiver_, LogPlaces::kArchives);
    for (const LogFile& file : archives.files)
        paths_.insert(file.path);
    std::erase_if(found_.files, [&filter](const LogFile& file) {
        return file.kind != LogFile::Kind::kWorking && !mayHold(file, filter.since(), filter.until());
    });
}

std::optional<std::string> SearchFiles::findArchived(const LogReader::Identity& identity) {
    const std::lock_guard lock(mutex_);
    for (const LogFile& file : findLogFiles(archiver_, LogPlaces::kArchives).files) {
        struct stat64 status {};
        if (file.kind != LogFile::Kind::kArchive || wasThere(file.path)) continue;
        if (::stat64(file.path.c_str(), &status) != 0) continue;
        if (LogReader::Identity{status.st_dev, status.st_ino} == identity) return file.path;
    }
    return std::nullopt;
}

}  // namespace ombrel
