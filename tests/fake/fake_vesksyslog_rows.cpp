// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Row access of the fake platform.
#include <strings.h>
#include <algorithm>
#include <array>
#include <climits>

#include "platform/vesksyslog.h"
#include "tests/fake/fake_platform.h"

using ombrel::test::FakeDatabase;
using ombrel::test::FakePlatform;
using Row = _SYSLOG_LOG_DATA_tag;
using Conditions = std::list<_SYSLOG_SQL_COND_tag>;

namespace {

/// The text that an id stands for; in a version-1 database the column holds the text itself.
std::string keyText(const FakeDatabase& database, int type, const std::string& id) {
    if (database.version == 1) return id;
    const auto table = database.keys.find(type);
    if (table == database.keys.end()) return "";
    const auto found = table->second.find(std::strtoull(id.c_str(), nullptr, 10));
    return found == table->second.end() ? "" : found->second;
}

std::string textOf(const FakeDatabase& database, const Row& row, _SYSLOG_SQL_FIELD_tag field) {
    switch (field) {
        case SYSLOG_SQL_FIELD_HOST:
            return keyText(database, SYSLOG_EXTKEY_HOST, row.hostId);
        case SYSLOG_SQL_FIELD_PROGRAM:
            return keyText(database, SYSLOG_EXTKEY_PROGRAM, row.programId);
        case SYSLOG_SQL_FIELD_SENDER:
            return keyText(database, SYSLOG_EXTKEY_SENDER, row.senderId);
        case SYSLOG_SQL_FIELD_FACILITY:
            return keyText(database, SYSLOG_EXTKEY_FACILITY, row.facilityId);
        default:
            return row.message;
    }
}

std::optional<long long> numberOf(const Row& row, _SYSLOG_SQL_FIELD_tag field) {
    switch (field) {
        case SYSLOG_SQL_FIELD_SEVERITY:
            return static_cast<long long>(row.priority);
        case SYSLOG_SQL_FIELD_TIME:
            return std::strtoll(row.timestamp.c_str(), nullptr, 10);
        case SYSLOG_SQL_FIELD_ROW:
            return std::strtoll(row.rowId.c_str(), nullptr, 10);
        default:
            return std::nullopt;
    }
}

bool containsNoCase(const std::string& text, const std::string& part) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    return std::search(text.begin(), text.end(), part.begin(), part.end(),
                       [lower](char a, char b) { return lower(a) == lower(b); }) != text.end();
}

bool meets(const FakeDatabase& database, const Row& row, const _SYSLOG_SQL_COND_tag& condition) {
    if (const auto number = numberOf(row, condition.field)) {
        switch (condition.compare) {
            case SYSLOG_SQL_EQUAL:
                return *number == condition.number;
            case SYSLOG_SQL_NOT_EQUAL:
                return *number != condition.number;
            case SYSLOG_SQL_AT_LEAST:
                return *number >= condition.number;
            case SYSLOG_SQL_AT_MOST:
                return *number <= condition.number;
            default:
                return false;
        }
    }
    const std::string text = textOf(database, row, condition.field);
    switch (condition.compare) {
        case SYSLOG_SQL_EQUAL:
            return text == condition.text;
        case SYSLOG_SQL_NOT_EQUAL:
            return text != condition.text;
        case SYSLOG_SQL_CONTAINS:
            return containsNoCase(text, condition.text);
        default:
            return false;
    }
}

/// Pointers to the rows that meet all conditions, in the order asked for.
std::vector<Row*> selectRows(FakeDatabase& database, const Conditions& conditions,
                             const _SYSLOG_SQL_ORDER_tag* order) {
    std::vector<Row*> found;
    for (Row& row : database.rows) {
        if (std::all_of(conditions.begin(), conditions.end(),
                        [&](const auto& condition) { return meets(database, row, condition); })) {
            found.push_back(&row);
        }
    }
    if (order == nullptr) return found;
    if (order->column == 1) {
        std::stable_sort(found.begin(), found.end(), [](const Row* a, const Row* b) {
            return std::strtoll(a->timestamp.c_str(), nullptr, 10) <
                   std::strtoll(b->timestamp.c_str(), nullptr, 10);
        });
    }
    if (order->direction == 1) std::reverse(found.begin(), found.end());
    return found;
}

}  // namespace

int SyslogDBVersionGet(const std::string& dbPath) {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("SyslogDBVersionGet", dbPath)) return -1;
    const FakeDatabase* database = platform.database(dbPath);
    return database == nullptr ? -1 : database->version;
}

int SyslogDBExtkeyMapGet(std::string& db, _SYSLOG_EXTKEY_TB_TYPE_tag type,
                         std::map<unsigned long long, std::string>& out) {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("SyslogDBExtkeyMapGet", db, static_cast<int>(type))) return 1;
    const FakeDatabase* database = platform.database(db);
    if (database == nullptr || database->version == 1) return -1;
    const auto table = database->keys.find(type);
    if (table != database->keys.end()) out.insert(table->second.begin(), table->second.end());
    return 0;
}

int SyslogDBSelectCount(std::string& db, Conditions& conds, _SYSLOG_SQL_LIMIT_tag* limit,
                        _SYSLOG_SQL_ORDER_tag* order) {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("SyslogDBSelectCount", db, conds.size(), limit != nullptr, order != nullptr))
        return -1;
    FakeDatabase* database = platform.database(db);
    if (database == nullptr || !database->opens) return -1;
    if (conds.empty() && database->count) return static_cast<int>(*database->count);
    const std::size_t count = selectRows(*database, conds, order).size();
    return static_cast<int>(std::min<std::size_t>(count, INT_MAX));
}

int SyslogDBSelect(std::string& db, Conditions& conds, _SYSLOG_SQL_LIMIT_tag* limit, _SYSLOG_SQL_ORDER_tag* order,
                   int (*callback)(_SYSLOG_LOG_DATA_tag&, void*), void* context, bool flag) {
    FakePlatform& platform = FakePlatform::current();
    const long long rows = limit == nullptr ? -1 : limit->rows;
    const long long offset = limit == nullptr ? 0 : limit->offset;
    if (platform.calls.enter("SyslogDBSelect", db, conds.size(), rows, offset,
                             order == nullptr ? -1 : order->direction, order == nullptr ? -1 : order->column,
                             flag)) {
        return -1;
    }
    FakeDatabase* database = platform.database(db);
    if (database == nullptr || !database->opens) return -1;
    const std::vector<Row*> selected = selectRows(*database, conds, order);
    long long delivered = 0;
    for (std::size_t i = static_cast<std::size_t>(std::max(offset, 0LL)); i < selected.size(); ++i) {
        if (rows >= 0 && delivered++ >= rows) break;
        Row row = *selected[i];
        if (callback(row, context) < 0) return -1;
    }
    return 0;
}

std::string PriorTypeToStr(_SYSLOG_DB_PRIORITY_tag priority) {
    constexpr std::array<const char*, 8> kNames = {"emerg",   "alert",  "crit", "err",
                                                   "warning", "notice", "info", "debug"};
    const int number = priority;
    if (number < 0 || number >= static_cast<int>(kNames.size())) return std::to_string(number);
    return kNames[static_cast<std::size_t>(number)];
}

std::string ullNumberToString(unsigned long long value) {
    return std::to_string(value);
}
