// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/log_files.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>

#include "linux/common/path_parts.h"
#include "tools/ombrel/archive_name.h"
#include "tools/ombrel/folder_listing.h"

namespace ombrel {

namespace {

constexpr std::string_view kWorkingPrefix = "VESKSYSLOGDB_";

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool isDay(std::string_view text) {
    if (text.size() != kDayLength) return false;
    for (std::size_t i = 0; i < kDayLength; ++i) {
        const bool isDash = i == 4 || i == 7;
        if (isDash ? text[i] != '-' : !isDigit(text[i])) return false;
    }
    return true;
}

/// "" or "_1" ... "_1000": what is behind the days.
bool isNumbering(std::string_view text) {
    return text.empty() ||
           (text.size() > 1 && text[0] == '_' && std::all_of(text.begin() + 1, text.end(), isDigit));
}

bool isWorkingName(std::string_view name) {
    return name.starts_with(kWorkingPrefix) && name.ends_with(".DB");
}

std::string deviceOf(std::string_view name) {
    name.remove_prefix(kWorkingPrefix.size());
    name.remove_suffix(3);
    return name == "_LOCALARCH" ? "local" : std::string(name);
}

/// Nothing of a name that is neither that of a working database nor of an archive.
std::optional<LogFile> logFileOf(const std::string& folder, const FolderEntry& entry) {
    LogFile file;
    file.path = folder + "/" + entry.name;
    file.bytes = entry.bytes;
    file.changed = entry.changed;
    if (isWorkingName(entry.name)) {
        file.kind = LogFile::Kind::kWorking;
        file.device = deviceOf(entry.name);
        return file;
    }
    const auto days = daysOfName(entry.name);
    if (!days) return std::nullopt;
    file.kind = entry.name.ends_with(".ZIP") ? LogFile::Kind::kZip : LogFile::Kind::kArchive;
    file.firstDay = days->first;
    file.lastDay = days->last;
    return file;
}

class Search {
public:
    Search(LogPlaces places, LogFiles& found) : places_(places), found_(found) {}

    void addWorking(const _SYSLOG_WORKING_DB_tag& db) {
        if (places_ == LogPlaces::kArchives || !known_.insert(db.strDBPath).second) return;
        LogFile file;
        if (const auto entry = fileEntry(db.strDBPath)) {
            file.bytes = entry->bytes;
            file.changed = entry->changed;
        }
        file.kind = LogFile::Kind::kWorking;
        file.path = db.strDBPath;
        file.device = db.strDevice;
        found_.files.push_back(std::move(file));
    }

    void addFolder(const std::string& folder, bool isTop) {
        const auto entries = listFolder(folder);
        if (!entries) {
            if (isTop || errno != ENOENT) found_.notes.push_back(folder + ": " + std::strerror(errno));
            return;
        }
        for (const FolderEntry& entry : *entries) {
            if (entry.isFolder) {
                if (isTop && entry.name != "@tmp") addFolder(folder + "/" + entry.name, false);
            } else if (auto file = logFileOf(folder, entry)) {
                addFile(std::move(*file));
            }
        }
    }

private:
    void addFile(LogFile file) {
        const bool isWorking = file.kind == LogFile::Kind::kWorking;
        if (places_ == (isWorking ? LogPlaces::kArchives : LogPlaces::kWorking)) return;
        if (known_.insert(file.path).second) found_.files.push_back(std::move(file));
    }

    LogPlaces places_;
    LogFiles& found_;
    std::set<std::string> known_;
};

/// Working ones stay as they were found; of two archives with the same days the one with the higher number is the
/// later one.
bool comesBefore(const LogFile& a, const LogFile& b) {
    const bool isWorking = a.kind == LogFile::Kind::kWorking;
    if (isWorking != (b.kind == LogFile::Kind::kWorking)) return isWorking;
    if (isWorking) return false;
    if (a.lastDay != b.lastDay) return a.lastDay > b.lastDay;
    if (a.firstDay != b.firstDay) return a.firstDay > b.firstDay;
    if (a.path.size() != b.path.size()) return a.path.size() > b.path.size();
    return a.path > b.path;
}

}  // namespace

LogPlaces logPlacesOf(std::string_view word) {
    if (word == "live") return LogPlaces::kWorking;
    return word == "archives" ? LogPlaces::kArchives : LogPlaces::kAll;
}

LogFiles findLogFiles(LogArchiver& archiver, LogPlaces places) {
    LogFiles found;
    Search search(places, found);
    for (const auto& db : archiver.CurrentWorkingDBGet())
        search.addWorking(db);
    search.addFolder(archiver.strArchDest, true);
    std::stable_sort(found.files.begin(), found.files.end(), comesBefore);
    return found;
}

std::optional<LogFile> logFileAt(const std::string& path) {
    auto entry = fileEntry(path);
    if (!entry) return std::nullopt;
    if (auto file = logFileOf(folderOf(path), *entry)) {
        file->path = path;
        return file;
    }
    LogFile file;
    file.kind = entry->name.ends_with(".ZIP") || entry->name.ends_with(".zip") ? LogFile::Kind::kZip
                                                                               : LogFile::Kind::kArchive;
    file.path = path;
    file.bytes = entry->bytes;
    file.changed = entry->changed;
    return file;
}

std::optional<NameDays> daysOfName(std::string_view fileName) {
    constexpr std::size_t kSecond = kDayLength + 1;
    constexpr std::size_t kDays = kSecond + kDayLength;
    if (!fileName.ends_with(".DB") && !fileName.ends_with(".ZIP")) return std::nullopt;
    const std::string_view stem = fileName.substr(0, fileName.rfind('.'));
    if (stem.size() < kDays || stem[kDayLength] != '_') return std::nullopt;
    const std::string_view first = stem.substr(0, kDayLength);
    const std::string_view last = stem.substr(kSecond, kDayLength);
    if (!isDay(first) || !isDay(last) || !isNumbering(stem.substr(kDays))) return std::nullopt;
    return NameDays{std::string(first), std::string(last)};
}

}  // namespace ombrel
