// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/vesksyslog/select_conditions.h"

#include <sqlite3.h>

#include <array>
#include <memory>
#include <new>

#include "linux/common/severity_text.h"
#include "linux/vesksyslog/text_finder.h"

namespace ombrel {

namespace {

/// One field in both layouts; null where a layout lacks it.
struct FieldSql {
    const char* version1;  // an expression of the row
    const char* version2;
    const char* keyTable;  // version 2: the table that the expression is an id of
    bool isNumber;
};

constexpr const char* kVersion1Time = "CAST(strftime('%s', ldate || ' ' || ltime, 'utc') AS INTEGER)";

constexpr std::array<FieldSql, 8> kFields = {{
    {"host", "host", "hosts", false},
    {"program", "program", "programs", false},
    {nullptr, "sender", "senders", false},
    {"facility", "facility", "facilities", false},
    {"ombrel_severity(prio)", "severity", nullptr, true},
    {kVersion1Time, "utcsec", nullptr, true},
    {"msg", "msg", nullptr, false},
    {"rowid", "id", nullptr, true},
}};

std::string comparison(const std::string& expression, _SYSLOG_SQL_COMPARE_tag compare) {
    switch (compare) {
        case SYSLOG_SQL_EQUAL:
            return expression + " = ?";
        case SYSLOG_SQL_NOT_EQUAL:
            return expression + " <> ?";
        case SYSLOG_SQL_AT_LEAST:
            return expression + " >= ?";
        case SYSLOG_SQL_AT_MOST:
            return expression + " <= ?";
        case SYSLOG_SQL_CONTAINS:
            return "ombrel_contains(" + expression + ", ?)";
    }
    return {};
}

bool isValid(const _SYSLOG_SQL_COND_tag& condition, bool isNumber) {
    if (isNumber) return condition.compare >= SYSLOG_SQL_EQUAL && condition.compare <= SYSLOG_SQL_AT_MOST;
    return condition.compare == SYSLOG_SQL_EQUAL || condition.compare == SYSLOG_SQL_NOT_EQUAL ||
           condition.compare == SYSLOG_SQL_CONTAINS;
}

// The names are looked up once, so that each row compares a number. One name has one id at most: rows that an
// index finds by it come in the order of their own ids.
std::string keyComparison(const FieldSql& field, _SYSLOG_SQL_COMPARE_tag compare) {
    const char* sign = compare == SYSLOG_SQL_EQUAL ? " = " : compare == SYSLOG_SQL_NOT_EQUAL ? " NOT IN " : " IN ";
    return std::string(field.version2) + sign + "(SELECT id FROM " + field.keyTable + " WHERE " +
           comparison("name", compare == SYSLOG_SQL_NOT_EQUAL ? SYSLOG_SQL_EQUAL : compare) + ")";
}

std::string_view textOf(sqlite3_value* value) {
    const auto* text = reinterpret_cast<const char*>(sqlite3_value_text(value));
    if (text == nullptr) return {};
    return {text, static_cast<size_t>(sqlite3_value_bytes(value))};
}

// The bytes where they lie: asked for as a text they might be copied for a NUL behind them.
std::string_view bytesOf(sqlite3_value* value) {
    const auto size = static_cast<size_t>(sqlite3_value_bytes(value));
    const auto* bytes = static_cast<const char*>(sqlite3_value_blob(value));
    return bytes == nullptr ? std::string_view() : std::string_view(bytes, size);
}

// What is looked for is the same in each row of a statement: it is made ready once.
void containsFunction(sqlite3_context* context, int /*count*/, sqlite3_value** values) try {
    const auto* finder = static_cast<const TextFinder*>(sqlite3_get_auxdata(context, 1));
    if (finder != nullptr) {
        sqlite3_result_int(context, finder->isIn(bytesOf(values[0])) ? 1 : 0);
        return;
    }
    auto made = std::make_unique<TextFinder>(bytesOf(values[1]));
    sqlite3_result_int(context, made->isIn(bytesOf(values[0])) ? 1 : 0);
    sqlite3_set_auxdata(context, 1, made.release(), [](void* kept) { delete static_cast<TextFinder*>(kept); });
} catch (const std::bad_alloc&) {
    sqlite3_result_error_nomem(context);
}

void severityFunction(sqlite3_context* context, int /*count*/, sqlite3_value** values) {
    sqlite3_result_int(context, severityOfText(textOf(values[0])));
}

}  // namespace

bool appendConditions(LogLayout layout, const std::list<_SYSLOG_SQL_COND_tag>& conditions, std::string& sql,
                      Parameters& parameters) {
    for (const _SYSLOG_SQL_COND_tag& condition : conditions) {
        const auto index = static_cast<size_t>(condition.field);
        if (index >= kFields.size()) return false;
        const FieldSql& field = kFields[index];
        if (!isValid(condition, field.isNumber)) return false;
        const bool isVersion1 = layout == LogLayout::kVersion1;
        const char* expression = isVersion1 ? field.version1 : field.version2;
        if (expression == nullptr) return false;
        sql += " AND ";
        sql += !isVersion1 && field.keyTable != nullptr ? keyComparison(field, condition.compare)
                                                        : comparison(expression, condition.compare);
        if (field.isNumber) {
            parameters.emplace_back(condition.number);
        } else {
            parameters.emplace_back(std::string_view(condition.text));
        }
    }
    return true;
}

int addConditionFunctions(const Connection& connection) noexcept {
    constexpr int kFlags = SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_DIRECTONLY;
    if (const int code = sqlite3_create_function_v2(connection.handle(), "ombrel_contains", 2, kFlags, nullptr,
                                                    containsFunction, nullptr, nullptr, nullptr)) {
        return code;
    }
    return sqlite3_create_function_v2(connection.handle(), "ombrel_severity", 1, kFlags, nullptr, severityFunction,
                                      nullptr, nullptr, nullptr);
}

int bindAll(Statement& statement, const Parameters& parameters) noexcept {
    int index = 0;
    for (const auto& parameter : parameters) {
        ++index;
        const auto* number = std::get_if<long long>(&parameter);
        const auto* text = std::get_if<std::string_view>(&parameter);
        const int code = number != nullptr ? statement.bind(index, *number) : statement.bindText(index, *text);
        if (code != 0) return code;
    }
    return 0;
}

std::string conditionsKey(const std::list<_SYSLOG_SQL_COND_tag>& conditions) {
    std::string key;
    for (const _SYSLOG_SQL_COND_tag& condition : conditions) {
        key += std::to_string(condition.field) + ' ' + std::to_string(condition.compare) + ' ' +
               std::to_string(condition.number) + ' ' + std::to_string(condition.text.size()) + ' ' +
               condition.text + ';';
    }
    return key;
}

}  // namespace ombrel
