// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Selections that only real databases know: impossible ones, the old layout, long ones, live ones.
#include <gmock/gmock.h>

#include <atomic>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "linux/common/error_record.h"
#include "linux/vesksyslog/row_block.h"
#include "linux/vesksyslog/select_conditions.h"
#include "platform/vesksyslog.h"
#include "tests/linux/child_process.h"
#include "tests/linux/test_database.h"

namespace ombrel {
namespace {

using Conditions = std::list<_SYSLOG_SQL_COND_tag>;
using test::makeDatabase;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

std::vector<std::string> numbered(size_t count) {
    std::vector<std::string> texts;
    for (size_t i = 0; i < count; ++i)
        texts.push_back(std::to_string(i));
    return texts;
}

class LogSelect : public ::testing::Test {
protected:
    static int collect(_SYSLOG_LOG_DATA_tag& row, void* context) {
        static_cast<std::vector<std::string>*>(context)->push_back(row.message);
        return 0;
    }
    int select(Conditions conditions, std::vector<std::string>& texts) {
        return SyslogDBSelect(path, conditions, nullptr, nullptr, collect, &texts, false);
    }
    std::vector<std::string> messages(const Conditions& conditions) {
        std::vector<std::string> texts;
        EXPECT_EQ(select(conditions, texts), 0);
        return texts;
    }
    void execute(const char* sql) {
        Connection connection;
        ASSERT_EQ(connection.open(path, OpenMode::kReadWrite), 0);
        ASSERT_EQ(connection.execute(sql), 0) << connection.lastMessage();
    }

    test::TemporaryFolder folder;
    std::string path = folder.at("logs.DB");
};

TEST_F(LogSelect, ShowsTheLocalTimeThatTheBoxHadWhateverItsZoneIsNow) {
    makeDatabase(path, numbered(7));
    execute(
        "UPDATE logs SET (utcsec, utcoff) = (SELECT column1, column2 FROM"
        " (SELECT 1 AS n, 1709467200 AS column1, 3600 AS column2"
        "  UNION ALL SELECT 2, 1709467200, -12600 UNION ALL SELECT 3, 1709510399, 0"
        "  UNION ALL SELECT 4, 1709510399, 1 UNION ALL SELECT 5, -1, 0"
        "  UNION ALL SELECT 6, 9223372036854775807, 9223372036854775807"
        "  UNION ALL SELECT 7, 'noon', 'summer') WHERE n = logs.id)");
    std::vector<std::string> times;
    const auto collectTime = [](_SYSLOG_LOG_DATA_tag& row, void* context) {
        static_cast<std::vector<std::string>*>(context)->push_back(row.date + " " + row.time);
        return 0;
    };
    Conditions all;
    ASSERT_EQ(SyslogDBSelect(path, all, nullptr, nullptr, collectTime, &times, false), 0);
    EXPECT_THAT(times, ElementsAre("2024-03-03 13:00:00", "2024-03-03 08:30:00", "2024-03-03 23:59:59",
                                   "2024-03-04 00:00:00", "1969-12-31 23:59:59", "1969-12-31 23:59:58",
                                   "1970-01-01 00:00:00"));
}

TEST_F(LogSelect, RefusesConditionsThatMakeNoSense) {
    makeDatabase(path, {"row"});
    const Conditions::value_type cases[] = {
        {SYSLOG_SQL_FIELD_HOST, SYSLOG_SQL_AT_LEAST, "a", 0},
        {SYSLOG_SQL_FIELD_MESSAGE, SYSLOG_SQL_AT_MOST, "a", 0},
        {SYSLOG_SQL_FIELD_SEVERITY, SYSLOG_SQL_CONTAINS, "a", 3},
        {SYSLOG_SQL_FIELD_TIME, SYSLOG_SQL_CONTAINS, "a", 3},
        {static_cast<_SYSLOG_SQL_FIELD_tag>(8), SYSLOG_SQL_EQUAL, "a", 0},
        {SYSLOG_SQL_FIELD_ROW, SYSLOG_SQL_CONTAINS, "a", 1},
        {static_cast<_SYSLOG_SQL_FIELD_tag>(-1), SYSLOG_SQL_EQUAL, "a", 0},
        {SYSLOG_SQL_FIELD_HOST, static_cast<_SYSLOG_SQL_COMPARE_tag>(5), "a", 0},
        {SYSLOG_SQL_FIELD_SEVERITY, static_cast<_SYSLOG_SQL_COMPARE_tag>(-1), "", 0},
    };
    for (const auto& condition : cases) {
        Conditions conditions = {condition};
        std::vector<std::string> texts;
        EXPECT_LT(select(conditions, texts), 0);
        EXPECT_EQ(VLIBCErrGet(), kErrorInvalidArgument);
        EXPECT_LT(SyslogDBSelectCount(path, conditions, nullptr, nullptr), 0);
        EXPECT_THAT(texts, IsEmpty());
    }
}

TEST_F(LogSelect, RefusesOrdersAndLimitsThatMakeNoSense) {
    makeDatabase(path, {"row"});
    Conditions all;
    std::vector<std::string> texts;
    for (_SYSLOG_SQL_ORDER_tag order : {_SYSLOG_SQL_ORDER_tag{2, 7}, {-1, 7}, {0, 2}, {0, -1}}) {
        EXPECT_LT(SyslogDBSelect(path, all, nullptr, &order, collect, &texts, false), 0);
        EXPECT_EQ(VLIBCErrGet(), kErrorInvalidArgument);
    }
    _SYSLOG_SQL_LIMIT_tag limit{10, -1};
    EXPECT_LT(SyslogDBSelect(path, all, &limit, nullptr, collect, &texts, false), 0);
    EXPECT_LT(SyslogDBSelect(path, all, nullptr, nullptr, nullptr, nullptr, false), 0);
    EXPECT_THAT(texts, IsEmpty());
}

TEST_F(LogSelect, ReadsSeveritiesOfTheOldLayoutByNumberOrName) {
    contract::makeLinuxVersion1Database(path, test::rowsOf({"a", "b", "c", "d", "e"}));
    execute(
        "UPDATE logs SET prio = CASE msg WHEN 'a' THEN 'err' WHEN 'b' THEN 'WARN' WHEN 'c' THEN '0'"
        " WHEN 'd' THEN 'sometimes' ELSE 7 END");
    Conditions all;
    std::vector<int> severities;
    const auto severity = [](_SYSLOG_LOG_DATA_tag& row, void* context) {
        static_cast<std::vector<int>*>(context)->push_back(row.priority);
        return 0;
    };
    ASSERT_EQ(SyslogDBSelect(path, all, nullptr, nullptr, severity, &severities, false), 0);
    EXPECT_THAT(severities, ElementsAre(3, 4, 0, -1, 7));
    EXPECT_THAT(messages({{SYSLOG_SQL_FIELD_SEVERITY, SYSLOG_SQL_AT_LEAST, "", 4}}), ElementsAre("b", "e"));
}

TEST_F(LogSelect, FindsRowsOfTheOldLayoutByTextAndTime) {
    auto rows = test::rowsOf({"a", "b", "c"});
    rows[1].host = "host8";
    contract::makeLinuxVersion1Database(path, rows);
    EXPECT_THAT(messages({{SYSLOG_SQL_FIELD_HOST, SYSLOG_SQL_EQUAL, "host8", 0}}), ElementsAre("b"));
    EXPECT_THAT(messages({{SYSLOG_SQL_FIELD_HOST, SYSLOG_SQL_CONTAINS, "HOST", 0}}), ElementsAre("a", "b", "c"));
    EXPECT_THAT(messages({{SYSLOG_SQL_FIELD_TIME, SYSLOG_SQL_AT_LEAST, "", rows[1].time}}), ElementsAre("b", "c"));
    std::vector<std::string> texts;
    EXPECT_LT(select({{SYSLOG_SQL_FIELD_SENDER, SYSLOG_SQL_EQUAL, "192.0.2.1", 0}}, texts), 0)
        << "the old layout keeps no sender";
}

TEST_F(LogSelect, ComparesBytesBehindANul) {
    makeDatabase(path, {"x"});
    execute("UPDATE logs SET msg = CAST(X'610062' AS TEXT)");
    const std::string text("a\0b", 3);
    EXPECT_THAT(messages({{SYSLOG_SQL_FIELD_MESSAGE, SYSLOG_SQL_EQUAL, text, 0}}), ElementsAre(text));
    EXPECT_THAT(messages({{SYSLOG_SQL_FIELD_MESSAGE, SYSLOG_SQL_CONTAINS, std::string("\0B", 2), 0}}),
                ElementsAre(text));
    EXPECT_THAT(messages({{SYSLOG_SQL_FIELD_MESSAGE, SYSLOG_SQL_EQUAL, "a", 0}}), IsEmpty());
}

TEST_F(LogSelect, ReadsAnIdThatNoTableKnows) {
    makeDatabase(path, {"known", "unknown"});
    execute("UPDATE logs SET host = 99 WHERE msg = 'unknown'");
    EXPECT_THAT(messages({{SYSLOG_SQL_FIELD_HOST, SYSLOG_SQL_EQUAL, "host7", 0}}), ElementsAre("known"));
    EXPECT_THAT(messages({{SYSLOG_SQL_FIELD_HOST, SYSLOG_SQL_NOT_EQUAL, "host7", 0}}), ElementsAre("unknown"));
}

TEST_F(LogSelect, UsesAHostIndexWithoutChangingTheOrder) {
    auto rows = test::rowsOf(numbered(3000));
    for (size_t i = 0; i < rows.size(); ++i)
        rows[i].host = "host" + std::to_string(rows.size() - i % 7);
    contract::makeLinuxLogDatabase(path, rows);
    const Conditions conditions = {{SYSLOG_SQL_FIELD_HOST, SYSLOG_SQL_CONTAINS, "host299", 0}};
    const auto before = messages(conditions);
    execute("CREATE INDEX logs_host_idx ON logs (host)");
    EXPECT_EQ(messages(conditions), before);
    EXPECT_GT(before.size(), 1000U);
}

// What the planner makes of the conditions: with the index no row of another host is looked at, and with a stretch
// of ids none beyond it, forwards and backwards without a sort.
TEST_F(LogSelect, LooksAtTheRowsOfOneHostOrOneStretchAlone) {
    makeDatabase(path, {"row"});
    Connection connection;
    ASSERT_EQ(connection.open(path, OpenMode::kReadWrite), 0);
    ASSERT_EQ(addConditionFunctions(connection), 0);
    const Conditions conditions = {{SYSLOG_SQL_FIELD_ROW, SYSLOG_SQL_AT_LEAST, "", 1},
                                   {SYSLOG_SQL_FIELD_ROW, SYSLOG_SQL_AT_MOST, "", 50'000},
                                   {SYSLOG_SQL_FIELD_HOST, SYSLOG_SQL_EQUAL, "host7", 0},
                                   {SYSLOG_SQL_FIELD_MESSAGE, SYSLOG_SQL_CONTAINS, "row", 0}};
    const auto plan = [&](const char* order) {
        std::string sql = std::string("EXPLAIN QUERY PLAN ") + kSelectVersion2 + " WHERE 1";
        Parameters parameters;
        EXPECT_TRUE(appendConditions(LogLayout::kVersion2, conditions, sql, parameters));
        sql += std::string(" ORDER BY ") + order + " LIMIT 10";
        Statement statement;
        EXPECT_EQ(statement.prepare(connection, sql), 0) << connection.lastMessage();
        std::string steps;
        while (statement.step() == Statement::kRow)
            steps += std::string(statement.columnText(3)) + "; ";
        return steps;
    };
    for (const char* order : {"id", "id DESC"}) {
        EXPECT_THAT(plan(order), AllOf(HasSubstr("SEARCH logs USING INTEGER PRIMARY KEY (rowid>? AND rowid<?)"),
                                       Not(HasSubstr("B-TREE"))));
    }
    ASSERT_EQ(connection.execute("CREATE INDEX logs_host_idx ON logs (host)"), 0);
    for (const char* order : {"id", "id DESC"}) {
        EXPECT_THAT(plan(order), AllOf(HasSubstr("USING INDEX logs_host_idx (host=? AND rowid>? AND rowid<?)"),
                                       Not(HasSubstr("B-TREE"))));
    }
}

TEST_F(LogSelect, CutsACountToTheLargestInt) {
    makeDatabase(path, {"row"});
    execute("UPDATE loginfo SET row_count = 3000000000");
    Conditions all;
    EXPECT_EQ(SyslogDBSelectCount(path, all, nullptr, nullptr), 2'147'483'647);
}

TEST_F(LogSelect, DeliversALongSelectionWholeAndInOrder) {
    const auto texts = numbered(30'000);
    makeDatabase(path, texts);
    EXPECT_EQ(messages({}), texts);
}

TEST_F(LogSelect, DeliversLongMessagesWhole) {
    std::vector<std::string> texts;
    for (size_t i = 0; i < 3000; ++i)
        texts.push_back(std::string(i % 100 == 0 ? 65'536 : 10, static_cast<char>('a' + i % 26)));
    makeDatabase(path, texts);
    EXPECT_EQ(messages({}), texts);
}

TEST_F(LogSelect, EndsALongSelectionWhereTheCallbackWants) {
    makeDatabase(path, numbered(30'000));
    Conditions all;
    for (const int last : {1, 255, 256, 257, 10'000, 29'999}) {
        std::pair<int, int> state{0, last};
        const auto stop = [](_SYSLOG_LOG_DATA_tag& /*row*/, void* context) {
            auto& [calls, wanted] = *static_cast<std::pair<int, int>*>(context);
            return ++calls == wanted ? -1 : 0;
        };
        EXPECT_LT(SyslogDBSelect(path, all, nullptr, nullptr, stop, &state, false), 0);
        EXPECT_EQ(state.first, last);
    }
}

TEST_F(LogSelect, SurvivesACallbackThatThrows) {
    makeDatabase(path, numbered(30'000));
    Conditions all;
    const auto refuse = [](_SYSLOG_LOG_DATA_tag& /*row*/, void* /*context*/) -> int {
        throw std::runtime_error("enough");
    };
    EXPECT_THROW((void)SyslogDBSelect(path, all, nullptr, nullptr, refuse, nullptr, false), std::runtime_error);
    EXPECT_EQ(messages({}).size(), 30'000U);
}

TEST_F(LogSelect, FailsWhenTheRowsBreakOffInTheMiddle) {
    makeDatabase(path, std::vector<std::string>(20'000, std::string(100, 'x')));
    const std::string sound = test::readBytes(path);
    test::writeBytes(path, sound.substr(0, sound.size() / 2) + std::string(sound.size() - sound.size() / 2, '\0'));
    std::vector<std::string> texts;
    EXPECT_LT(select({}, texts), 0);
    EXPECT_GE(VLIBCErrGet(), kErrorFromSqlite);
    EXPECT_LT(texts.size(), 20'000U);
}

TEST_F(LogSelect, KeepsNoLockBetweenTwoPages) {
    makeDatabase(path, numbered(100));
    Conditions all;
    std::vector<std::string> texts;
    _SYSLOG_SQL_LIMIT_tag limit{10, 0};
    ASSERT_EQ(SyslogDBSelect(path, all, &limit, nullptr, collect, &texts, false), 0);
    Connection mover;
    ASSERT_EQ(mover.open(path, OpenMode::kReadWrite), 0);
    mover.setBusyTimeout(0);
    EXPECT_EQ(mover.execute("BEGIN EXCLUSIVE"), 0);
}

TEST_F(LogSelect, WalksFromShortMessagesToLongOnes) {
    std::vector<std::string> expected = numbered(10'000);
    for (size_t i = 0; i < 10'000; ++i)
        expected.push_back(std::to_string(i) + std::string(2000, 'm'));
    makeDatabase(path, expected);
    Conditions all;
    std::vector<std::string> texts;
    for (_SYSLOG_SQL_LIMIT_tag limit{10'000, 0}; limit.offset < 20'000; limit.offset += limit.rows) {
        ASSERT_EQ(SyslogDBSelect(path, all, &limit, nullptr, collect, &texts, false), 0);
    }
    ASSERT_EQ(texts.size(), expected.size());
    EXPECT_TRUE(texts == expected);
}

TEST_F(LogSelect, WalksOnAfterAPageThatWasGivenUpHalfway) {
    constexpr size_t kRows = 25'000;
    makeDatabase(path, numbered(kRows));
    const auto giveUp = [](_SYSLOG_LOG_DATA_tag& row, void* /*context*/) {
        return row.message == "14000" ? -1 : 0;
    };
    Conditions all;
    std::vector<std::string> texts;
    _SYSLOG_SQL_LIMIT_tag limit{10'000, 0};
    ASSERT_EQ(SyslogDBSelect(path, all, &limit, nullptr, collect, &texts, false), 0);
    limit.offset = 10'000;
    EXPECT_LT(SyslogDBSelect(path, all, &limit, nullptr, giveUp, nullptr, false), 0);
    for (; limit.offset < static_cast<long long>(kRows); limit.offset += limit.rows) {
        ASSERT_EQ(SyslogDBSelect(path, all, &limit, nullptr, collect, &texts, false), 0);
    }
    EXPECT_TRUE(texts == numbered(kRows));
}

TEST_F(LogSelect, SeesOneStateInEachPageBesideALiveWriter) {
    makeDatabase(path, {"0"});
    std::atomic<bool> done = false;
    std::thread writer([&] {
        Connection connection;
        EXPECT_EQ(connection.open(path, OpenMode::kReadWrite), 0);
        EXPECT_EQ(connection.execute("PRAGMA synchronous=OFF"), 0);
        for (int batch = 0; batch < 100; ++batch) {
            EXPECT_EQ(connection.execute("BEGIN IMMEDIATE;"
                                         "INSERT INTO logs(utcsec, rutcsec, utcoff, host, sender, facility,"
                                         " severity, program, msg) SELECT 1, 1, 0, 1, 1, 1, 6, 1, '0'"
                                         " FROM (SELECT 1 UNION ALL SELECT 2 UNION ALL SELECT 3);"
                                         "UPDATE loginfo SET row_count = row_count + 3; COMMIT"),
                      0);
        }
        done = true;
    });
    Conditions all;
    int last = 0;
    while (!done) {
        const int counted = SyslogDBSelectCount(path, all, nullptr, nullptr);
        EXPECT_EQ(counted % 3, 1) << "a transaction was seen in part";
        EXPECT_GE(counted, last);
        EXPECT_EQ(messages({}).size() % 3, 1U);
        last = counted;
    }
    writer.join();
    EXPECT_EQ(messages({}).size(), 301U);
}

}  // namespace
}  // namespace ombrel
