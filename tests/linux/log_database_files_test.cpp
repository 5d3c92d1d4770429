// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Log databases as files: damaged ones, ones that a writer is at, ones that may only be read.
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <string>

#include "linux/common/error_record.h"
#include "platform/vesksyslog.h"
#include "tests/linux/child_process.h"
#include "tests/linux/test_database.h"

namespace ombrel {
namespace {

using test::makeDatabase;
using test::readBytes;
using test::writeBytes;

class LogDatabaseFile : public ::testing::Test {
protected:
    int connect() {
        DBHandler handler(path, "");
        return handler.DBCon();
    }
    static int ignoreRow(_SYSLOG_LOG_DATA_tag& /*row*/, void* /*context*/) { return 0; }
    int select() {
        std::list<_SYSLOG_SQL_COND_tag> all;
        return SyslogDBSelect(path, all, nullptr, nullptr, ignoreRow, nullptr, false);
    }
    int count() {
        std::list<_SYSLOG_SQL_COND_tag> all;
        return SyslogDBSelectCount(path, all, nullptr, nullptr);
    }

    test::TemporaryFolder folder;
    std::string path = folder.at("logs.DB");
};

struct DamageCase {
    const char* name;
    std::string (*damage)(const std::string& sound);
};

class DamagedLogDatabase : public LogDatabaseFile, public ::testing::WithParamInterface<DamageCase> {};

TEST_P(DamagedLogDatabase, IsRefusedByEveryOperation) {
    makeDatabase(path, std::vector<std::string>(500, "a message of some length to fill the pages of the file"));
    writeBytes(path, GetParam().damage(readBytes(path)));
    const std::string before = readBytes(path);
    std::map<unsigned long long, std::string> keys;
    EXPECT_LT(connect(), 0);
    EXPECT_LT(SyslogDBVersionGet(path), 0);
    EXPECT_LT(select(), 0);
    EXPECT_LT(count(), 0);
    EXPECT_NE(SyslogDBExtkeyMapGet(path, SYSLOG_EXTKEY_HOST, keys), 0);
    EXPECT_EQ(readBytes(path), before);
}

INSTANTIATE_TEST_SUITE_P(
    Table, DamagedLogDatabase,
    ::testing::Values(
        DamageCase{"GarbageHead", [](const std::string& s) { return std::string(1000, 'Z') + s.substr(1000); }},
        DamageCase{"GarbageOnly", [](const std::string&) { return std::string(1000, '\x01'); }},
        DamageCase{"CutInHalf", [](const std::string& s) { return s.substr(0, s.size() / 2); }},
        DamageCase{"OnePageShort", [](const std::string& s) { return s.substr(0, s.size() - 4096); }},
        DamageCase{"HeadAlone", [](const std::string& s) { return s.substr(0, 100); }},
        DamageCase{"Empty", [](const std::string&) { return std::string(); }}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_F(LogDatabaseFile, WithDaysThatAreNoneNamesNoArchiveByThem) {
    makeDatabase(path, {"row"});
    for (const char* const text : {"'../../../etc/cron.d/x'", "''", "NULL", "x'00'", "'2024-03-0'",
                                   "'2024-03-031'", "'2024/03/03'", "'2024-03-0'||char(10)", "20240303"}) {
        Connection connection;
        ASSERT_EQ(connection.open(path, OpenMode::kReadWrite), 0);
        const std::string sql =
            std::string("UPDATE loginfo SET (first_day, last_day) = (") + text + ", " + text + ")";
        ASSERT_EQ(connection.execute(sql.c_str()), 0) << connection.lastMessage();
        connection.close();
        DBHandler handler(path, "");
        ASSERT_EQ(handler.DBCon(), 0);
        EXPECT_EQ(handler.DBInfoStartStrGet(), "1970-01-01") << text;
        EXPECT_EQ(handler.DBInfoEndStrGet(), "1970-01-01") << text;
    }
}

TEST_F(LogDatabaseFile, OfAnotherProgramIsRefused) {
    Connection connection;
    ASSERT_EQ(connection.open(path, OpenMode::kCreate), 0);
    ASSERT_EQ(connection.execute("CREATE TABLE songs(title)"), 0);
    EXPECT_LT(connect(), 0);
    EXPECT_EQ(VLIBCErrGet(), kErrorNotALogDatabase);
    EXPECT_LT(SyslogDBVersionGet(path), 0);
}

TEST_F(LogDatabaseFile, TellsTheReasonOfAMissingOne) {
    EXPECT_LT(connect(), 0);
    EXPECT_GE(VLIBCErrGet(), kErrorFromSqlite);
    EXPECT_STREQ(VLIBCErrorGetFile(), "db_handler.cpp");
}

TEST_F(LogDatabaseFile, OfADeadWriterIsRolledBack) {
    makeDatabase(path, {"kept"});
    ASSERT_TRUE(test::leaveHotJournal(path));
    DBHandler handler(path, "");
    ASSERT_GE(handler.DBCon(), 0);
    EXPECT_EQ(handler.DBInfoCntGet(), 1);
    EXPECT_EQ(test::integrityOf(path), "ok");
    EXPECT_EQ(test::messagesOf(path), std::vector<std::string>{"kept"});
}

TEST_F(LogDatabaseFile, CanBeProbedWhileATransactionIsWritten) {
    makeDatabase(path, {"kept"});
    Connection writer;
    ASSERT_EQ(writer.open(path, OpenMode::kReadWrite), 0);
    ASSERT_EQ(writer.execute("BEGIN IMMEDIATE; UPDATE loginfo SET row_count = 2"), 0);
    DBHandler handler(path, "");
    ASSERT_GE(handler.DBCon(), 0);
    EXPECT_EQ(handler.DBInfoCntGet(), 1);
    EXPECT_EQ(count(), 1);
    ASSERT_EQ(writer.execute("COMMIT"), 0) << "a connected handle must not hold the writer up";
    EXPECT_EQ(handler.DBInfoCntGet(), 2);
}

TEST_F(LogDatabaseFile, TakesNoTransactionAfterItWasMoved) {
    makeDatabase(path, {"row"});
    DBHandler handler(path, "");
    ASSERT_GE(handler.DBCon(), 0);
    std::filesystem::rename(path, folder.at("archive.DB"));
    EXPECT_LT(handler.DBTranStart(), 0);
    EXPECT_LT(handler.DBTranEnd(), 0);
}

TEST_F(LogDatabaseFile, OnAReadOnlyFileSystemCanBeRead) {
    const int result = test::runInChild([&] {
        makeDatabase(path, {"row"});
        if (!test::enterPrivateMounts()) return test::kSkip;
        const char* place = folder.path().c_str();
        if (::mount(place, place, nullptr, MS_BIND, nullptr) != 0) return test::kSkip;
        if (::mount(nullptr, place, nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) != 0) return test::kSkip;
        DBHandler handler(path, "");
        if (handler.DBCon() < 0) return 1;
        if (handler.DBInfoCntGet() != 1) return 2;
        if (handler.DBTranStart() >= 0) return 3;
        return select() == 0 ? 0 : 4;
    });
    if (result == test::kSkip) GTEST_SKIP() << "no mount namespace here";
    EXPECT_EQ(result, 0);
}

TEST_F(LogDatabaseFile, RunsOneStatementAtATime) {
    makeDatabase(path, {"row"});
    DBHandler handler(path, "");
    ASSERT_GE(handler.DBCon(), 0);
    EXPECT_LT(handler.DBExecute("DELETE FROM receipts; DELETE FROM logs"), 0);
    EXPECT_LT(handler.DBExecute(std::string("DELETE FROM logs\0", 17)), 0);
    EXPECT_EQ(test::messagesOf(path).size(), 1U);
}

// The cost of a probe must not grow with the rows: it reads the same few pages.
TEST_F(LogDatabaseFile, IsProbedAtTheSameCostHoweverLongItIs) {
    makeDatabase(path, std::vector<std::string>(20'000, std::string(200, 'x')));
    // Everything behind the first pages is turned into garbage: whoever reads rows stumbles.
    const std::string sound = readBytes(path);
    ASSERT_GT(sound.size(), 1'000'000U);
    writeBytes(path, sound.substr(0, 16 * 4096) + std::string(sound.size() - 16 * 4096, '\xff'));
    DBHandler handler(path, "");
    ASSERT_GE(handler.DBCon(), 0);
    EXPECT_EQ(handler.DBInfoCntGet(), 20'000);
    EXPECT_EQ(handler.DBInfoStartStrGet(), "2024-03-03");
    EXPECT_EQ(count(), 20'000);
    EXPECT_LT(select(), 0) << "rows cannot be read";
}

}  // namespace
}  // namespace ombrel
