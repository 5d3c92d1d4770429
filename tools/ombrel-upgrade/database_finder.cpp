// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel-upgrade/database_finder.h"

#include <sqlite3.h>
#include <sys/stat.h>
#include <sysexits.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

#include "linux/common/error_record.h"
#include "linux/common/folder_stream.h"
#include "linux/common/path_parts.h"
#include "ombrel/utils_updater.h"
#include "platform/veskcore.h"
#include "platform/vesksyslog.h"
#include "tools/ombrel-upgrade/placement.h"

namespace ombrel {

namespace {

bool isDigits(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

bool hasSetAsideEnd(std::string_view name, std::string_view mark) {
    const std::size_t at = name.rfind(mark);
    return at != std::string_view::npos && at > 0 && isDigits(name.substr(at + mark.size()));
}

bool isWorkingDatabase(const FoundDatabase& file) {
    return file.kind == OldKind::kDatabase && nameOf(file.path).starts_with("VESKSYSLOGDB_");
}

bool comesFirst(const FoundDatabase& a, const FoundDatabase& b) {
    const bool aWorks = isWorkingDatabase(a);
    const bool bWorks = isWorkingDatabase(b);
    return aWorks == bWorks ? a.path < b.path : aWorks;
}

FoundDatabase fileOf(const std::string& path, const struct stat& status) {
    FoundDatabase file;
    file.path = path;
    file.bytes = static_cast<unsigned long long>(status.st_size);
    file.device = status.st_dev;
    file.inode = status.st_ino;
    if (nameOf(path).ends_with(".ZIP")) file.kind = OldKind::kZip;
    if (isSetAsideName(nameOf(path))) file.kind = OldKind::kSetAside;
    return file;
}

int exitCodeOf(int error) {
    if (error == EACCES || error == EPERM) return EX_NOPERM;
    return error == ENOENT || error == ENOTDIR ? EX_NOINPUT : EX_IOERR;
}

FindNote cannotRead(const std::string& path, int error) {
    const int exitCode = exitCodeOf(error);
    const char* const remedy = exitCode == EX_NOPERM ? "; run it as root, or as the owner of the file" : "";
    return {"cannot read " + path + ": " + std::strerror(error) + remedy, exitCode};
}

/// The folder of the path without links and dots in it, so that one file has one name. Empty with errno set.
std::string absolutePathOf(const std::string& path) {
    const std::unique_ptr<char, decltype(&std::free)> folder(::realpath(folderOf(path).c_str(), nullptr),
                                                             &std::free);
    if (folder == nullptr) return {};
    const std::string text = folder.get();
    return (text == "/" ? text : text + "/") + nameOf(path);
}

/// Null when there may be a database in it.
const char* whyNoFile(const struct stat& status) {
    if (S_ISLNK(status.st_mode)) return "is a symbolic link; name the file that it leads to";
    if (S_ISDIR(status.st_mode)) return "is a folder; name the databases in it, or use --all";
    return S_ISREG(status.st_mode) ? nullptr : "is no file";
}

}  // namespace

bool isSetAsideName(const std::string& name) {
    return hasSetAsideEnd(name, ".DB.old-") || hasSetAsideEnd(name, ".DB.corrupt-");
}

void DatabaseFinder::note(std::string text, int exitCode) {
    found_.notes.push_back({std::move(text), exitCode});
}

bool DatabaseFinder::isNew(const FoundDatabase& file) {
    return seen_.emplace(file.device, file.inode).second;
}

void DatabaseFinder::addFolder(const std::string& folder) {
    addEntries(folder.size() > 1 && folder.ends_with('/') ? folder.substr(0, folder.size() - 1) : folder, true);
}

void DatabaseFinder::addEntries(const std::string& folder, bool isTop) {
    const FolderStream stream(::opendir(folder.c_str()));
    if (!stream) {
        if (isTop && errno == ENOENT) return note("there is no folder " + folder, 0);
        return found_.notes.push_back(cannotRead(folder, errno));
    }
    std::vector<std::string> folders;
    for (errno = 0; const dirent* const entry = ::readdir(stream.get()); errno = 0) {
        const std::string path = (folder == "/" ? folder : folder + "/") + entry->d_name;
        struct stat status {};
        if (::lstat(path.c_str(), &status) != 0) continue;  // it has just gone
        if (S_ISDIR(status.st_mode) && isTop && *entry->d_name != '.' && nameOf(path) != "@tmp") {
            folders.push_back(path);
        } else if (S_ISREG(status.st_mode)) {
            FoundDatabase file = fileOf(path, status);
            const bool counts = file.kind != OldKind::kDatabase || path.ends_with(".DB");
            if (!counts || *entry->d_name == '.' || !isNew(file)) continue;
            file.kind == OldKind::kZip ? addZip(std::move(file), false) : addDatabase(std::move(file), false);
        }
    }
    if (errno != 0) found_.notes.push_back(cannotRead(folder, errno));
    for (const std::string& one : folders)
        addEntries(one, false);
}

void DatabaseFinder::addPath(const std::string& given) {
    struct stat status {};
    if (::lstat(given.c_str(), &status) != 0) {
        if (exitCodeOf(errno) != EX_NOINPUT) return found_.notes.push_back(cannotRead(given, errno));
        return note("there is no file " + given, EX_NOINPUT);
    }
    if (const char* const why = whyNoFile(status)) return note(given + " " + why, EX_USAGE);
    const std::string path = absolutePathOf(given);
    if (path.empty()) return found_.notes.push_back(cannotRead(given, errno));
    if (path.ends_with(keptNameOf(""))) {
        return note(
            path + " is what an upgrade has kept of the old file; give it another name to convert it again",
            EX_USAGE);
    }
    FoundDatabase file = fileOf(path, status);
    if (!isNew(file)) return;
    file.kind == OldKind::kZip ? addZip(std::move(file), true) : addDatabase(std::move(file), true);
}

void DatabaseFinder::addDatabase(FoundDatabase file, bool isNamed) {
    // This look leaves no line in the system log for each file that is none of ours; the check below does.
    const int version = SyslogDBVersionGet(file.path);
    if (version != 1) {
        if (version < 0) return addNoDatabase(file, isNamed);
        return isNamed ? note(file.path + " has the current layout already", 0) : void();
    }
    if (!SyslogUpdaterOldDbCheck(file.path)) return;  // somebody else has upgraded it just now
    const int rows = SyslogUpdaterOldDbTotalGet(file.path);
    if (rows == -1 || rows == -2)
        return note("cannot count the rows of " + file.path + "; it may be damaged", EX_DATAERR);
    if (rows < 0) {
        return note(file.path + " has more than " + std::to_string(INT_MAX) + " rows; split it to upgrade it",
                    EX_DATAERR);
    }
    file.rows = rows;
    lookForWork(file);
    found_.databases.push_back(std::move(file));
}

void DatabaseFinder::addNoDatabase(const FoundDatabase& file, bool isNamed) {
    const int code = VLIBCErrGet();
    const int result = code >= kErrorFromSqlite ? (code - kErrorFromSqlite) & 0xff : SQLITE_OK;
    if (struct stat status{}; ::lstat(file.path.c_str(), &status) != 0) {
        if (isNamed) note("there is no file " + file.path, EX_NOINPUT);
        return;  // it has just been archived
    }
    if (code == kErrorNotALogDatabase || result == SQLITE_NOTADB) {
        return isNamed ? note(file.path + " is no log database", EX_DATAERR) : void();
    }
    if (result == SQLITE_CORRUPT) {
        // What was set aside as damaged stays so, and is told without being wrong each time.
        const bool isKnown = !isNamed && file.kind == OldKind::kSetAside;
        return note(file.path + " is damaged; it is left as it is", isKnown ? 0 : EX_DATAERR);
    }
    if (::access(file.path.c_str(), R_OK) != 0) return found_.notes.push_back(cannotRead(file.path, errno));
    note("cannot read " + file.path + ": " + ::sqlite3_errstr(result), EX_IOERR);
}

void DatabaseFinder::addZip(FoundDatabase file, bool isNamed) {
    if (!probes_.zip)
        return isNamed ? note(file.path + " is a ZIP file; add --zip to upgrade what is in it", EX_USAGE) : void();
    const ZipContents contents = probes_.zip(file.path);
    if (!contents.error.empty()) return note(contents.error, EX_DATAERR);
    if (!contents.notice.empty()) note(contents.notice, 0);
    if (contents.oldDatabases == 0) {
        return isNamed ? note(file.path + " holds no database of the old layout", 0) : void();
    }
    file.databases = contents.oldDatabases;
    file.unpackedBytes = contents.bytes;
    lookForWork(file);
    found_.databases.push_back(std::move(file));
}

void DatabaseFinder::lookForWork(FoundDatabase& file) const {
    if (probes_.workBytes) file.workBytes = probes_.workBytes(file.path);
    if (file.workBytes == 0 || file.kind == OldKind::kZip || !probes_.newDatabase) return;
    std::string place = probes_.newDatabase(file.path);
    if (place.empty() || !SyslogUpdaterUpdDbCheck(place)) return;
    file.workRows = std::max(SyslogUpdaterUpdDbProgGet(place), 0);
}

Findings DatabaseFinder::take() {
    std::sort(found_.databases.begin(), found_.databases.end(), comesFirst);
    return std::move(found_);
}

}  // namespace ombrel
