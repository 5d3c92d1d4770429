// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// An upgrade that dies at each of its changes to files in turn, or whose change fails: at every moment the name
// leads to a log database with all rows, the next run ends the work, and what it leaves is what an undisturbed run
// leaves.
#include <gmock/gmock.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <new>
#include <set>
#include <string>
#include <vector>

#include "linux/common/sqlite_db.h"
#include "platform/vesksyslog.h"
#include "tests/linux/child_process.h"
#include "tests/support/old_database.h"
#include "tests/tools/dying_calls.h"
#include "tests/tools/upgrade_world.h"
#include "tools/ombrel-upgrade/upgrade_database.h"

namespace ombrel::test {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;

constexpr int kRows = 30;
constexpr int kPageRows = 20;
constexpr int kLastChanges = 24;  // with the last transaction

std::vector<std::string> namesIn(const fs::path& folder) {
    std::vector<std::string> names;
    std::error_code none;
    for (const auto& entry : fs::directory_iterator(folder, none))
        names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

/// What a run tells while it lasts; in memory that outlives it.
struct RunRecord {
    struct Stage {
        long long first = -1;  ///< the first number of rows that it told, -1 without one
        long long last = 0;
    };
    CallRecord record;
    Stage converting;
    Stage verifying;
    bool cannotBegin = false;
    UpgradeEnd end = UpgradeEnd::kFailed;
    std::array<char, 512> error{};
};

class SharedRun {
public:
    SharedRun() : run_(new (memory()) RunRecord) {}
    ~SharedRun() { (void)::munmap(run_, sizeof(RunRecord)); }
    SharedRun(const SharedRun&) = delete;
    SharedRun& operator=(const SharedRun&) = delete;
    RunRecord* operator->() const { return run_; }
    RunRecord& operator*() const { return *run_; }

private:
    static void* memory() {
        void* place =
            ::mmap(nullptr, sizeof(RunRecord), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (place == MAP_FAILED) throw std::bad_alloc();
        return place;
    }
    RunRecord* run_;
};

class Teller : public UpgradeWatch {
public:
    explicit Teller(RunRecord& run) : run_(run) {}
    void progress(UpgradeStage stage, long long done, long long /*total*/) override {
        RunRecord::Stage& told = stage == UpgradeStage::kConverting ? run_.converting : run_.verifying;
        if (told.first < 0) told.first = done;
        told.last = done;
    }
    [[nodiscard]] bool stopWanted() const override { return false; }

private:
    RunRecord& run_;
};

class InterruptedUpgrade : public ::testing::TestWithParam<bool> {
protected:
    void SetUp() override {
        ASSERT_EQ(::setenv("TZ", "Europe/Berlin", 1), 0);
        OldDatabaseOptions options;
        options.rows = kRows;
        options.seed = 7;

        options.longMessageEvery = 0;
        options.messageBytes = 60;
        options.hosts = 3;
        options.programs = 3;
        makeOldDatabase(original, options);
        oldBytes = readBytes(original);
        restore();
    }
    void TearDown() override { (void)::unsetenv("TZ"); }

    void restore() {
        fs::remove_all(place);
        fs::remove_all(workPlace);
        fs::create_directory(place);
        fs::copy_file(original, path);
    }

    /// A child upgrades; its exit code is 128 + SIGKILL where it met its fate.
    int upgrade(Fate fate, long long at, int error, RunRecord& run) const {
        const pid_t child = startChild([&] {
            armCalls(fate, at, error, run.record);
            upgradeHere(run);
            disarmCalls();
            return 0;
        });
        return awaitChild(child);
    }

    void upgradeHere(RunRecord& run) const {
        WorkFolder work;
        const std::string wrong = work.open(workPlace);
        run.cannotBegin = !wrong.empty();
        UpgradeOutcome outcome;
        outcome.error = wrong;
        Teller teller(run);
        ConversionOptions options;
        options.schemaFile = OMBREL_SCHEMA_FILE;
        options.pageRows = kPageRows;
        if (!run.cannotBegin) outcome = upgradeDatabase(path, work, GetParam(), teller, options);
        run.end = outcome.end;
        (void)std::snprintf(run.error.data(), run.error.size(), "%s", outcome.error.c_str());
    }

    /// Every value of every table, for comparison with another file.
    [[nodiscard]] static std::string contentsOf(const std::string& database) {
        Connection connection;
        EXPECT_EQ(connection.open(database, OpenMode::kReadOnly), 0);
        std::string all;
        for (const char* sql :
             {"PRAGMA integrity_check", "PRAGMA user_version", "SELECT * FROM logs ORDER BY id",
              "SELECT * FROM hosts ORDER BY id", "SELECT * FROM facilities ORDER BY id",
              "SELECT * FROM programs ORDER BY id", "SELECT * FROM senders ORDER BY id", "SELECT * FROM loginfo",
              "SELECT * FROM original_texts ORDER BY log_id", "SELECT sql FROM sqlite_schema ORDER BY name"}) {
            Statement statement;
            EXPECT_EQ(statement.prepare(connection, sql), 0) << sql;
            while (statement.step() == Statement::kRow)
                for (int i = 0; i < statement.columnCount(); ++i)
                    all += (statement.columnIsNull(i) ? "-" : "+") + std::string(statement.columnText(i)) + "\n";
        }
        return all;
    }

    /// What must hold at every moment.
    void expectLogDatabaseAtTheName() const {
        const int version = SyslogDBVersionGet(path);
        if (version == 1) {
            EXPECT_TRUE(readBytes(path) == oldBytes) << "the old file has changed";
        } else {
            EXPECT_EQ(version, 2);
            EXPECT_TRUE(contentsOf(path) == expectedContents) << "not the whole new database";
        }
    }

    void expectUpgraded() const {
        EXPECT_EQ(SyslogDBVersionGet(path), 2);
        EXPECT_TRUE(contentsOf(path) == expectedContents) << "not what an undisturbed run makes";
        if (GetParam()) {
            EXPECT_THAT(namesIn(place), ElementsAre("a.DB"));
        } else {
            EXPECT_THAT(namesIn(place), ElementsAre("a.DB", "a.DB.v1"));
            EXPECT_TRUE(readBytes(path + ".v1") == oldBytes);
        }
        EXPECT_FALSE(fs::exists(workPlace)) << ::testing::PrintToString(namesIn(workPlace));
    }

    /// An undisturbed run, which all others are held against.
    void learnWhatIsExpected(RunRecord& run) {
        EXPECT_EQ(upgrade(Fate::kNone, 0, 0, run), 0);
        EXPECT_EQ(run.end, UpgradeEnd::kDone) << run.error.data();
        EXPECT_GT(run.record.calls, 50);
        expectedContents = contentsOf(path);
        const std::vector<std::string> rows = exported(original);
        EXPECT_EQ(rows.size(), static_cast<size_t>(kRows));
        EXPECT_EQ(exported(path), rows);
        expectUpgraded();
        restore();
    }

    /// Between its last row and its end a run may be killed so that the next one compares all rows again.
    static void expectGoesOn(const RunRecord& died, const RunRecord& next) {
        EXPECT_GE(next.converting.first, 0) << "no progress told";
        EXPECT_GE(next.converting.first, died.converting.last) << "rows are converted again";
        const long long compared = died.verifying.last < kRows ? died.verifying.last : 0;
        EXPECT_GE(next.verifying.first, compared) << "rows are compared again";
    }

    /// Another run ends what one has begun that has died, or failed.
    void expectEndsAfter(const RunRecord& before) {
        expectLogDatabaseAtTheName();
        const bool isOld = SyslogDBVersionGet(path) == 1;
        const SharedRun next;
        ASSERT_EQ(upgrade(Fate::kNone, 0, 0, *next), 0);
        EXPECT_EQ(next->end, UpgradeEnd::kDone) << next->error.data();
        if (isOld) expectGoesOn(before, *next);
        expectUpgraded();
        restore();
    }

    void dieAt(Fate fate, long long at) {
        const SharedRun died;
        const int code = upgrade(fate, at, 0, *died);
        SCOPED_TRACE("change " + std::to_string(at) + ", " + died->record.met.data());
        ASSERT_EQ(code, 128 + SIGKILL);
        met.emplace(died->record.met.data());
        expectEndsAfter(*died);
    }

    void failAt(Fate fate, long long at, int error) {
        const SharedRun failed;
        const int code = upgrade(fate, at, error, *failed);
        SCOPED_TRACE("change " + std::to_string(at) + ", " + failed->record.met.data());
        ASSERT_EQ(code, 0);
        if (failed->end == UpgradeEnd::kDone) {
            forgiven.emplace(failed->record.met.data());
            EXPECT_EQ(SyslogDBVersionGet(path), 2);
        } else {
            EXPECT_EQ(failed->end, UpgradeEnd::kFailed);
            EXPECT_STRNE(failed->error.data(), "");
            EXPECT_EQ(SyslogDBVersionGet(path), 1) << failed->error.data();
            met.emplace(failed->record.met.data());
        }
        expectEndsAfter(*failed);
    }

    /// One run for each change that an undisturbed one makes. Of those that remove the old file in the end only
    /// the last ones are others than of those that keep it.
    template <class Action>
    void atEachChange(bool onlyThoseThatTakeRoom, Action action) {
        const SharedRun undisturbed;
        learnWhatIsExpected(*undisturbed);
        const CallRecord& record = undisturbed->record;
        ASSERT_LT(record.calls, CallRecord::kMost);
        for (long long at = 1; at <= record.calls && !HasFailure(); ++at) {
            const bool isLast = at > record.calls - kLastChanges;
            const bool isMet = isLast || (!GetParam() && at % OMBREL_KILL_EVERY == 1 % OMBREL_KILL_EVERY);
            if (isMet && (record.takesRoom[static_cast<size_t>(at)] || !onlyThoseThatTakeRoom)) action(at);
        }
        RecordProperty("changes", static_cast<int>(record.calls));
    }

    TemporaryFolder folder;
    std::string original = folder.at("original.DB");
    std::string place = folder.at("archives");
    std::string workPlace = folder.at("work");
    std::string path = place + "/a.DB";
    std::string oldBytes;
    std::string expectedContents;
    std::set<std::string> met;       ///< changes at which a run ended
    std::set<std::string> forgiven;  ///< changes that failed and left the work done
};

TEST_P(InterruptedUpgrade, EndsAsAnUndisturbedOneWhereverItWasKilled) {
    atEachChange(false, [this](long long at) { dieAt(Fate::kDie, at); });
    EXPECT_THAT(met, ::testing::IsSupersetOf({"unlink", "fchown", "fchmod", "futimens", "fsync", "rename",
                                              "fsync of a folder behind the rename", "rmdir behind the rename"}));
    if (GetParam()) return;
    EXPECT_THAT(met, ::testing::IsSupersetOf({"mkdir", "pwrite64", "fdatasync", "ftruncate64", "link"}));
}

TEST_P(InterruptedUpgrade, EndsAsAnUndisturbedOneWhicheverWriteWasTorn) {
    atEachChange(true, [this](long long at) { dieAt(Fate::kTear, at); });
}

// SQLite does without some calls, and when the new file is at its place the work is done.
TEST_P(InterruptedUpgrade, SaysSoAndKeepsTheOldFileWhicheverChangeFails) {
    atEachChange(false, [this](long long at) { failAt(Fate::kFail, at, EIO); });
    EXPECT_THAT(forgiven,
                ::testing::IsSubsetOf({"unlink", "fchown", "fdatasync of a folder",
                                       "fsync of a folder behind the rename", "rmdir behind the rename"}));
}

TEST_P(InterruptedUpgrade, GoesOnWhenThereIsRoomAgain) {
    atEachChange(true, [this](long long at) { failAt(Fate::kFull, at, ENOSPC); });
    EXPECT_THAT(met, ::testing::Contains(GetParam() ? "rename" : "pwrite64"));
}

INSTANTIATE_TEST_SUITE_P(Keeps, InterruptedUpgrade, ::testing::Values(false),
                         [](const auto&) { return "TheOldFile"; });
INSTANTIATE_TEST_SUITE_P(Removes, InterruptedUpgrade, ::testing::Values(true),
                         [](const auto&) { return "TheOldFile"; });

}  // namespace
}  // namespace ombrel::test
