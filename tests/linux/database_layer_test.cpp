// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The layer over SQLite and the test for a log database.
#include <gmock/gmock.h>
#include <sqlite3.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "linux/common/log_layout.h"
#include "linux/common/sqlite_db.h"
#include "tests/linux/child_process.h"
#include "tests/linux/test_database.h"

namespace ombrel {
namespace {

using test::integrityOf;
using test::makeDatabase;
using test::messagesOf;
using test::TemporaryFolder;
using test::valueOf;
using ::testing::ElementsAre;

class DatabaseLayer : public ::testing::Test {
protected:
    void open(OpenMode mode) { ASSERT_EQ(connection.open(path, mode), 0); }

    TemporaryFolder folder;
    std::string path = folder.at("file.DB");
    Connection connection;
};

TEST_F(DatabaseLayer, OpensNoMissingFileUnlessToldToMakeIt) {
    EXPECT_EQ(connection.open(path, OpenMode::kReadWrite), SQLITE_CANTOPEN);
    EXPECT_FALSE(connection.isOpen());
    EXPECT_EQ(connection.open(path, OpenMode::kReadOnly), SQLITE_CANTOPEN);
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_EQ(connection.open(path, OpenMode::kCreate), 0);
}

TEST_F(DatabaseLayer, TakesAPathForAPath) {
    ASSERT_EQ(::chdir(folder.path().c_str()), 0);
    for (const std::string name : {":memory:", "file:other?mode=memory", "plain"}) {
        ASSERT_EQ(connection.open(name, OpenMode::kCreate), 0);
        ASSERT_EQ(connection.execute("CREATE TABLE t(x)"), 0);
        EXPECT_TRUE(std::filesystem::exists(folder.at(name))) << name;
    }
    EXPECT_NE(connection.open("", OpenMode::kCreate), 0);
    EXPECT_NE(connection.open(std::string("a\0b", 3), OpenMode::kCreate), 0);
    ASSERT_EQ(::chdir("/"), 0);
}

TEST_F(DatabaseLayer, PreparesExactlyOneStatement) {
    open(OpenMode::kCreate);
    Statement statement;
    EXPECT_EQ(statement.prepare(connection, "SELECT 1"), 0);
    EXPECT_EQ(statement.prepare(connection, "SELECT 1; \n"), 0);
    EXPECT_NE(statement.prepare(connection, "SELECT 1; SELECT 2"), 0);
    EXPECT_FALSE(statement.isPrepared());
    EXPECT_NE(statement.prepare(connection, ""), 0);
    EXPECT_NE(statement.prepare(connection, "-- nothing"), 0);
    EXPECT_NE(statement.prepare(connection, std::string_view("SELECT 1\0; DROP TABLE t", 23)), 0);
    EXPECT_NE(statement.prepare(Connection(), "SELECT 1"), 0);
    EXPECT_NE(statement.step(), Statement::kRow);
}

TEST_F(DatabaseLayer, KeepsTheBytesOfTextsAndBlobs) {
    open(OpenMode::kCreate);
    Statement statement;
    ASSERT_EQ(statement.prepare(connection, "SELECT ?, ?, ?, ?, length(?)"), 0);
    const std::string odd("a\0\xff\t", 4);
    ASSERT_EQ(statement.bindText(1, odd), 0);
    ASSERT_EQ(statement.bindBlob(2, odd), 0);
    ASSERT_EQ(statement.bindNull(3), 0);
    ASSERT_EQ(statement.bind(4, -9'000'000'000LL), 0);
    ASSERT_EQ(statement.bindText(5, {}), 0);
    ASSERT_EQ(statement.step(), Statement::kRow);
    EXPECT_EQ(statement.columnText(0), odd);
    EXPECT_EQ(statement.columnBlob(1), odd);
    EXPECT_TRUE(statement.columnIsNull(2));
    EXPECT_EQ(statement.columnInt(3), -9'000'000'000LL);
    EXPECT_FALSE(statement.columnIsNull(4)) << "an empty text is no NULL";
    EXPECT_EQ(statement.columnInt(4), 0);
    EXPECT_EQ(statement.step(), Statement::kDone);
}

TEST_F(DatabaseLayer, RollsBackWhatIsNotCommitted) {
    makeDatabase(path, {"kept"});
    open(OpenMode::kReadWrite);
    {
        Transaction transaction(connection);
        ASSERT_EQ(transaction.beginImmediate(), 0);
        ASSERT_EQ(connection.execute("DELETE FROM logs"), 0);
    }
    EXPECT_FALSE(connection.inTransaction());
    EXPECT_THAT(test::messagesOf(path), ElementsAre("kept"));
}

TEST_F(DatabaseLayer, NoticesThatItsFileHasMoved) {
    makeDatabase(path, {"row"});
    open(OpenMode::kReadWrite);
    ASSERT_EQ(connection.execute("BEGIN IMMEDIATE"), 0);
    EXPECT_FALSE(connection.hasMoved());
    std::filesystem::rename(path, folder.at("archive.DB"));
    EXPECT_TRUE(connection.hasMoved());
    makeDatabase(path, {"another"});
    EXPECT_TRUE(connection.hasMoved());
}

TEST_F(DatabaseLayer, MakesALogDatabaseOnce) {
    open(OpenMode::kCreate);
    ASSERT_EQ(prepareForWriting(connection), 0);
    EXPECT_EQ(valueOf(connection, "PRAGMA journal_mode"), "truncate");
    ASSERT_EQ(createLogDatabase(connection, "CREATE TABLE t(x); INSERT INTO t VALUES(1);"), 0);
    ASSERT_EQ(createLogDatabase(connection, "CREATE TABLE t(x); INSERT INTO t VALUES(1);"), 0);
    EXPECT_EQ(valueOf(connection, "SELECT COUNT(*) FROM t"), "1");
}

TEST_F(DatabaseLayer, LeavesNoHalfMadeLogDatabase) {
    open(OpenMode::kCreate);
    EXPECT_NE(createLogDatabase(connection, "CREATE TABLE t(x); CREATE TABLE t(x);"), 0);
    EXPECT_EQ(valueOf(connection, "SELECT COUNT(*) FROM sqlite_schema"), "0");
}

TEST_F(DatabaseLayer, MakesNoLogDatabaseInAFileThatWasMovedAway) {
    open(OpenMode::kCreate);
    ASSERT_EQ(valueOf(connection, "SELECT COUNT(*) FROM sqlite_schema"), "0");
    std::filesystem::rename(path, folder.at("archive.DB"));
    EXPECT_EQ(createLogDatabase(connection, "CREATE TABLE t(x)"), SQLITE_READONLY_DBMOVED);
    EXPECT_EQ(std::filesystem::file_size(folder.at("archive.DB")), 0U);
}

TEST_F(DatabaseLayer, WritesNothingIntoAWalDatabaseThatOthersHaveOpen) {
    Connection other;
    ASSERT_EQ(other.open(path, OpenMode::kCreate), 0);
    ASSERT_EQ(valueOf(other, "PRAGMA journal_mode=WAL"), "wal");
    ASSERT_EQ(other.execute("CREATE TABLE t(x); BEGIN; SELECT * FROM t"), 0);
    open(OpenMode::kReadWrite);
    connection.setBusyTimeout(50);
    EXPECT_NE(prepareForWriting(connection), 0);
}

struct LayoutCase {
    const char* name;
    const char* sql;
    LogLayout layout;
};

class LayoutOfTables : public DatabaseLayer, public ::testing::WithParamInterface<LayoutCase> {};

TEST_P(LayoutOfTables, IsTold) {
    open(OpenMode::kCreate);
    ASSERT_EQ(connection.execute(GetParam().sql), 0);
    LogLayout layout = LogLayout::kVersion2;
    ASSERT_EQ(readLogLayout(connection, layout), 0);
    EXPECT_EQ(layout, GetParam().layout);
}

INSTANTIATE_TEST_SUITE_P(
    Table, LayoutOfTables,
    ::testing::Values(
        LayoutCase{"Nothing", "SELECT 1", LogLayout::kNone},
        LayoutCase{"OtherTables", "CREATE TABLE songs(title)", LogLayout::kNone},
        LayoutCase{"LogsOfAnotherKind", "CREATE TABLE logs(a, b)", LogLayout::kNone},
        LayoutCase{"OldLayout", "CREATE TABLE logs(host, ldate)", LogLayout::kVersion1},
        LayoutCase{"LogsThatAreAView", "CREATE VIEW logs AS SELECT 1 AS ldate", LogLayout::kNone},
        LayoutCase{"EmptyRecord", "CREATE TABLE logs(utcoff); CREATE TABLE loginfo(version)", LogLayout::kNone},
        LayoutCase{"Version2",
                   "CREATE TABLE logs(utcoff); CREATE TABLE loginfo(version); INSERT INTO loginfo VALUES(2)",
                   LogLayout::kVersion2},
        LayoutCase{"OldRowsWithANewRecord",
                   "CREATE TABLE logs(ldate); CREATE TABLE loginfo(version); INSERT INTO loginfo VALUES(2)",
                   LogLayout::kNone},
        LayoutCase{"NewRowsWithoutARecord", "CREATE TABLE logs(utcoff)", LogLayout::kNone},
        LayoutCase{"VersionOfTheFuture",
                   "CREATE TABLE logs(utcoff); CREATE TABLE loginfo(version); INSERT INTO loginfo VALUES(3)",
                   LogLayout::kNone}),
    [](const auto& test) { return std::string(test.param.name); });

// What was open before a move is not spoilt by the journal of the database that was begun at its name since.
TEST_F(DatabaseLayer, LeavesTheJournalOfItsSuccessorAlone) {
    const std::string archive = folder.at("archive.DB");
    for (const OpenMode mode : {OpenMode::kReadWrite, OpenMode::kReadOnly}) {
        makeDatabase(path, {"old"});
        open(mode);
        std::filesystem::rename(path, archive);
        Connection successor;
        ASSERT_EQ(successor.open(path, OpenMode::kCreate), 0);
        // More than its cache holds, so that the journal is complete before the end of the transaction.
        ASSERT_EQ(
            successor.execute("PRAGMA journal_mode=TRUNCATE; PRAGMA cache_size=5; BEGIN IMMEDIATE;"
                              "CREATE TABLE t(x); WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i+1 FROM n"
                              " WHERE i<1000) INSERT INTO t SELECT zeroblob(500) FROM n"),
            0);
        ASSERT_GT(std::filesystem::file_size(path), 0U);
        EXPECT_EQ(valueOf(connection, "SELECT msg FROM logs"), "old");
        ASSERT_EQ(successor.execute("COMMIT"), 0);
        EXPECT_EQ(valueOf(successor, "SELECT count(*) FROM t"), "1000");
        successor.close();
        connection.close();
        EXPECT_THAT(messagesOf(archive), ElementsAre("old"));
        EXPECT_EQ(integrityOf(archive), "ok");
        std::filesystem::remove(path);
        std::filesystem::remove(archive);
    }
}

TEST_F(DatabaseLayer, ReadsADatabaseInMemoryAndWritesNothingIntoIt) {
    makeDatabase(path, {"one", "two"});
    std::string bytes = test::readBytes(path);
    ASSERT_EQ(connection.openBytes(bytes), 0);
    std::filesystem::remove(path);
    EXPECT_EQ(valueOf(connection, "SELECT count(*) FROM logs"), "2");
    EXPECT_EQ(connection.execute("DELETE FROM logs"), SQLITE_READONLY);
    LogLayout layout = LogLayout::kNone;
    EXPECT_EQ(readLogLayout(connection, layout), 0);
    EXPECT_EQ(layout, LogLayout::kVersion2);
    connection.close();
    std::string garbage(5000, 'x');
    ASSERT_EQ(connection.openBytes(garbage), 0);
    EXPECT_EQ(readLogLayout(connection, layout), SQLITE_NOTADB);
}

}  // namespace
}  // namespace ombrel
