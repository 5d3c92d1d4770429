// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The handle of one log database. The probes read the information record alone, never the rows.
#include <sqlite3.h>

#include <algorithm>
#include <new>
#include <string>
#include <string_view>

#include "linux/common/error_record.h"
#include "linux/vesksyslog/open_log_database.h"
#include "platform/vesksyslog.h"

using ombrel::fail;
using ombrel::fromSqlite;

// Data alone: a function of this record would be exported with its class.
struct DBHandler::Impl {
    std::string path;
    ombrel::Connection connection;
    ombrel::LogLayout layout = ombrel::LogLayout::kNone;
};

namespace {

constexpr const char* kNoDay = "1970-01-01";

using ombrel::LogLayout;
using ombrel::Statement;

// The statement stands on the information record afterwards. Version 1 has none, and that is no failure.
bool stepOntoInfo(const DBHandler::Impl& impl, const char* sql, Statement& statement) {
    if (impl.layout != LogLayout::kVersion2) return false;
    int code = statement.prepare(impl.connection, sql);
    if (code == 0) code = statement.step();
    if (code != Statement::kRow) (void)fail(fromSqlite(code));
    return code == Statement::kRow;
}

long long infoNumber(const DBHandler::Impl& impl, const char* sql, long long otherwise) {
    Statement statement;
    return stepOntoInfo(impl, sql, statement) ? statement.columnInt(0) : otherwise;
}

bool isDay(std::string_view text) {
    constexpr std::string_view kPattern = "dddd-dd-dd";
    return std::equal(text.begin(), text.end(), kPattern.begin(), kPattern.end(),
                      [](char c, char p) { return p == 'd' ? c >= '0' && c <= '9' : c == p; });
}

// Archives are named by these days, and a file from elsewhere may hold any text: nothing but a day leaves here.
std::string infoDay(const DBHandler::Impl& impl, const char* sql) {
    Statement statement;
    if (!stepOntoInfo(impl, sql, statement) || !isDay(statement.columnText(0))) return kNoDay;
    return std::string(statement.columnText(0));
}

}  // namespace

// The schema is what the log writer makes new databases from; this handle makes none.
DBHandler::DBHandler(std::string dbPath, std::string /*schemaPath*/) : impl(new Impl) {
    impl->path = std::move(dbPath);
}

DBHandler::~DBHandler() {
    delete impl;
}

int DBHandler::DBCon() {
    (void)DBDiscon();  // a second connection replaces the first
    int code = ombrel::openLogFile(impl->path, impl->connection);
    if (code == 0) code = ombrel::requireLogDatabase(impl->connection, impl->layout);
    if (code == 0) return 0;
    (void)DBDiscon();
    return fail(code);
}

int DBHandler::DBDiscon() {
    impl->layout = LogLayout::kNone;
    impl->connection.close();
    return 0;
}

long long DBHandler::DBInfoStartGet() {
    return infoNumber(*impl, "SELECT first_sec FROM loginfo", 0);
}

long long DBHandler::DBInfoEndGet() {
    return infoNumber(*impl, "SELECT last_sec FROM loginfo", 0);
}

long long DBHandler::DBInfoCntGet() {
    return infoNumber(*impl, "SELECT row_count FROM loginfo", -1);
}

std::string DBHandler::DBInfoStartStrGet() {
    return infoDay(*impl, "SELECT first_day FROM loginfo");
}

std::string DBHandler::DBInfoEndStrGet() {
    return infoDay(*impl, "SELECT last_day FROM loginfo");
}

int DBHandler::DBTranStart() {
    // SQLite would begin a reading transaction and fail only at the first change.
    if (impl->connection.isReadOnly()) return fail(fromSqlite(SQLITE_READONLY));
    // Taking the write lock now: two transactions that both read first could never both go on.
    const int code = impl->connection.execute("BEGIN IMMEDIATE");
    if (code != 0) return fail(fromSqlite(code));
    if (!impl->connection.hasMoved()) return 0;
    // The journal would stand beside the old name, where nobody looks for it after a crash.
    (void)impl->connection.execute("ROLLBACK");  // nothing was written
    return fail(ombrel::kErrorNotFound);
}

int DBHandler::DBTranEnd() {
    const int code = impl->connection.execute("COMMIT");
    return code == 0 ? 0 : fail(fromSqlite(code));
}

int DBHandler::DBExecute(std::string sql) {
    Statement statement;
    int code = statement.prepare(impl->connection, sql);
    if (code == 0) code = statement.run();
    return code == 0 ? 0 : fail(fromSqlite(code));
}

int SyslogDBVersionGet(const std::string& dbPath) {
    ombrel::Connection connection;
    LogLayout layout = LogLayout::kNone;
    int code = ombrel::openLogFile(dbPath, connection);
    if (code == 0) code = ombrel::requireLogDatabase(connection, layout);
    if (code != 0) return fail(code);
    return layout == LogLayout::kVersion1 ? 1 : 2;
}
