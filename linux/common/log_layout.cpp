// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/common/log_layout.h"

#include <sqlite3.h>

namespace ombrel {

namespace {

int hasRow(Statement& statement, bool& found) {
    const int code = statement.step();
    found = code == Statement::kRow;
    return found || code == Statement::kDone ? SQLITE_OK : code;
}

int queryHasRow(const Connection& connection, const char* sql, bool& found) {
    Statement statement;
    if (const int code = statement.prepare(connection, sql)) return code;
    return hasRow(statement, found);
}

int logsHaveColumn(const Connection& connection, const char* name, bool& found) {
    Statement statement;
    if (const int code = statement.prepare(connection,
                                           "SELECT 1 FROM sqlite_schema s, pragma_table_info(s.name) c"
                                           " WHERE s.type='table' AND s.name='logs' AND c.name=?")) {
        return code;
    }
    if (const int code = statement.bindText(1, name)) return code;
    return hasRow(statement, found);
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
    bool hasDays = false;
    bool hasOffsets = false;
    bool hasInfo = false;
    if (const int code = logsHaveColumn(connection, "ldate", hasDays)) return code;
    if (const int code = logsHaveColumn(connection, "utcoff", hasOffsets)) return code;
    if (!hasDays && !hasOffsets) return SQLITE_OK;
    if (const int code = queryHasRow(
            connection, "SELECT 1 FROM sqlite_schema WHERE type='table' AND name='loginfo'", hasInfo)) {
        return code;
    }
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
