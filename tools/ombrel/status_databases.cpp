// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/status_databases.h"

#include <algorithm>
#include <climits>
#include <cstdlib>

#include "platform/vesksyslog.h"
#include "src/fixed_paths.h"
#include "tools/ombrel/folder_listing.h"
#include "tools/ombrel/status_machine.h"

namespace ombrel {

namespace {

constexpr long long kMinute = 60;
constexpr long long kMebibyte = 1048576;
// Small at first: mostly there are few new rows.
constexpr long long kFirstPage = 1000;
constexpr long long kNextPage = 10'000;

long long secondsOf(const _SYSLOG_LOG_DATA_tag& row) {
    // A database of the old layout knows the row's own time alone.
    const std::string& text = row.receiveTime.empty() ? row.timestamp : row.receiveTime;
    return std::strtoll(text.c_str(), nullptr, 10);
}

}  // namespace

/// Pages of rows, newest first. Those that were received before, but entered late, stand between others: only a
/// page that holds nothing of the last minute is the last one.
struct MinutePage {
    MinuteCount& count;
    long long oldest;           // what was received before is not counted
    unsigned long long known;   // rows up to this id were counted at the look before
    unsigned long long lowest;  // of the ids so far; while rows are added pages overlap
    unsigned long long newest = 0;
    long long newestReceived = 0;
    unsigned long long rows = 0;     // of this page
    unsigned long long counted = 0;  // likewise
    bool isThrough = false;

    /// False when all from here on is known, or nobody wants to know.
    bool take(unsigned long long id, long long received) {
        if (newest == 0) {
            newest = id;
            newestReceived = received;
        }
        // After archiving there is another database, whose ids begin anew.
        if (newest < known || (id == known && received != count.newestReceived_)) known = 0;
        if (id <= known || count.messages_ >= count.most_) return false;
        if (id >= lowest) return true;
        lowest = id;
        if (received < oldest) return true;
        ++counted;
        count.add(received);
        return true;
    }
    static int takeRow(_SYSLOG_LOG_DATA_tag& row, void* context) {
        auto& page = *static_cast<MinutePage*>(context);
        ++page.rows;
        page.isThrough = !page.take(std::strtoull(row.rowId.c_str(), nullptr, 10), secondsOf(row));
        return page.isThrough ? -1 : 0;
    }
};

void MinuteCount::add(long long received) {
    ++seconds_[received];
    ++messages_;
}

void MinuteCount::forgetBefore(long long oldest) {
    while (!seconds_.empty() && seconds_.begin()->first < oldest) {
        messages_ -= seconds_.begin()->second;
        seconds_.erase(seconds_.begin());
    }
    if (moreThanUntil_ != 0 && oldest > moreThanUntil_) moreThanUntil_ = 0;
}

void MinuteCount::pass(long long now) {
    forgetBefore(now - kMinute);
}

bool MinuteCount::look(const std::string& path, long long now) {
    pass(now);
    MinutePage page{*this, now - kMinute, newestId_, ULLONG_MAX};
    std::list<_SYSLOG_SQL_COND_tag> all;
    _SYSLOG_SQL_ORDER_tag newestFirst{1, 0};
    std::string file = path;
    long long offset = 0;
    for (long long rows = kFirstPage; !page.isThrough; rows = kNextPage) {
        _SYSLOG_SQL_LIMIT_tag limit{rows, offset};
        page.rows = page.counted = 0;
        const int result = SyslogDBSelect(file, all, &limit, &newestFirst, &MinutePage::takeRow, &page, false);
        if (result < 0 && !page.isThrough) return false;
        if (page.counted == 0 || page.rows < static_cast<unsigned long long>(rows)) break;
        offset += rows;
    }
    if (page.newest != 0) {
        newestId_ = page.newest;
        newestReceived_ = page.newestReceived;
    }
    if (messages_ >= most_) moreThanUntil_ = now;
    return true;
}

void addDue(const LogArchiver& archiver, long long start, long long now, DatabaseStatus& database) {
    database.due = ArchiveRule::kNone;
    database.rules.clear();
    if (database.rows.value_or(0) <= 0) return;
    const auto bytes = static_cast<long long>(database.bytes);
    database.due = dueState(archiver, {*database.rows, start, static_cast<int>(bytes / kMebibyte)}, now).rule;
    if (archiver.ArchCount != 0)
        database.rules.push_back({ArchiveRule::kCount, archiver.ArchCount, *database.rows});
    if (archiver.ArchInterval != 0)
        database.rules.push_back({ArchiveRule::kAge, archiver.ArchInterval, now - start});
    if (archiver.ArchSize != 0)
        database.rules.push_back({ArchiveRule::kSize, archiver.ArchSize * kMebibyte, bytes});
}

void DatabaseWatch::probe(Known& known, StatusReport& report) {
    DatabaseStatus& status = known.status;
    if (const auto right = missingRight(status.path)) {
        report.notes.push_back(*right + "; root can read it");
        return;
    }
    DBHandler db(status.path, kSchemaFile);
    if (known.file.bytes > 0 && db.DBCon() >= 0) {
        status.rows = db.DBInfoCntGet();
        known.start = db.DBInfoStartGet();
        status.firstDay = db.DBInfoStartStrGet();
        status.lastDay = db.DBInfoEndStrGet();
    }
    (void)db.DBDiscon();
    if (status.rows && *status.rows < 0) status.rows.reset();
    // One that the log writer has just made is no database yet, and one that was just archived is none any more.
    if (known.file.bytes == 0 || (!status.rows && !fileEntry(status.path))) status.rows = 0;
    if (!status.rows) report.notes.push_back(status.path + " cannot be read as a log database");
    if (status.rows.value_or(0) == 0) status.firstDay = status.lastDay = "";
    if (status.rows.value_or(0) == 0) {
        known.minute.pass(report.time);
    } else if (!known.minute.look(status.path, report.time)) {
        report.notes.push_back("the newest rows of " + status.path + " cannot be read");
        return;
    }
    if (status.rows) status.lastMinute = known.minute.messages();
}

void DatabaseWatch::lookAtDatabase(const LogFile& file, StatusReport& report) {
    Known& known = known_[file.path];
    known.isThere = true;
    // A change within the second of the look may not show in the time of the file.
    const bool isUnchanged = known.file.bytes == file.bytes && known.file.changed == file.changed &&
                             file.changed + 1 < known.lookedAt && known.status.lastMinute;
    known.file = file;
    if (!isUnchanged) {
        known.status = {};
        known.status.path = file.path;
        known.status.device = file.device;
        known.status.bytes = file.bytes;
        probe(known, report);
    } else {
        known.minute.pass(report.time);
    }
    known.lookedAt = report.time;
    DatabaseStatus status = known.status;
    if (status.lastMinute) {
        status.lastMinute = known.minute.messages();
        status.isMoreThan = known.minute.isMoreThan();
    }
    addDue(archiver_, known.start, report.time, status);
    report.databases.push_back(std::move(status));
}

void DatabaseWatch::look(const SettingsRecord& settings, StatusReport& report) {
    // Loading them again would be a dozen lines in the system log each time.
    archiver_.ArchCount = settings.arch_count_enable != 0 ? settings.arch_count : 0;
    archiver_.ArchInterval = settings.arch_time_enable != 0 ? settings.arch_time : 0;
    archiver_.ArchSize = settings.arch_size;
    archiver_.ByDevice = settings.arch_by_device;
    archiver_.strArchDest = settings.arch_dest;
    ArchiveStatus archives;
    archives.folder = settings.arch_dest;
    if (const auto right = missingRight(settings.arch_dest)) {
        report.notes.push_back(*right + ", so databases and archives are not known; root can read it");
        return;
    }
    for (auto& [path, known] : known_)
        known.isThere = false;
    LogFiles found = findLogFiles(archiver_, LogPlaces::kAll);
    for (const LogFile& file : found.files) {
        if (file.kind == LogFile::Kind::kWorking) {
            lookAtDatabase(file, report);
            continue;
        }
        ++archives.count;
        archives.bytes += file.bytes;
        if (archives.newestDay < file.lastDay) archives.newestDay = file.lastDay;
        if (archives.oldestDay.empty() || archives.oldestDay > file.firstDay) archives.oldestDay = file.firstDay;
    }
    std::erase_if(known_, [](const auto& one) { return !one.second.isThere; });
    for (const std::string& note : found.notes)
        report.notes.push_back(note);
    report.archives = std::move(archives);
}

}  // namespace ombrel
