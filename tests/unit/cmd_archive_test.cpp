// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// `ombrel archive` with the library on the recording platform.
#include <zip.h>

#include "tests/unit/archiver_test.h"
#include "tests/unit/command_line_run.h"
#include "tools/ombrel/archive_due.h"
#include "tools/ombrel/archive_name.h"

namespace ombrel::test::cmd_archive {

namespace {

using ::testing::HasSubstr;

class ArchiveCommand : public PlatformTest {
protected:
    ArchiveCommand() {
        settings({});
        platform.addFolder(kDest);
    }
    /// By device off, rules: 10 rows, a day, 2 MiB.
    void settings(const Settings& changed) {
        Settings all = {{"arch_by_device", "0"}, {"arch_count", "10"}, {"arch_size", "2"}};
        for (const auto& [key, value] : changed)
            all[key] = value;
        platform.addFile(kServerConf, sampleText(all));
    }
    FakeDatabase& addWorking(const std::string& path, long long rows, long long age = 60) {
        FakeDatabase& database = platform.addDatabase(path, march(rows));
        database.start = platform.now - age;
        return database;
    }
    int run(Lines words) {
        words.insert(words.begin(), "archive");
        return line.run(words);
    }

    CommandLineRun line;
    std::string& out = line.out;
    std::string& err = line.err;
};

TEST_F(ArchiveCommand, ArchivesWhatIsDue) {
    addWorking(kLocalDb, 3);
    addWorking(kSharedDb, 11);
    EXPECT_EQ(run({}), 0);
    EXPECT_EQ(out, "archived " + kSharedDb + " (11 rows)\n");
    EXPECT_EQ(err, "");
    EXPECT_EQ(platform.events, Lines({"finished /volume1/logs/2024-03-03_2024-03-09.DB"}));
    EXPECT_EQ(run({"run", "--due"}), 0);
    EXPECT_EQ(out, "nothing to archive\n");
    EXPECT_EQ(fakeMachine().turnsTaken, 2);
}

TEST_F(ArchiveCommand, ArchivesAllThatHoldRows) {
    addWorking(kLocalDb, 3);
    addWorking(kSharedDb, 0);
    for (const Lines& words : {Lines{"--all"}, Lines{"run", "--all"}}) {
        EXPECT_EQ(run(words), 0);
        EXPECT_EQ(out, "archived " + kLocalDb + " (3 rows)\n");
        addWorking(kLocalDb, 3);
    }
    EXPECT_EQ(run({"--all", "--json"}), 0);
    EXPECT_EQ(out, R"({"ok":true,"archived":[{"database":"/volume1/logs/VESKSYSLOGDB__LOCALARCH.DB","rows":3}],)"
                   R"("failed":[]})"
                   "\n");
}

TEST_F(ArchiveCommand, ArchivesThoseThatAreNamed) {
    addWorking(kLocalDb, 3);
    addWorking(kSharedDb, 4);
    EXPECT_EQ(run({"run", kSharedDb, "VESKSYSLOGDB__ARCH.DB"}), 0);
    EXPECT_EQ(out, "archived " + kSharedDb + " (4 rows)\n");
    EXPECT_EQ(run({"run", "VESKSYSLOGDB__LOCALARCH.DB", "/etc/passwd"}), 64);
    EXPECT_EQ(err, "ombrel: \"/etc/passwd\" is no working database; ombrel archive due lists them\n");
    EXPECT_EQ(out, "");
    EXPECT_TRUE(platform.exists(kLocalDb)) << "nothing is done when one is refused";
}

TEST_F(ArchiveCommand, TellsOfThoseThatFailAndGoesOn) {
    addWorking(kLocalDb, 3).opens = false;
    addWorking(kSharedDb, 4);
    platform.failCall("VLIBServicectlRestart");
    const std::string broken = "ombrel: " + kLocalDb + " cannot be read as a log database; it was left in place\n";
    const std::string failed = "ombrel: " + kSharedDb + " could not be archived; the system log says why\n";
    EXPECT_EQ(run({"--all"}), 1);
    EXPECT_EQ(err, broken + failed);
    EXPECT_EQ(out, "");
    EXPECT_EQ(run({"--all", "--json"}), 1);
    EXPECT_EQ(out, R"({"ok":false,"archived":[],"failed":[{"database":"/volume1/logs/VESKSYSLOGDB__LOCALARCH.DB",)"
                   R"("what":"cannot be read as a log database; it was left in place"}]})"
                   "\n");
}

TEST_F(ArchiveCommand, TreatsAFileThatIsJustBegunAsEmpty) {
    platform.addFile(kSharedDb, "");
    EXPECT_EQ(run({"--all"}), 0);
    EXPECT_EQ(out, "nothing to archive\n");
}

TEST_F(ArchiveCommand, DoesNothingWithoutTheTurnOrSettings) {
    addWorking(kSharedDb, 11);
    fakeMachine().turnResult = 75;
    EXPECT_EQ(run({"--all"}), 75);
    fakeMachine().turnResult = 0;
    platform.addFile(kServerConf, sampleText({}, {"arch_time"}));
    EXPECT_EQ(run({"--all"}), 78);
    EXPECT_EQ(err, "ombrel: " + std::string(kServerConf) + " cannot be read or lacks a required key\n");
    EXPECT_TRUE(platform.exists(kSharedDb));
}

struct WrongWords {
    std::string name;
    Lines words;
    std::string complaint;
};

class ArchiveCommandRefuses : public ArchiveCommand, public ::testing::WithParamInterface<WrongWords> {};

TEST_P(ArchiveCommandRefuses, WrongWords) {
    addWorking(kSharedDb, 11);
    EXPECT_EQ(run(GetParam().words), 64);
    EXPECT_EQ(out, "");
    EXPECT_THAT(err, HasSubstr(GetParam().complaint));
    EXPECT_TRUE(platform.exists(kSharedDb));
}

INSTANTIATE_TEST_SUITE_P(
    Words, ArchiveCommandRefuses,
    ::testing::Values(WrongWords{"Option", {"--al"}, "no option \"--al\""},
                      WrongWords{"Word", {"everything"}, "one word too many: \"everything\""},
                      WrongWords{"DueAndAll", {"run", "--due", "--all"}, "expected one of --due, --all and names"},
                      WrongWords{"AllAndNames", {"run", "--all", kSharedDb}, "expected one of --due, --all and"},
                      WrongWords{"NoPath", {"index"}, "its word PATH is missing"},
                      WrongWords{"IndexOfAWorkingOne", {"index", kSharedDb}, "is a working database"}),
    CaseName());

TEST_F(ArchiveCommand, ListsArchivesWithWhatBelongsToThem) {
    const std::string folder = kDest + std::string("/");
    platform.addDatabase(folder + "2024-03-03_2024-03-09.DB", march(5));
    platform.addFile(folder + "2024-03-03_2024-03-09.TXT", "text");
    platform.addFile(folder + "2024-03-03_2024-03-09_SYS", "");
    platform.addFile(folder + "2024-03-03_2024-03-09.DB.v1", "");
    platform.addFile(folder + "2024-03-10_2024-03-11.ZIP", "12345");
    platform.addFile(folder + "2024-03-01_2024-03-02.DB", "no database");
    addWorking(kSharedDb, 1);
    EXPECT_EQ(run({"list"}), 0);
    const std::string size = std::to_string(platform.read(folder + "2024-03-03_2024-03-09.DB")->size());
    EXPECT_EQ(out, "2024-03-10\t2024-03-11\t-\t5\tzip\t" + folder + "2024-03-10_2024-03-11.ZIP\n" +
                       "2024-03-03\t2024-03-09\t5\t" + size + "\tdb+txt+SYS+v1\t" + folder +
                       "2024-03-03_2024-03-09.DB\n" + "2024-03-01\t2024-03-02\t-\t11\tdb\t" + folder +
                       "2024-03-01_2024-03-02.DB\n");
    EXPECT_EQ(run({"list", "--json"}), 0);
    EXPECT_THAT(out, HasSubstr(R"({"archives":[{"path":"/volume1/logs/2024-03-10_2024-03-11.ZIP","format":"zip",)"
                               R"("first_day":"2024-03-10","last_day":"2024-03-11","rows":null,"size_bytes":5,)"));
    EXPECT_THAT(out, HasSubstr(R"("rows":5,)"));
    EXPECT_THAT(out, HasSubstr(R"("companions":["/volume1/logs/2024-03-03_2024-03-09.TXT",)"
                               R"("/volume1/logs/2024-03-03_2024-03-09_SYS",)"
                               R"("/volume1/logs/2024-03-03_2024-03-09.DB.v1"])"));
    platform.removeFile(kDest);
    settings({{"arch_dest", "/volume1/none"}});
    EXPECT_EQ(run({"list"}), 1);
    EXPECT_EQ(err, "ombrel: /volume1/none: No such file or directory\n");
}

TEST_F(ArchiveCommand, TellsWhatIsDueAndWhy) {
    addWorking(kLocalDb, 0, 200000);
    addWorking(kSharedDb, 11);
    EXPECT_EQ(run({"due", "--json"}), 0);
    EXPECT_THAT(out,
                HasSubstr(R"({"rules":{"rows":10,"age_seconds":86400,"size_bytes":2097152},"databases":[)"
                          R"({"path":"/volume1/logs/VESKSYSLOGDB__LOCALARCH.DB","device":"local","rows":0,)"));
    EXPECT_THAT(out, HasSubstr(R"("what":"holds no rows, so it is left in place"})"));
    EXPECT_THAT(out, HasSubstr(R"("age_seconds":60,"due":true,"rule":"count","due_at":null,"rows_missing":null,)"
                               R"("missing_bytes":null,"what":"due: more than 10 rows"}]})"));
    EXPECT_EQ(run({"due"}), 0);
    EXPECT_THAT(out, HasSubstr("\t60\tdue: more than 10 rows\n"));
    EXPECT_TRUE(platform.exists(kSharedDb));
}

struct DueCase {
    std::string name;
    Probed database;
    std::string rule;
    std::string text;
};

class DueBy : public ArchiverTest, public ::testing::WithParamInterface<DueCase> {};

TEST_P(DueBy, TheFirstRuleThatHolds) {
    archiver.ArchCount = 1000;
    archiver.ArchInterval = 86400;
    archiver.ArchSize = 5;
    const DueState state = dueState(archiver, GetParam().database, 1'000'000);
    EXPECT_EQ(ruleName(state.rule), GetParam().rule);
    EXPECT_THAT(dueText(state, archiver, GetParam().database), HasSubstr(GetParam().text));
}

INSTANTIATE_TEST_SUITE_P(
    Databases, DueBy,
    ::testing::Values(DueCase{"NoneOfThem", {1000, 913'600, 5}, "", "after 1 more rows, or at 1970-01-12 "},
                      DueCase{"Count", {1001, 1, 9}, "count", "due: more than 1,000 rows"},
                      DueCase{"Age", {1000, 913'599, 9}, "age", "due: older than 24:00:00"},
                      DueCase{"Size", {1000, 913'600, 6}, "size", "due: larger than 5 MiB"},
                      DueCase{"Empty", {0, 0, 9}, "age", "holds no rows"},
                      DueCase{"Unreadable", {-1, 0, 9}, "age", "cannot be read"}),
    CaseName());

TEST_F(ArchiveCommand, SaysThatNoRuleIsOn) {
    settings({{"arch_count_enable", "0"}, {"arch_time_enable", "0"}, {"arch_size", "0"}});
    addWorking(kSharedDb, 11);
    EXPECT_EQ(run({"due"}), 0);
    EXPECT_THAT(out, HasSubstr("never: no rule is on"));
}

TEST_F(ArchiveCommand, AddsAnIndexOnce) {
    const std::string path = kDest + std::string("/2024-03-03_2024-03-09.DB");
    FakeDatabase& database = platform.addDatabase(path, march());
    const char* question = "SELECT name FROM sqlite_master WHERE type = 'index' AND name = 'logs_host_idx'";
    platform.sqlRows[question] = {};
    EXPECT_EQ(run({"index", path}), 0);
    EXPECT_EQ(out, path + ": index added\n");
    EXPECT_EQ(database.indexes.size(), 1U);
    platform.sqlRows[question] = {{{"name", "logs_host_idx"}}};
    EXPECT_EQ(run({"index", path, "--json"}), 0);
    EXPECT_EQ(out, "{\"path\":\"" + path + "\",\"added\":false}\n");
    platform.sqlRows[question] = {};
    platform.failCall("DBExecute");
    EXPECT_EQ(run({"index", path}), 1);
    EXPECT_THAT(err, HasSubstr(path + " got no index"));
    EXPECT_EQ(run({"index", kDest + std::string("/none.DB")}), 66);
    platform.addFile(path, "no database");
    EXPECT_EQ(run({"index", path}), 65);
    EXPECT_EQ(err, "ombrel: " + path + " is no log database, or is damaged\n");
}

/// An archive on the platform whose rows answer as they should.
class ArchiveVerify : public ArchiveCommand {
protected:
    ArchiveVerify() {
        platform.addDatabase(path, march(5));
        platform.sqlRows["PRAGMA quick_check(1)"] = {{{"quick_check", "ok"}}};
        platform.sqlRows["SELECT name FROM sqlite_master WHERE name = 'original_texts'"] = {};
        rows("5", "2024-03-03", "2024-03-09");
    }
    void rows(const std::string& count, const std::string& first, const std::string& last) {
        platform.sqlRows
            ["SELECT COUNT(*) AS n, date(MIN(utcsec + utcoff), 'unixepoch') AS first, "
             "date(MAX(utcsec + utcoff), 'unixepoch') AS last FROM logs"] = {
            {{"n", count}, {"first", first}, {"last", last}}};
    }
    void expectWrong(const std::string& what) {
        EXPECT_EQ(run({"verify"}), 65);
        EXPECT_THAT(out, HasSubstr(path + ": BAD: " + what));
    }
    /// A ZIP file with one entry, stored as it is.
    std::string addZip(const std::string& text) {
        const std::string zip = kDest + std::string("/2024-03-10_2024-03-11.ZIP");
        zip_t* archive = zip_open(platform.real(zip).c_str(), ZIP_CREATE, nullptr);
        zip_source_t* source = zip_source_buffer(archive, text.data(), text.size(), 0);
        const zip_int64_t index = zip_file_add(archive, "a.DB", source, 0);
        (void)zip_set_file_compression(archive, static_cast<zip_uint64_t>(index), ZIP_CM_STORE, 0);
        EXPECT_EQ(zip_close(archive), 0);
        return zip;
    }

    const std::string path = kDest + std::string("/2024-03-03_2024-03-09.DB");
};

TEST_F(ArchiveVerify, FindsAGoodOneGood) {
    EXPECT_EQ(run({"verify"}), 0);
    EXPECT_EQ(out, path + ": good: 5 rows, 2024-03-03 to 2024-03-09\n");
    EXPECT_EQ(run({"verify", path, "--json"}), 0);
    EXPECT_EQ(out, R"({"ok":true,"findings":[{"name":"/volume1/logs/2024-03-03_2024-03-09.DB","ok":true,)"
                   R"("what":"5 rows, 2024-03-03 to 2024-03-09","advice":""}]})"
                   "\n");
}

TEST_F(ArchiveVerify, FindsWhatIsWrong) {
    rows("4", "2024-03-03", "2024-03-09");
    expectWrong("it holds 4 rows, its information record says 5");
    rows("5", "2024-03-03", "2024-03-10");
    expectWrong("its rows are of 2024-03-03 to 2024-03-10");
    platform.sqlRows["SELECT name FROM sqlite_master WHERE name = 'original_texts'"] = {{{"name", "x"}}};
    EXPECT_EQ(run({"verify"}), 0) << "an upgrade kept days that are none";
    platform.sqlRows["PRAGMA quick_check(1)"] = {{{"quick_check", "page 3: \x1b[2J"}}};
    expectWrong("page 3: \\x1b[2J; restore it");
    EXPECT_EQ(run({"verify", path, kDest + std::string("/none.DB")}), 66);
    platform.failCall("VESKDBExecute");
    EXPECT_EQ(run({"verify"}), 1) << "what cannot be read is not wrong";
}

TEST_F(ArchiveVerify, ReadsTheEntriesOfAZipFile) {
    const std::string zip = addZip("all the rows");
    EXPECT_EQ(run({"verify", zip}), 0);
    EXPECT_EQ(out, zip + ": good: 1 entry\n");
    std::string bytes = *platform.read(zip);
    bytes[bytes.find("rows")] = 'x';
    platform.addFile(zip, bytes);
    EXPECT_EQ(run({"verify", zip}), 65);
    EXPECT_THAT(out, HasSubstr(zip + ": BAD: the entry a.DB: CRC error"));
    platform.addFile(zip, "no ZIP file");
    EXPECT_EQ(run({"verify", zip}), 65);
}

struct NameCase {
    std::string name;
    std::string stem;  // empty: no archive
    bool isMain;
};

TEST(ArchiveNames, AreTakenToTheLetter) {
    const NameCase cases[] = {{"2024-03-03_2024-03-09.DB", "2024-03-03_2024-03-09", true},
                              {"2024-02-29_2024-03-09_1000.ZIP", "2024-02-29_2024-03-09_1000", true},
                              {"2024-03-03_2024-03-03.TXT", "2024-03-03_2024-03-03", true},
                              {"2024-03-03_2024-03-09_2_SYS", "2024-03-03_2024-03-09_2", false},
                              {"2024-03-03_2024-03-09_XFER", "2024-03-03_2024-03-09", false},
                              {"2024-03-03_2024-03-09.DB.v1", "2024-03-03_2024-03-09", false},
                              {"2024-03-03_2024-03-09.DB-journal", "2024-03-03_2024-03-09", false},
                              {"2024-03-03_2024-03-09_1001.DB", "", false},
                              {"2024-03-03_2024-03-09_01.DB", "", false},
                              {"2024-03-03_2024-03-09_.DB", "", false},
                              {"2024-03-03_2024-03-09_-1.DB", "", false},
                              {"2024-03-09_2024-03-03.DB", "", false},
                              {"2023-02-29_2024-03-09.DB", "", false},
                              {"2024-13-03_2025-03-09.DB", "", false},
                              {"2024-03-03_2024-03-09.db", "", false},
                              {"2024-03-03_2024-03-09", "", false},
                              {"2024-03-03.DB", "", false},
                              {"VESKSYSLOGDB__ARCH.DB", "", false},
                              {".DB", "", false},
                              {"x2024-03-03_2024-03-09.DB", "", false},
                              {"2024-03-03_2024-03-09.DB.corrupt-1", "", false}};
    for (const NameCase& one : cases) {
        const auto name = readArchiveName(one.name);
        EXPECT_EQ(name ? name->stem : "", one.stem) << one.name;
        EXPECT_EQ(name && name->isMain, one.isMain) << one.name;
    }
}

}  // namespace

}  // namespace ombrel::test::cmd_archive
