// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <filesystem>
#include <future>
#include <thread>
#include <utility>

#include "linux/common/turnstile.h"
#include "tests/tools/upgrade_world.h"
#include "tools/ombrel-upgrade/placement.h"
#include "tools/ombrel-upgrade/upgrade_database.h"

namespace ombrel {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
namespace fs = std::filesystem;

class UpgradePlacement : public testing::Test {
protected:
    void SetUp() override {
        writeText(path, "old");
        writeText(newPath, "new");
    }
    TempFolder folder;
    std::string path = folder / "a.DB";
    std::string kept = folder / "a.DB.v1";
    std::string newPath = folder / "new.DB";
};

TEST_F(UpgradePlacement, KeepsTheOldFileBesideTheNewOne) {
    EXPECT_EQ(placeFile(path, newPath, false), "");
    EXPECT_EQ(readText(path), "new");
    EXPECT_EQ(readText(kept), "old");
    EXPECT_FALSE(fs::exists(newPath));
}

TEST_F(UpgradePlacement, RemovesTheOldFileWhenAsked) {
    EXPECT_EQ(placeFile(path, newPath, true), "");
    EXPECT_EQ(readText(path), "new");
    EXPECT_FALSE(fs::exists(kept));
}

TEST_F(UpgradePlacement, KeepsOwnerModeAndTimes) {
    ASSERT_EQ(::chmod(path.c_str(), 0640), 0);
    ASSERT_EQ(::geteuid() == 0 ? ::chown(path.c_str(), 12, 34) : 0, 0);
    const timespec times[2] = {{1'600'000'000, 5}, {1'600'000'100, 7}};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    ASSERT_EQ(placeFile(path, newPath, false), "");
    struct stat placed {};
    ASSERT_EQ(::stat(path.c_str(), &placed), 0);
    EXPECT_EQ(placed.st_mode & 07777, 0640U);
    EXPECT_EQ(placed.st_mtim.tv_sec, 1'600'000'100);
    EXPECT_EQ(placed.st_mtim.tv_nsec, 7);
    if (::geteuid() == 0) {
        EXPECT_EQ(placed.st_uid, 12U);
        EXPECT_EQ(placed.st_gid, 34U);
    }
}

TEST_F(UpgradePlacement, GoesOnWhereTheOldFileHasItsSecondNameAlready) {
    ASSERT_EQ(::link(path.c_str(), kept.c_str()), 0);
    EXPECT_EQ(checkReplaceable(path, false), "");
    EXPECT_EQ(placeFile(path, newPath, false), "");
    EXPECT_EQ(readText(path), "new");
    EXPECT_EQ(readText(kept), "old");
}

TEST_F(UpgradePlacement, LeavesAnotherFileOfThatNameAlone) {
    writeText(kept, "somebody's");
    EXPECT_THAT(checkReplaceable(path, false), HasSubstr(kept + " is there already"));
    EXPECT_EQ(checkReplaceable(path, true), "");
    EXPECT_THAT(placeFile(path, newPath, false), HasSubstr(kept + " is there already"));
    EXPECT_EQ(readText(path), "old");
    EXPECT_EQ(readText(kept), "somebody's");
    EXPECT_EQ(readText(newPath), "new");
}

TEST_F(UpgradePlacement, SaysBeforeItBeginsThatTheKeptNameIsTooLong) {
    const std::string longName = folder / (std::string(NAME_MAX - 2, 'x'));
    writeText(longName, "old");
    EXPECT_THAT(checkReplaceable(longName, false), HasSubstr("File name too long"));
    EXPECT_THAT(checkReplaceable(longName, true), IsEmpty());
}

TEST_F(UpgradePlacement, ReplacesNoLink) {
    fs::rename(path, folder / "b.DB");
    fs::create_symlink(folder / "b.DB", path);
    EXPECT_THAT(placeFile(path, newPath, false), HasSubstr("no regular file"));
    EXPECT_TRUE(fs::is_symlink(path));
}

TEST_F(UpgradePlacement, PutsNoLinkThere) {
    fs::rename(newPath, folder / "other");
    fs::create_symlink(folder / "other", newPath);
    EXPECT_THAT(placeFile(path, newPath, false), StartsWith("cannot finish " + newPath));
    EXPECT_EQ(readText(path), "old");
    EXPECT_FALSE(fs::exists(kept));
}

TEST_F(UpgradePlacement, NeedsBothFiles) {
    fs::remove(newPath);
    EXPECT_THAT(placeFile(path, newPath, false), StartsWith("cannot finish " + newPath));
    EXPECT_FALSE(fs::exists(kept));
    writeText(newPath, "new");
    fs::remove(path);
    EXPECT_THAT(placeFile(path, newPath, false), StartsWith("cannot replace " + path));
    EXPECT_EQ(readText(newPath), "new");
}

class UpgradeDatabase : public testing::Test {
protected:
    void SetUp() override {
        runSql(path, kOldSchema + oldRowsSql(350));
        before = exported(path);
        ASSERT_EQ(work.open(folder / "work"), "");
    }
    UpgradeOutcome upgrade(bool removeOld = false) {
        return upgradeDatabase(path, work, removeOld, watch, testOptions());
    }
    void expectUntouched() {
        EXPECT_EQ(SyslogDBVersionGet(path), 1);
        EXPECT_EQ(exported(path), before);
    }
    /// Places another file after something else was done with the old one.
    Placed placeAfter(const std::function<void()>& act, std::string& error) {
        const std::string newPath = folder / "new";
        writeText(newPath, "new");
        OldDatabase old;
        EXPECT_EQ(old.open(path), "");
        const auto version = old.version();
        EXPECT_TRUE(version);
        act();
        return placeDatabase(old, version.value_or(0), newPath, true, error);
    }
    /// Once everything is made and compared.
    void atTheEnd(const std::function<void()>& act) {
        watch.atStep = [this, act](const TestWatch::Step& step) {
            if (step.stage != UpgradeStage::kVerifying || step.done != step.total) return;
            watch.atStep = nullptr;
            act();
        };
    }
    TempFolder folder;
    std::string path = folder / "a.DB";
    std::vector<std::string> before;
    WorkFolder work;
    TestWatch watch;
};

TEST_F(UpgradeDatabase, LeavesTheNewOneAtItsPlaceAndNothingElse) {
    const UpgradeOutcome outcome = upgrade();
    EXPECT_EQ(outcome.end, UpgradeEnd::kDone) << outcome.error;
    EXPECT_EQ(outcome.rows, 350);
    EXPECT_THAT(outcome.notice, IsEmpty());
    EXPECT_EQ(SyslogDBVersionGet(path), 2);
    EXPECT_EQ(exported(path), before);
    EXPECT_EQ(exported(path + ".v1"), before);
    EXPECT_TRUE(fs::is_empty(work.path()));
}

TEST_F(UpgradeDatabase, HasNothingToDoTheSecondTime) {
    ASSERT_EQ(upgrade().end, UpgradeEnd::kDone);
    const UpgradeOutcome outcome = upgrade();
    EXPECT_EQ(outcome.end, UpgradeEnd::kDone);
    EXPECT_EQ(outcome.rows, 350);
    EXPECT_EQ(outcome.notice, "it has the current layout already");
}

TEST_F(UpgradeDatabase, RemovesTheOldOneWhenAsked) {
    ASSERT_EQ(upgrade(true).end, UpgradeEnd::kDone);
    EXPECT_EQ(SyslogDBVersionGet(path), 2);
    EXPECT_FALSE(fs::exists(path + ".v1"));
}

TEST_F(UpgradeDatabase, KeepsAnOldOneThatHoldsMore) {
    runSql(path, "CREATE TABLE notes (a)");
    const UpgradeOutcome outcome = upgrade(true);
    EXPECT_EQ(outcome.end, UpgradeEnd::kDone);
    EXPECT_THAT(outcome.notice, HasSubstr("table notes"));
    EXPECT_EQ(SyslogDBVersionGet(path), 2);
    EXPECT_EQ(SyslogDBVersionGet(path + ".v1"), 1);
}

TEST_F(UpgradeDatabase, SaysThatTheKeptNameIsTakenBeforeItBegins) {
    writeText(path + ".v1", "somebody's");
    const UpgradeOutcome outcome = upgrade();
    EXPECT_EQ(outcome.end, UpgradeEnd::kFailed);
    EXPECT_THAT(outcome.error, HasSubstr(path + ".v1 is there already"));
    EXPECT_THAT(watch.steps, IsEmpty());
    expectUntouched();
}

TEST_F(UpgradeDatabase, LeavesADatabaseAloneThatWasMovedMeanwhile) {
    atTheEnd([this] {
        fs::rename(path, folder / "moved.DB");
        runSql(path, schemaText());
    });
    const UpgradeOutcome outcome = upgrade();
    EXPECT_EQ(outcome.end, UpgradeEnd::kFailed);
    EXPECT_THAT(outcome.error, HasSubstr("was moved meanwhile"));
    EXPECT_EQ(rowCount(path), "0");
    path = folder / "moved.DB";
    expectUntouched();
    watch.steps.clear();
    EXPECT_EQ(upgrade().end, UpgradeEnd::kDone);
    EXPECT_EQ(watch.beganAt(UpgradeStage::kConverting), 350) << "it goes on where the file is now";
    EXPECT_EQ(exported(path), before);
}

TEST_F(UpgradeDatabase, TakesRowsThatComeInBeforeItIsPlaced) {
    atTheEnd([this] { runSql(path, oldRowsSql(1, 351)); });
    const UpgradeOutcome outcome = upgrade();
    EXPECT_EQ(outcome.end, UpgradeEnd::kDone) << outcome.error;
    EXPECT_EQ(outcome.rows, 351);
}

TEST_F(UpgradeDatabase, LeavesNoJournalOfTheOldOneToTheNewOne) {
    runSql(path,
           "PRAGMA journal_mode=PERSIST; UPDATE logs SET msg = 'm' WHERE id = 350; PRAGMA journal_mode=PERSIST");
    std::ofstream(path + "-journal") << std::string(600, '\0');
    before = exported(path);
    ASSERT_EQ(upgrade().end, UpgradeEnd::kDone);
    EXPECT_FALSE(fs::exists(path + "-journal"));
    EXPECT_EQ(exported(path), before);
}

TEST_F(UpgradeDatabase, TakesADatabaseOutOfWalModeBeforeItIsReplaced) {
    runSql(path, "PRAGMA journal_mode=WAL; INSERT INTO logs(id, msg) VALUES (1000, 'in the log')");
    before = exported(path);
    ASSERT_EQ(upgrade().end, UpgradeEnd::kDone);
    EXPECT_FALSE(fs::exists(path + "-wal"));
    EXPECT_EQ(exported(path), before);
    EXPECT_EQ(exported(path + ".v1"), before);
}

TEST_F(UpgradeDatabase, IsNotReplacedWhileSomebodyReadsOrWritesIt) {
    const std::string newPath = folder / "new";
    writeText(newPath, "new");
    OldDatabase old;
    ASSERT_EQ(old.open(path), "");
    old.connection().setBusyTimeout(10);
    const auto version = old.version();
    ASSERT_TRUE(version);
    for (const char* const doing : {"BEGIN; SELECT * FROM logs", "BEGIN IMMEDIATE"}) {
        Connection other;
        ASSERT_EQ(other.open(path, OpenMode::kReadWrite), 0);
        ASSERT_EQ(other.execute(doing), 0);
        std::string error;
        EXPECT_EQ(placeDatabase(old, *version, newPath, true, error), Placed::kFailed) << doing;
        EXPECT_THAT(error, HasSubstr("another program has it")) << doing;
        other.close();
        expectUntouched();
    }
    EXPECT_EQ(readText(newPath), "new");
}

TEST_F(UpgradeDatabase, ReplacesNoOtherFileThatHasTheNameByNow) {
    std::string error;
    EXPECT_EQ(placeAfter(
                  [this] {
                      fs::rename(path, folder / "moved.DB");
                      writeText(path, "another");
                  },
                  error),
              Placed::kFailed);
    EXPECT_THAT(error, StartsWith(path + " was moved meanwhile"));
    EXPECT_EQ(readText(path), "another");
}

TEST_F(UpgradeDatabase, IsNotReplacedOnceSomebodyHasWrittenToIt) {
    std::string error;
    EXPECT_EQ(placeAfter([this] { runSql(path, oldRowsSql(1, 351)); }, error), Placed::kChanged);
    EXPECT_THAT(error, HasSubstr("is being written to"));
    EXPECT_EQ(SyslogDBVersionGet(path), 1);
}

// A row that comes in meanwhile is converted, too.
TEST_F(UpgradeDatabase, IsPlacedWhenWhoeverMovesDatabasesHasDone) {
    Turnstile mover;
    ASSERT_TRUE(mover.open(path));
    ASSERT_EQ(mover.hold(std::chrono::seconds(1)), TurnstileResult::kEntered);
    std::atomic<bool> isMoving = true;
    std::promise<void> isCompared;
    atTheEnd([&] { isCompared.set_value(); });
    std::thread end([&] {
        (void)isCompared.get_future().wait_for(std::chrono::seconds(30));  // longer than it ever takes
        runSql(path, oldRowsSql(1, 351));
        isMoving = false;
        mover.leave();
    });
    const UpgradeOutcome outcome = upgrade();
    EXPECT_FALSE(isMoving);
    end.join();
    EXPECT_EQ(outcome.end, UpgradeEnd::kDone) << outcome.error;
    EXPECT_EQ(outcome.rows, 351);
}

TEST_F(UpgradeDatabase, StopsAndGoesOn) {
    watch.stopAt(UpgradeStage::kConverting, 100);
    EXPECT_EQ(upgrade().end, UpgradeEnd::kStopped);
    expectUntouched();
    EXPECT_EQ(rowCount(newDatabaseFor(path, work)), "100");
    watch.stop = false;
    watch.atStep = nullptr;
    EXPECT_EQ(upgrade().end, UpgradeEnd::kDone);
    EXPECT_EQ(exported(path), before);
}

TEST_F(UpgradeDatabase, NamesAFileThatIsNone) {
    path = folder / "none.DB";
    const UpgradeOutcome outcome = upgrade();
    EXPECT_EQ(outcome.end, UpgradeEnd::kFailed);
    EXPECT_THAT(outcome.error, HasSubstr(path));
}

TEST(UpgradeWorkFolder, IsForItsOwnerAloneAndGoneWhenEmpty) {
    TempFolder folder;
    const std::string path = folder / "work";
    {
        WorkFolder work;
        ASSERT_EQ(work.open(path), "");
        EXPECT_EQ(fs::status(path).permissions(), fs::perms::owner_all);
    }
    EXPECT_FALSE(fs::exists(path));
}

TEST(UpgradeWorkFolder, StaysWithWhatTheNextRunGoesOnWith) {
    TempFolder folder;
    {
        WorkFolder work;
        ASSERT_EQ(work.open(folder / "work"), "");
        writeText(folder / "work/half", "half");
    }
    WorkFolder again;
    EXPECT_EQ(again.open(folder / "work"), "");
    EXPECT_EQ(readText(folder / "work/half"), "half");
}

TEST(UpgradeWorkFolder, IsForOneProgramAtATime) {
    TempFolder folder;
    WorkFolder first;
    WorkFolder second;
    ASSERT_EQ(first.open(folder / "work"), "");
    EXPECT_THAT(second.open(folder / "work"), HasSubstr("another ombrel-upgrade"));
    first = WorkFolder();
    EXPECT_EQ(second.open(folder / "work"), "");
}

TEST(UpgradeWorkFolder, IsRefusedWhereOthersCanWrite) {
    TempFolder folder;
    for (const auto& [name, mode] : {std::pair{"open", 0777}, {"group", 0770}, {"good", 0700}, {"other", 0700}}) {
        ASSERT_EQ(::mkdir((folder / name).c_str(), 0700), 0);
        ASSERT_EQ(::chmod((folder / name).c_str(), static_cast<mode_t>(mode)), 0);
    }
    const bool hasOther = ::chown((folder / "other").c_str(), 65534, 65534) == 0;  // root's right
    fs::create_directory_symlink(folder / "good", folder / "link");
    writeText(folder / "file", "");
    for (const std::string name : {"open", "group", "other", "link", "file", "none/work"}) {
        if (name == "other" && !hasOther) continue;
        WorkFolder work;
        EXPECT_THAT(work.open(folder / name), HasSubstr(folder / name)) << name;
    }
    WorkFolder work;
    EXPECT_EQ(work.open(folder / "good"), "");
}

TEST(UpgradeWorkFolder, StaysWhenItWasOnlyAskedFor) {
    TempFolder folder;
    ASSERT_EQ(::mkdir((folder / "work").c_str(), 0700), 0);
    { const WorkFolder asked(folder / "work"); }
    EXPECT_TRUE(fs::exists(folder / "work"));
}

TEST(UpgradeWorkFolder, KnowsAFileByMoreThanItsName) {
    TempFolder folder;
    WorkFolder work;
    ASSERT_EQ(work.open(folder / "work"), "");
    writeText(folder / "a", "");
    writeText(folder / "b", "");
    const std::string place = work.placeFor(folder / "a", ".DB");
    EXPECT_THAT(place, StartsWith(work.path() + "/"));
    EXPECT_NE(work.placeFor(folder / "b", ".DB"), place);
    fs::rename(folder / "a", folder / "c");
    EXPECT_EQ(work.placeFor(folder / "c", ".DB"), place);
    EXPECT_EQ(work.placeFor(folder / "a", ".DB"), "");
}

}  // namespace
}  // namespace ombrel
