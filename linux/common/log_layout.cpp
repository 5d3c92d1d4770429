// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/common/log_layout.h"

#include <sqlite3.h>

namespace ombrel {

namespace {

int queryHasRow(const Connection& connection, const char* sql, bool& found) {
    Statement statement;
    if (const int code = statement.prepare(connection, sql)) return code;
    const int code = statement.step();
    found = code == Statement::kRow;
    return found || code == Statement::kDone ? SQLITE_OK : code;
}

// A table, or a column of it; a view is none. Each page of a selection asks, so no statement is compiled for it.
int isThere(const Connection& connection, const char* table, const char* column, bool& found) {
    const int code = sqlite3_table_column_metadata(connection.handle(), "main", table, column, nullptr, nullptr,
                                                   nullptr, nullptr, nullptr);
    found = code == SQLITE_OK;
    return code == SQLITE_ERROR ? SQLITE_OK : code;  // what it answers for one that is not there
}

int readVersion(const Connection& connection, long long& version) {
    Statement statement;
    if (const int code = statement.prepare(connection, "SELECT version FROM loginfo")) return code;
    const int code = statement.step();
    if (code == Statement::kRow) version = statement.columnInt(0);
    return code == Statement::kRow || code == Statement::kDone ? SQLITE_OK : code;
}

}  // namespace

int readLogLayout(const Connection& connection, LogLayout& layout) noexcept {
    layout = LogLayout::kNone;
    bool hasTables = false;
    bool hasDays = false;
    bool hasOffsets = false;
    bool hasInfo = false;
    // In a transaction this takes its lock, which the questions below let go again: one state answers them all.
    if (const int code = queryHasRow(connection, "SELECT 1 FROM sqlite_schema", hasTables)) return code;
    if (!hasTables) return SQLITE_OK;
    if (const int code = isThere(connection, "logs", "ldate", hasDays)) return code;
    if (const int code = isThere(connection, "logs", "utcoff", hasOffsets)) return code;
    if (!hasDays && !hasOffsets) return SQLITE_OK;
    if (const int code = isThere(connection, "loginfo", nullptr, hasInfo)) return code;
    if (!hasInfo) {
        if (hasDays) layout = LogLayout::kVersion1;
        return SQLITE_OK;
    }
    if (!hasOffsets) return SQLITE_OK;
    long long version = 0;
    if (const int code = readVersion(connection, version)) return code;
    if (version == 2) layout = LogLayout::kVersion2;
    return SQLITE_OK;
}

int readOriginalTexts(const Connection& connection, bool& found) noexcept {
    // Without its key a row could have the texts of several.
    int isKey = 0;
    const int code = sqlite3_table_column_metadata(connection.handle(), "main", "original_texts", "log_id",
                                                   nullptr, nullptr, nullptr, &isKey, nullptr);
    found = code == SQLITE_OK && isKey != 0;
    return code == SQLITE_ERROR ? SQLITE_OK : code;  // what it answers for a table that is not there
}

int prepareForWriting(Connection& connection) noexcept {
    {
        Statement mode;
        if (const int code = mode.prepare(connection, "PRAGMA journal_mode=TRUNCATE")) return code;
        if (const int code = mode.step(); code != Statement::kRow) return code;
        // A database in WAL mode that others have open keeps it, and says so only by this answer.
        if (mode.columnText(0) != "truncate") return SQLITE_BUSY;
    }
    return connection.execute("PRAGMA synchronous=FULL");
}

int leaveWal(Connection& connection) noexcept {
    Statement mode;
    if (const int code = mode.prepare(connection, "PRAGMA journal_mode")) return code;
    if (const int code = mode.step(); code != Statement::kRow) return code;
    if (mode.columnText(0) != "wal") return SQLITE_OK;
    if (const int code = mode.prepare(connection, "PRAGMA journal_mode=DELETE")) return code;
    if (const int code = mode.step(); code != Statement::kRow) return code;
    return mode.columnText(0) == "delete" ? SQLITE_OK : SQLITE_BUSY;
}

int createLogDatabase(Connection& connection, const std::string& schemaText) noexcept {
    Transaction transaction(connection);
    const int begun = transaction.beginImmediate();
    if (connection.isOpen() && connection.hasMoved()) return SQLITE_READONLY_DBMOVED;
    if (begun != SQLITE_OK) return begun;
    bool hasTables = false;
    if (const int code = queryHasRow(connection, "SELECT 1 FROM sqlite_schema", hasTables)) return code;
    if (hasTables) return SQLITE_OK;
    if (const int code = connection.execute(schemaText.c_str())) return code;
    return transaction.commit();
}

}  // namespace ombrel
