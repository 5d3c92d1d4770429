// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/archive_run.h"

#include <sys/stat.h>

#include <cerrno>

namespace ombrel {

namespace {

Archiving archive(LogArchiver& archiver, const _SYSLOG_WORKING_DB_tag& db) {
    using End = Archiving::End;
    const long long rows = rowsOf(archiver, db.strDBPath);
    if (rows == 0) return {db.strDBPath, rows, End::kEmpty};
    if (rows < 0) return {db.strDBPath, rows, End::kUnreadable};
    std::list<_SYSLOG_WORKING_DB_tag> alone{db};
    return {db.strDBPath, rows, archiver.DoArchive(alone, false) < 0 ? End::kFailed : End::kDone};
}

}  // namespace

std::string whyNotArchived(const Archiving& archiving) {
    return archiving.end == Archiving::End::kUnreadable ? "cannot be read as a log database; it was left in place"
                                                        : "could not be archived; the system log says why";
}

void archiveEach(LogArchiver& archiver, const std::list<_SYSLOG_WORKING_DB_tag>& databases,
                 const std::function<void(const Archiving&)>& tell, const std::function<bool()>& goesOn) {
    for (const auto& db : databases) {
        if (goesOn && !goesOn()) return;
        tell(archive(archiver, db));
    }
}

// Since it may be moved and made again while it is looked at, it is looked at more than once.
long long rowsOf(LogArchiver& archiver, const std::string& path) {
    constexpr int kLooks = 3;
    for (int i = 0; i < kLooks; ++i) {
        const long long rows = archiver.DBCountGet(path);
        if (rows >= 0) return rows;
        struct stat64 status {};
        if (stat64(path.c_str(), &status) != 0 ? errno == ENOENT : status.st_size == 0) return 0;
    }
    return -1;
}

void addArchivings(JsonWriter& json, const std::vector<Archiving>& archivings) {
    json.key("archived").beginArray();
    for (const Archiving& each : archivings) {
        if (each.end != Archiving::End::kDone) continue;
        json.beginObject().member("database", each.path).member("rows", each.rows).endObject();
    }
    json.endArray().key("failed").beginArray();
    for (const Archiving& each : archivings) {
        if (!each.hasFailed()) continue;
        json.beginObject().member("database", each.path).member("what", whyNotArchived(each)).endObject();
    }
    json.endArray();
}

}  // namespace ombrel
