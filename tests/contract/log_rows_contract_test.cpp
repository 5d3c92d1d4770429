// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Reading the rows of a log database, on every platform.
#include <gmock/gmock.h>

#include <list>
#include <numeric>
#include <string>
#include <vector>

#include "platform/vesksyslog.h"
#include "tests/contract/contract_fixture.h"

namespace ombrel::contract {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

using Condition = _SYSLOG_SQL_COND_tag;
using Conditions = std::list<Condition>;

constexpr long long kNoon = 1709467200;  // 2024-03-03 12:00 UTC
constexpr _SYSLOG_SQL_ORDER_tag kArrival = {0, 7};

int collect(_SYSLOG_LOG_DATA_tag& row, void* context) {
    static_cast<std::vector<_SYSLOG_LOG_DATA_tag>*>(context)->push_back(row);
    return 0;
}

class LogRows : public ContractTest {
protected:
    void make(const std::vector<Row>& rows) { ASSERT_TRUE(world->makeLogDatabase(path, rows)) << world->whyNot(); }
    std::vector<_SYSLOG_LOG_DATA_tag> select(Conditions conditions, _SYSLOG_SQL_LIMIT_tag limit,
                                             _SYSLOG_SQL_ORDER_tag order) {
        std::vector<_SYSLOG_LOG_DATA_tag> rows;
        EXPECT_EQ(SyslogDBSelect(path, conditions, &limit, &order, collect, &rows, false), 0);
        return rows;
    }
    std::vector<std::string> messages(const Conditions& conditions, _SYSLOG_SQL_LIMIT_tag limit = {-1, 0},
                                      _SYSLOG_SQL_ORDER_tag order = kArrival) {
        std::vector<std::string> texts;
        for (const auto& row : select(conditions, limit, order))
            texts.push_back(row.message);
        return texts;
    }
    int count(Conditions conditions) { return SyslogDBSelectCount(path, conditions, nullptr, nullptr); }

    std::string path = at("logs.DB");
};

TEST_F(LogRows, CarryEveryMember) {
    make({{kNoon, 3, "host7", "local0", "sshd", "Accepted publickey", "4711", "LOGIN", "192.0.2.7", kNoon + 2}});
    const auto rows = select({}, {10, 0}, kArrival);
    ASSERT_EQ(rows.size(), 1U);
    const _SYSLOG_LOG_DATA_tag& row = rows.front();
    EXPECT_EQ(row.rowId, "1");
    EXPECT_EQ(row.timestamp, std::to_string(kNoon));
    EXPECT_EQ(row.receiveTime, std::to_string(kNoon + 2));
    EXPECT_EQ(row.priority, SYSLOG_DB_PRIORITY_ERR);
    EXPECT_EQ(row.senderId, "1");
    EXPECT_EQ(row.hostId, "1");
    EXPECT_EQ(row.processId, "4711");
    EXPECT_EQ(row.facilityId, "1");
    EXPECT_EQ(row.messageId, "LOGIN");
    EXPECT_EQ(row.date, "2024-03-03");
    EXPECT_EQ(row.time.size(), 8U);
    EXPECT_EQ(row.programId, "1");
    EXPECT_EQ(row.message, "Accepted publickey");
}

TEST_F(LogRows, OfTheOldLayoutCarryTextsInPlaceOfIds) {
    ASSERT_TRUE(world->makeVersion1Database(path, {{kNoon, 3, "host7", "local0", "sshd", "old"}}))
        << world->whyNot();
    const auto rows = select({}, {10, 0}, kArrival);
    ASSERT_EQ(rows.size(), 1U);
    EXPECT_EQ(rows.front().hostId, "host7");
    EXPECT_EQ(rows.front().facilityId, "local0");
    EXPECT_EQ(rows.front().programId, "sshd");
    EXPECT_EQ(rows.front().priority, SYSLOG_DB_PRIORITY_ERR);
    EXPECT_EQ(rows.front().date, "2024-03-03");
    EXPECT_EQ(rows.front().message, "old");
    EXPECT_EQ(count({}), 1);
}

TEST_F(LogRows, OfTheOldLayoutAreFoundByTheirIdsToo) {
    ASSERT_TRUE(world->makeVersion1Database(
        path,
        {{kNoon, 3, "h", "user", "p", "a"}, {kNoon, 3, "h", "user", "p", "b"}, {kNoon, 3, "h", "user", "p", "c"}}))
        << world->whyNot();
    const Conditions between = {{SYSLOG_SQL_FIELD_ROW, SYSLOG_SQL_AT_LEAST, "", 2},
                                {SYSLOG_SQL_FIELD_ROW, SYSLOG_SQL_AT_MOST, "", 3}};
    EXPECT_THAT(messages(between, {-1, 0}, {1, 7}), ElementsAre("c", "b"));
    EXPECT_EQ(count(between), 2);
}

TEST_F(LogRows, ComeInTheOrderAskedFor) {
    make({{kNoon + 5, 6, "h", "user", "p", "a"},
          {kNoon, 6, "h", "user", "p", "b"},
          {kNoon + 5, 6, "h", "user", "p", "c"},
          {kNoon + 1, 6, "h", "user", "p", "d"}});
    EXPECT_THAT(messages({}, {-1, 0}, {0, 7}), ElementsAre("a", "b", "c", "d"));
    EXPECT_THAT(messages({}, {-1, 0}, {0, 0}), ElementsAre("a", "b", "c", "d"));
    EXPECT_THAT(messages({}, {-1, 0}, {1, 7}), ElementsAre("d", "c", "b", "a"));
    EXPECT_THAT(messages({}, {-1, 0}, {0, 1}), ElementsAre("b", "d", "a", "c"));
    EXPECT_THAT(messages({}, {-1, 0}, {1, 1}), ElementsAre("c", "a", "d", "b"));
}

TEST_F(LogRows, ComeInTheOrderOfArrivalWithoutAnOrder) {
    make({{kNoon + 5, 6, "h", "user", "p", "a"}, {kNoon, 6, "h", "user", "p", "b"}});
    Conditions all;
    std::vector<_SYSLOG_LOG_DATA_tag> rows;
    ASSERT_EQ(SyslogDBSelect(path, all, nullptr, nullptr, collect, &rows, true), 0);
    ASSERT_EQ(rows.size(), 2U);
    EXPECT_EQ(rows.front().message, "a");
}

TEST_F(LogRows, ComeInPages) {
    for (const long long total : {10'000LL, 10'001LL, 20'000LL}) {
        std::vector<Row> rows(static_cast<size_t>(total));
        for (size_t i = 0; i < rows.size(); ++i)
            rows[i] = {kNoon, 6, "h", "user", "p", std::to_string(i)};
        make(rows);
        ASSERT_EQ(count({}), total);
        std::vector<std::string> read;
        for (long long offset = 0; offset < total; offset += 10'000) {
            for (const auto& text : messages({}, {10'000, offset}))
                read.push_back(text);
        }
        std::vector<std::string> expected;
        for (const Row& row : rows)
            expected.push_back(row.message);
        EXPECT_EQ(read, expected) << total << " rows";
    }
}

TEST_F(LogRows, EndBehindTheLastOne) {
    make({{kNoon, 6, "h", "user", "p", "a"}, {kNoon, 6, "h", "user", "p", "b"}});
    EXPECT_THAT(messages({}, {10, 1}), ElementsAre("b"));
    EXPECT_THAT(messages({}, {10, 2}), IsEmpty());
    EXPECT_THAT(messages({}, {10, 1'000'000'000'000}), IsEmpty());
    EXPECT_THAT(messages({}, {0, 0}), IsEmpty());
}

TEST_F(LogRows, EndWhenTheCallbackHasHadEnough) {
    make({{kNoon, 6, "h", "user", "p", "a"}, {kNoon, 6, "h", "user", "p", "b"}});
    Conditions all;
    int calls = 0;
    const auto refuse = [](_SYSLOG_LOG_DATA_tag& /*row*/, void* context) {
        ++*static_cast<int*>(context);
        return -1;
    };
    EXPECT_LT(SyslogDBSelect(path, all, nullptr, nullptr, refuse, &calls, false), 0);
    EXPECT_EQ(calls, 1);
}

TEST_F(LogRows, CannotBeReadFromNoDatabase) {
    Conditions all;
    std::vector<_SYSLOG_LOG_DATA_tag> rows;
    EXPECT_LT(SyslogDBSelect(path, all, nullptr, nullptr, collect, &rows, false), 0);
    EXPECT_LT(count({}), 0);
    world->writeFile(path, "text\n");
    EXPECT_LT(SyslogDBSelect(path, all, nullptr, nullptr, collect, &rows, false), 0);
    EXPECT_LT(count({}), 0);
    EXPECT_THAT(rows, IsEmpty());
}

TEST_F(LogRows, KeepTheBytesOfTheirTexts) {
    const std::vector<std::string> texts = {"tab\there",
                                            "line\r\nbreak",
                                            "not UTF-8: \xff\xfe\x80",
                                            "\x1b[31mred",
                                            "'; DROP TABLE logs; --",
                                            "quote\" and \\",
                                            std::string(65'536, 'x'),
                                            ""};
    std::vector<Row> rows;
    for (const std::string& text : texts)
        rows.push_back({kNoon, 6, "h", "user", "p", text});
    make(rows);
    EXPECT_THAT(messages({}), ElementsAreArray(texts));
}

struct ConditionCase {
    const char* name;
    Conditions conditions;
    std::vector<std::string> expected;
};

class ConditionsOnLogRows : public LogRows, public ::testing::WithParamInterface<ConditionCase> {};

TEST_P(ConditionsOnLogRows, SelectAndCount) {
    make({{kNoon, 0, "host7", "kern", "kernel", "Panic at 100%", "", "", "192.0.2.7"},
          {kNoon + 1, 3, "HOST8", "local0", "sshd", "o'Neil failed_login", "", "", "192.0.2.8"},
          {kNoon + 2, 6, "host7", "local0", "sshd", "failed login", "", "", "192.0.2.7"},
          {kNoon + 3, 7, "x' OR '1'='1", "user", "cron", "panic \xff", "", "", "2001:db8::1"}});
    EXPECT_EQ(messages(GetParam().conditions), GetParam().expected);
    EXPECT_EQ(count(GetParam().conditions), static_cast<int>(GetParam().expected.size()));
}

constexpr auto kHost = SYSLOG_SQL_FIELD_HOST;
constexpr auto kMessage = SYSLOG_SQL_FIELD_MESSAGE;
constexpr auto kSeverity = SYSLOG_SQL_FIELD_SEVERITY;
constexpr auto kTime = SYSLOG_SQL_FIELD_TIME;
constexpr auto kRow = SYSLOG_SQL_FIELD_ROW;
constexpr auto kEqual = SYSLOG_SQL_EQUAL;
constexpr auto kNotEqual = SYSLOG_SQL_NOT_EQUAL;
constexpr auto kContains = SYSLOG_SQL_CONTAINS;

const char* const kPercent = "Panic at 100%";
const char* const kNeil = "o'Neil failed_login";
const char* const kLogin = "failed login";
const char* const kBytes = "panic \xff";

INSTANTIATE_TEST_SUITE_P(
    Table, ConditionsOnLogRows,
    ::testing::Values(
        ConditionCase{"HostIs", {{kHost, kEqual, "host7", 0}}, {kPercent, kLogin}},
        ConditionCase{"HostIsNot", {{kHost, kNotEqual, "host7", 0}}, {kNeil, kBytes}},
        ConditionCase{"HostCaseMattersWhenEqual", {{kHost, kEqual, "host8", 0}}, {}},
        ConditionCase{"HostContains", {{kHost, kContains, "OST", 0}}, {kPercent, kNeil, kLogin}},
        ConditionCase{"HostLooksLikeSql", {{kHost, kEqual, "x' OR '1'='1", 0}}, {kBytes}},
        ConditionCase{"ProgramIs", {{SYSLOG_SQL_FIELD_PROGRAM, kEqual, "sshd", 0}}, {kNeil, kLogin}},
        ConditionCase{"SenderIs", {{SYSLOG_SQL_FIELD_SENDER, kEqual, "192.0.2.7", 0}}, {kPercent, kLogin}},
        ConditionCase{"FacilityIs", {{SYSLOG_SQL_FIELD_FACILITY, kEqual, "local0", 0}}, {kNeil, kLogin}},
        ConditionCase{"SeverityIs", {{kSeverity, kEqual, "", 6}}, {kLogin}},
        ConditionCase{"SeverityIsNot", {{kSeverity, kNotEqual, "", 6}}, {kPercent, kNeil, kBytes}},
        ConditionCase{"SeverityAtMost", {{kSeverity, SYSLOG_SQL_AT_MOST, "", 3}}, {kPercent, kNeil}},
        ConditionCase{"TimeAtLeast", {{kTime, SYSLOG_SQL_AT_LEAST, "", kNoon + 2}}, {kLogin, kBytes}},
        ConditionCase{"TimeBetween",
                      {{kTime, SYSLOG_SQL_AT_LEAST, "", kNoon + 1}, {kTime, SYSLOG_SQL_AT_MOST, "", kNoon + 2}},
                      {kNeil, kLogin}},
        ConditionCase{"RowIs", {{kRow, kEqual, "", 2}}, {kNeil}},
        ConditionCase{"RowIsNot", {{kRow, kNotEqual, "", 2}}, {kPercent, kLogin, kBytes}},
        ConditionCase{"RowAtLeast", {{kRow, SYSLOG_SQL_AT_LEAST, "", 3}}, {kLogin, kBytes}},
        ConditionCase{
            "RowBetween",
            {{kRow, SYSLOG_SQL_AT_LEAST, "", 2}, {kRow, SYSLOG_SQL_AT_MOST, "", 3}, {kHost, kEqual, "host7", 0}},
            {kLogin}},
        ConditionCase{"NoRowIsSoFar", {{kRow, SYSLOG_SQL_AT_LEAST, "", 5}}, {}},
        ConditionCase{"MessageIs", {{kMessage, kEqual, "failed login", 0}}, {kLogin}},
        ConditionCase{"MessageIsNot", {{kMessage, kNotEqual, "failed login", 0}}, {kPercent, kNeil, kBytes}},
        ConditionCase{"MessageContainsInAnyCase", {{kMessage, kContains, "pANIC", 0}}, {kPercent, kBytes}},
        ConditionCase{"PercentIsNoWildcard", {{kMessage, kContains, "100%", 0}}, {kPercent}},
        ConditionCase{"PercentAloneIsNoWildcard", {{kMessage, kContains, "%", 0}}, {kPercent}},
        ConditionCase{"UnderscoreIsNoWildcard", {{kMessage, kContains, "d_l", 0}}, {kNeil}},
        ConditionCase{"QuoteIsNoEnd", {{kMessage, kContains, "o'neil", 0}}, {kNeil}},
        ConditionCase{"BytesThatAreNoUtf8", {{kMessage, kContains, "\xff", 0}}, {kBytes}},
        ConditionCase{
            "EverythingContainsNothing", {{kMessage, kContains, "", 0}}, {kPercent, kNeil, kLogin, kBytes}},
        ConditionCase{"AllOfThemTogether",
                      {{kHost, kEqual, "host7", 0}, {kMessage, kContains, "LOGIN", 0}, {kSeverity, kEqual, "", 6}},
                      {kLogin}},
        ConditionCase{"NothingMeetsBoth", {{kHost, kEqual, "host7", 0}, {kHost, kEqual, "HOST8", 0}}, {}}),
    [](const auto& test) { return std::string(test.param.name); });

}  // namespace
}  // namespace ombrel::contract
