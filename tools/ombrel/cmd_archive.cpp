// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// `ombrel archive`: archives what is due by the rules of the settings, or everything.
#include <sys/stat.h>
#include <sysexits.h>

#include <cerrno>
#include <cstdio>
#include <string_view>

#include "linux/common/text_escape.h"
#include "ombrel/logarchiver.h"
#include "src/fixed_paths.h"
#include "tools/ombrel/commands.h"

namespace {

constexpr const char* kUsage = "usage: ombrel archive [--all]";

/// Its rows, or -1 when it is no log database. A file that is not there any more, or that the log writer has just
/// made and not yet begun, holds none; since it may be moved and made again while it is looked at, it is looked
/// at more than once.
long long rowsOf(LogArchiver& archiver, const std::string& path) {
    constexpr int kLooks = 3;
    for (int i = 0; i < kLooks; ++i) {
        const long long rows = archiver.DBCountGet(path);
        if (rows >= 0) return rows;
        struct stat status {};
        if (stat(path.c_str(), &status) != 0 ? errno == ENOENT : status.st_size == 0) return 0;
    }
    return -1;
}

/// Archives the databases that hold rows, one by one, and says for each how it went.
int archiveEach(LogArchiver& archiver, std::list<_SYSLOG_WORKING_DB_tag> databases) {
    int exitCode = EX_OK;
    std::size_t archived = 0;
    for (auto& db : databases) {
        const long long rows = rowsOf(archiver, db.strDBPath);
        if (rows == 0) continue;
        if (rows < 0) {
            exitCode =
                ombrel::complain(1, db.strDBPath + " cannot be read as a log database; it was left in place");
        } else if (archiver.DoArchive(db, false) < 0) {
            exitCode = ombrel::complain(1, db.strDBPath + " could not be archived; the system log says why");
        } else {
            ++archived;
            (void)printf("archived %s (%lld rows)\n", ombrel::escapeForLine(db.strDBPath).c_str(), rows);
        }
    }
    if (archived == 0 && exitCode == EX_OK) (void)puts("nothing to archive");
    return exitCode;
}

}  // namespace

int ombrel::cmdArchive(std::span<char* const> words) {
    if (asksForHelp(words)) return showHelp(kUsage);
    const bool all = words.size() == 1 && std::string_view(words[0]) == "--all";
    if (!words.empty() && !all) return complain(EX_USAGE, kUsage);
    LogArchiver archiver;
    if (archiver.ConfigLoad(kSettingsFile) < 0) {
        return complain(EX_CONFIG, std::string(kSettingsFile) + " cannot be read or lacks a required key");
    }
    return archiveEach(archiver, all ? archiver.CurrentWorkingDBGet() : archiver.ArchiveCheck());
}
