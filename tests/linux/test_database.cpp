// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tests/linux/test_database.h"

#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "tests/linux/child_process.h"

namespace ombrel::test {

namespace {

std::string codeText(int code) {
    return '<' + std::to_string(code) + '>';
}

int addRowsAndDie(const std::string& path) {
    Connection connection;
    if (connection.open(path, OpenMode::kReadWrite) != 0) return 1;
    const char* sql =
        "PRAGMA journal_mode=TRUNCATE; PRAGMA cache_size=5; BEGIN IMMEDIATE;"
        "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 2000)"
        " INSERT INTO logs(utcsec, rutcsec, utcoff, host, sender, facility, severity, program, msg)"
        " SELECT 1, 1, 0, 1, 1, 1, 6, 1, 'never committed ' || i FROM n";
    if (connection.execute(sql) != 0) return 2;
    return ::kill(::getpid(), SIGKILL);
}

}  // namespace

std::vector<contract::Row> rowsOf(const std::vector<std::string>& messages) {
    constexpr long long kNoon = 1709467200;  // 2024-03-03 12:00 UTC
    std::vector<contract::Row> rows;
    for (const std::string& message : messages) {
        rows.push_back({kNoon + static_cast<long long>(rows.size()), 6, "host7", "local0", "sshd", message});
    }
    return rows;
}

void makeDatabase(const std::string& path, const std::vector<std::string>& messages) {
    contract::makeLinuxLogDatabase(path, rowsOf(messages));
}

std::vector<std::string> messagesOf(const std::string& path) {
    Connection connection;
    Statement statement;
    int code = connection.open(path, OpenMode::kReadWrite);
    if (code == 0) code = statement.prepare(connection, "SELECT msg FROM logs ORDER BY id");
    if (code != 0) return {codeText(code)};
    std::vector<std::string> messages;
    for (code = statement.step(); code == Statement::kRow; code = statement.step())
        messages.emplace_back(statement.columnText(0));
    if (code != Statement::kDone) return {codeText(code)};
    return messages;
}

std::string valueOf(const Connection& connection, const char* sql) {
    Statement statement;
    int code = statement.prepare(connection, sql);
    if (code == 0) code = statement.step();
    return code == Statement::kRow ? std::string(statement.columnText(0)) : codeText(code);
}

std::string integrityOf(const std::string& path) {
    Connection connection;
    const int code = connection.open(path, OpenMode::kReadWrite);
    return code == 0 ? valueOf(connection, "PRAGMA integrity_check") : codeText(code);
}

bool leaveHotJournal(const std::string& path) {
    if (runInChild([&] { return addRowsAndDie(path); }) != 128 + SIGKILL) return false;
    std::error_code failure;
    return std::filesystem::file_size(path + "-journal", failure) > 0 && !failure;
}

}  // namespace ombrel::test
