// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Plain SQL on one database file, by SQLite. A result holds all its rows, so that it outlives the lock on
// the file: the callers ask for single values.
#include "platform/veskdb.h"

#include <sqlite3.h>

#include <algorithm>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "linux/common/error_record.h"
#include "linux/common/sqlite_db.h"

using ombrel::fail;
using ombrel::fromSqlite;

struct VESKDBCONN {
    ombrel::Connection connection;
};

struct VESKDBRESULT {
    using Row = std::vector<std::optional<std::string>>;

    std::vector<std::string> columns;
    std::vector<Row> rows;
    size_t fetched = 0;
};

namespace {

// SQLite takes an empty file for an empty database; nothing that was ever written is one.
int checkIsDatabase(const ombrel::Connection& connection) {
    ombrel::Statement statement;
    if (const int code = statement.prepare(connection, "PRAGMA page_count")) return fail(fromSqlite(code));
    if (const int code = statement.step(); code != ombrel::Statement::kRow) return fail(fromSqlite(code));
    if (statement.columnInt(0) == 0) return fail(fromSqlite(SQLITE_NOTADB));
    // page_count reads the size alone where it can; this reads the head of the file.
    if (const int code = statement.prepare(connection, "SELECT COUNT(*) FROM sqlite_schema")) {
        return fail(fromSqlite(code));
    }
    const int code = statement.run();
    return code == 0 ? 0 : fail(fromSqlite(code));
}

int readRows(ombrel::Statement& statement, VESKDBRESULT& result) {
    const int columns = statement.columnCount();
    for (int i = 0; i < columns; ++i) {
        const char* name = statement.columnName(i);
        if (name == nullptr) throw std::bad_alloc();
        result.columns.emplace_back(name);
    }
    int code = statement.step();
    for (; code == ombrel::Statement::kRow; code = statement.step()) {
        VESKDBRESULT::Row& row = result.rows.emplace_back(static_cast<size_t>(columns));
        for (int i = 0; i < columns; ++i) {
            if (!statement.columnIsNull(i)) row[static_cast<size_t>(i)] = std::string(statement.columnText(i));
        }
    }
    return code == ombrel::Statement::kDone ? 0 : code;
}

}  // namespace

extern "C" {

VESKDBCONN* VESKDBConnect(const char* /*host*/, const char* /*user*/, const char* /*password*/,
                          const char* database) try {
    if (database == nullptr || *database == '\0') {
        (void)fail(ombrel::kErrorInvalidArgument);
        return nullptr;
    }
    auto conn = std::make_unique<VESKDBCONN>();
    if (const int code = conn->connection.open(database, ombrel::OpenMode::kReadWrite)) {
        (void)fail(fromSqlite(code));
        return nullptr;
    }
    if (checkIsDatabase(conn->connection) < 0) return nullptr;
    return conn.release();
} catch (const std::bad_alloc&) {
    (void)fail(ombrel::kErrorOutOfMemory);
    return nullptr;
}

int VESKDBExecute(VESKDBCONN* conn, const char* sql, VESKDBRESULT** result) try {
    if (conn == nullptr || sql == nullptr) return fail(ombrel::kErrorInvalidArgument);
    ombrel::Statement statement;
    if (const int code = statement.prepare(conn->connection, sql)) return fail(fromSqlite(code));
    if (result == nullptr) {
        const int code = statement.run();
        return code == 0 ? 0 : fail(fromSqlite(code));
    }
    auto filled = std::make_unique<VESKDBRESULT>();
    if (const int code = readRows(statement, *filled)) return fail(fromSqlite(code));
    *result = filled.release();
    return 0;
} catch (const std::bad_alloc&) {
    return fail(ombrel::kErrorOutOfMemory);
}

int VESKDBFetchRow(VESKDBRESULT* result, int* row) {
    if (result == nullptr || row == nullptr) return fail(ombrel::kErrorInvalidArgument);
    if (result->fetched >= result->rows.size()) return fail(ombrel::kErrorNotFound);
    *row = static_cast<int>(result->fetched++);
    return 0;
}

long long VESKDBNumRows(VESKDBRESULT* result) {
    return result != nullptr ? static_cast<long long>(result->rows.size()) : 0;
}

const char* VESKDBFetchField(VESKDBRESULT* result, int row, const char* column) {
    if (result == nullptr || column == nullptr || row < 0) return nullptr;
    const auto rowIndex = static_cast<size_t>(row);
    const auto name = std::find(result->columns.begin(), result->columns.end(), column);
    if (rowIndex >= result->rows.size() || name == result->columns.end()) return nullptr;
    const auto& field = result->rows[rowIndex][static_cast<size_t>(name - result->columns.begin())];
    return field ? field->c_str() : nullptr;
}

void VESKDBFreeResult(VESKDBRESULT* result) {
    delete result;
}

void VESKDBClose(VESKDBCONN* conn) {
    delete conn;
}

}  // extern "C"
