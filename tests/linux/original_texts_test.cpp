// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// A database that was upgraded shows days and times that are none as they stood in the old one.
#include <gmock/gmock.h>
#include <sys/mount.h>

#include <string>
#include <vector>

#include "platform/vesksyslog.h"
#include "tests/linux/child_process.h"
#include "tests/linux/test_database.h"

namespace ombrel {
namespace {

using Conditions = std::list<_SYSLOG_SQL_COND_tag>;
using Texts = std::vector<std::string>;
using test::makeDatabase;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kMakeTable =
    "CREATE TABLE original_texts (log_id INTEGER PRIMARY KEY, ldate TEXT, ltime TEXT, prio TEXT);";

Texts numberedTexts(size_t count) {
    Texts texts;
    for (size_t i = 1; i <= count; ++i)
        texts.push_back(std::to_string(i));
    return texts;
}

/// The rows of a page as "MESSAGE DATE TIME".
class OriginalTexts : public ::testing::Test {
protected:
    static int collect(_SYSLOG_LOG_DATA_tag& row, void* context) {
        static_cast<Texts*>(context)->push_back(row.message + " " + row.date + " " + row.time);
        return 0;
    }
    Texts rows(Conditions conditions = {}, _SYSLOG_SQL_LIMIT_tag* limit = nullptr,
               _SYSLOG_SQL_ORDER_tag* order = nullptr) {
        Texts texts;
        EXPECT_EQ(SyslogDBSelect(path, conditions, limit, order, collect, &texts, false), 0);
        return texts;
    }
    void execute(const std::string& sql) {
        Connection connection;
        ASSERT_EQ(connection.open(path, OpenMode::kReadWrite), 0);
        ASSERT_EQ(connection.execute(sql.c_str()), 0) << connection.lastMessage();
    }
    /// Rows 1, 2, 3, ... a second apart from 2024-03-03 12:00:00 on, and the table with these VALUES.
    void makeWith(size_t count, const std::string& values) {
        makeDatabase(path, numberedTexts(count));
        execute(std::string("UPDATE logs SET utcoff = 0;") + kMakeTable + "INSERT INTO original_texts VALUES" +
                values);
    }

    test::TemporaryFolder folder;
    std::string path = folder.at("logs.DB");
};

TEST_F(OriginalTexts, StandInPlaceOfTheRowsOwnTime) {
    makeWith(4, "(2, '2024-3-5', '9:00', NULL), (4, 'yesterday', '23:59:60', 'sometimes')");
    EXPECT_THAT(rows(), ElementsAre("1 2024-03-03 12:00:00", "2 2024-3-5 9:00", "3 2024-03-03 12:00:02",
                                    "4 yesterday 23:59:60"));
}

TEST_F(OriginalTexts, MayBeEmptyAndAreNotTakenForMissingThen) {
    makeWith(4, "(1, '', '', NULL), (2, '2024-03-03', '', NULL), (3, '', '12:00:00', NULL)");
    EXPECT_THAT(rows(), ElementsAre("1  ", "2 2024-03-03 ", "3  12:00:00", "4 2024-03-03 12:00:03"));
}

TEST_F(OriginalTexts, OfTheSeverityAloneLeaveTheTimeAlone) {
    makeWith(2, "(1, NULL, NULL, 'sometimes')");
    EXPECT_THAT(rows(), ElementsAre("1 2024-03-03 12:00:00", "2 2024-03-03 12:00:01"));
}

TEST_F(OriginalTexts, OfRowsThatAreNotThereAddNone) {
    makeWith(2, "(-1, 'a', 'b', NULL), (3, 'c', 'd', NULL)");
    EXPECT_THAT(rows(), ElementsAre("1 2024-03-03 12:00:00", "2 2024-03-03 12:00:01"));
    Conditions all;
    EXPECT_EQ(SyslogDBSelectCount(path, all, nullptr, nullptr), 2);
}

TEST_F(OriginalTexts, AreTheBytesThatStoodThere) {
    makeWith(2, "(1, CAST(X'FFC028' AS TEXT), CAST(X'610062' AS TEXT), NULL), (2, X'00FF', X'1B5B', NULL)");
    EXPECT_THAT(rows(), ElementsAre(std::string("1 \xff\xc0\x28 a\0b", 9), std::string("2 \0\xff \x1b[", 7)));
}

TEST_F(OriginalTexts, OfOneRowAreNotThoseOfTheNext) {
    makeWith(3,
             "(1, '" + std::string(500, 'd') + "', '" + std::string(500, 't') + "', NULL), (2, 'd', 't', NULL)");
    EXPECT_THAT(rows(), ElementsAre("1 " + std::string(500, 'd') + " " + std::string(500, 't'), "2 d t",
                                    "3 2024-03-03 12:00:02"));
}

TEST_F(OriginalTexts, DoNotHideASeverityThatIsNone) {
    makeWith(2, "(1, NULL, NULL, 'sometimes')");
    execute("UPDATE logs SET severity = -1 WHERE id = 1");
    Texts severities;
    const auto collectSeverity = [](_SYSLOG_LOG_DATA_tag& row, void* context) {
        static_cast<Texts*>(context)->push_back(PriorTypeToStr(row.priority));
        return 0;
    };
    Conditions all;
    ASSERT_EQ(SyslogDBSelect(path, all, nullptr, nullptr, collectSeverity, &severities, false), 0);
    EXPECT_THAT(severities, ElementsAre("-1", "info"));
    EXPECT_THAT(rows({{SYSLOG_SQL_FIELD_SEVERITY, SYSLOG_SQL_EQUAL, "", -1}}),
                ElementsAre("1 2024-03-03 12:00:00"));
}

TEST_F(OriginalTexts, LeaveEveryOtherMemberOfTheRecordAsItIs) {
    makeWith(1, "(1, 'day', 'time', NULL)");
    execute("UPDATE logs SET sutcsec = 7, pid = '12', msgid = 'ID', rutcsec = 9, utcoff = 3600, severity = 2");
    _SYSLOG_LOG_DATA_tag found;
    const auto keep = [](_SYSLOG_LOG_DATA_tag& row, void* context) {
        *static_cast<_SYSLOG_LOG_DATA_tag*>(context) = row;
        return 0;
    };
    Conditions all;
    ASSERT_EQ(SyslogDBSelect(path, all, nullptr, nullptr, keep, &found, false), 0);
    const auto& [rowId, timestamp, received, severity, sender, host, pid, facility, msgId, date, time, program,
                 message] = found;
    EXPECT_EQ(severity, SYSLOG_DB_PRIORITY_CRIT);
    EXPECT_THAT(
        (Texts{rowId, timestamp, received, sender, host, pid, facility, msgId, date, time, program, message}),
        ElementsAre("1", "1709467200", "9", "1", "1", "12", "1", "ID", "day", "time", "1", "1"));
}

// ---- selections

TEST_F(OriginalTexts, AreNotWhatConditionsLookAt) {
    makeWith(3, "(2, '1999-01-01', '00:00:00', NULL)");
    constexpr long long kNoon = 1709467200;
    const std::string second = "2 1999-01-01 00:00:00";
    const std::string third = "3 2024-03-03 12:00:02";
    EXPECT_THAT(rows({{SYSLOG_SQL_FIELD_TIME, SYSLOG_SQL_AT_LEAST, "", kNoon + 1}}), ElementsAre(second, third));
    EXPECT_THAT(rows({{SYSLOG_SQL_FIELD_TIME, SYSLOG_SQL_AT_MOST, "", kNoon - 1}}), IsEmpty());
    EXPECT_THAT(rows({{SYSLOG_SQL_FIELD_MESSAGE, SYSLOG_SQL_CONTAINS, "1999", 0}}), IsEmpty());
    EXPECT_THAT(rows({{SYSLOG_SQL_FIELD_MESSAGE, SYSLOG_SQL_EQUAL, "2", 0}}), ElementsAre(second));
    EXPECT_THAT(rows({{SYSLOG_SQL_FIELD_HOST, SYSLOG_SQL_EQUAL, "host7", 0},
                      {SYSLOG_SQL_FIELD_PROGRAM, SYSLOG_SQL_CONTAINS, "SSH", 0},
                      {SYSLOG_SQL_FIELD_FACILITY, SYSLOG_SQL_EQUAL, "local0", 0},
                      {SYSLOG_SQL_FIELD_SENDER, SYSLOG_SQL_NOT_EQUAL, "nobody", 0},
                      {SYSLOG_SQL_FIELD_SEVERITY, SYSLOG_SQL_EQUAL, "", 6}}),
                ElementsAre("1 2024-03-03 12:00:00", second, third));
}

TEST_F(OriginalTexts, DoNotChangeTheOrderByTime) {
    makeWith(3, "(1, '9999-12-31', '23:59:59', NULL)");
    execute("UPDATE logs SET utcsec = utcsec - 10 WHERE id = 3");
    _SYSLOG_SQL_ORDER_tag rising{0, 1};
    _SYSLOG_SQL_ORDER_tag falling{1, 1};
    const std::string first = "1 9999-12-31 23:59:59";
    const std::string second = "2 2024-03-03 12:00:01";
    const std::string third = "3 2024-03-03 11:59:52";
    EXPECT_THAT(rows({}, nullptr, &rising), ElementsAre(third, first, second));
    EXPECT_THAT(rows({}, nullptr, &falling), ElementsAre(second, first, third));
}

TEST_F(OriginalTexts, AreThereOnEachPageOfEachWalk) {
    constexpr size_t kRows = 200;
    makeDatabase(path, numberedTexts(kRows));
    execute(std::string(kMakeTable) +
            "INSERT INTO original_texts SELECT id, 'day ' || id, 'time ' || id, NULL"
            " FROM logs WHERE id % 3 = 0; UPDATE logs SET utcsec = utcsec - id % 7");
    for (_SYSLOG_SQL_ORDER_tag order : {_SYSLOG_SQL_ORDER_tag{0, 7}, {1, 7}, {0, 1}, {1, 1}}) {
        const Texts whole = rows({}, nullptr, &order);
        ASSERT_EQ(whole.size(), kRows);
        Texts walked;
        for (_SYSLOG_SQL_LIMIT_tag limit{17, 0}; limit.offset < static_cast<long long>(kRows);
             limit.offset += limit.rows) {
            for (std::string& row : rows({}, &limit, &order))
                walked.push_back(std::move(row));
        }
        EXPECT_EQ(walked, whole) << "order " << order.direction << " " << order.column;
    }
}

TEST_F(OriginalTexts, AreThereInALongSelection) {
    constexpr size_t kRows = 30'000;
    makeDatabase(path, numberedTexts(kRows));
    execute(std::string("UPDATE logs SET utcoff = 0, utcsec = 0;") + kMakeTable +
            "INSERT INTO original_texts SELECT id, 'day', 'time', NULL FROM logs WHERE id % 5 = 0");
    const Texts found = rows();
    ASSERT_EQ(found.size(), kRows);
    for (size_t id = 1; id <= kRows; ++id) {
        ASSERT_EQ(found[id - 1], std::to_string(id) + (id % 5 == 0 ? " day time" : " 1970-01-01 00:00:00"));
    }
}

// ---- what is no such table

struct OtherTable {
    const char* name;
    const char* sql;
};

class NoOriginalTexts : public OriginalTexts, public ::testing::WithParamInterface<OtherTable> {};

TEST_P(NoOriginalTexts, LeavesTheRowsAsTheyAre) {
    makeDatabase(path, numberedTexts(2));
    execute(std::string("UPDATE logs SET utcoff = 0;") + GetParam().sql);
    EXPECT_THAT(rows(), ElementsAre("1 2024-03-03 12:00:00", "2 2024-03-03 12:00:01"));
}

INSTANTIATE_TEST_SUITE_P(
    Tables, NoOriginalTexts,
    ::testing::Values(OtherTable{"Empty", kMakeTable},
                      OtherTable{"NoKey",
                                 "CREATE TABLE original_texts (log_id INTEGER, ldate TEXT, ltime TEXT);"
                                 "INSERT INTO original_texts VALUES(1, 'a', 'b'), (1, 'c', 'd')"},
                      OtherTable{"NoRowId",
                                 "CREATE TABLE original_texts (ldate TEXT, ltime TEXT);"
                                 "INSERT INTO original_texts VALUES('a', 'b')"},
                      OtherTable{"View",
                                 "CREATE VIEW original_texts AS SELECT 1 AS log_id, 'a' AS ldate, 'b' AS ltime"}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_F(OriginalTexts, WithoutTheirColumnsAreADamageAndNotAGuess) {
    makeDatabase(path, numberedTexts(1));
    execute("CREATE TABLE original_texts (log_id INTEGER PRIMARY KEY)");
    Conditions all;
    Texts texts;
    EXPECT_LT(SyslogDBSelect(path, all, nullptr, nullptr, collect, &texts, false), 0);
    EXPECT_THAT(texts, IsEmpty());
}

TEST_F(OriginalTexts, OfADatabaseOfTheOldLayoutAreItsOwn) {
    contract::makeLinuxVersion1Database(path, test::rowsOf({"1"}));
    execute(std::string("UPDATE logs SET ldate = '2024-3-5', ltime = '';") + kMakeTable +
            "INSERT INTO original_texts VALUES(1, 'a', 'b', NULL)");
    EXPECT_THAT(rows(), ElementsAre("1 2024-3-5 "));
}

TEST_F(OriginalTexts, AreSeenFromThePageOnBeforeWhichTheyCame) {
    makeDatabase(path, numberedTexts(4));
    execute("UPDATE logs SET utcoff = 0");
    _SYSLOG_SQL_LIMIT_tag limit{2, 0};
    EXPECT_THAT(rows({}, &limit), ElementsAre("1 2024-03-03 12:00:00", "2 2024-03-03 12:00:01"));
    execute(std::string(kMakeTable) + "INSERT INTO original_texts VALUES(4, 'day', 'time', NULL)");
    limit.offset = 2;
    EXPECT_THAT(rows({}, &limit), ElementsAre("3 2024-03-03 12:00:02", "4 day time"));
}

TEST_F(OriginalTexts, OnAReadOnlyFileSystemCanBeRead) {
    makeWith(2, "(2, 'day', 'time', NULL)");
    const int result = test::runInChild([&] {
        if (!test::enterPrivateMounts()) return test::kSkip;
        const char* place = folder.path().c_str();
        if (::mount(place, place, nullptr, MS_BIND, nullptr) != 0) return test::kSkip;
        if (::mount(nullptr, place, nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) != 0) return test::kSkip;
        return rows() == Texts{"1 2024-03-03 12:00:00", "2 day time"} ? 0 : 1;
    });
    if (result == test::kSkip) GTEST_SKIP() << "no mount namespace here";
    EXPECT_EQ(result, 0);
}

}  // namespace
}  // namespace ombrel
