// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel-upgrade/new_database.h"

#include <sqlite3.h>

#include <algorithm>

#include "linux/common/log_layout.h"
#include "linux/common/severity_text.h"

namespace ombrel {

namespace {

constexpr const char* kAddRow =
    "INSERT INTO logs(id,utcsec,rutcsec,utcoff,host,sender,facility,severity,program,msg)"
    " VALUES(?1,?2,?2,?3,?4,?5,?6,?7,?8,?9)";
constexpr const char* kMakeTexts =
    "CREATE TABLE IF NOT EXISTS original_texts (log_id INTEGER PRIMARY KEY, ldate TEXT, ltime TEXT, prio TEXT)";
constexpr const char* kAddTexts = "INSERT INTO original_texts(log_id,ldate,ltime,prio) VALUES(?1,?2,?3,?4)";
constexpr const char* kUpdateInfo =
    "UPDATE loginfo SET row_count=row_count+?1, first_sec=min(ifnull(first_sec,?2),?2),"
    " last_sec=max(ifnull(last_sec,?3),?3), first_day=min(ifnull(first_day,?4),?4),"
    " last_day=max(ifnull(last_day,?5),?5)";

// Pages and memory as the log writer chooses them for a busy database, and for a small one.
constexpr const char* kLargePages = "PRAGMA page_size=16384; PRAGMA cache_size=-24576";
constexpr const char* kSmallPages = "PRAGMA page_size=4096; PRAGMA cache_size=-4096";

int readRow(const Connection& connection, const char* sql, Statement& statement) {
    if (const int code = statement.prepare(connection, sql)) return code;
    const int code = statement.step();
    if (code == Statement::kRow) return SQLITE_OK;
    return code == Statement::kDone ? SQLITE_CORRUPT : code;
}

}  // namespace

int NewDatabase::open(const std::string& path, const std::string& schema, bool isLarge) {
    close();
    path_ = path;
    if (const int code = connection_.open(path, OpenMode::kCreate)) return code;
    if (const int code = connection_.execute(isLarge ? kLargePages : kSmallPages)) return code;
    if (const int code = prepareForWriting(connection_)) return code;
    if (const int code = createLogDatabase(connection_, schema)) return code;
    LogLayout layout = LogLayout::kNone;
    if (const int code = readLogLayout(connection_, layout)) return code;
    return layout == LogLayout::kVersion2 ? prepare() : SQLITE_NOTADB;
}

int NewDatabase::prepare() {
    if (const int code = addRow_.prepare(connection_, kAddRow)) return code;
    if (const int code = updateInfo_.prepare(connection_, kUpdateInfo)) return code;
    if (const int code = hosts_.prepare(connection_, "hosts")) return code;
    if (const int code = facilities_.prepare(connection_, "facilities")) return code;
    return programs_.prepare(connection_, "programs");
}

void NewDatabase::close() {
    addRow_.finalize();
    addTexts_.finalize();
    updateInfo_.finalize();
    hosts_ = NameIds();
    facilities_ = NameIds();
    programs_ = NameIds();
    noSender_ = 0;
    connection_.close();
}

int NewDatabase::readPosition(Position& position) {
    Statement count;
    if (const int code = readRow(connection_, "SELECT row_count FROM loginfo", count)) return code;
    position.rows = count.columnInt(0);
    Statement last;
    if (const int code = last.prepare(connection_, "SELECT id, utcsec FROM logs ORDER BY id DESC LIMIT 1"))
        return code;
    const int code = last.step();
    if (code == Statement::kRow) {
        position.lastId = last.columnInt(0);
        position.lastTime = last.columnInt(1);
    }
    return code == Statement::kRow || code == Statement::kDone ? SQLITE_OK : code;
}

// A number of its head that SQLite leaves to whoever uses the file. Zero again when the file is ready.
int NewDatabase::readVerified(long long& rows) {
    Statement version;
    if (const int code = readRow(connection_, "PRAGMA user_version", version)) return code;
    rows = version.columnInt(0);
    return SQLITE_OK;
}

int NewDatabase::writeVerified(long long rows) {
    return connection_.execute(("PRAGMA user_version=" + std::to_string(rows)).c_str());
}

int NewDatabase::begin() {
    totals_ = Totals();
    if (const int code = connection_.execute("BEGIN IMMEDIATE")) return code;
    if (noSender_ != 0) return SQLITE_OK;
    NameIds senders;
    if (const int code = senders.prepare(connection_, "senders")) return code;
    return senders.find(connection_, "", noSender_);
}

int NewDatabase::keepTexts(const OldRow& row, bool isExact, bool hasSeverity) {
    if (!addTexts_.isPrepared()) {
        if (const int code = connection_.execute(kMakeTexts)) return code;
        if (const int code = addTexts_.prepare(connection_, kAddTexts)) return code;
    }
    int code = addTexts_.bind(1, row.id);
    code |= isExact ? addTexts_.bindNull(2) : addTexts_.bindText(2, row.day);
    code |= isExact ? addTexts_.bindNull(3) : addTexts_.bindText(3, row.time);
    code |= hasSeverity ? addTexts_.bindNull(4) : addTexts_.bindText(4, row.priority);
    return code != SQLITE_OK ? SQLITE_NOMEM : addTexts_.run();
}

int NewDatabase::add(const OldRow& row, const RowTime& time, bool isExact) {
    long long host = 0;
    long long facility = 0;
    long long program = 0;
    if (const int code = hosts_.find(connection_, row.host, host)) return code;
    if (const int code = facilities_.find(connection_, row.facility, facility)) return code;
    if (const int code = programs_.find(connection_, row.program, program)) return code;
    const int severity = severityOfText(row.priority);
    int code = addRow_.bind(1, row.id) | addRow_.bind(2, time.utc) | addRow_.bind(3, time.offset);
    code |= addRow_.bind(4, host) | addRow_.bind(5, noSender_) | addRow_.bind(6, facility);
    code |= addRow_.bind(7, severity) | addRow_.bind(8, program) | addRow_.bindText(9, row.message);
    // A failed binding is lack of memory or a text beyond SQLite's limits.
    if (code != SQLITE_OK) return SQLITE_NOMEM;
    if (const int result = addRow_.run()) return result;
    if (!isExact || severity < 0) {
        if (const int result = keepTexts(row, isExact, severity >= 0)) return result;
    }
    ++totals_.rows;
    totals_.first = std::min(totals_.first, time.utc);
    totals_.last = std::max(totals_.last, time.utc);
    const std::string_view day = day_.of(time.utc + time.offset);
    if (totals_.firstDay.empty() || day < totals_.firstDay) totals_.firstDay = day;
    if (day > totals_.lastDay) totals_.lastDay = day;
    return SQLITE_OK;
}

int NewDatabase::writeInfo() {
    if (totals_.rows == 0) return SQLITE_OK;
    int code = updateInfo_.bind(1, totals_.rows) | updateInfo_.bind(2, totals_.first);
    code |= updateInfo_.bind(3, totals_.last) | updateInfo_.bindText(4, totals_.firstDay);
    code |= updateInfo_.bindText(5, totals_.lastDay);
    return code != SQLITE_OK ? SQLITE_NOMEM : updateInfo_.run();
}

int NewDatabase::commit() {
    if (const int code = writeInfo()) return code;
    return connection_.execute("COMMIT");
}

void NewDatabase::rollBack() {
    if (connection_.inTransaction()) (void)connection_.execute("ROLLBACK");  // closing discards it otherwise
    hosts_.forget();
    facilities_.forget();
    programs_.forget();
    noSender_ = 0;
    addTexts_.finalize();
}

int NewDatabase::addHostIndex() {
    return connection_.execute("CREATE INDEX IF NOT EXISTS logs_host_idx ON logs (host)");
}

}  // namespace ombrel
