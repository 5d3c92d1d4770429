// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// An upgrade of a ZIP file that is killed or stopped wherever that can be, and goes on.
#include <gmock/gmock.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <filesystem>

#include "linux/common/sqlite_db.h"
#include "tests/tools/zipped_databases.h"

namespace fs = std::filesystem;

namespace {

/// The change of a file that this process does not live to make; 0: none.
int lastChange = 0;
int changes = 0;

void countChange() {
    if (++changes == lastChange) (void)::raise(SIGKILL);
}

}  // namespace

// The linker has the upgrade call these in place of the system's.
extern "C" {
int __real_rename(const char* from, const char* to);
int __real_link(const char* from, const char* to);
int __real_unlink(const char* path);
int __real_fsync(int fd);
int __wrap_rename(const char* from, const char* to) {
    countChange();
    return __real_rename(from, to);
}
int __wrap_link(const char* from, const char* to) {
    countChange();
    return __real_link(from, to);
}
int __wrap_unlink(const char* path) {
    countChange();
    return __real_unlink(path);
}
int __wrap_fsync(int fd) {
    countChange();
    return __real_fsync(fd);
}
}

namespace ombrel::test {
namespace {

using ::testing::IsEmpty;

class InterruptedUpgrade : public ZippedDatabases {
protected:
    void SetUp() override {
        ZippedDatabases::SetUp();
        makeOld("srv/logs/a.DB", 50, 1);
        makeOld("srv/logs/b.DB", 30, 2);
        writeBytes(root + "/" + kText, std::string(3000, 't'));
        pack({"srv"}, {"-r"});
        old = readBytes(zip);
        fs::rename(zip, pristine);
        expected = [&] {
            fs::copy_file(pristine, zip);
            upgradeWell(80);
            return databases();
        }();
        putBack();
    }

    void putBack() {
        fs::remove(zip);
        fs::remove(zip + ".v1");
        fs::copy_file(pristine, zip);
        watch.reset();
    }
    /// All rows of both new databases.
    [[nodiscard]] std::string databases() const {
        std::string rows;
        for (const ZipEntry& entry : entriesOf(zip)) {
            if (!entry.name.ends_with(".DB")) continue;
            std::string bytes = contentsOf(zip, entry);
            Connection connection;
            Statement all;
            EXPECT_EQ(connection.openBytes(bytes), 0);
            EXPECT_EQ(all.prepare(connection,
                                  "SELECT quote(l.id) || quote(utcsec) || quote(utcoff) || quote(h.name) ||"
                                  " quote(p.name) || quote(severity) || quote(msg) FROM logs l"
                                  " JOIN hosts h ON h.id = host JOIN programs p ON p.id = program ORDER BY l.id"),
                      0);
            while (all.step() == Statement::kRow)
                rows.append(all.columnText(0)) += '\n';
        }
        return rows;
    }
    /// What must hold at any moment.
    void expectOldOrNew() const {
        if (readBytes(zip) == old) return;
        EXPECT_EQ(oldDatabasesInZip(zip).oldDatabases, 0);
        EXPECT_TRUE(readBytes(zip + ".v1") == old);
        EXPECT_TRUE(databases() == expected);
        EXPECT_THAT(workFiles(), IsEmpty());  // nobody would look for them any more
    }
    void expectWellAfterwards() {
        expectOldOrNew();
        const bool isOld = readBytes(zip) == old;
        watch.reset();
        const UpgradeOutcome outcome = upgrade();
        EXPECT_EQ(outcome.end, UpgradeEnd::kDone) << outcome.error;
        EXPECT_EQ(outcome.rows, isOld ? 80 : 0);
        EXPECT_THAT(workFiles(), IsEmpty());
        EXPECT_TRUE(readBytes(zip + ".v1") == old);
        EXPECT_TRUE(databases() == expected);
        expectTheRestAsBefore();
    }

    std::string pristine = folder.at("pristine.ZIP");
    std::string old;
    std::string expected;
};

TEST_F(InterruptedUpgrade, GoesOnWhereverItWasKilledAtWork) {
    int moments = 0;
    for (int result = 128 + SIGKILL; result != 0 && !HasFailure(); ++moments) {
        SCOPED_TRACE(moments);
        result = runInChild([&] {
            watch.onCall = [&](UpgradeStage /*stage*/) {
                if (watch.calls > moments) (void)::raise(SIGKILL);
            };
            return upgrade().end == UpgradeEnd::kDone ? 0 : 1;
        });
        ASSERT_TRUE(result == 0 || result == 128 + SIGKILL);
        expectWellAfterwards();
        putBack();
    }
    EXPECT_GT(moments, 15);
}

TEST_F(InterruptedUpgrade, GoesOnWhereverItWasKilledBetweenTwoChangesOfFiles) {
    int moments = 0;
    for (int result = 128 + SIGKILL; result != 0 && !HasFailure(); ++moments) {
        SCOPED_TRACE(moments);
        result = runInChild([&] {
            changes = 0;
            lastChange = moments + 1;
            return upgrade().end == UpgradeEnd::kDone ? 0 : 1;
        });
        ASSERT_TRUE(result == 0 || result == 128 + SIGKILL);
        expectWellAfterwards();
        putBack();
    }
    EXPECT_GT(moments, 15);
}

TEST_F(InterruptedUpgrade, StopsWhereverItIsAskedToAndGoesOn) {
    int moments = 0;
    for (UpgradeEnd end = UpgradeEnd::kStopped; end == UpgradeEnd::kStopped && !HasFailure(); ++moments) {
        SCOPED_TRACE(moments);
        watch.stopAt = moments + 1;
        const UpgradeOutcome outcome = upgrade();
        end = outcome.end;
        ASSERT_NE(end, UpgradeEnd::kFailed) << outcome.error;
        if (end == UpgradeEnd::kStopped) {
            EXPECT_TRUE(readBytes(zip) == old);
        }
        expectWellAfterwards();
        putBack();
    }
    EXPECT_GT(moments, 15);
}

TEST_F(InterruptedUpgrade, DoesNotGoOnWithTheFilesOfAnother) {
    ASSERT_EQ(runInChild([&] {
                  watch.onCall = [&](UpgradeStage stage) {
                      if (stage == UpgradeStage::kPacking) (void)::raise(SIGKILL);
                  };
                  return upgrade().end == UpgradeEnd::kDone ? 0 : 1;
              }),
              128 + SIGKILL);
    EXPECT_EQ(workFiles().size(), 4U);
    fs::create_directories(root + "/srv/logs");
    makeOld("srv/logs/a.DB", 60, 7);
    makeOld("srv/logs/b.DB", 50, 8);
    const std::string other = folder.at("other.ZIP");
    ASSERT_EQ(runIn(root, {"/usr/bin/zip", "-q", "-m", "-r", other, "srv"}), 0);
    writeBytes(zip, readBytes(other));  // the same file, with something else in it
    upgradeWell(110);
    EXPECT_TRUE(readBytes(zip + ".v1") == readBytes(other));
}

TEST_F(InterruptedUpgrade, KnowsLaterThatTheOldFileMustStay) {
    fs::create_directories(root + "/srv/logs");
    fs::remove(zip);
    packArchive(100, "CREATE TABLE notes(x)");
    writeBytes(zip + ".v1", "in the way");
    EXPECT_EQ(upgrade(true).end, UpgradeEnd::kFailed);
    fs::remove(zip + ".v1");
    watch.reset();
    const UpgradeOutcome outcome = upgrade(true);
    EXPECT_EQ(outcome.end, UpgradeEnd::kDone) << outcome.error;
    EXPECT_EQ(outcome.rows, 100);
    EXPECT_EQ(outcome.notice, zip +
                                  ".v1 was kept, since only it holds: tables or columns that the current layout"
                                  " does not have");
    EXPECT_EQ(watch.calls, 0);
    EXPECT_TRUE(fs::exists(zip + ".v1"));
    EXPECT_THAT(workFiles(), IsEmpty());
}

TEST_F(InterruptedUpgrade, LeavesNothingOfAFileThatChangedMeanwhile) {
    watch.onCall = [&](UpgradeStage stage) {
        if (stage == UpgradeStage::kPacking) writeBytes(zip, old + "more");
    };
    const UpgradeOutcome outcome = upgrade();
    EXPECT_EQ(outcome.end, UpgradeEnd::kFailed);
    EXPECT_EQ(outcome.error, zip + ": it was changed or moved meanwhile; run ombrel-upgrade again");
    EXPECT_TRUE(readBytes(zip) == old + "more");
    EXPECT_FALSE(fs::exists(zip + ".v1"));
    EXPECT_THAT(workFiles(), IsEmpty());
}

TEST_F(InterruptedUpgrade, LeavesNothingOfAFileThatWasReplacedMeanwhile) {
    watch.onCall = [&](UpgradeStage stage) {
        if (stage != UpgradeStage::kConverting || fs::exists(folder.at("moved"))) return;
        fs::rename(zip, folder.at("moved"));
        writeBytes(zip, "another");
    };
    const UpgradeOutcome outcome = upgrade();
    EXPECT_EQ(outcome.end, UpgradeEnd::kFailed);
    EXPECT_THAT(outcome.error, ::testing::HasSubstr("changed or moved meanwhile"));
    EXPECT_EQ(readBytes(zip), "another");
    EXPECT_THAT(workFiles(), IsEmpty());
}

}  // namespace
}  // namespace ombrel::test
