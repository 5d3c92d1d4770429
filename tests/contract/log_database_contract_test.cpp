// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The handle of a log database and the questions about a whole file, on every platform.
#include <gmock/gmock.h>

#include <map>
#include <string>

#include "platform/veskdb.h"
#include "platform/vesksyslog.h"
#include "tests/contract/contract_fixture.h"

namespace ombrel::contract {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

constexpr const char* kSchema = "/usr/vesk/syslog/schema/loginfo2.sql";
constexpr const char* kHostIndex = "CREATE INDEX logs_host_idx ON logs (host)";
constexpr long long kFirstNoon = 1709467200;  // 2024-03-03 12:00 UTC
constexpr long long kDay = 24 * 60 * 60;

class LogDatabase : public ContractTest {
protected:
    std::string version2(const std::vector<Row>& rows) {
        EXPECT_TRUE(world->makeLogDatabase(at("logs.DB"), rows)) << world->whyNot();
        return at("logs.DB");
    }
    std::string version1(const std::vector<Row>& rows) {
        EXPECT_TRUE(world->makeVersion1Database(at("old.DB"), rows)) << world->whyNot();
        return at("old.DB");
    }
    std::string twoDays() {
        return version2({{kFirstNoon + kDay, 4, "host8", "local1", "cron", "later"},
                         {kFirstNoon, 6, "host7", "local0", "sshd", "earlier"},
                         {kFirstNoon + 5, 6, "host7", "local0", "cron", "between"}});
    }
};

TEST_F(LogDatabase, IsNotMadeByConnecting) {
    DBHandler handler(at("none.DB"), kSchema);
    EXPECT_LT(handler.DBCon(), 0);
    EXPECT_FALSE(world->exists(at("none.DB")));
    EXPECT_EQ(handler.DBDiscon(), 0);
}

TEST_F(LogDatabase, IsNoTextFileAndNoEmptyFile) {
    for (const std::string& bytes : {std::string("Mar  3 12:00:00 host7 sshd: a text file\n"), std::string()}) {
        DBHandler handler(file("text.DB", bytes), kSchema);
        EXPECT_LT(handler.DBCon(), 0);
        (void)handler.DBDiscon();
        EXPECT_EQ(SyslogDBVersionGet(at("text.DB")), -1);
        EXPECT_EQ(bytesOf(at("text.DB")), bytes);
    }
}

TEST_F(LogDatabase, CanBeDisconnectedWithoutAConnectionAndTwice) {
    DBHandler handler(twoDays(), kSchema);
    EXPECT_EQ(handler.DBDiscon(), 0);
    ASSERT_GE(handler.DBCon(), 0);
    EXPECT_EQ(handler.DBDiscon(), 0);
    EXPECT_EQ(handler.DBDiscon(), 0);
}

TEST_F(LogDatabase, KnowsItsSpanAndItsRows) {
    DBHandler handler(twoDays(), kSchema);
    ASSERT_GE(handler.DBCon(), 0);
    EXPECT_EQ(handler.DBInfoStartGet(), kFirstNoon);
    EXPECT_EQ(handler.DBInfoEndGet(), kFirstNoon + kDay);
    EXPECT_EQ(handler.DBInfoCntGet(), 3);
    EXPECT_EQ(handler.DBInfoStartStrGet(), "2024-03-03");
    EXPECT_EQ(handler.DBInfoEndStrGet(), "2024-03-04");
}

TEST_F(LogDatabase, WithoutRowsBeginsWithTheEpoch) {
    DBHandler handler(version2({}), kSchema);
    ASSERT_GE(handler.DBCon(), 0);
    EXPECT_EQ(handler.DBInfoStartGet(), 0);
    EXPECT_EQ(handler.DBInfoEndGet(), 0);
    EXPECT_EQ(handler.DBInfoCntGet(), 0);
    EXPECT_EQ(handler.DBInfoStartStrGet(), "1970-01-01");
    EXPECT_EQ(handler.DBInfoEndStrGet(), "1970-01-01");
}

TEST_F(LogDatabase, OfTheOldLayoutCanBeOpenedButNotCounted) {
    DBHandler handler(version1({{kFirstNoon, 6, "host7", "local0", "sshd", "old"}}), kSchema);
    ASSERT_GE(handler.DBCon(), 0);
    EXPECT_LT(handler.DBInfoCntGet(), 0);
    EXPECT_EQ(handler.DBInfoStartGet(), 0);
    EXPECT_EQ(handler.DBInfoEndGet(), 0);
    EXPECT_EQ(handler.DBInfoStartStrGet(), "1970-01-01");
}

TEST_F(LogDatabase, OfTheOldLayoutCannotBeCountedWithoutRowsEither) {
    DBHandler handler(version1({}), kSchema);
    ASSERT_GE(handler.DBCon(), 0);
    EXPECT_EQ(handler.DBInfoCntGet(), -1);
    EXPECT_EQ(handler.DBDiscon(), 0);
    EXPECT_EQ(handler.DBInfoCntGet(), -1);
}

TEST_F(LogDatabase, OfTheOldLayoutIsNotChangedByBeingAsked) {
    const std::string path = version1({{kFirstNoon, 6, "host7", "local0", "sshd", "old"}});
    const std::string before = bytesOf(path);
    DBHandler handler(path, kSchema);
    ASSERT_GE(handler.DBCon(), 0);
    (void)handler.DBInfoCntGet();
    EXPECT_EQ(handler.DBDiscon(), 0);
    EXPECT_EQ(bytesOf(path), before);
}

TEST_F(LogDatabase, AnswersNothingWhileDisconnected) {
    DBHandler handler(twoDays(), kSchema);
    EXPECT_LT(handler.DBInfoCntGet(), 0);
    EXPECT_EQ(handler.DBInfoStartGet(), 0);
    EXPECT_EQ(handler.DBInfoEndStrGet(), "1970-01-01");
    EXPECT_LT(handler.DBTranStart(), 0);
    EXPECT_LT(handler.DBExecute(kHostIndex), 0);
    EXPECT_LT(handler.DBTranEnd(), 0);
}

TEST_F(LogDatabase, TellsItsLayout) {
    EXPECT_EQ(SyslogDBVersionGet(twoDays()), 2);
    EXPECT_EQ(SyslogDBVersionGet(version1({})), 1);
    EXPECT_EQ(SyslogDBVersionGet(at("none.DB")), -1);
}

TEST_F(LogDatabase, TakesAnIndexOnce) {
    const std::string path = twoDays();
    DBHandler handler(path, kSchema);
    ASSERT_GE(handler.DBCon(), 0);
    ASSERT_GE(handler.DBTranStart(), 0);
    EXPECT_GE(handler.DBExecute(kHostIndex), 0);
    EXPECT_GE(handler.DBTranEnd(), 0);
    EXPECT_LT(handler.DBExecute(kHostIndex), 0);
}

TEST_F(LogDatabase, DiscardsAnOpenTransactionWhenDisconnected) {
    DBHandler handler(twoDays(), kSchema);
    ASSERT_GE(handler.DBCon(), 0);
    ASSERT_GE(handler.DBTranStart(), 0);
    EXPECT_GE(handler.DBExecute(kHostIndex), 0);
    EXPECT_EQ(handler.DBDiscon(), 0);
    ASSERT_GE(handler.DBCon(), 0);
    EXPECT_GE(handler.DBExecute(kHostIndex), 0) << "the index of the discarded transaction is still there";
}

TEST_F(LogDatabase, KeepsTheTextsOfItsIds) {
    std::string path = twoDays();
    std::map<unsigned long long, std::string> keys;
    ASSERT_EQ(SyslogDBExtkeyMapGet(path, SYSLOG_EXTKEY_HOST, keys), 0);
    EXPECT_THAT(keys, ElementsAre(Pair(1, "host8"), Pair(2, "host7")));
    keys.clear();
    ASSERT_EQ(SyslogDBExtkeyMapGet(path, SYSLOG_EXTKEY_PROGRAM, keys), 0);
    EXPECT_THAT(keys, ElementsAre(Pair(1, "cron"), Pair(2, "sshd")));
    keys.clear();
    ASSERT_EQ(SyslogDBExtkeyMapGet(path, SYSLOG_EXTKEY_SENDER, keys), 0);
    EXPECT_THAT(keys, ElementsAre(Pair(1, "192.0.2.1")));
    keys.clear();
    ASSERT_EQ(SyslogDBExtkeyMapGet(path, SYSLOG_EXTKEY_FACILITY, keys), 0);
    EXPECT_THAT(keys, ElementsAre(Pair(1, "local1"), Pair(2, "local0")));
}

TEST_F(LogDatabase, HasNoTextsOfIdsInTheOldLayoutNorInNoDatabase) {
    std::string old = version1({{kFirstNoon, 6, "host7", "local0", "sshd", "old"}});
    std::string missing = at("none.DB");
    std::string text = file("text.DB", "text\n");
    std::map<unsigned long long, std::string> keys;
    EXPECT_NE(SyslogDBExtkeyMapGet(old, SYSLOG_EXTKEY_HOST, keys), 0);
    EXPECT_NE(SyslogDBExtkeyMapGet(missing, SYSLOG_EXTKEY_HOST, keys), 0);
    EXPECT_NE(SyslogDBExtkeyMapGet(text, SYSLOG_EXTKEY_HOST, keys), 0);
    EXPECT_THAT(keys, IsEmpty());
}

TEST(LogTexts, NamesTheSeverities) {
    EXPECT_EQ(PriorTypeToStr(SYSLOG_DB_PRIORITY_EMERG), "emerg");
    EXPECT_EQ(PriorTypeToStr(SYSLOG_DB_PRIORITY_ERR), "err");
    EXPECT_EQ(PriorTypeToStr(SYSLOG_DB_PRIORITY_WARNING), "warning");
    EXPECT_EQ(PriorTypeToStr(SYSLOG_DB_PRIORITY_DEBUG), "debug");
    EXPECT_EQ(PriorTypeToStr(static_cast<_SYSLOG_DB_PRIORITY_tag>(8)), "8");
    EXPECT_EQ(PriorTypeToStr(static_cast<_SYSLOG_DB_PRIORITY_tag>(-1)), "-1");
}

TEST(LogTexts, WritesNumbersWithoutLeadingZeros) {
    EXPECT_EQ(ullNumberToString(0), "0");
    EXPECT_EQ(ullNumberToString(1000), "1000");
    EXPECT_EQ(ullNumberToString(~0ULL), "18446744073709551615");
}

}  // namespace
}  // namespace ombrel::contract
