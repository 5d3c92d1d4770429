// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The extended-key tables, and the texts of numbers.
#include <array>
#include <map>
#include <new>
#include <string>

#include "linux/common/error_record.h"
#include "linux/vesksyslog/open_log_database.h"
#include "platform/vesksyslog.h"

using ombrel::fail;
using ombrel::fromSqlite;
using ombrel::Statement;

namespace {

const char* keyTableSql(_SYSLOG_EXTKEY_TB_TYPE_tag type) {
    switch (type) {
        case SYSLOG_EXTKEY_HOST:
            return "SELECT id, name FROM hosts";
        case SYSLOG_EXTKEY_PROGRAM:
            return "SELECT id, name FROM programs";
        case SYSLOG_EXTKEY_SENDER:
            return "SELECT id, name FROM senders";
        case SYSLOG_EXTKEY_FACILITY:
            return "SELECT id, name FROM facilities";
    }
    return nullptr;
}

int readKeys(const ombrel::Connection& connection, const char* sql,
             std::map<unsigned long long, std::string>& keys) {
    Statement statement;
    if (const int code = statement.prepare(connection, sql)) return code;
    int code = statement.step();
    for (; code == Statement::kRow; code = statement.step()) {
        keys[static_cast<unsigned long long>(statement.columnInt(0))] = std::string(statement.columnText(1));
    }
    return code == Statement::kDone ? 0 : code;
}

}  // namespace

int SyslogDBExtkeyMapGet(std::string& db, _SYSLOG_EXTKEY_TB_TYPE_tag type,
                         std::map<unsigned long long, std::string>& out) try {
    const char* sql = keyTableSql(type);
    if (sql == nullptr) return fail(ombrel::kErrorInvalidArgument);
    ombrel::Connection connection;
    ombrel::LogLayout layout = ombrel::LogLayout::kNone;
    int code = ombrel::openLogFile(db, connection);
    if (code == 0) code = ombrel::requireLogDatabase(connection, layout);
    if (code != 0) return fail(code);
    if (layout == ombrel::LogLayout::kVersion1) return fail(ombrel::kErrorNotFound);
    std::map<unsigned long long, std::string> keys;
    if (const int read = readKeys(connection, sql, keys)) return fail(fromSqlite(read));
    out.swap(keys);
    return 0;
} catch (const std::bad_alloc&) {
    return fail(ombrel::kErrorOutOfMemory);
}

std::string PriorTypeToStr(_SYSLOG_DB_PRIORITY_tag priority) {
    static constexpr std::array<const char*, 8> kNames = {"emerg",   "alert",  "crit", "err",
                                                          "warning", "notice", "info", "debug"};
    const int number = priority;
    if (number < 0 || number >= static_cast<int>(kNames.size())) return std::to_string(number);
    return kNames[static_cast<size_t>(number)];
}

std::string ullNumberToString(unsigned long long value) {
    return std::to_string(value);
}
