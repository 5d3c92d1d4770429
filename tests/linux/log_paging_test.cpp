// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Pages of any size at any offset give the rows that OFFSET gives, whatever was read or changed before.
#include <gmock/gmock.h>

#include <filesystem>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "linux/vesksyslog/page_positions.h"
#include "platform/vesksyslog.h"
#include "tests/linux/child_process.h"
#include "tests/linux/test_database.h"

namespace ombrel {
namespace {

using Conditions = std::list<_SYSLOG_SQL_COND_tag>;

constexpr long long kNoonOfMarch = 1709467200;  // 2024-03-03 12:00 UTC

int collectIds(_SYSLOG_LOG_DATA_tag& row, void* context) {
    static_cast<std::vector<std::string>*>(context)->push_back(row.rowId);
    return 0;
}

struct Walk {
    _SYSLOG_SQL_ORDER_tag order;
    const char* orderSql;
    Conditions conditions;
    const char* conditionSql;
};

std::vector<Walk> walks() {
    const Conditions evens = {{SYSLOG_SQL_FIELD_MESSAGE, SYSLOG_SQL_CONTAINS, "EVEN", 0}};
    const Conditions host = {{SYSLOG_SQL_FIELD_HOST, SYSLOG_SQL_EQUAL, "host3", 0}};
    return {{{0, 7}, "id", {}, "1"},
            {{1, 0}, "id DESC", {}, "1"},
            {{0, 1}, "utcsec, id", {}, "1"},
            {{1, 1}, "utcsec DESC, id DESC", {}, "1"},
            {{0, 7}, "id", evens, "msg LIKE '%even%'"},
            {{1, 1}, "utcsec DESC, id DESC", evens, "msg LIKE '%even%'"},
            {{0, 0}, "id", host, "host = (SELECT id FROM hosts WHERE name = 'host3')"}};
}

class Paging : public ::testing::Test {
protected:
    void SetUp() override { makeRows(500); }

    void makeRows(int count) {
        std::vector<contract::Row> rows;
        for (int i = 0; i < count; ++i) {
            rows.push_back({kNoonOfMarch + i * 7 % 50, i % 8, "host" + std::to_string(i % 5), "user", "p",
                            std::to_string(i) + (i % 2 == 0 ? " even" : " odd")});
        }
        contract::makeLinuxLogDatabase(path, rows);
    }
    void execute(const std::string& sql) {
        Connection connection;
        ASSERT_EQ(connection.open(path, OpenMode::kReadWrite), 0);
        ASSERT_EQ(connection.execute(sql.c_str()), 0) << connection.lastMessage();
    }
    void addRows(int count) {
        execute("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " +
                std::to_string(count) +
                ") INSERT INTO logs(utcsec, rutcsec, utcoff, host, sender, facility, severity, program, msg)"
                " SELECT " +
                std::to_string(kNoonOfMarch) + " + i * 3 % 60, 1, 0, 1 + i % 5, 1, 1, 6, 1, 'added even' FROM n");
    }
    std::vector<std::string> page(const Walk& walk, long long rows, long long offset) {
        std::vector<std::string> ids;
        Conditions conditions = walk.conditions;
        _SYSLOG_SQL_ORDER_tag order = walk.order;
        _SYSLOG_SQL_LIMIT_tag limit{rows, offset};
        EXPECT_EQ(SyslogDBSelect(path, conditions, &limit, &order, collectIds, &ids, false), 0);
        return ids;
    }
    std::vector<std::string> reference(const Walk& walk, long long rows, long long offset) {
        const std::string sql = std::string("SELECT id FROM logs WHERE ") + walk.conditionSql + " ORDER BY " +
                                walk.orderSql + " LIMIT " + std::to_string(rows) + " OFFSET " +
                                std::to_string(offset);
        Connection connection;
        Statement statement;
        EXPECT_EQ(connection.open(path, OpenMode::kReadWrite), 0);
        EXPECT_EQ(statement.prepare(connection, sql), 0);
        std::vector<std::string> ids;
        while (statement.step() == Statement::kRow)
            ids.emplace_back(statement.columnText(0));
        return ids;
    }

    test::TemporaryFolder folder;
    std::string path = folder.at("logs.DB");
};

TEST_F(Paging, GivesTheRowsOfTheOffsetWhateverWasReadBefore) {
    std::mt19937 random(7);
    const auto below = [&](int limit) { return static_cast<int>(random() % static_cast<unsigned>(limit)); };
    const std::vector<Walk> all = walks();
    std::vector<long long> next(all.size(), 0);
    for (int step = 0; step < 2000; ++step) {
        const auto which = static_cast<size_t>(below(static_cast<int>(all.size())));
        const long long rows = below(10) == 0 ? -1 : below(60);
        if (below(4) == 0) next[which] = below(700);  // a jump; otherwise the walk goes on
        const auto ids = page(all[which], rows, next[which]);
        ASSERT_EQ(ids, reference(all[which], rows, next[which]))
            << "walk " << which << ", " << rows << " rows from " << next[which] << ", step " << step;
        next[which] += static_cast<long long>(ids.size());
        if (next[which] > 700) next[which] = 0;
        if (below(40) == 0) addRows(1 + below(5));
        if (below(300) == 0) makeRows(300 + below(300));
    }
}

TEST_F(Paging, NoticesAnotherFileOfTheSameName) {
    const Walk walk = walks().front();
    ASSERT_EQ(page(walk, 100, 0).size(), 100U);
    // The file system may well give the new file the number of the old one.
    for (int round = 0; round < 5; ++round) {
        std::filesystem::remove(path);
        makeRows(500);
        execute("UPDATE logs SET id = id + 1000");
        EXPECT_EQ(page(walk, 1, 100), std::vector<std::string>{"1101"});
    }
}

TEST_F(Paging, NoticesRowsThatWereTakenAway) {
    const Walk walk = walks().front();
    ASSERT_EQ(page(walk, 100, 0).size(), 100U);
    execute("DELETE FROM logs WHERE id = 100");
    EXPECT_EQ(page(walk, 1, 99), std::vector<std::string>{"101"});
    EXPECT_EQ(page(walk, 1, 100), std::vector<std::string>{"102"}) << "the row that the page ended with is gone";
}

TEST_F(Paging, GoesOnBesideAWriterWithoutDoubledRows) {
    const Walk walk = walks().front();
    std::vector<std::string> read;
    for (long long offset = 0; offset < 500; offset += 50) {
        for (auto& id : page(walk, 50, offset))
            read.push_back(std::move(id));
        addRows(3);
    }
    ASSERT_EQ(read.size(), 500U);
    for (size_t i = 0; i < read.size(); ++i)
        EXPECT_EQ(read[i], std::to_string(i + 1));
}

TEST_F(Paging, SeveralThreadsWalkTheirOwnWays) {
    const std::vector<Walk> all = walks();
    std::vector<std::thread> threads;
    for (size_t thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&, thread] {
            const Walk& walk = all[thread];
            for (long long offset = 0; offset < 500; offset += 20)
                EXPECT_EQ(page(walk, 20, offset), reference(walk, 20, offset));
        });
    }
    for (auto& thread : threads)
        thread.join();
}

TEST(PagePositionMemory, FindsTheFarthestPositionThatIsNotBehind) {
    PagePositions memory;
    const FileState file{1, 2, 3, 4};
    for (const long long offset : {100, 300, 200})
        memory.remember({"walk", file, offset, offset + 1, 0});
    EXPECT_FALSE(memory.find("walk", file, 99));
    EXPECT_EQ(memory.find("walk", file, 100)->offset, 100);
    EXPECT_EQ(memory.find("walk", file, 299)->offset, 200);
    EXPECT_EQ(memory.find("walk", file, 1000)->lastId, 301);
    EXPECT_FALSE(memory.find("another", file, 1000));
    EXPECT_FALSE(memory.find("walk", FileState{1, 2, 9, 4}, 1000)) << "born at another time";
}

TEST(PagePositionMemory, ForgetsTheLongestUnused) {
    PagePositions memory;
    const FileState file{1, 2, 3, 4};
    memory.remember({"kept", file, 1, 1, 0});
    for (size_t i = 0; i < PagePositions::kCapacity * 3; ++i) {
        memory.remember({"walk" + std::to_string(i), file, 1, 1, 0});
        ASSERT_TRUE(memory.find("kept", file, 1)) << "used all the time";
    }
    EXPECT_FALSE(memory.find("walk0", file, 1));
}

}  // namespace
}  // namespace ombrel
