// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The databases that there are: working ones, archives, archives in ZIP files. Only names and sizes are looked at,
// no database is opened.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ombrel/logarchiver.h"

namespace ombrel {

struct LogFile {
    enum class Kind { kWorking, kArchive, kZip };
    Kind kind = Kind::kArchive;
    std::string path;
    std::string firstDay;  ///< YYYY-MM-DD, from the name; empty of a working database
    std::string lastDay;
    std::string device;  ///< of a working database: see _SYSLOG_WORKING_DB_tag
    unsigned long long bytes = 0;
    long long changed = 0;  ///< seconds since the epoch
};

struct LogFiles {
    std::vector<LogFile> files;      ///< working ones first, then archives by last day, newest first
    std::vector<std::string> notes;  ///< folders that could not be read
};

enum class LogPlaces { kWorking, kArchives, kAll };
/// Of the words "live", "archives" and "all".
LogPlaces logPlacesOf(std::string_view word);

/// Looks through the archiver's folder and its sub-folders (one level; no hidden ones, no symbolic links), and
/// asks it for the working databases. A file of such a name that it does not know (any more) is a working one as
/// well.
LogFiles findLogFiles(LogArchiver& archiver, LogPlaces places);

/// One file that is named, whatever its name; nothing when it cannot be looked at.
std::optional<LogFile> logFileAt(const std::string& path);

/// The days of "2024-03-03_2024-03-09_1.DB" or ".ZIP"; nothing of any other name.
struct NameDays {
    std::string first;
    std::string last;
};
std::optional<NameDays> daysOfName(std::string_view fileName);

}  // namespace ombrel
