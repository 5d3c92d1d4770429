// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel-upgrade/old_database.h"

#include <sqlite3.h>

#include "linux/common/log_layout.h"
#include "linux/common/text_escape.h"

namespace ombrel {

namespace {

constexpr const char* kColumns = "SELECT rowid, host, facility, prio, ldate, ltime, program, msg FROM logs";

// Everything that is neither the rows nor made of them by SQLite or the archiver. An `id` that is not the number
// of its row in the file is lost with it.
constexpr const char* kOthers =
    "SELECT type || ' ' || name FROM sqlite_schema WHERE name NOT LIKE 'sqlite\\_%' ESCAPE '\\' AND name <> 'logs'"
    " AND (type <> 'index' OR tbl_name <> 'logs')"
    " UNION ALL SELECT 'column ' || name FROM pragma_table_xinfo('logs')"
    " WHERE name NOT IN ('id', 'host', 'facility', 'prio', 'ldate', 'ltime', 'program', 'msg')"
    " OR name = 'id' AND (type <> 'INTEGER' COLLATE NOCASE OR pk = 0"
    " OR (SELECT max(pk) FROM pragma_table_info('logs')) > 1)";

std::string cannotReadDatabase(const std::string& path, int code) {
    std::string text = "cannot read " + path + ": " + sqlite3_errstr(code);
    if ((code & 0xff) == SQLITE_BUSY) text += " (another program has it; run this again)";
    return text;
}

}  // namespace

std::string movedMeanwhile(const std::string& path) {
    return path + " was moved meanwhile; run this again, it goes on where the file is now";
}

std::string OldDatabase::open(const std::string& path) {
    path_ = path;
    rest();
    if (const int code = connection_.open(path, OpenMode::kReadWrite)) return cannotReadDatabase(path, code);
    return look();
}

std::string OldDatabase::look() {
    LogLayout layout = LogLayout::kNone;
    if (const int code = readLogLayout(connection_, layout)) return cannotReadDatabase(path_, code);
    if (layout == LogLayout::kVersion2) return path_ + " has the current layout already";
    if (layout == LogLayout::kNone) return path_ + " is no log database";
    if (const int code = lookForOthers()) return cannotReadDatabase(path_, code);
    // Each page is read once: memory that stays in the processor's cache is faster than more of it.
    (void)connection_.execute("PRAGMA cache_size=-256");
    const std::string columns = kColumns;
    int code = first_.prepare(connection_, columns + " ORDER BY rowid LIMIT ?2");
    if (code == 0) code = behind_.prepare(connection_, columns + " WHERE rowid > ?1 ORDER BY rowid LIMIT ?2");
    return code == 0 ? std::string() : "cannot read " + path_ + ": " + connection_.lastMessage();
}

int OldDatabase::lookForOthers() {
    foreign_.clear();
    Statement others;
    if (const int code = others.prepare(connection_, kOthers)) return code;
    int code = others.step();
    for (; code == Statement::kRow; code = others.step())
        foreign_ += (foreign_.empty() ? "" : ", ") + escapeForLine(others.columnText(0));
    if (code != Statement::kDone) return code;
    Statement index;
    code = index.prepare(connection_, "SELECT 1 FROM sqlite_schema WHERE type='index' AND name='logs_host_idx'");
    if (code != 0) return code;
    code = index.step();
    hasHostIndex_ = code == Statement::kRow;
    return hasHostIndex_ || code == Statement::kDone ? SQLITE_OK : code;
}

std::optional<long long> OldDatabase::version() {
    Statement version;
    if (version.prepare(connection_, "PRAGMA data_version") != 0) return std::nullopt;
    if (version.step() != Statement::kRow) return std::nullopt;
    return version.columnInt(0);
}

int OldDatabase::seek(std::optional<long long> id, long long rows) {
    rest();
    rows_ = id ? &behind_ : &first_;
    if (const int code = rows_->bind(2, rows)) return code;
    return id ? rows_->bind(1, *id) : SQLITE_OK;
}

int OldDatabase::next(OldRow& row) {
    const int code = rows_->step();
    if (code != Statement::kRow) {
        rest();
        return code;
    }
    row.id = rows_->columnInt(0);
    row.host = rows_->columnBytes(1);
    row.facility = rows_->columnBytes(2);
    row.priority = rows_->columnBytes(3);
    row.day = rows_->columnBytes(4);
    row.time = rows_->columnBytes(5);
    row.program = rows_->columnBytes(6);
    row.message = rows_->columnBytes(7);
    return code;
}

void OldDatabase::rest() noexcept {
    if (rows_ != nullptr) rows_->reset();
}

}  // namespace ombrel
