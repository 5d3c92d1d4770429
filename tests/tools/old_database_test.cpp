// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The databases that the tests of the upgrade are made of: they hold what those tests are about.
#include "tests/support/old_database.h"

#include <gmock/gmock.h>

#include <stdexcept>
#include <string>

#include "linux/common/sqlite_db.h"
#include "tests/linux/child_process.h"

namespace ombrel::test {
namespace {

class OldDatabaseMaker : public ::testing::Test {
protected:
    std::string make(const std::string& name, const OldDatabaseOptions& options) const {
        std::string path = folder.at(name);
        makeOldDatabase(path, options);
        return path;
    }
    static long long numberOf(const std::string& path, const std::string& sql) {
        Connection connection;
        Statement statement;
        EXPECT_EQ(connection.open(path, OpenMode::kReadOnly), 0);
        EXPECT_EQ(statement.prepare(connection, sql), 0) << sql;
        EXPECT_EQ(statement.step(), Statement::kRow) << sql;
        return statement.columnInt(0);
    }

    TemporaryFolder folder;
};

TEST_F(OldDatabaseMaker, MakesTheSameFileOfTheSameSeed) {
    OldDatabaseOptions options;
    const std::string first = readBytes(make("first", options));
    EXPECT_TRUE(first == readBytes(make("again", options)));
    options.seed = 2;
    EXPECT_FALSE(first == readBytes(make("other", options)));
}

TEST_F(OldDatabaseMaker, LeavesNothingOutThatWasEverStored) {
    OldDatabaseOptions options;
    options.rows = 20'000;
    const std::string path = make("a.DB", options);
    EXPECT_EQ(numberOf(path, "SELECT count(*) FROM logs"), options.rows);
    EXPECT_GT(numberOf(path, "SELECT max(id) FROM logs"), 1LL << 33U) << "no gap that 32 bits do not hold";
    for (const char* column : {"host", "facility", "prio", "ldate", "ltime", "program", "msg"}) {
        SCOPED_TRACE(column);
        const std::string rows = std::string("SELECT count(*) FROM logs WHERE ");
        for (const char* type : {"null", "integer", "real", "blob", "text"})
            EXPECT_GT(numberOf(path, rows + "typeof(" + column + ") = '" + type + "'"), 0) << type;
        EXPECT_GT(numberOf(path, rows + column + " = ''"), 0);
    }
    for (const char* column : {"host", "facility", "program", "msg"}) {
        SCOPED_TRACE(column);
        const std::string rows = std::string("SELECT count(*) FROM logs WHERE ");
        EXPECT_GT(numberOf(path, rows + "instr(CAST(" + column + " AS BLOB), x'00')"), 0) << "no NUL";
        EXPECT_GT(numberOf(path, rows + "instr(CAST(" + column + " AS BLOB), x'1b')"), 0) << "no escape";
        EXPECT_GT(numberOf(path, rows + "instr(CAST(" + column + " AS BLOB), x'0d0a')"), 0) << "no line break";
        EXPECT_GT(numberOf(path, rows + "instr(CAST(" + column + " AS BLOB), x'ff')"), 0) << "all is UTF-8";
    }
    EXPECT_GT(numberOf(path, "SELECT count(*) FROM logs WHERE length(msg) >= 61440"), 0);
    for (const char* day : {"1970-01-01", "2036-02-07", "2024-03-31", "2024-10-27", "0000-00-00", "2024-3-5"})
        EXPECT_GT(numberOf(path, std::string("SELECT count(*) FROM logs WHERE ldate = '") + day + "'"), 0) << day;
    for (const char* severity : {"err", "error", "WARNING", "panic", "3", "8", "no severity"})
        EXPECT_GT(numberOf(path, std::string("SELECT count(*) FROM logs WHERE prio = '") + severity + "'"), 0);
}

TEST_F(OldDatabaseMaker, MakesSensibleRowsWhereTheyAreWanted) {
    OldDatabaseOptions options;
    options.rows = 20'000;
    options.plain = true;
    const std::string path = make("a.DB", options);
    EXPECT_EQ(numberOf(path, "SELECT count(*) FROM logs WHERE id BETWEEN 1 AND 20000"), options.rows);
    EXPECT_EQ(
        numberOf(path, "SELECT count(*) FROM logs WHERE datetime(ldate || ' ' || ltime) IS ldate || ' ' || ltime"),
        options.rows);
    EXPECT_EQ(numberOf(path, "SELECT count(DISTINCT host) FROM logs"), options.hosts);
    EXPECT_EQ(numberOf(path, "SELECT count(DISTINCT program) FROM logs"), options.programs);
}

TEST_F(OldDatabaseMaker, DeclaresItsColumnsAsOlderFilesDo) {
    OldDatabaseOptions options;
    options.textColumns = true;
    const std::string path = make("a.DB", options);
    EXPECT_EQ(numberOf(path, "SELECT count(*) FROM logs WHERE typeof(prio) IN ('integer', 'real')"), 0);
    EXPECT_EQ(numberOf(path, "SELECT count(*) FROM pragma_table_info('logs') WHERE type = 'TEXT'"), 7);
}

TEST_F(OldDatabaseMaker, SaysWhereItCannot) {
    EXPECT_THROW(makeOldDatabase(folder.at("no such folder/a.DB"), {}), std::runtime_error);
}

}  // namespace
}  // namespace ombrel::test
