// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// `ombrel schedule` and `ombrel retention` with the library on the recording platform.
#include <filesystem>
#include <fstream>

#include "tests/unit/archiver_test.h"
#include "tests/unit/command_line_run.h"
#include "tools/ombrel/retention_settings.h"
#include "tools/ombrel/time_words.h"

namespace ombrel::test::cmd_schedule {

namespace {

using ::testing::HasSubstr;

constexpr const char* kNothingOn = "keep_days=\"0\"\nkeep_gib=\"0\"\nfree_gib=\"0\"\n";

class RetentionCommand : public PlatformTest {
protected:
    RetentionCommand() {
        platform.addFile(kServerConf, sampleText({{"arch_by_device", "0"}, {"arch_count", "10"}}));
        platform.addFolder(kDest);
        platform.now = 1'710'936'000;  // 2024-03-20, about noon wherever the tests run
    }
    std::string add(const std::string& name, const std::string& text = "1234567890") {
        platform.addFile(kDest + ("/" + name), text);
        return kDest + ("/" + name);
    }
    int run(const Lines& words) { return line.run(words); }
    [[nodiscard]] Lines left() const { return platform.filesBelow(kDest); }

    CommandLineRun line;
    std::string& out = line.out;
    std::string& err = line.err;
};

TEST_F(RetentionCommand, IsOffAtFirst) {
    EXPECT_EQ(run({"retention", "show"}), 0);
    EXPECT_EQ(out, kNothingOn);
    EXPECT_EQ(run({"retention", "show", "--json"}), 0);
    EXPECT_EQ(out, "{\"keep_days\":0,\"keep_bytes\":0,\"free_bytes\":0}\n");
}

TEST_F(RetentionCommand, SetsLimits) {
    EXPECT_EQ(run({"retention", "set", "keep_days=90", "free_gib=500M"}), 0);
    EXPECT_EQ(out, "keep_days=\"90\"\nkeep_gib=\"0\"\nfree_gib=\"500M\"\n");
    EXPECT_EQ(fakeMachine().turnsTaken, 1);
    EXPECT_EQ(run({"retention", "set", "keep_gib=10240M", "--json"}), 0);
    EXPECT_EQ(out, "{\"keep_days\":90,\"keep_bytes\":10737418240,\"free_bytes\":524288000}\n");
    EXPECT_EQ(platform.read(kRetentionFile), "keep_days=\"90\"\nkeep_gib=\"10\"\nfree_gib=\"500M\"\n");
    EXPECT_EQ(run({"retention", "set", "free_gib=0", "keep_days=0", "keep_gib=0"}), 0);
    EXPECT_EQ(out, kNothingOn);
    platform.calls.onFailure = [this] { platform.error.code = 0x1000 + EACCES; };
    platform.failCall("VLIBCFileSetKeys");
    EXPECT_EQ(run({"retention", "set", "keep_days=1"}), 1);
    EXPECT_THAT(err, HasSubstr("retention.conf cannot be written (Permission denied)"));
}

TEST_F(RetentionCommand, RefusesWrongLimits) {
    const std::pair<const char*, const char*> cases[] = {
        {"keep_days", "\"keep_days\" is not KEY=VALUE"},
        {"keep=1", "no limit \"keep\"; expected keep_days, keep_gib or free_gib"},
        {"keep_days=-1", "keep_days=\"-1\": expected a number of days"},
        {"keep_days=36501", "expected a number of days from 0 to 36500"},
        {"keep_days=", "expected a number of days"},
        {"keep_gib=1.5", "expected a number of GiB"},
        {"keep_gib=-1", "expected a number of GiB"},
        {"free_gib=1000K", "in whole MiB"},
        {"free_gib=1B", "in whole MiB"},
        {"keep_gib=99999999999", "expected a number of GiB"}};
    for (const auto& [word, complaint] : cases) {
        EXPECT_EQ(run({"retention", "set", word}), 64) << word;
        EXPECT_THAT(err, HasSubstr(complaint));
    }
    EXPECT_EQ(run({"retention", "set", "keep_days=1", "keep_days=2"}), 64);
    EXPECT_EQ(run({"retention", "set"}), 64);
    EXPECT_FALSE(platform.exists(kRetentionFile));
    EXPECT_EQ(fakeMachine().turnsTaken, 0);
}

TEST_F(RetentionCommand, RemovesNothingByLimitsThatCannotBeRead) {
    add("2020-01-01_2020-01-01.DB");
    add("2020-01-02_2020-01-02.DB");
    add("2020-01-03_2020-01-03.DB");
    platform.addFile(kRetentionFile, "keep_days=\"1x\"\n");
    EXPECT_EQ(run({"schedule", "run"}), 78);
    EXPECT_THAT(err,
                HasSubstr("keep_days=\"1x\": expected a number of days from 0 to 36500; 0 is off; no archive is "
                          "removed until that is mended"));
    EXPECT_EQ(run({"retention", "show"}), 78);
    platform.addFile(kRetentionFile, "keep_days=\"1\"\n");
    platform.failEveryCall("VLIBCFileGetKeyValue");
    EXPECT_EQ(run({"retention", "show"}), 78);
    EXPECT_EQ(left().size(), 3U);
}

TEST_F(RetentionCommand, PreviewsWhatWouldGoAndWhy) {
    const std::string old = add("2024-01-01_2024-01-31.DB");
    add("2024-01-01_2024-01-31.TXT", "12345");
    add("2024-03-19_2024-03-19.ZIP");
    add("2024-03-20_2024-03-20.DB");
    platform.addFile(kRetentionFile, "keep_days=\"30\"\n");
    EXPECT_EQ(run({"retention", "show", "--preview"}), 0);
    EXPECT_EQ(out, "keep_days=\"30\"\nkeep_gib=\"0\"\nfree_gib=\"0\"\nwould remove " + old +
                       " (0.0 MB): it ended more than 30 days ago\n");
    EXPECT_EQ(run({"retention", "show", "--preview", "--json"}), 0);
    EXPECT_THAT(out, HasSubstr(R"("archives":3,"archive_bytes":35,)"));
    EXPECT_THAT(out, HasSubstr(R"("removals":[{"path":"/volume1/logs/2024-01-01_2024-01-31.DB",)"
                               R"("first_day":"2024-01-01","last_day":"2024-01-31","size_bytes":15,)"
                               R"("reason":"days","what":"it ended more than 30 days ago","files":[)"
                               R"("/volume1/logs/2024-01-01_2024-01-31.TXT",)"
                               R"("/volume1/logs/2024-01-01_2024-01-31.DB"]}],"over_bytes":0,)"));
    EXPECT_EQ(left().size(), 4U);
}

class ScheduleCommand : public RetentionCommand {
protected:
    void addNewest() {
        add("2024-03-19_2024-03-19.ZIP");
        add("2024-03-20_2024-03-20.DB");
    }
    [[nodiscard]] std::string lastTime() const {
        const std::string text = *platform.read(kServerConf);
        const auto at = text.find("arch_last_time=\"") + 16;
        return text.substr(at, text.find('"', at) - at);
    }
};

TEST_F(ScheduleCommand, ArchivesWhatIsDueAndRecordsTheTime) {
    FakeDatabase& database = platform.addDatabase(kSharedDb, march(11));
    database.start = platform.now;
    EXPECT_EQ(run({"schedule", "run", "--dry-run"}), 0);
    EXPECT_EQ(out, "would archive " + kSharedDb + " (11 rows)\n");
    EXPECT_EQ(lastTime(), "1600000000");
    EXPECT_EQ(run({"schedule", "run"}), 0);
    EXPECT_EQ(out, "archived " + kSharedDb + " (11 rows)\n");
    EXPECT_EQ(lastTime(), "1710936000");
    EXPECT_EQ(platform.events, Lines({"finished /volume1/logs/2024-03-03_2024-03-09.DB"}))
        << "the storage settings are not changed, which would archive everything";
    EXPECT_EQ(platform.calls.count("VLIBServicectlJobStop"), 0);
    EXPECT_EQ(run({"schedule", "run"}), 0);
    EXPECT_EQ(out, "nothing to do\n");
    platform.now = 5'000'000'000;
    EXPECT_EQ(run({"schedule", "run"}), 0);
    EXPECT_EQ(lastTime(), "2147483647") << "what every reader's int holds";
}

TEST_F(ScheduleCommand, RemovesAnArchiveWithAllThatBelongsToItAndNothingElse) {
    const std::string old = add("2024-01-01_2024-01-31_2.DB");
    for (const char* name :
         {"2024-01-01_2024-01-31_2.TXT", "2024-01-01_2024-01-31_2_SYS", "2024-01-01_2024-01-31_2_CON",
          "2024-01-01_2024-01-31_2_XFER", "2024-01-01_2024-01-31_2.DB.v1", "2024-01-01_2024-01-31_2.DB-journal"})
        add(name);
    const Lines others = {"2024-01-01_2024-01-31_SYS",  // of an archive that is gone
                          "2024-01-01_2024-01-31_2.DB.corrupt-1",
                          "2024-01-01_2024-01-31_x.DB",
                          "VESKSYSLOGDB__ARCH.DB-receipts",
                          "VESKSYSLOGDB_2024-01-01_2024-01-31.DB",
                          "@tmp/2024-01-01_2024-01-31.DB",
                          "a/b/2024-01-01_2024-01-31.DB",
                          ".2024-01-01_2024-01-31.DB"};
    for (const std::string& name : others)
        add(name);
    const std::string hosts = add("router/2024-02-01_2024-02-02.ZIP");
    addNewest();
    platform.addFile(kRetentionFile, "keep_days=\"30\"\n");
    EXPECT_EQ(run({"schedule", "run"}), 0);
    EXPECT_EQ(err, "");
    EXPECT_THAT(out, HasSubstr("removed " + old + " (0.0 MB): it ended more than 30 days ago\nremoved " + hosts));
    EXPECT_EQ(left().size(), others.size() + 2);
    EXPECT_EQ(fakeMachine().removals, Lines({old + " days 70", hosts + " days 10"}));
}

TEST_F(ScheduleCommand, RemovesTheOldestForWantOfRoom) {
    const std::string first = add("2024-01-01_2024-01-02.DB");
    const std::string second = add("2024-01-03_2024-01-04.DB");
    add("2024-01-05_2024-01-06.DB");
    addNewest();
    platform.addFile(kRetentionFile, "free_gib=\"1\"\n");
    platform.space[kDest] = {5, (1ULL << 30) / 5 - 2};  // 10 to 14 bytes less than a GiB
    EXPECT_EQ(run({"schedule", "run", "--json"}), 0);
    EXPECT_THAT(out, HasSubstr(R"("dry_run":false,"ok":true,"problems":[],"archived":[],"failed":[],"removed":[)"
                               R"({"path":")" +
                               first));
    EXPECT_THAT(out, HasSubstr(R"("reason":"free_space","what":"less than 1 GiB are free")"));
    EXPECT_EQ(fakeMachine().removals, Lines({first + " free_space 10", second + " free_space 10"}));
    platform.space[kDest] = {1, 1};
    EXPECT_EQ(run({"schedule", "run"}), 0);
    EXPECT_THAT(out, HasSubstr("1.1 GB of the room that free_gib asks for are missing: what is left is of the"));
    EXPECT_EQ(left().size(), 2U);
    platform.failEveryCall("statfs64", ENOENT);
    EXPECT_EQ(run({"schedule", "run"}), 1);
    EXPECT_THAT(err, HasSubstr("/volume1/logs: its free space cannot be told (No such file or directory)"));
}

TEST_F(ScheduleCommand, FollowsNoSymbolicLink) {
    namespace fs = std::filesystem;
    add("2024-01-01_2024-01-02.DB");
    addNewest();
    const std::string elsewhere = platform.real("/volume2/archives");
    fs::create_directories(elsewhere);
    std::ofstream(elsewhere + "/2023-01-01_2023-01-02.DB") << "kept";
    fs::create_directory_symlink(elsewhere, platform.real(kDest) + "/linked");
    fs::create_symlink(elsewhere + "/2023-01-01_2023-01-02.DB",
                       platform.real(kDest) + "/2023-05-05_2023-05-06.DB");
    platform.addFile(kRetentionFile, "keep_days=\"1\"\n");
    EXPECT_EQ(run({"schedule", "run"}), 0);
    EXPECT_EQ(fakeMachine().removals.size(), 1U);
    EXPECT_TRUE(fs::exists(elsewhere + "/2023-01-01_2023-01-02.DB"));
    EXPECT_TRUE(fs::is_symlink(platform.real(kDest) + "/2023-05-05_2023-05-06.DB"));
    fs::create_directory_symlink(elsewhere, platform.real("/volume3"));
    platform.addFile(kServerConf, sampleText({{"arch_dest", "/volume3"}, {"arch_by_device", "0"}}));
    EXPECT_EQ(run({"schedule", "run"}), 1);
    EXPECT_THAT(err, HasSubstr("/volume3: "));
    EXPECT_THAT(err, HasSubstr("; archives are not removed through a symbolic link"));
    EXPECT_TRUE(fs::exists(elsewhere + "/2023-01-01_2023-01-02.DB"));
}

TEST_F(ScheduleCommand, LeavesWhatSomebodyIsAtWorkOn) {
    const std::string converted = add("2024-01-01_2024-01-02.DB");
    const std::string recent = add("2024-01-03_2024-01-04.DB");
    addNewest();
    platform.addFile(kRetentionFile, "keep_days=\"1\"\n");
    fakeMachine().conversions = {converted};
    EXPECT_EQ(run({"schedule", "run"}), 0);
    EXPECT_EQ(fakeMachine().removals, Lines({recent + " days 10"}));
    fakeMachine().conversions.clear();
    struct stat status {};
    ASSERT_EQ(::lstat(platform.real(converted).c_str(), &status), 0);
    platform.now = status.st_mtim.tv_sec + 599;
    EXPECT_EQ(run({"schedule", "run"}), 0);
    EXPECT_TRUE(platform.exists(converted));
    platform.now += 2;
    EXPECT_EQ(run({"schedule", "run"}), 0);
    EXPECT_FALSE(platform.exists(converted));
}

TEST_F(ScheduleCommand, GoesOnBehindWhatFails) {
    platform.addDatabase(kSharedDb, march(11)).start = platform.now;
    const std::string old = add("2024-01-01_2024-01-31.DB");
    addNewest();
    platform.addFile(kRetentionFile, "keep_days=\"30\"\n");
    platform.failCall("VLIBServicectlRestart");
    platform.failCall("VLIBCFileSetKeys");
    EXPECT_EQ(run({"schedule", "run", "--json"}), 1);
    EXPECT_THAT(err, HasSubstr(kSharedDb + " could not be archived; the system log says why\n"));
    EXPECT_THAT(err, HasSubstr("the time of the run could not be recorded in "));
    EXPECT_THAT(out, HasSubstr(R"("ok":false,"problems":[")" + kSharedDb + " could not be archived"));
    EXPECT_THAT(out, HasSubstr(R"("removed":[{"path":")" + old));
}

TEST_F(ScheduleCommand, BeatsUntilItIsAskedToEnd) {
    fakeMachine().beats = 3;
    EXPECT_EQ(run({"schedule", "run", "--every=300", "--json"}), 0);
    EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 3);
    EXPECT_EQ(fakeMachine().beatSeconds, 300);
    EXPECT_EQ(fakeMachine().turnsTaken, 3);
    fakeMachine().beats = 2;
    fakeMachine().isTurnBusy = true;
    EXPECT_EQ(run({"schedule", "run", "--every", "1"}), 0);
    EXPECT_EQ(out, "");
    EXPECT_EQ(err,
              "ombrel: another command is at work; this run is left out\n"
              "ombrel: another command is at work; this run is left out\n");
    EXPECT_EQ(run({"schedule", "run", "--every", "1"}), 71) << "no timer";
}

TEST_F(ScheduleCommand, RefusesWhatDoesNotGoTogether) {
    for (const Lines& words : {Lines{"--dry-run", "--every=3"}, Lines{"--notify-fd=3"}, Lines{"--every=0"},
                               Lines{"--every=3", "--notify-fd=1000"}}) {
        Lines all = {"schedule", "run"};
        all.insert(all.end(), words.begin(), words.end());
        EXPECT_EQ(run(all), 64);
    }
    fakeMachine().turnResult = 75;
    EXPECT_EQ(run({"schedule", "run"}), 75);
    EXPECT_EQ(lastTime(), "1600000000");
}

TEST_F(ScheduleCommand, TellsHowItStands) {
    platform.jobs["pkg-Ombrel-schedule"] = 1;
    EXPECT_EQ(run({"schedule", "show"}), 0);
    EXPECT_EQ(out, "pkg-Ombrel-schedule: running\nlast run: " + localTimeText(1600000000) + "\n" + kNothingOn);
    platform.addFile(kServerConf, sampleText({{"arch_last_time", "0"}}));
    platform.jobs.clear();
    EXPECT_EQ(run({"schedule", "show"}), 0);
    EXPECT_THAT(out, HasSubstr("pkg-Ombrel-schedule: stopped\nlast run: never\n"));
    EXPECT_EQ(run({"schedule", "show", "--json"}), 0);
    EXPECT_EQ(out, R"({"job":"pkg-Ombrel-schedule","running":false,"last_run":null,"retention":{"keep_days":0,)"
                   R"("keep_bytes":0,"free_bytes":0}})"
                   "\n");
}

}  // namespace

}  // namespace ombrel::test::cmd_schedule
