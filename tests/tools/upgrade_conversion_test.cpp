// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <utility>

#include "tests/receiver/in_zone.h"
#include "tests/support/old_database.h"
#include "tests/tools/upgrade_world.h"

namespace ombrel {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using Step = TestWatch::Step;

class UpgradeConversion : public testing::Test {
protected:
    // 350 rows: three pages and a half.
    void makeOld(int rows = 350) { runSql(oldPath, kOldSchema + (rows > 0 ? oldRowsSql(rows) : std::string())); }

    Conversion convert(long long pageRows = 100) {
        OldDatabase old;
        Conversion conversion;
        conversion.outcome.error = old.open(oldPath);
        if (!conversion.outcome.error.empty()) return conversion;
        return convertDatabase(old, newPath, watch, testOptions(pageRows));
    }
    void expectDone(const Conversion& conversion) {
        EXPECT_EQ(conversion.outcome.end, UpgradeEnd::kDone);
        EXPECT_THAT(conversion.outcome.error, IsEmpty());
    }
    // The new file shows what the old one shows, and its record says what its rows say.
    void expectEqual() {
        EXPECT_EQ(exported(newPath), exported(oldPath));
        EXPECT_EQ(query(newPath, "SELECT row_count, first_sec, last_sec, first_day, last_day FROM loginfo"),
                  query(newPath,
                        "SELECT COUNT(*), MIN(utcsec), MAX(utcsec), MIN(date(utcsec + utcoff, 'unixepoch')),"
                        " MAX(date(utcsec + utcoff, 'unixepoch')) FROM logs"));
        EXPECT_THAT(query(newPath, "SELECT name FROM senders WHERE id IN (SELECT sender FROM logs)"),
                    ElementsAre(""));
        EXPECT_THAT(query(newPath, "PRAGMA integrity_check"), ElementsAre("ok"));
        EXPECT_THAT(query(newPath, "PRAGMA user_version"), ElementsAre("0"));
        EXPECT_FALSE(std::filesystem::exists(newPath + "-journal"));
    }
    // Lets a run come as far as that, then another one run to its end.
    void stopAndGoOn(UpgradeStage stage, long long done) {
        watch.stopAt(stage, done);
        EXPECT_EQ(convert().outcome.end, UpgradeEnd::kStopped);
        watch.forget();
    }

    TempFolder folder;
    std::string oldPath = folder / "old.DB";
    std::string newPath = folder / "new.DB";
    TestWatch watch;
};

TEST_F(UpgradeConversion, KeepsEveryRowAsItIsShown) {
    test::makeOldDatabase(oldPath, {.rows = 3000, .seed = 7, .longMessageEvery = 300});
    const Conversion conversion = convert(1000);
    expectDone(conversion);
    EXPECT_EQ(conversion.outcome.rows, 3000);
    expectEqual();
}

TEST_F(UpgradeConversion, KeepsEveryRowAsItIsShownInAZoneThatChangesItsClocks) {
    const InZone inZone("Europe/Berlin");
    test::makeOldDatabase(oldPath, {.rows = 3000, .seed = 8});
    expectDone(convert());
    expectEqual();
}

TEST_F(UpgradeConversion, NamesWhatARowHolds) {
    const InZone inZone("Europe/Berlin");
    runSql(oldPath,
           std::string(kOldSchema) +
               "INSERT INTO logs VALUES (7, 'alpha', 'auth', 'err', '2024-07-03', '12:34:56', 'sshd', 'hello')");
    expectDone(convert());
    EXPECT_THAT(query(newPath,
                      "SELECT l.id, utcsec, rutcsec, sutcsec, utcoff, h.name, s.name, f.name, severity, p.name,"
                      " pid, msgid, sdata, msg FROM logs l JOIN hosts h ON h.id = host JOIN senders s ON s.id ="
                      " sender JOIN facilities f ON f.id = facility JOIN programs p ON p.id = program"),
                ElementsAre("7|1720002896|1720002896||7200|alpha||auth|3|sshd||||hello"));
    EXPECT_THAT(query(newPath, "SELECT * FROM loginfo"),
                ElementsAre("2|1|1720002896|1720002896|2024-07-03|2024-07-03"));
    EXPECT_THAT(query(newPath,
                      "SELECT name FROM sqlite_schema WHERE name LIKE 'original%' OR type = 'index' AND"
                      " tbl_name = 'logs'"),
                IsEmpty());
}

TEST_F(UpgradeConversion, KeepsTheTextsThatTheLayoutCannotShow) {
    const InZone inZone("UTC");
    runSql(oldPath, std::string(kOldSchema) +
                        "INSERT INTO logs VALUES (1, 'a', 'user', '6', '', '', 'p', 'before any time'),"
                        " (2, 'a', 'user', '6', '2024-03-03', '00:00:10', 'p', 'a time'),"
                        " (3, 'a', 'user', 'loud', '2024-03-03', '00:00:20', 'p', 'no severity'),"
                        " (4, 'a', 'user', NULL, '2024-3-4', '1:00', 'p', NULL)");
    expectDone(convert());
    EXPECT_THAT(query(newPath, "SELECT id, utcsec, severity, msg FROM logs"),
                ElementsAre("1|1709424010|6|before any time", "2|1709424010|6|a time",
                            "3|1709424020|-1|no severity", "4|1709424020|-1|"));
    EXPECT_THAT(query(newPath, "SELECT log_id, quote(ldate), quote(ltime), quote(prio) FROM original_texts"),
                ElementsAre("1|''|''|NULL", "3|NULL|NULL|'loud'", "4|'2024-3-4'|'1:00'|''"));
    expectEqual();
}

TEST_F(UpgradeConversion, TakesTimesInTheOrderOfTheRows) {
    const InZone inZone("Europe/Berlin");
    runSql(oldPath, std::string(kOldSchema) +
                        "INSERT INTO logs(id, ldate, ltime) VALUES (1, '', ''),"
                        " (2, '2024-10-27', '01:59:00'), (3, '2024-10-27', '02:30:00'), (4, '?', '?'),"
                        " (5, '2024-10-27', '03:30:00'), (6, '2024-10-27', '02:30:00')");
    expectDone(convert(2));
    EXPECT_THAT(query(newPath, "SELECT id, utcsec, utcoff FROM logs"),
                ElementsAre("1|1729987140|7200", "2|1729987140|7200", "3|1729989000|7200", "4|1729989000|7200",
                            "5|1729996200|3600", "6|1729992600|3600"));
    expectEqual();
}

TEST_F(UpgradeConversion, RecordsTheDaysOfTheClockOnTheWall) {
    const InZone inZone("Europe/Berlin");
    runSql(oldPath,
           std::string(kOldSchema) + "INSERT INTO logs(id, ldate, ltime) VALUES (1, '2024-07-04', '00:30:00')");
    expectDone(convert());
    EXPECT_THAT(query(newPath, "SELECT first_day, last_day FROM loginfo"), ElementsAre("2024-07-04|2024-07-04"));
}

TEST_F(UpgradeConversion, GivesRowsWithoutAnyTimeThatOfTheFile) {
    runSql(oldPath, std::string(kOldSchema) + "INSERT INTO logs VALUES (1, 'a', 'user', '6', '?', '?', 'p', 'm')");
    const timespec times[2] = {{1'700'000'000, 0}, {1'700'000'000, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, oldPath.c_str(), times, 0), 0);
    expectDone(convert());
    EXPECT_THAT(query(newPath, "SELECT utcsec FROM logs"), ElementsAre("1700000000"));
    expectEqual();
}

TEST_F(UpgradeConversion, StopsAlsoWhileItLooksForATime) {
    runSql(oldPath, std::string(kOldSchema) + "INSERT INTO logs VALUES (1, 'a', 'user', '6', '?', '?', 'p', 'm')");
    watch.stop = true;
    EXPECT_EQ(convert().outcome.end, UpgradeEnd::kStopped);
    EXPECT_THAT(watch.steps, IsEmpty()) << "it had not begun to copy";
    watch.forget();
    expectDone(convert());
    expectEqual();
}

TEST_F(UpgradeConversion, KeepsIdsOfEveryKind) {
    runSql(oldPath, std::string(kOldSchema) +
                        "INSERT INTO logs(id, ldate, ltime, msg) VALUES"
                        " (-9223372036854775808, '2024-03-03', '00:00:01', 'least'),"
                        " (-1, '2024-03-03', '00:00:02', 'negative'), (0, '', '', 'nought'),"
                        " (9223372036854775807, '2024-03-03', '00:00:03', 'most')");
    expectDone(convert(1));
    expectEqual();
}

TEST_F(UpgradeConversion, MakesAnEmptyDatabaseOfAnEmptyOne) {
    makeOld(0);
    expectDone(convert());
    EXPECT_THAT(query(newPath, "SELECT row_count, first_day FROM loginfo"), ElementsAre("0|"));
}

TEST_F(UpgradeConversion, TellsHowFarItIs) {
    makeOld();
    expectDone(convert());
    EXPECT_THAT(watch.steps,
                ElementsAre(Step{UpgradeStage::kConverting, 0, 350}, Step{UpgradeStage::kConverting, 100, 350},
                            Step{UpgradeStage::kConverting, 200, 350}, Step{UpgradeStage::kConverting, 300, 350},
                            Step{UpgradeStage::kConverting, 350, 350}, Step{UpgradeStage::kVerifying, 0, 350},
                            Step{UpgradeStage::kVerifying, 100, 350}, Step{UpgradeStage::kVerifying, 200, 350},
                            Step{UpgradeStage::kVerifying, 300, 350}, Step{UpgradeStage::kVerifying, 350, 350}));
}

TEST_F(UpgradeConversion, GoesOnBehindTheLastTransaction) {
    makeOld();
    stopAndGoOn(UpgradeStage::kConverting, 200);
    EXPECT_EQ(rowCount(newPath), "200");
    expectDone(convert());
    EXPECT_EQ(watch.steps.front(), (Step{UpgradeStage::kConverting, 200, 350}));
    expectEqual();
}

TEST_F(UpgradeConversion, GoesOnComparingBehindTheLastComparison) {
    makeOld();
    stopAndGoOn(UpgradeStage::kVerifying, 200);
    expectDone(convert());
    EXPECT_EQ(watch.beganAt(UpgradeStage::kVerifying), 200);
    EXPECT_THAT(watch.steps, Not(Contains(Step{UpgradeStage::kConverting, 0, 350})));  // not begun again
    expectEqual();
}

TEST_F(UpgradeConversion, BeginsAgainWhenTheOldFileHasLostRows) {
    makeOld();
    stopAndGoOn(UpgradeStage::kConverting, 350);
    runSql(oldPath, "DELETE FROM logs WHERE id > 270");
    const Conversion conversion = convert();
    expectDone(conversion);
    EXPECT_EQ(conversion.outcome.rows, 270);
    expectEqual();
}

TEST_F(UpgradeConversion, BeginsAgainWhenItsOwnFileHasLostARow) {
    makeOld();
    stopAndGoOn(UpgradeStage::kConverting, 350);
    runSql(newPath, "DELETE FROM logs WHERE id = 350");
    expectDone(convert());
    expectEqual();
}

TEST_F(UpgradeConversion, ComparesAllAgainWhenTheOldFileWasTouchedMeanwhile) {
    makeOld();
    stopAndGoOn(UpgradeStage::kVerifying, 200);
    runSql(oldPath, "UPDATE logs SET msg = 'changed' WHERE id = 50");
    expectDone(convert());
    EXPECT_EQ(watch.beganAt(UpgradeStage::kVerifying), 0);
    expectEqual();
}

// The run that noticed is over, and the new file is the younger one.
TEST_F(UpgradeConversion, ForgetsWhatItComparedBeforeARowChanged) {
    makeOld();
    bool isChanged = false;
    watch.atStep = [&](const Step& step) {
        if (step.stage != UpgradeStage::kVerifying) return;
        if (step.done == 200 && !std::exchange(isChanged, true)) {
            runSql(oldPath, "UPDATE logs SET msg = 'changed' WHERE id = 50");
        }
        watch.stop = step.done == 300;
    };
    EXPECT_EQ(convert().outcome.end, UpgradeEnd::kStopped);
    watch.forget();
    std::filesystem::last_write_time(newPath,
                                     std::filesystem::file_time_type::clock::now() + std::chrono::hours(1));
    expectDone(convert());
    expectEqual();
}

TEST_F(UpgradeConversion, ComparesAllAgainWhenAnotherFileWasPutInThePlaceOfTheOldOne) {
    makeOld();
    stopAndGoOn(UpgradeStage::kVerifying, 200);
    runSql(oldPath, "UPDATE logs SET msg = 'changed' WHERE id = 50");
    std::filesystem::last_write_time(oldPath,
                                     std::filesystem::file_time_type::clock::now() - std::chrono::hours(24));
    expectDone(convert());
    EXPECT_EQ(watch.beganAt(UpgradeStage::kVerifying), 0);
    expectEqual();
}

// The row that came makes the new file the younger one.
TEST_F(UpgradeConversion, ComparesAllAgainWhenARowChangedAndAnotherCame) {
    const auto makeYounger = [this](const Step& step) {
        if (step != Step{UpgradeStage::kConverting, 351, 351}) return;
        std::filesystem::last_write_time(newPath,
                                         std::filesystem::file_time_type::clock::now() + std::chrono::hours(1));
    };
    makeOld();
    stopAndGoOn(UpgradeStage::kVerifying, 200);
    runSql(oldPath, "UPDATE logs SET msg = 'changed' WHERE id = 50; " + oldRowsSql(1, 351));
    watch.atStep = makeYounger;
    expectDone(convert());
    EXPECT_EQ(watch.beganAt(UpgradeStage::kVerifying), 0);
    expectEqual();
}

TEST_F(UpgradeConversion, ForgetsWhatItComparedWhenARowChangedAndAnotherCame) {
    makeOld();
    watch.atStep = [this](const Step& step) {
        if (step == Step{UpgradeStage::kVerifying, 300, 350}) {
            runSql(oldPath, "UPDATE logs SET msg = 'changed' WHERE id = 50; " + oldRowsSql(1, 351));
        }
        if (step == Step{UpgradeStage::kConverting, 351, 351}) {
            std::filesystem::last_write_time(
                newPath, std::filesystem::file_time_type::clock::now() + std::chrono::hours(1));
        }
    };
    expectDone(convert());
    expectEqual();
}

TEST_F(UpgradeConversion, NoticesAChangeOfAComparedRowWhileRowsAreCopied) {
    makeOld();
    stopAndGoOn(UpgradeStage::kVerifying, 200);
    watch.atStep = [this](const Step& step) {
        if (step != Step{UpgradeStage::kConverting, 350, 350}) return;
        watch.atStep = nullptr;
        runSql(oldPath, "UPDATE logs SET msg = 'changed' WHERE id = 50");
    };
    expectDone(convert());
    expectEqual();
}

TEST_F(UpgradeConversion, ComparesAllAgainWhenRowsAreInAWriteAheadLog) {
    makeOld();
    runSql(oldPath, "PRAGMA journal_mode=WAL");
    Connection other;
    ASSERT_EQ(other.open(oldPath, OpenMode::kReadWrite), 0);
    ASSERT_EQ(other.execute("SELECT * FROM logs LIMIT 1"), 0);
    stopAndGoOn(UpgradeStage::kVerifying, 200);
    ASSERT_EQ(other.execute("UPDATE logs SET msg = 'changed' WHERE id = 50"), 0);
    expectDone(convert());
    EXPECT_EQ(watch.beganAt(UpgradeStage::kVerifying), 0);
    expectEqual();
}

TEST_F(UpgradeConversion, BeginsAgainWhenItsOwnFileWasSpoilt) {
    makeOld();
    stopAndGoOn(UpgradeStage::kConverting, 350);
    runSql(newPath, "UPDATE logs SET msg = 'spoilt' WHERE id = 50");
    expectDone(convert());
    expectEqual();
    EXPECT_EQ(std::count(watch.steps.begin(), watch.steps.end(), Step{UpgradeStage::kConverting, 0, 350}), 1);
}

struct Spoilt {
    std::string name;
    std::string text;  // of the file in the way; SQL when it begins with CREATE
};
class UpgradeConversionOverAFile : public UpgradeConversion, public testing::WithParamInterface<Spoilt> {};

TEST_P(UpgradeConversionOverAFile, MakesItAnew) {
    makeOld();
    const std::string& text = GetParam().text;
    if (text.starts_with("CREATE")) {
        runSql(newPath, text);
    } else {
        writeText(newPath, text);
    }
    expectDone(convert());
    expectEqual();
}

INSTANTIATE_TEST_SUITE_P(Files, UpgradeConversionOverAFile,
                         testing::Values(Spoilt{"Text", std::string(5000, 'x')}, Spoilt{"Empty", ""},
                                         Spoilt{"CutHead", "SQLite format 3"},
                                         Spoilt{"OtherTables", "CREATE TABLE a(b)"},
                                         Spoilt{"OldLayout", kOldSchema + oldRowsSql(5)}),
                         [](const auto& row) { return row.param.name; });

TEST_F(UpgradeConversion, TakesRowsThatComeInMeanwhile) {
    makeOld();
    watch.atStep = [this](const Step& step) {
        if (step == Step{UpgradeStage::kVerifying, 100, 350}) runSql(oldPath, oldRowsSql(10, 351));
    };
    const Conversion conversion = convert();
    expectDone(conversion);
    EXPECT_EQ(conversion.outcome.rows, 360);
    expectEqual();
}

TEST_F(UpgradeConversion, NoticesAChangeOfARowThatWasCompared) {
    makeOld();
    watch.atStep = [this](const Step& step) {
        if (step == Step{UpgradeStage::kVerifying, 300, 350}) {
            runSql(oldPath, "UPDATE logs SET msg = 'other' WHERE id = 1");
            watch.atStep = nullptr;
        }
    };
    expectDone(convert());
    expectEqual();
}

TEST_F(UpgradeConversion, NoticesAChangeOnceAllIsCompared) {
    makeOld();
    watch.atStep = [this](const Step& step) {
        if (step != Step{UpgradeStage::kVerifying, 350, 350}) return;
        watch.atStep = nullptr;
        runSql(oldPath, "UPDATE logs SET msg = 'other' WHERE id = 1");
    };
    expectDone(convert());
    expectEqual();
}

TEST_F(UpgradeConversion, GivesUpOnADatabaseThatIsWrittenToAllTheTime) {
    makeOld();
    int next = 351;
    watch.atStep = [&](const Step& step) {
        if (step.stage == UpgradeStage::kVerifying && step.done == 100) runSql(oldPath, oldRowsSql(1, next++));
    };
    const Conversion conversion = convert();
    EXPECT_EQ(conversion.outcome.end, UpgradeEnd::kFailed);
    EXPECT_THAT(conversion.outcome.error, HasSubstr("is being written to"));
    watch.forget();
    expectDone(convert());
    expectEqual();
}

TEST_F(UpgradeConversion, KeepsTheIndexOfHosts) {
    makeOld();
    runSql(oldPath, "CREATE INDEX logs_host_idx ON logs (host)");
    stopAndGoOn(UpgradeStage::kVerifying, 200);
    expectDone(convert());
    EXPECT_THAT(query(newPath, "SELECT tbl_name FROM sqlite_schema WHERE name = 'logs_host_idx'"),
                ElementsAre("logs"));
    expectEqual();
}

TEST_F(UpgradeConversion, RollsBackWhatADeadWriterHasLeft) {
    makeOld();
    {
        // A copy of a file in the middle of a transaction is what a writer that was killed leaves.
        Connection writer;
        ASSERT_EQ(writer.open(oldPath, OpenMode::kReadWrite), 0);
        ASSERT_EQ(writer.execute("PRAGMA cache_size=1; BEGIN"), 0);
        ASSERT_EQ(writer.execute(oldRowsSql(5000, 351).c_str()), 0);
        std::filesystem::copy_file(oldPath, folder / "dead.DB");
        std::filesystem::copy_file(oldPath + "-journal", folder / "dead.DB-journal");
    }
    oldPath = folder / "dead.DB";
    const Conversion conversion = convert();
    expectDone(conversion);
    EXPECT_EQ(conversion.outcome.rows, 350);
    expectEqual();
}

TEST_F(UpgradeConversion, ReadsADatabaseInWalMode) {
    makeOld();
    runSql(oldPath, "PRAGMA journal_mode=WAL; INSERT INTO logs(id, msg) VALUES (1000, 'in the log')");
    expectDone(convert());
    expectEqual();
}

TEST_F(UpgradeConversion, RefusesAnotherFile) {
    EXPECT_THAT(convert().outcome.error, StartsWith("cannot read " + oldPath + ": "));
    writeText(oldPath, "no database, but long enough to be looked at as one " + std::string(1000, '.'));
    EXPECT_THAT(convert().outcome.error, StartsWith("cannot read " + oldPath + ": "));
    std::filesystem::remove(oldPath);
    runSql(oldPath, "CREATE TABLE songs(name)");
    EXPECT_EQ(convert().outcome.error, oldPath + " is no log database");
    std::filesystem::remove(oldPath);
    runSql(oldPath, schemaText());
    EXPECT_EQ(convert().outcome.error, oldPath + " has the current layout already");
}

TEST_F(UpgradeConversion, NamesAColumnThatIsMissing) {
    runSql(oldPath, "CREATE TABLE logs (id INTEGER PRIMARY KEY, host, ldate, ltime, msg)");
    EXPECT_THAT(convert().outcome.error, HasSubstr(oldPath + ": no such column: facility"));
}

TEST_F(UpgradeConversion, SaysWhereADamagedDatabaseEnds) {
    makeOld(5000);
    const auto size = std::filesystem::file_size(oldPath);
    {
        std::fstream file(oldPath, std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(static_cast<std::streamoff>(size / 2));
        file << std::string(4096, '\xff');
    }
    const Conversion conversion = convert();
    EXPECT_EQ(conversion.outcome.end, UpgradeEnd::kFailed);
    EXPECT_THAT(conversion.outcome.error, StartsWith("cannot "));
    EXPECT_THAT(conversion.outcome.error, HasSubstr(oldPath));
    EXPECT_EQ(std::filesystem::file_size(oldPath), size);
}

TEST_F(UpgradeConversion, KeepsWhatItMadeWhenTheOldFileCannotBeReadAgain) {
    makeOld(20000);
    watch.atStep = [this](const Step& step) {
        if (step.stage != UpgradeStage::kVerifying || step.done != 0) return;
        std::fstream file(oldPath, std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(static_cast<std::streamoff>(std::filesystem::file_size(oldPath) / 2));
        file << std::string(400'000, '\xff');
    };
    const Conversion conversion = convert(1000);
    EXPECT_EQ(conversion.outcome.end, UpgradeEnd::kFailed);
    EXPECT_THAT(conversion.outcome.error, StartsWith("cannot read " + oldPath));
    EXPECT_THAT(query(newPath, "SELECT row_count FROM loginfo"), ElementsAre("20000"));
}

TEST_F(UpgradeConversion, EndsATransactionOfLongMessagesEarly) {
    constexpr const char* kLong = "printf('%.*c', 4194304, 'x')";  // four of them are 16 MiB
    runSql(oldPath, std::string(kOldSchema) +
                        "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 6)"
                        " INSERT INTO logs(id, ldate, ltime, msg) SELECT i, '2024-03-03', '00:00:00', " +
                        kLong + " FROM n");
    expectDone(convert());
    EXPECT_THAT(watch.steps, Contains(Step{UpgradeStage::kConverting, 4, 6}));
    EXPECT_THAT(query(newPath, std::string("SELECT COUNT(*) FROM logs WHERE msg = ") + kLong), ElementsAre("6"));
}

TEST_F(UpgradeConversion, NamesALayoutThatIsMissing) {
    makeOld();
    OldDatabase old;
    ASSERT_EQ(old.open(oldPath), "");
    const Conversion conversion = convertDatabase(old, newPath, watch, {folder / "none.sql", 100});
    EXPECT_THAT(conversion.outcome.error, HasSubstr(folder / "none.sql"));
    EXPECT_FALSE(std::filesystem::exists(newPath));
}

TEST_F(UpgradeConversion, NamesAFileThatItCannotWrite) {
    makeOld();
    newPath = folder / "none/new.DB";
    const Conversion conversion = convert();
    EXPECT_EQ(conversion.outcome.end, UpgradeEnd::kFailed);
    EXPECT_THAT(conversion.outcome.error, StartsWith("cannot write " + newPath));
}

struct Foreign {
    std::string name;
    std::string sql;
    std::string named;
};
class UpgradeForeignContents : public UpgradeConversion, public testing::WithParamInterface<Foreign> {};

TEST_P(UpgradeForeignContents, AreNamed) {
    makeOld(1);
    runSql(oldPath, GetParam().sql);
    OldDatabase old;
    ASSERT_EQ(old.open(oldPath), "");
    EXPECT_EQ(old.foreignContents(), GetParam().named);
}

std::string logsWithId(const std::string& type, const std::string& key = {}) {
    return "DROP TABLE logs; CREATE TABLE logs (id " + type +
           ", host, facility, prio, ldate, ltime, program, msg" + key + ")";
}

INSTANTIATE_TEST_SUITE_P(
    Things, UpgradeForeignContents,
    testing::Values(Foreign{"None", "SELECT 1", ""}, Foreign{"Index", "CREATE INDEX i ON logs (host)", ""},
                    Foreign{"UniqueIndex", "CREATE UNIQUE INDEX i ON logs (id, host)", ""},
                    Foreign{"Statistics", "ANALYZE", ""},
                    Foreign{"Table", "CREATE TABLE notes (a)", "table notes"},
                    Foreign{"View", "CREATE VIEW v AS SELECT * FROM logs", "view v"},
                    Foreign{"Trigger", "CREATE TRIGGER t AFTER INSERT ON logs BEGIN SELECT 1; END", "trigger t"},
                    Foreign{"Column", "ALTER TABLE logs ADD COLUMN tag", "column tag"},
                    Foreign{"Generated", "ALTER TABLE logs ADD COLUMN tag AS (upper(host))", "column tag"},
                    Foreign{"IdOfItsOwn", logsWithId("INT PRIMARY KEY"), "column id"},
                    Foreign{"IdThatIsNoKey", logsWithId("INTEGER"), "column id"},
                    Foreign{"IdInAKey", logsWithId("INTEGER", ", PRIMARY KEY (id, host)"), "column id"},
                    Foreign{"IdInLowerCase", logsWithId("integer primary key"), ""},
                    Foreign{"Escapes", "CREATE TABLE \"a\x1b[2J\" (a)", "table a\\x1b[2J"},
                    Foreign{"Several", "CREATE TABLE a (b); CREATE TABLE c (d)", "table a, table c"}),
    [](const auto& row) { return row.param.name; });

}  // namespace
}  // namespace ombrel
