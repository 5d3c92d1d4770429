// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Plain SQL on the fake platform: the statements of the library and those that a test has given rows for.
#include "platform/veskdb.h"

#include <algorithm>
#include <optional>

#include "tests/fake/fake_objects.h"
#include "tests/fake/fake_platform.h"

using ombrel::test::FakeDatabase;
using ombrel::test::FakePlatform;
using Rows = std::vector<std::map<std::string, std::string>>;

namespace {

std::optional<Rows> rowsOf(FakePlatform& platform, const FakeDatabase& database, const std::string& sql) {
    if (const auto given = platform.sqlRows.find(sql); given != platform.sqlRows.end()) return given->second;
    if (sql == "SELECT COUNT(*) FROM logs") return Rows{{{"COUNT(*)", std::to_string(database.rowCount())}}};
    if (database.version != 1) return std::nullopt;
    const bool first = sql == "SELECT ldate FROM logs ORDER BY ldate ASC LIMIT 1";
    const bool last = sql == "SELECT ldate FROM logs ORDER BY ldate DESC LIMIT 1";
    if (!first && !last) return std::nullopt;
    if (database.days.empty()) return Rows{};
    const auto [least, greatest] = std::minmax_element(database.days.begin(), database.days.end());
    return Rows{{{"ldate", first ? *least : *greatest}}};
}

}  // namespace

extern "C" {

VESKDBCONN* VESKDBConnect(const char* host, const char* user, const char* password, const char* database) {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("VESKDBConnect", host, user, password, database)) return nullptr;
    FakeDatabase* found = platform.database(database);
    if (found == nullptr || !found->opens) return nullptr;
    auto* connection = new VESKDBCONN{database, found};
    platform.live.add("connection", connection);
    return connection;
}

int VESKDBExecute(VESKDBCONN* conn, const char* sql, VESKDBRESULT** result) {
    FakePlatform& platform = FakePlatform::current();
    bool fails = platform.calls.enter("VESKDBExecute", sql);
    if (!platform.live.contains("connection", conn)) {
        platform.live.misuse("a statement on a closed connection");
        return -1;
    }
    const auto rows = rowsOf(platform, *conn->database, sql);
    fails = fails || !rows;
    if (result != nullptr && (!fails || platform.failuresHandOutObjects)) {
        *result = new VESKDBRESULT{rows.value_or(Rows{})};
        platform.live.add("result", *result);
    }
    return fails ? -1 : 0;
}

int VESKDBFetchRow(VESKDBRESULT* result, int* row) {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("VESKDBFetchRow")) return -1;
    if (!platform.live.contains("result", result)) return -1;
    if (result->next >= static_cast<int>(result->rows.size())) return -1;
    *row = platform.firstRow + result->next++;
    return 0;
}

long long VESKDBNumRows(VESKDBRESULT* result) {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("VESKDBNumRows")) return -1;
    if (!platform.live.contains("result", result)) return -1;
    return static_cast<long long>(result->rows.size());
}

const char* VESKDBFetchField(VESKDBRESULT* result, int row, const char* column) {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("VESKDBFetchField", row, column)) return nullptr;
    if (!platform.live.contains("result", result)) return nullptr;
    const int index = row - platform.firstRow;
    if (index < 0 || index >= static_cast<int>(result->rows.size())) return nullptr;
    const auto& fields = result->rows[static_cast<std::size_t>(index)];
    const auto found = fields.find(column);
    return found == fields.end() ? nullptr : found->second.c_str();
}

void VESKDBFreeResult(VESKDBRESULT* result) {
    FakePlatform& platform = FakePlatform::current();
    platform.calls.note("VESKDBFreeResult");
    if (platform.live.remove("result", result)) delete result;
}

void VESKDBClose(VESKDBCONN* conn) {
    FakePlatform& platform = FakePlatform::current();
    platform.calls.note("VESKDBClose");
    // A result belongs to its connection and is gone with it on many platforms.
    if (platform.live.anyOf("result")) platform.live.misuse("a connection closed before its results");
    if (platform.live.remove("connection", conn)) delete conn;
}

}  // extern "C"
