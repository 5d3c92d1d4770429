// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Real log databases with given rows, in both layouts.
#include <cstdio>
#include <ctime>
#include <fstream>
#include <iterator>
#include <map>
#include <stdexcept>
#include <string>

#include "linux/common/log_layout.h"
#include "linux/common/sqlite_db.h"
#include "tests/contract/linux_makers.h"

namespace ombrel::contract {

namespace {

void require(int code, const Connection& connection) {
    if (code != 0) throw std::runtime_error(std::string("cannot make a database: ") + connection.lastMessage());
}

std::tm localTime(long long seconds) {
    const auto moment = static_cast<std::time_t>(seconds);
    std::tm local{};
    if (::localtime_r(&moment, &local) == nullptr) throw std::runtime_error("no such time");
    return local;
}

std::string formatted(long long seconds, const char* format) {
    const std::tm local = localTime(seconds);
    char text[32];
    if (std::strftime(text, sizeof text, format, &local) == 0) throw std::runtime_error("no such time");
    return text;
}

std::string schemaText() {
    std::ifstream in(OMBREL_SCHEMA_FILE, std::ios::binary);
    if (!in) throw std::runtime_error("no schema at " OMBREL_SCHEMA_FILE);
    return {std::istreambuf_iterator<char>(in), {}};
}

/// Ids are given in order of appearance, from 1.
class KeyTable {
public:
    KeyTable(Connection& connection, const std::string& table) : connection_(connection) {
        require(insert_.prepare(connection, "INSERT INTO " + table + " VALUES(?, ?)"), connection);
    }
    long long idOf(const std::string& text) {
        const auto [entry, isNew] = ids_.try_emplace(text, static_cast<long long>(ids_.size()) + 1);
        if (isNew) {
            require(insert_.bind(1, entry->second), connection_);
            require(insert_.bindText(2, text), connection_);
            require(insert_.run(), connection_);
        }
        return entry->second;
    }

private:
    Connection& connection_;
    Statement insert_;
    std::map<std::string, long long> ids_;
};

constexpr const char* kUpdateInfo =
    "UPDATE loginfo SET row_count = (SELECT COUNT(*) FROM logs), first_sec = (SELECT MIN(utcsec) FROM logs),"
    " last_sec = (SELECT MAX(utcsec) FROM logs), first_day ="
    " (SELECT date(MIN(utcsec + utcoff), 'unixepoch') FROM logs),"
    " last_day = (SELECT date(MAX(utcsec + utcoff), 'unixepoch') FROM logs)";

void addVersion2Rows(Connection& connection, const std::vector<Row>& rows) {
    KeyTable hosts(connection, "hosts");
    KeyTable programs(connection, "programs");
    KeyTable senders(connection, "senders");
    KeyTable facilities(connection, "facilities");
    Statement insert;
    require(insert.prepare(connection,
                           "INSERT INTO logs(utcsec, rutcsec, utcoff, host, sender, facility, severity,"
                           " program, pid, msgid, msg) VALUES(?,?,?,?,?,?,?,?,?,?,?)"),
            connection);
    for (const Row& row : rows) {
        int code = insert.bind(1, row.time);
        code |= insert.bind(2, row.receiveTime == 0 ? row.time : row.receiveTime);
        code |= insert.bind(3, localTime(row.time).tm_gmtoff);
        code |= insert.bind(4, hosts.idOf(row.host));
        code |= insert.bind(5, senders.idOf(row.sender));
        code |= insert.bind(6, facilities.idOf(row.facility));
        code |= insert.bind(7, row.severity);
        code |= insert.bind(8, programs.idOf(row.program));
        code |= insert.bindText(9, row.processId);
        code |= insert.bindText(10, row.messageId);
        code |= insert.bindText(11, row.message);
        require(code, connection);
        require(insert.run(), connection);
    }
}

void addVersion1Rows(Connection& connection, const std::vector<Row>& rows) {
    Statement insert;
    require(insert.prepare(connection,
                           "INSERT INTO logs(host, facility, prio, ldate, ltime, program, msg)"
                           " VALUES(?,?,?,?,?,?,?)"),
            connection);
    for (const Row& row : rows) {
        const std::string severity = std::to_string(row.severity);
        const std::string day = formatted(row.time, "%Y-%m-%d");
        const std::string time = formatted(row.time, "%H:%M:%S");
        int code = insert.bindText(1, row.host);
        code |= insert.bindText(2, row.facility);
        code |= insert.bindText(3, severity);
        code |= insert.bindText(4, day);
        code |= insert.bindText(5, time);
        code |= insert.bindText(6, row.program);
        code |= insert.bindText(7, row.message);
        require(code, connection);
        require(insert.run(), connection);
    }
}

}  // namespace

void makeLinuxLogDatabase(const std::string& path, const std::vector<Row>& rows) {
    (void)std::remove(path.c_str());  // usually there is none
    Connection connection;
    require(connection.open(path, OpenMode::kCreate), connection);
    require(prepareForWriting(connection), connection);
    require(connection.execute("PRAGMA synchronous=OFF"), connection);
    require(createLogDatabase(connection, schemaText()), connection);
    Transaction transaction(connection);
    require(transaction.beginImmediate(), connection);
    addVersion2Rows(connection, rows);
    require(connection.execute(kUpdateInfo), connection);
    require(transaction.commit(), connection);
}

void makeLinuxVersion1Database(const std::string& path, const std::vector<Row>& rows) {
    (void)std::remove(path.c_str());  // usually there is none
    Connection connection;
    require(connection.open(path, OpenMode::kCreate), connection);
    Transaction transaction(connection);
    require(transaction.beginImmediate(), connection);
    require(connection.execute("CREATE TABLE logs(id INTEGER PRIMARY KEY, host TEXT, facility TEXT, prio TEXT,"
                               " ldate TEXT, ltime TEXT, program TEXT, msg TEXT)"),
            connection);
    addVersion1Rows(connection, rows);
    require(transaction.commit(), connection);
}

}  // namespace ombrel::contract
