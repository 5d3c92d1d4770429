// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tests/support/old_database.h"

#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "linux/common/sqlite_db.h"
#include "tests/support/old_database_values.h"

namespace ombrel::test {

namespace {

constexpr std::size_t kLongMessage = 61'440;
constexpr long long kRowsPerSecond = 8;
constexpr std::int64_t kFirstMoment =
    1'700'006'400;  // 2023-11-15 00:00:00: no clock is changed in the weeks after it
constexpr long long kGreatGap = 1LL << 33U;

enum Column : std::size_t { kHost, kFacility, kSeverity, kDay, kTime, kProgram, kMessage, kColumns };
using Row = std::array<OldValue, kColumns>;

void demand(int code, const std::string& path, const char* what) {
    if (code != 0) throw std::runtime_error(path + ": " + what + ": " + sqlite3_errstr(code));
}

class RowMaker {
public:
    explicit RowMaker(const OldDatabaseOptions& options) : options_(options), chance_(options.seed) {}

    /// Fills `row` and returns its id.
    long long next(Row& row) {
        std::int64_t wall = kFirstMoment + made_ / kRowsPerSecond;
        ++id_;
        makeSensible(row);
        if (!options_.plain) {
            if (chance_.oneIn(30)) id_ += 1 + static_cast<long long>(chance_.below(1000));
            if (made_ == options_.rows / 2) id_ += kGreatGap;
            wall = unsteady(wall);
        }
        makeDay(row[kDay], wall, day_);
        makeTime(row[kTime], wall);
        if (!options_.plain) spoil(row);
        ++made_;
        return id_;
    }

private:
    void makeSensible(Row& row) {
        static constexpr std::string_view kFacilities[] = {"kern", "user",   "mail",   "daemon", "auth",  "syslog",
                                                           "cron", "local0", "local1", "local4", "local7"};
        static constexpr std::string_view kSeverities[] = {"info", "info", "notice", "err", "warning", "debug"};
        row[kHost].setText("host-");
        row[kHost].bytes += std::to_string(chance_.below(static_cast<std::uint64_t>(options_.hosts)));
        row[kFacility].setText(chance_.oneOf(kFacilities));
        row[kSeverity].setText(chance_.oneOf(kSeverities));
        row[kProgram].setText("daemon");
        row[kProgram].bytes += std::to_string(chance_.below(static_cast<std::uint64_t>(options_.programs)));
        makeMessage(row[kMessage]);
    }

    void makeMessage(OldValue& message) {
        message.setText("session opened for user backup by (uid=0) from 192.0.2.");
        message.bytes += std::to_string(chance_.below(250));
        message.bytes += " number ";
        message.bytes += std::to_string(made_);
        message.bytes += ' ';
        const auto wanted = static_cast<std::size_t>(std::max(0, options_.messageBytes));
        if (message.bytes.size() < wanted) message.bytes.append(wanted - message.bytes.size(), '.');
    }

    std::int64_t unsteady(std::int64_t wall) {
        switch (chance_.below(40)) {
            case 0:
                return wrongClock(chance_);
            case 1:
                return clockChange(chance_);
            case 2:
                return wall - 5 * kDaySeconds + static_cast<std::int64_t>(chance_.below(10 * kDaySeconds));
            default:
                return wall;
        }
    }

    void spoil(Row& row) {
        makeSeverity(row[kSeverity], chance_);
        for (const Column column : {kHost, kFacility, kProgram, kMessage})
            if (chance_.oneIn(25)) makeOdd(row[column], chance_);
        if (chance_.oneIn(40)) makeOddDay(row[kDay], chance_);
        if (chance_.oneIn(40)) makeOddTime(row[kTime], chance_);
        if (options_.longMessageEvery > 0 &&
            chance_.oneIn(static_cast<std::uint64_t>(options_.longMessageEvery))) {
            makeMessage(row[kMessage]);
            row[kMessage].bytes.append(kLongMessage - row[kMessage].bytes.size(), '+');
        }
    }

    const OldDatabaseOptions& options_;
    Chance chance_;
    DayText day_;
    long long made_ = 0;
    long long id_ = 0;
};

int bind(Statement& insert, int index, const OldValue& value) {
    switch (value.kind) {
        case OldValue::Kind::kText:
            return insert.bindText(index, value.bytes);
        case OldValue::Kind::kBlob:
            return insert.bindBlob(index, value.bytes);
        case OldValue::Kind::kInteger:
            return insert.bind(index, value.number);
        case OldValue::Kind::kReal:
            return sqlite3_bind_double(insert.handle(), index, value.real);
        case OldValue::Kind::kNull:
            break;
    }
    return insert.bindNull(index);
}

void fill(Connection& connection, const std::string& path, const OldDatabaseOptions& options) {
    Statement insert;
    demand(insert.prepare(connection, "INSERT INTO logs VALUES (?, ?, ?, ?, ?, ?, ?, ?)"), path, "prepare");
    RowMaker maker(options);
    Row row;
    for (long long i = 0; i < options.rows; ++i) {
        demand(insert.bind(1, maker.next(row)), path, "bind");
        for (std::size_t column = 0; column < kColumns; ++column)
            demand(bind(insert, static_cast<int>(column) + 2, row[column]), path, "bind");
        demand(insert.run(), path, "insert");
    }
}

}  // namespace

void makeOldDatabase(const std::string& path, const OldDatabaseOptions& options) {
    if (options.hosts < 1 || options.programs < 1)
        throw std::runtime_error("no hosts or no programs to choose from");
    if (unlink(path.c_str()) != 0 && errno != ENOENT) throw std::runtime_error(path + ": " + std::strerror(errno));
    Connection connection;
    demand(connection.open(path, OpenMode::kCreate), path, "open");
    demand(connection.execute("PRAGMA journal_mode=OFF; PRAGMA synchronous=OFF; BEGIN"), path, "begin");
    demand(
        connection.execute(options.textColumns
                               ? "CREATE TABLE logs(id INTEGER PRIMARY KEY, host TEXT, facility TEXT, prio TEXT,"
                                 " ldate TEXT, ltime TEXT, program TEXT, msg TEXT)"
                               : "CREATE TABLE logs(id INTEGER PRIMARY KEY, host, facility, prio, ldate, ltime,"
                                 " program, msg)"),
        path, "schema");
    fill(connection, path, options);
    demand(connection.execute("COMMIT"), path, "commit");
}

}  // namespace ombrel::test
