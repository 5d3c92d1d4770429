// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// A run with conversions that do what the test wants, on real files.
#include "tools/ombrel-upgrade/upgrade_run.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sysexits.h>

#include <filesystem>
#include <regex>

#include "tests/contract/linux_makers.h"
#include "tests/linux/child_process.h"

namespace fs = std::filesystem;

namespace ombrel {
namespace {

using contract::makeLinuxLogDatabase;
using contract::makeLinuxVersion1Database;
using contract::Row;
using test::TemporaryFolder;
using test::writeBytes;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

class UpgradeRunTest : public ::testing::Test {
protected:
    UpgradeRunTest() {
        steps_.database = [this](const std::string& path, const WorkFolder& work, bool removeOld,
                                 UpgradeWatch& watch) { return convert(path, work, removeOld, watch); };
        steps_.zip = [this](const std::string& path, const WorkFolder& work, bool removeOld, UpgradeWatch& watch) {
            return convert(path, work, removeOld, watch);
        };
        steps_.workFolder = [this](const std::string&) { return folder_.at(".work"); };
        steps_.probes.zip = [](const std::string&) { return ZipContents{"", "", 1, 1000}; };
        steps_.isEnough = [](const std::string&, unsigned long long) { return true; };
        steps_.freeBytes = [](const std::string&) { return 5'000'000'000ULL; };
    }
    std::string old(const std::string& name) {
        std::string path = folder_.at(name);
        makeLinuxVersion1Database(path, {Row{1'709'424'000, 6, "alpha", "auth", "sshd", "hello"}});
        options_.paths.push_back(path);
        return path;
    }
    int run() {
        ::testing::internal::CaptureStdout();
        ::testing::internal::CaptureStderr();
        const int code = runUpgrade(options_, steps_, stop_);
        out_ = ::testing::internal::GetCapturedStdout();
        err_ = ::testing::internal::GetCapturedStderr();
        return code;
    }

    TemporaryFolder folder_;
    UpgradeOptions options_;
    UpgradeSteps steps_;
    std::atomic<bool> stop_{false};
    std::string out_;
    std::string err_;
    std::vector<std::string> converted_;

private:
    /// A name says what becomes of it.
    UpgradeOutcome convert(const std::string& path, const WorkFolder& work, bool removeOld, UpgradeWatch& watch) {
        EXPECT_TRUE(fs::is_directory(work.path()));
        converted_.push_back(fs::path(path).filename());
        UpgradeOutcome outcome;
        outcome.rows = 1000;
        if (path.find("bad") != std::string::npos) {
            outcome.error = "cannot convert " + path;
            return outcome;
        }
        watch.progress(UpgradeStage::kConverting, 421, 1000);
        if (path.find("stop") != std::string::npos) stop_ = true;
        outcome.end = watch.stopWanted() ? UpgradeEnd::kStopped : UpgradeEnd::kDone;
        if (watch.stopWanted()) return outcome;
        const std::string kept = path + ".v1";
        fs::rename(path, kept);
        writeBytes(path, "new");
        if (path.find("odd") != std::string::npos) outcome.notice = kept + " was kept";
        if (removeOld && outcome.notice.empty()) fs::remove(kept);
        return outcome;
    }
};

TEST_F(UpgradeRunTest, SaysWhatBecameOfEachFile) {
    const std::string path = old("a.DB");
    EXPECT_EQ(run(), EX_OK);
    EXPECT_THAT(out_, AllOf(StartsWith(path + ": 1,000 rows in 0.0 s ("),
                            EndsWith(" rows/s), the old file is a.DB.v1\n")));
    EXPECT_EQ(err_, "");
    EXPECT_FALSE(fs::exists(folder_.at(".work"))) << "nothing is left in it";
}

TEST_F(UpgradeRunTest, SaysWhereTheOldFileIs) {
    options_.removeOld = true;
    (void)old("a.DB");
    (void)old("odd.DB");
    EXPECT_EQ(run(), EX_OK);
    EXPECT_THAT(out_, HasSubstr("rows/s), the old file is removed\n"));
    EXPECT_THAT(out_, HasSubstr("the old file is odd.DB.v1; " + folder_.at("odd.DB.v1") + " was kept\n"));
    EXPECT_THAT(out_, EndsWith("2 upgraded, 0 failed\n"));
}

TEST_F(UpgradeRunTest, OneThatFailsDoesNotStopTheOthers) {
    (void)old("a.DB");
    (void)old("bad.DB");
    (void)old("c.DB");
    EXPECT_EQ(run(), EX_IOERR);
    EXPECT_THAT(converted_, ElementsAre("a.DB", "bad.DB", "c.DB"));
    EXPECT_EQ(err_, "ombrel-upgrade: cannot convert " + folder_.at("bad.DB") + "\n");
    EXPECT_THAT(out_, EndsWith("2 upgraded, 1 failed\n"));
}

TEST_F(UpgradeRunTest, ASignalEndsItBehindTheTransaction) {
    const std::string path = old("b-stop.DB");
    (void)old("a.DB");
    (void)old("c.DB");
    EXPECT_EQ(run(), EX_TEMPFAIL);
    EXPECT_THAT(converted_, ElementsAre("a.DB", "b-stop.DB"));
    EXPECT_EQ(err_, "ombrel-upgrade: " + path + ": stopped at 42 %; run ombrel-upgrade again to go on\n");
    EXPECT_THAT(out_, EndsWith("1 upgraded, 0 failed, 2 left to do\n"));
    EXPECT_EQ(run(), EX_TEMPFAIL) << "while the search went on";
    EXPECT_THAT(err_, EndsWith("ombrel-upgrade: stopped before anything was begun\n"));
    EXPECT_EQ(converted_.size(), 2U);
}

TEST_F(UpgradeRunTest, BeginsNothingWithTooLittleSpace) {
    (void)old("a.DB");
    (void)old("b.DB.old-1");
    steps_.isEnough = [](const std::string&, unsigned long long) { return false; };
    for (const bool dryRun : {false, true}) {
        options_.dryRun = dryRun;
        EXPECT_EQ(run(), EX_CANTCREAT);
        EXPECT_THAT(err_, AllOf(HasSubstr("too little space at " + folder_.path()), HasSubstr("5.0 GB free")));
        EXPECT_THAT(converted_, IsEmpty());
        EXPECT_TRUE(fs::exists(folder_.at("b.DB.old-1")));
        EXPECT_FALSE(fs::exists(folder_.at(".work")));
    }
}

TEST_F(UpgradeRunTest, ADryRunChangesNothing) {
    (void)old("a.DB");
    (void)old("b.DB.old-1");
    options_.dryRun = true;
    EXPECT_EQ(run(), EX_OK);
    EXPECT_THAT(out_, AllOf(HasSubstr("a.DB"), HasSubstr("becomes 2024-03-0"), HasSubstr(" needed, 5.0 GB free")));
    EXPECT_THAT(converted_, IsEmpty());
    EXPECT_TRUE(fs::exists(folder_.at("b.DB.old-1")));
    EXPECT_FALSE(fs::exists(folder_.at(".work")));
}

TEST_F(UpgradeRunTest, WhatWasSetAsideGetsAnArchiveNameFirst) {
    const std::string path = old("b.DB.old-1");
    EXPECT_EQ(run(), EX_OK);
    ASSERT_EQ(converted_.size(), 1U);
    EXPECT_THAT(converted_[0], AllOf(StartsWith("2024-03-0"), EndsWith(".DB")));
    EXPECT_FALSE(fs::exists(path));
    EXPECT_THAT(out_, StartsWith(path + ": is " + folder_.at(converted_[0]) + " from now on\n"));
}

TEST_F(UpgradeRunTest, NothingToDoIsNothingWrong) {
    const std::string path = folder_.at("new.DB");
    makeLinuxLogDatabase(path, {});
    options_.paths = {path};
    EXPECT_EQ(run(), EX_OK);
    EXPECT_EQ(out_, path + " has the current layout already\nnothing to upgrade\n");
    EXPECT_EQ(err_, "");
}

TEST_F(UpgradeRunTest, TheFirstThingThatIsWrongIsTheExitCode) {
    options_.paths = {folder_.at("missing.DB")};
    (void)old("bad.DB");
    (void)old("good.DB");
    EXPECT_EQ(run(), EX_NOINPUT);
    EXPECT_THAT(converted_, ElementsAre("bad.DB", "good.DB"));
}

TEST_F(UpgradeRunTest, NamesNeverReachTheTerminalAsTheyAre) {
    (void)old("a\x1b[31m\nb.DB");
    (void)old("bad\x1b[31m\n.DB");
    EXPECT_EQ(run(), EX_IOERR);
    EXPECT_THAT(out_, HasSubstr("/a\\x1b[31m\\x0ab.DB: 1,000 rows"));
    EXPECT_THAT(err_, HasSubstr("/bad\\x1b[31m\\x0a.DB\n"));
    EXPECT_THAT(out_ + err_, Not(HasSubstr("\x1b")));
}

TEST_F(UpgradeRunTest, AWorkFolderOfOthersIsNotUsed) {
    (void)old("a.DB");
    fs::create_directory(folder_.at(".work"));
    ASSERT_EQ(::chmod(folder_.at(".work").c_str(), 0777), 0);
    EXPECT_EQ(run(), EX_UNAVAILABLE);
    EXPECT_THAT(err_, AllOf(HasSubstr("cannot upgrade " + folder_.at("a.DB")), HasSubstr("others can write")));
    EXPECT_THAT(converted_, IsEmpty());
}

TEST_F(UpgradeRunTest, ZipFilesGoTheirOwnWay) {
    const std::string path = folder_.at("a.ZIP");
    writeBytes(path, "zip");
    options_.paths = {path};
    options_.zip = true;
    steps_.database = nullptr;
    EXPECT_EQ(run(), EX_OK);
    EXPECT_THAT(converted_, ElementsAre("a.ZIP"));
    EXPECT_THAT(out_, HasSubstr("the old file is a.ZIP.v1"));
}

TEST_F(UpgradeRunTest, SaysInJsonWhatBecameOfEachFile) {
    options_.json = true;
    const std::string good = old("a\x1b.DB");
    const std::string bad = old("bad.DB");
    const std::string shown = folder_.at("a\\u001b.DB");
    EXPECT_EQ(run(), EX_IOERR);
    EXPECT_EQ(std::regex_replace(out_, std::regex("(duration_seconds\":)[0-9]+\\.[0-9]{3},"), "$1T,"),
              R"({"type":"file","file":")" + shown +
                  R"(","state":"done","rows":1000,"duration_seconds":T,"old_file":")" + shown +
                  R"(.v1","notice":null,"error":null})"
                  "\n"
                  R"({"type":"file","file":")" +
                  bad + R"(","state":"failed","rows":null,"duration_seconds":T,"old_file":null,"notice":null,)" +
                  R"("error":"cannot convert )" + bad +
                  "\"}\n"
                  R"({"type":"summary","upgraded":1,"failed":1,"left":0})"
                  "\n");
    EXPECT_EQ(err_, "ombrel-upgrade: cannot convert " + bad + "\n");
}

TEST_F(UpgradeRunTest, SaysInJsonWhatThereIsToDo) {
    options_.json = true;
    options_.dryRun = true;
    const std::string path = old("a.DB");
    options_.paths.push_back(folder_.at("new.DB"));
    makeLinuxLogDatabase(folder_.at("new.DB"), {});
    const std::string size = std::to_string(fs::file_size(path));
    EXPECT_EQ(run(), EX_OK);
    EXPECT_THAT(out_, StartsWith(R"({"type":"note","text":")" + folder_.at("new.DB") +
                                 R"( has the current layout already","file":null})"
                                 "\n"
                                 R"({"type":"plan","file":")" +
                                 path + R"(","kind":"database","rows":1,"databases":1,"size_bytes":)" + size +
                                 R"(,"needed_bytes":)"));
    EXPECT_THAT(out_, HasSubstr(R"(,"done_rows":0,"new_file":")" + path +
                                "\"}\n"
                                R"({"type":"volume","folder":")" +
                                folder_.path() + R"(","needed_bytes":)"));
    EXPECT_THAT(out_, EndsWith(R"(,"free_bytes":5000000000,"enough":true})"
                               "\n"));
}

}  // namespace
}  // namespace ombrel
