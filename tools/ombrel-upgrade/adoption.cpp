// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel-upgrade/adoption.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "linux/common/error_record.h"
#include "linux/common/path_parts.h"
#include "linux/common/sqlite_db.h"
#include "ombrel/logarchiver.h"
#include "platform/veskcore.h"
#include "platform/veskfileop.h"
#include "tools/ombrel-upgrade/row_time.h"

namespace ombrel {

namespace {

constexpr std::string_view kForm = "YYYY-MM-DD_YYYY-MM-DD";
constexpr std::size_t kDay = 10;  // characters
constexpr const char* kUnknownDays = "1970-01-01_1970-01-01";
// Of the rows that have a day: devices leave many without, and ones that are none.
constexpr const char* kDays = "SELECT MIN(ldate) || '_' || MAX(ldate) FROM logs WHERE date(ldate) = ldate";
constexpr std::string_view kExtension = ".DB";
constexpr int kHighestNumber = 1000;
constexpr int kAttempts = 100;  // somebody else takes the name each time

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool isDay(std::string_view text) {
    return WallTime().of(text, "00:00:00").has_value();
}

// The days come from rows that strangers have written: anything else might be the name of something else.
bool isArchiveName(std::string_view name) {
    if (!name.ends_with(kExtension) || name.size() < kForm.size() + kExtension.size()) return false;
    if (name[kDay] != '_' || !isDay(name.substr(0, kDay)) || !isDay(name.substr(kDay + 1, kDay))) return false;
    std::string_view number = name.substr(kForm.size(), name.size() - kForm.size() - kExtension.size());
    if (number.empty()) return true;
    if (number[0] != '_' || number.size() < 2) return false;
    number.remove_prefix(1);
    return std::all_of(number.begin(), number.end(), isDigit);
}

std::string realDaysOf(const std::string& path) {
    Connection connection;
    Statement days;
    if (connection.open(path, OpenMode::kReadWrite) != 0 || days.prepare(connection, kDays) != 0 ||
        days.step() != Statement::kRow) {
        return kUnknownDays;
    }
    const std::string text(days.columnText(0));
    return isArchiveName(text + std::string(kExtension)) ? text : kUnknownDays;
}

std::string freeName(const std::string& folder, const std::string& days) {
    for (int number = 0; number <= kHighestNumber; ++number) {
        std::string path = folder + days;
        if (number > 0) path += "_" + std::to_string(number);
        path += kExtension;
        if (VLIBCFileExist(path.c_str()) == 0) return path;
    }
    return {};
}

}  // namespace

std::string archivePathFor(const std::string& path) {
    const std::string folder = folderOf(path);
    LogArchiver archiver;
    archiver.strArchDest = folder == "/" ? "" : folder;
    archiver.ByDevice = 0;
    _SYSLOG_WORKING_DB_tag database{{}, nameOf(path), path};
    const std::string prefix = archiver.strArchDest + "/";
    std::string archive = archiver.ArchDestGet(database);
    if (archive.starts_with(prefix) && isArchiveName(std::string_view(archive).substr(prefix.size())))
        return archive;
    return freeName(prefix, realDaysOf(path));
}

// The move takes the database for itself first, whereby SQLite rolls back what a writer that died has left half
// done; the journal could not be found under the new name.
Adoption adoptSetAside(const std::string& path) {
    VESK_COPY_OPTIONS options{};
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        const std::string archive = archivePathFor(path);
        if (archive.empty()) break;
        if (VESKFileCopy(path.c_str(), archive.c_str(), &options) == 0) return {archive, {}};
        if (const int code = VLIBCErrGet(); code != fromErrno(EEXIST)) {
            const bool isSystem = code > kErrorFromErrno && code < kErrorFromSqlite;
            return {path, "cannot rename " + path + " to " + archive + ": " +
                              (isSystem ? std::strerror(code - kErrorFromErrno) : "it is in use or damaged")};
        }
    }
    return {path, "cannot rename " + path + ": no archive name is free for it in its folder"};
}

}  // namespace ombrel
