// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/store/working_database.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "linux/common/receipts.h"
#include "tests/receiver/database_probe.h"
#include "tests/receiver/in_zone.h"
#include "tests/receiver/temp_folder.h"

namespace ombrel {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

constexpr std::int64_t kNoon = 1784548800;  // 2026-07-20 12:00:00 UTC

class WorkingDatabaseTest : public testing::Test {
protected:
    // One row whose text is `text` and whose receipt id is `number`.
    static LogRow rowOf(std::uint64_t number, std::string_view text) {
        LogRow row;
        row.id = {7, number};
        row.time = kNoon + static_cast<std::int64_t>(number);
        row.received = row.time + 1;
        row.host = "host";
        row.sender = "192.0.2.1";
        row.parsed.message = text;
        return row;
    }
    static std::vector<RowBatch> batchOf(std::vector<std::pair<std::uint64_t, std::string_view>> rows,
                                         const std::string& receiver = "bsd-tcp") {
        RowBatch batch{receiver, {}};
        for (const auto& [number, text] : rows)
            batch.rows.push_back(rowOf(number, text));
        return {batch};
    }
    StoreOutcome store(const std::vector<RowBatch>& batches) { return database.store(batches, clock); }
    static void makeOldDatabase(const std::string& file) {
        Connection connection;
        ASSERT_EQ(connection.open(file, OpenMode::kCreate), 0);
        ASSERT_EQ(
            connection.execute("CREATE TABLE logs(id INTEGER PRIMARY KEY, host TEXT, facility TEXT, prio TEXT,"
                               " ldate TEXT, ltime TEXT, program TEXT, msg TEXT);"
                               "INSERT INTO logs VALUES(7, 'host7', 'local0', 'err', '2019-04-30',"
                               " '23:59:60', 'cron', 'old text')"),
            0);
    }

    TempFolder folder;
    const std::string path = folder / "VESKSYSLOGDB__ARCH.DB";
    LocalClock clock;
    WorkingDatabase database{path, schemaText()};
};

TEST_F(WorkingDatabaseTest, BeginsADatabaseAndKeepsItsInformationRecordInStep) {
    const StoreOutcome outcome = store(batchOf({{1, "a"}, {5, "b"}, {3, "c"}}));
    ASSERT_TRUE(outcome.stored) << outcome.error;
    EXPECT_EQ(outcome.rows, 3U);
    EXPECT_THAT(messages(path), ElementsAre("a", "b", "c"));
    EXPECT_THAT(query(path, "SELECT version,row_count,first_sec,last_sec FROM loginfo"),
                ElementsAre("2|3|" + std::to_string(kNoon + 1) + "|" + std::to_string(kNoon + 5)));
    EXPECT_THAT(query(path,
                      "SELECT first_day=(SELECT min(date(utcsec+utcoff,'unixepoch')) FROM logs),"
                      " last_day=(SELECT max(date(utcsec+utcoff,'unixepoch')) FROM logs)"
                      " FROM loginfo"),
                ElementsAre("1|1"));
    EXPECT_THAT(query(path, "PRAGMA journal_mode"), ElementsAre("delete")) << "a property of the writer, not WAL";
}

TEST_F(WorkingDatabaseTest, BeginsAFileOfManyWithSmallPages) {
    WorkingDatabase ofHost(folder / "host.db", schemaText(), WorkingDatabase::kHostPages);
    ASSERT_TRUE(ofHost.store(batchOf({{1, "a"}}), clock).stored);
    ASSERT_TRUE(store(batchOf({{1, "a"}})).stored);
    EXPECT_THAT(query(folder / "host.db", "PRAGMA page_size"), ElementsAre("4096"));
    EXPECT_THAT(query(path, "PRAGMA page_size"), ElementsAre("16384"));
}

TEST_F(WorkingDatabaseTest, GoesOnWithTheFileThatIsThereWhateverItsPages) {
    ASSERT_TRUE(
        WorkingDatabase(path, schemaText(), WorkingDatabase::kHostPages).store(batchOf({{1, "a"}}), clock).stored);
    ASSERT_TRUE(store(batchOf({{2, "b"}})).stored);
    EXPECT_THAT(messages(path), ElementsAre("a", "b"));
    EXPECT_THAT(query(path, "PRAGMA page_size"), ElementsAre("4096"));
}

TEST_F(WorkingDatabaseTest, FillsEveryColumn) {
    const InZone summerTime("Europe/Berlin");
    LogRow row = rowOf(1, "text");
    row.sent = kNoon - 90'000;
    row.parsed.facility = 10;
    row.parsed.severity = 2;
    row.parsed.program = "su";
    row.parsed.processId = "77";
    row.parsed.messageId = "ID";
    row.parsed.structuredData = "[a]";
    ASSERT_TRUE(store({{"", {row, rowOf(2, "bare")}}}).stored);
    EXPECT_THAT(
        query(path,
              "SELECT utcsec,rutcsec,sutcsec,utcoff,h.name,s.name,f.name,severity,p.name,pid,msgid,sdata,msg"
              " FROM logs JOIN hosts h ON h.id=host JOIN senders s ON s.id=sender JOIN facilities f ON"
              " f.id=facility JOIN programs p ON p.id=program WHERE logs.id=1"),
        ElementsAre("1784548801|1784548802|1784458800|7200|host|192.0.2.1|authpriv|2|su|77|ID|[a]|text"));
    EXPECT_THAT(
        query(path, "SELECT sutcsec IS NULL, pid IS NULL, msgid IS NULL, sdata IS NULL FROM logs WHERE id=2"),
        ElementsAre("1|1|1|1"));
}

TEST_F(WorkingDatabaseTest, KnowsABatchThatComesAgain) {
    ASSERT_TRUE(store(batchOf({{1, "a"}, {2, "b"}})).stored);
    const StoreOutcome again = store(batchOf({{1, "a"}, {2, "b"}, {3, "c"}}));
    ASSERT_TRUE(again.stored);
    EXPECT_EQ(again.rows, 1U);
    EXPECT_EQ(again.repeated, 2U);
    EXPECT_THAT(messages(path), ElementsAre("a", "b", "c"));
    EXPECT_EQ(rowCount(path), "3");
}

TEST_F(WorkingDatabaseTest, KnowsABatchThatComesAgainInPieces) {
    ASSERT_TRUE(store(batchOf({{1, "a"}, {2, "b"}, {3, "c"}})).stored);
    EXPECT_EQ(store(batchOf({{1, "a"}})).repeated, 1U);
    EXPECT_EQ(store(batchOf({{2, "b"}, {3, "c"}})).repeated, 2U);
    EXPECT_EQ(rowCount(path), "3");
}

TEST_F(WorkingDatabaseTest, KnowsItBehindABatchWithoutRows) {
    ASSERT_TRUE(store(batchOf({{1, "a"}, {2, "b"}})).stored);
    ASSERT_TRUE(store(batchOf({})).stored);
    EXPECT_EQ(store(batchOf({{1, "a"}, {2, "b"}})).repeated, 2U);
    EXPECT_EQ(rowCount(path), "2");
}

TEST_F(WorkingDatabaseTest, KnowsItAfterARestart) {
    ASSERT_TRUE(store(batchOf({{1, "a"}, {2, "b"}})).stored);
    WorkingDatabase next(path, schemaText());
    EXPECT_EQ(next.store(batchOf({{1, "a"}, {2, "b"}}), clock).repeated, 2U);
    EXPECT_EQ(rowCount(path), "2");
}

TEST_F(WorkingDatabaseTest, KeepsTheReceiversApart) {
    ASSERT_TRUE(store(batchOf({{1, "a"}}, "bsd-tcp")).stored);
    ASSERT_TRUE(store(batchOf({{1, "other"}}, "bsd-udp")).stored);
    EXPECT_EQ(store(batchOf({{1, "a"}}, "bsd-tcp")).repeated, 1U);
    EXPECT_THAT(messages(path), ElementsAre("a", "other"));
}

TEST_F(WorkingDatabaseTest, KnowsTheBatchThatTheArchivedDatabaseTook) {
    ASSERT_TRUE(store(batchOf({{1, "a"}, {2, "b"}})).stored);
    Receipts receipts;
    {
        Connection connection;
        ASSERT_EQ(connection.open(path, OpenMode::kReadOnly), 0);
        ASSERT_EQ(loadReceipts(connection, receipts), 0);
    }
    ASSERT_TRUE(saveReceiptsFile(receiptsPathOf(path), receipts));
    std::filesystem::rename(path, folder / "archive.DB");
    WorkingDatabase next(path, schemaText());
    EXPECT_EQ(next.store(batchOf({{1, "a"}, {2, "b"}, {3, "c"}}), clock).repeated, 2U);
    EXPECT_THAT(messages(path), ElementsAre("c"));
}

TEST_F(WorkingDatabaseTest, GoesOnWithoutAReceiptsFileThatIsBroken) {
    writeText(receiptsPathOf(path), "junk");
    const StoreOutcome outcome = store(batchOf({{1, "a"}}));
    EXPECT_TRUE(outcome.stored);
    EXPECT_THAT(outcome.notice, HasSubstr(receiptsPathOf(path)));
}

TEST_F(WorkingDatabaseTest, NoticesThatItWasMovedAwayAndBeginsAFreshOne) {
    ASSERT_TRUE(store(batchOf({{1, "a"}})).stored);
    std::filesystem::rename(path, folder / "archive.DB");
    const StoreOutcome outcome = store(batchOf({{1, "a"}, {2, "b"}}));
    ASSERT_TRUE(outcome.stored) << outcome.error;
    EXPECT_EQ(outcome.repeated, 1U) << "known although it was moved by hand";
    EXPECT_THAT(messages(folder / "archive.DB"), ElementsAre("a"));
    EXPECT_THAT(messages(path), ElementsAre("b"));
}

TEST_F(WorkingDatabaseTest, NoticesThatItsPlaceWasTaken) {
    ASSERT_TRUE(store(batchOf({{1, "a"}})).stored);
    std::filesystem::rename(path, folder / "archive.DB");
    WorkingDatabase other(path, schemaText());
    ASSERT_TRUE(other.store(batchOf({{9, "other"}}, ""), clock).stored);
    ASSERT_TRUE(store(batchOf({{2, "b"}})).stored);
    EXPECT_THAT(messages(path), ElementsAre("other", "b"));
}

TEST_F(WorkingDatabaseTest, BeginsInAFileOfNoLength) {
    writeText(path, "");
    ASSERT_TRUE(store(batchOf({{1, "a"}})).stored);
    EXPECT_THAT(messages(path), ElementsAre("a"));
}

struct Unusable {
    const char* name;
    std::string content;
};

class UnusableFile : public WorkingDatabaseTest, public testing::WithParamInterface<Unusable> {};

TEST_P(UnusableFile, IsSetAsideAndReceivingGoesOn) {
    writeText(path, GetParam().content);
    const StoreOutcome outcome = store(batchOf({{1, "a"}}));
    ASSERT_TRUE(outcome.stored) << outcome.error;
    EXPECT_THAT(outcome.notice, HasSubstr(path + ".corrupt-1"));
    EXPECT_THAT(messages(path), ElementsAre("a"));
    EXPECT_EQ(readText(path + ".corrupt-1"), GetParam().content);
}

INSTANTIATE_TEST_SUITE_P(
    All, UnusableFile,
    testing::Values(Unusable{"Text", std::string(5000, 'x')}, Unusable{"ShortText", "hello\n"},
                    Unusable{"HeaderOnly", std::string("SQLite format 3\0", 16) + std::string(200, '\xff')}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(WorkingDatabaseTest, SetsADatabaseThatIsNoLogDatabaseAside) {
    {
        Connection connection;
        ASSERT_EQ(connection.open(path, OpenMode::kCreate), 0);
        ASSERT_EQ(connection.execute("CREATE TABLE songs(name); INSERT INTO songs VALUES('x')"), 0);
    }
    const StoreOutcome outcome = store(batchOf({{1, "a"}}));
    ASSERT_TRUE(outcome.stored) << outcome.error;
    EXPECT_THAT(outcome.notice, HasSubstr("is no log database"));
    EXPECT_THAT(query(path + ".corrupt-1", "SELECT name FROM songs"), ElementsAre("x"));
}

TEST_F(WorkingDatabaseTest, SetsADatabaseOfTheOldLayoutAsideForItsUpgrade) {
    const std::string oldRows = "SELECT host, prio, ldate, ltime, msg FROM logs ORDER BY id";
    makeOldDatabase(path);
    const auto before = query(path, oldRows);
    const StoreOutcome outcome = store(batchOf({{1, "a"}}));
    ASSERT_TRUE(outcome.stored) << outcome.error;
    EXPECT_EQ(outcome.notice, path + " has the old layout; it was set aside as " + path +
                                  ".old-1, from where ombrel-upgrade takes it, and a new one begun");
    EXPECT_THAT(messages(path), ElementsAre("a"));
    EXPECT_EQ(query(path + ".old-1", oldRows), before);
    EXPECT_THAT(query(path + ".old-1", "PRAGMA integrity_check"), ElementsAre("ok"));
    EXPECT_FALSE(std::filesystem::exists(path + ".corrupt-1"));
}

TEST_F(WorkingDatabaseTest, SetsAnotherOneOfTheOldLayoutAsideUnderAFreeName) {
    writeText(path + ".old-1", "an older one");
    writeText(path + ".corrupt-2", "a broken one");
    makeOldDatabase(path);
    const StoreOutcome outcome = store(batchOf({{1, "a"}}));
    ASSERT_TRUE(outcome.stored) << outcome.error;
    EXPECT_THAT(outcome.notice, HasSubstr("set aside as " + path + ".old-2, from where"));
    EXPECT_THAT(query(path + ".old-2", "SELECT msg FROM logs"), ElementsAre("old text"));
    EXPECT_EQ(readText(path + ".old-1"), "an older one");
    EXPECT_EQ(readText(path + ".corrupt-2"), "a broken one");
}

TEST_F(WorkingDatabaseTest, RollsBackWhatADeadWriterLeftInADatabaseOfTheOldLayout) {
    makeOldDatabase(path);
    const std::string sound = readText(path);
    {
        Connection writer;
        ASSERT_EQ(writer.open(path, OpenMode::kReadWrite), 0);
        ASSERT_EQ(writer.execute("PRAGMA journal_mode=DELETE; PRAGMA cache_size=5; PRAGMA cache_spill=1;"
                                 "BEGIN IMMEDIATE; WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n"
                                 " WHERE i < 3000) INSERT INTO logs(msg) SELECT 'never committed' FROM n"),
                  0);
        std::filesystem::copy_file(path, path + ".torn");
        std::filesystem::copy_file(path + "-journal", path + ".torn-journal");
    }
    ASSERT_NE(readText(path + ".torn"), sound);
    std::filesystem::rename(path + ".torn", path);
    std::filesystem::rename(path + ".torn-journal", path + "-journal");
    ASSERT_TRUE(store(batchOf({{1, "a"}})).stored);
    EXPECT_THAT(query(path + ".old-1", "SELECT msg FROM logs"), ElementsAre("old text"));
    EXPECT_THAT(messages(path), ElementsAre("a"));
}

TEST_F(WorkingDatabaseTest, SetsADatabaseThatBreaksWhileItIsOpenAside) {
    std::vector<RowBatch> many{{"bsd-tcp", {}}};
    const std::string text(2000, 't');
    for (std::uint64_t number = 0; number < 400; ++number)
        many[0].rows.push_back(rowOf(number, text));
    ASSERT_TRUE(store(many).stored);
    const auto size = std::filesystem::file_size(path);
    std::filesystem::resize_file(path, size / 2 / 4096 * 4096);
    writeText(path + ".corrupt-1", "an older one");
    const StoreOutcome outcome = store(batchOf({{1000, "a"}}));
    ASSERT_TRUE(outcome.stored) << outcome.error;
    EXPECT_THAT(outcome.notice, HasSubstr(path + ".corrupt-2"));
    EXPECT_THAT(messages(path), ElementsAre("a"));
    EXPECT_EQ(readText(path + ".corrupt-1"), "an older one");
}

TEST_F(WorkingDatabaseTest, FailsWhileAnotherProgramHoldsTheFileAndGoesOnAfterwards) {
    ASSERT_TRUE(store(batchOf({{1, "a"}})).stored);
    {
        Connection other;
        ASSERT_EQ(other.open(path, OpenMode::kReadWrite), 0);
        ASSERT_EQ(other.execute("BEGIN EXCLUSIVE"), 0);
        const StoreOutcome outcome = store(batchOf({{2, "b"}}));
        EXPECT_FALSE(outcome.stored);
        EXPECT_THAT(outcome.error, HasSubstr("another program has it"));
    }
    ASSERT_TRUE(store(batchOf({{2, "b"}})).stored);
    EXPECT_THAT(messages(path), ElementsAre("a", "b"));
}

TEST_F(WorkingDatabaseTest, FailsWhileAMoverHoldsTheTurnstile) {
    ASSERT_TRUE(store(batchOf({{1, "a"}})).stored);
    Turnstile mover;
    ASSERT_TRUE(mover.open(path));
    ASSERT_EQ(mover.hold(std::chrono::milliseconds(0)), TurnstileResult::kEntered);
    const StoreOutcome outcome = store(batchOf({{2, "b"}}));
    EXPECT_FALSE(outcome.stored);
    EXPECT_THAT(outcome.error, HasSubstr("is being moved"));
    mover.leave();
    EXPECT_TRUE(store(batchOf({{2, "b"}})).stored);
}

TEST_F(WorkingDatabaseTest, MakesItsFolderButNotAWholeTree) {
    WorkingDatabase below(folder / "logs/host/VESKSYSLOGDB_host.DB", schemaText());
    EXPECT_TRUE(below.store(batchOf({{1, "a"}}), clock).stored);
    WorkingDatabase nowhere(folder / "volume/share/logs/host/VESKSYSLOGDB_host.DB", schemaText());
    const StoreOutcome outcome = nowhere.store(batchOf({{1, "a"}}), clock);
    EXPECT_FALSE(outcome.stored);
    EXPECT_THAT(outcome.error, HasSubstr("No such file or directory"));
    EXPECT_FALSE(std::filesystem::exists(folder / "volume"));
}

TEST_F(WorkingDatabaseTest, EntersANameOnceHoweverManyRowsHaveIt) {
    ASSERT_TRUE(store(batchOf({{1, "a"}, {2, "b"}})).stored);
    WorkingDatabase other(path, schemaText());
    ASSERT_TRUE(other.store(batchOf({{3, "c"}}), clock).stored);
    EXPECT_THAT(query(path, "SELECT name FROM hosts"), SizeIs(1));
    EXPECT_THAT(query(path, "SELECT DISTINCT host FROM logs"), SizeIs(1));
}

}  // namespace
}  // namespace ombrel
