// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Plain SQL on a log database, on every platform.
#include <gmock/gmock.h>

#include <memory>
#include <string>

#include "platform/veskdb.h"
#include "tests/contract/contract_fixture.h"

namespace ombrel::contract {
namespace {

struct ConnectionClose {
    void operator()(VESKDBCONN* connection) const noexcept { VESKDBClose(connection); }
};
struct ResultFree {
    void operator()(VESKDBRESULT* result) const noexcept { VESKDBFreeResult(result); }
};
using ConnectionHandle = std::unique_ptr<VESKDBCONN, ConnectionClose>;
using ResultHandle = std::unique_ptr<VESKDBRESULT, ResultFree>;

constexpr const char* kCount = "SELECT COUNT(*) FROM logs";
constexpr const char* kFirstDay = "SELECT ldate FROM logs ORDER BY ldate ASC LIMIT 1";
constexpr const char* kLastDay = "SELECT ldate FROM logs ORDER BY ldate DESC LIMIT 1";
constexpr long long kSqlNoon = 1709467200;  // 2024-03-03 12:00 UTC
constexpr long long kSqlDay = 24 * 60 * 60;

class PlainSql : public ContractTest {
protected:
    static ConnectionHandle connect(const std::string& path) {
        return ConnectionHandle(VESKDBConnect(nullptr, nullptr, nullptr, path.c_str()));
    }
    static ResultHandle execute(const ConnectionHandle& connection, const char* sql) {
        VESKDBRESULT* result = nullptr;
        const int code = VESKDBExecute(connection.get(), sql, &result);
        ResultHandle handle(result);
        return code < 0 ? nullptr : std::move(handle);
    }
    // The single value of a statement's first row.
    static std::string valueOf(const ConnectionHandle& connection, const char* sql, const char* column) {
        const ResultHandle result = execute(connection, sql);
        int row = -1;
        if (!result || VESKDBFetchRow(result.get(), &row) < 0) return "<no row>";
        const char* text = VESKDBFetchField(result.get(), row, column);
        return text != nullptr ? text : "<null>";
    }
    std::string threeDays() {
        const std::string path = at("old.DB");
        EXPECT_TRUE(world->makeVersion1Database(path, {{kSqlNoon + 2 * kSqlDay, 6, "b", "user", "p", "third"},
                                                       {kSqlNoon, 6, "a", "user", "p", "first"},
                                                       {kSqlNoon + kSqlDay, 6, "a", "user", "p", "second"}}))
            << world->whyNot();
        return path;
    }
};

TEST_F(PlainSql, DoesNotConnectToAMissingFileAndDoesNotMakeIt) {
    EXPECT_EQ(connect(at("none.DB")), nullptr);
    EXPECT_FALSE(world->exists(at("none.DB")));
}

TEST_F(PlainSql, DoesNotConnectToATextFile) {
    const std::string path = file("text.DB", "This is no database, however long it may be.\n");
    EXPECT_EQ(connect(path), nullptr);
    EXPECT_EQ(bytesOf(path), "This is no database, however long it may be.\n");
}

TEST_F(PlainSql, CountsTheRowsUnderTheNameOfTheExpression) {
    const ConnectionHandle connection = connect(threeDays());
    ASSERT_NE(connection, nullptr);
    const ResultHandle result = execute(connection, kCount);
    ASSERT_NE(result, nullptr);
    int row = -1;
    ASSERT_GE(VESKDBFetchRow(result.get(), &row), 0);
    EXPECT_EQ(row, 0);
    EXPECT_EQ(VESKDBNumRows(result.get()), 1);
    EXPECT_STREQ(VESKDBFetchField(result.get(), row, "COUNT(*)"), "3");
    EXPECT_LT(VESKDBFetchRow(result.get(), &row), 0);
}

TEST_F(PlainSql, CountsNoRowsAsOneRowThatSaysSo) {
    ASSERT_TRUE(world->makeVersion1Database(at("old.DB"), {})) << world->whyNot();
    const ConnectionHandle connection = connect(at("old.DB"));
    ASSERT_NE(connection, nullptr);
    const ResultHandle result = execute(connection, kCount);
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(VESKDBNumRows(result.get()), 1);
    int row = -1;
    ASSERT_GE(VESKDBFetchRow(result.get(), &row), 0);
    EXPECT_STREQ(VESKDBFetchField(result.get(), row, "COUNT(*)"), "0");
}

TEST_F(PlainSql, CountsTheRowsOfTheNewLayoutToo) {
    ASSERT_TRUE(world->makeLogDatabase(
        at("new.DB"), {{kSqlNoon, 6, "a", "user", "p", "first"}, {kSqlNoon + 1, 6, "a", "user", "p", "second"}}))
        << world->whyNot();
    const ConnectionHandle connection = connect(at("new.DB"));
    ASSERT_NE(connection, nullptr);
    EXPECT_EQ(valueOf(connection, kCount, "COUNT(*)"), "2");
}

TEST_F(PlainSql, KnowsTheNumberOfRowsBeforeAndAfterTheyAreFetched) {
    const ConnectionHandle connection = connect(threeDays());
    ASSERT_NE(connection, nullptr);
    const ResultHandle result = execute(connection, kFirstDay);
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(VESKDBNumRows(result.get()), 1);
    int row = -1;
    ASSERT_GE(VESKDBFetchRow(result.get(), &row), 0);
    EXPECT_LT(VESKDBFetchRow(result.get(), &row), 0);
    EXPECT_EQ(VESKDBNumRows(result.get()), 1);
    EXPECT_STREQ(VESKDBFetchField(result.get(), 0, "ldate"), "2024-03-03");
}

TEST_F(PlainSql, FindsTheFirstAndTheLastDay) {
    const ConnectionHandle connection = connect(threeDays());
    ASSERT_NE(connection, nullptr);
    EXPECT_EQ(valueOf(connection, kFirstDay, "ldate"), "2024-03-03");
    EXPECT_EQ(valueOf(connection, kLastDay, "ldate"), "2024-03-05");
}

TEST_F(PlainSql, FetchesNoRowFromAnEmptyTable) {
    ASSERT_TRUE(world->makeVersion1Database(at("old.DB"), {})) << world->whyNot();
    const ConnectionHandle connection = connect(at("old.DB"));
    ASSERT_NE(connection, nullptr);
    const ResultHandle result = execute(connection, kFirstDay);
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(VESKDBNumRows(result.get()), 0);
    int row = -1;
    EXPECT_LT(VESKDBFetchRow(result.get(), &row), 0);
}

TEST_F(PlainSql, HasNoFieldOfAnotherNameOrRow) {
    const ConnectionHandle connection = connect(threeDays());
    ASSERT_NE(connection, nullptr);
    const ResultHandle result = execute(connection, kCount);
    ASSERT_NE(result, nullptr);
    int row = -1;
    ASSERT_GE(VESKDBFetchRow(result.get(), &row), 0);
    EXPECT_EQ(VESKDBFetchField(result.get(), row, "count"), nullptr);
    EXPECT_EQ(VESKDBFetchField(result.get(), row + 1, "COUNT(*)"), nullptr);
    EXPECT_EQ(VESKDBFetchField(result.get(), -1, "COUNT(*)"), nullptr);
}

TEST_F(PlainSql, FailsOnAStatementThatCannotRun) {
    const ConnectionHandle connection = connect(threeDays());
    ASSERT_NE(connection, nullptr);
    EXPECT_EQ(execute(connection, "SELECT nothing FROM nowhere"), nullptr);
    EXPECT_EQ(valueOf(connection, kCount, "COUNT(*)"), "3");
}

TEST_F(PlainSql, RunsAStatementWithoutAResult) {
    const ConnectionHandle connection = connect(threeDays());
    ASSERT_NE(connection, nullptr);
    EXPECT_GE(VESKDBExecute(connection.get(), kCount, nullptr), 0);
}

TEST_F(PlainSql, RunsOneStatementAtATime) {
    if (world->isFake()) GTEST_SKIP() << "the fake knows no SQL";
    const ConnectionHandle connection = connect(threeDays());
    ASSERT_NE(connection, nullptr);
    EXPECT_EQ(execute(connection, "SELECT COUNT(*) FROM logs; DELETE FROM logs"), nullptr);
    EXPECT_EQ(execute(connection, ""), nullptr);
    EXPECT_EQ(valueOf(connection, kCount, "COUNT(*)"), "3");
}

TEST_F(PlainSql, TellsNullFromAnEmptyText) {
    if (world->isFake()) GTEST_SKIP() << "the fake knows no SQL";
    const ConnectionHandle connection = connect(threeDays());
    ASSERT_NE(connection, nullptr);
    EXPECT_EQ(valueOf(connection, "SELECT NULL AS field", "field"), "<null>");
    EXPECT_EQ(valueOf(connection, "SELECT '' AS field", "field"), "");
    EXPECT_EQ(valueOf(connection, "SELECT 2.5 AS Field", "Field"), "2.5");
}

TEST_F(PlainSql, DoesNotConnectToAnEmptyFileNorToGarbage) {
    EXPECT_EQ(connect(file("empty.DB", "")), nullptr);
    EXPECT_EQ(connect(file("garbage.DB", std::string(1000, '\x5a'))), nullptr);
    EXPECT_EQ(connect(file("head.DB", std::string("SQLite format 3\0", 16) + std::string(984, '\xff'))), nullptr);
}

}  // namespace
}  // namespace ombrel::contract
