// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Moving files and live databases on one file system.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <string>

#include "linux/common/error_record.h"
#include "linux/common/fd.h"
#include "linux/common/receipts.h"
#include "linux/veskfileop/database_move.h"
#include "platform/veskfileop.h"
#include "tests/linux/child_process.h"
#include "tests/linux/test_database.h"

namespace ombrel {
namespace {

using namespace std::chrono_literals;
using test::integrityOf;
using test::makeDatabase;
using test::messagesOf;
using test::readBytes;
using test::TemporaryFolder;
using test::writeBytes;
using ::testing::ElementsAre;

class DatabaseMoveTest : public ::testing::Test {
protected:
    [[nodiscard]] int move() const { return VESKFileCopy(from.c_str(), to.c_str(), nullptr); }
    static bool exists(const std::string& path) { return std::filesystem::exists(path); }

    TemporaryFolder folder;
    std::string from = folder.at("VESKSYSLOGDB__ARCH.DB");
    std::string to = folder.at("2024-03-03_2024-03-09.DB");
};

TEST_F(DatabaseMoveTest, RollsBackWhatADeadWriterLeftHalfDone) {
    makeDatabase(from, {"first", "second"});
    ASSERT_TRUE(test::leaveHotJournal(from));
    ASSERT_EQ(move(), 0);
    EXPECT_THAT(messagesOf(to), ElementsAre("first", "second"));
    EXPECT_EQ(integrityOf(to), "ok");
    EXPECT_FALSE(exists(from));
    EXPECT_FALSE(exists(from + "-journal"));
}

TEST_F(DatabaseMoveTest, IsNoticedByAWriterThatHasTheFileOpen) {
    makeDatabase(from, {"row"});
    Connection writer;
    ASSERT_EQ(writer.open(from, OpenMode::kReadWrite), 0);
    ASSERT_EQ(writer.execute("PRAGMA journal_mode=TRUNCATE; DELETE FROM hosts WHERE id = 99"), 0);
    ASSERT_EQ(move(), 0);
    ASSERT_EQ(writer.execute("BEGIN IMMEDIATE"), 0);
    EXPECT_TRUE(writer.hasMoved());
}

TEST_F(DatabaseMoveTest, WaitsForATransactionToEnd) {
    makeDatabase(from, {"row"});
    int ready[2];
    ASSERT_EQ(::pipe2(ready, O_CLOEXEC), 0);
    const Fd ours(ready[0]);
    const pid_t writer = test::startChild([&] {
        Connection connection;
        if (connection.open(from, OpenMode::kReadWrite) != 0) return 1;
        if (connection.execute("BEGIN IMMEDIATE; DELETE FROM logs") != 0) return 2;
        if (::write(ready[1], "r", 1) != 1) return 3;
        (void)::usleep(200'000);  // the mover has to find the file locked
        return connection.execute("COMMIT") == 0 ? 0 : 4;
    });
    (void)::close(ready[1]);
    char byte = 0;
    ASSERT_EQ(::read(ours.get(), &byte, 1), 1);
    EXPECT_EQ(move(), 0);
    EXPECT_EQ(test::awaitChild(writer), 0);
    EXPECT_THAT(messagesOf(to), ElementsAre()) << "moved before the transaction ended";
}

TEST_F(DatabaseMoveTest, GivesUpWhenTheFileStaysLocked) {
    makeDatabase(from, {"row"});
    Connection writer;
    ASSERT_EQ(writer.open(from, OpenMode::kReadWrite), 0);
    ASSERT_EQ(writer.execute("BEGIN IMMEDIATE"), 0);
    const DatabaseMove result = moveDatabase(from, to, std::chrono::steady_clock::now() + 100ms);
    EXPECT_EQ(result.result, MoveResult::kFailed);
    EXPECT_EQ(result.code, kErrorTimeout);
    EXPECT_FALSE(exists(to));
    ASSERT_EQ(writer.execute("COMMIT"), 0);
    EXPECT_THAT(messagesOf(from), ElementsAre("row"));
}

TEST_F(DatabaseMoveTest, CarriesTheReceiptsOverToTheOldName) {
    makeDatabase(from, {"row"});
    ASSERT_TRUE(saveReceiptsFile(receiptsPathOf(from), {{"bsd", "older"}, {"custrule", "kept"}}));
    {
        Connection writer;
        ASSERT_EQ(writer.open(from, OpenMode::kReadWrite), 0);
        ASSERT_EQ(writer.execute("INSERT INTO receipts VALUES('bsd', X'6e65776572'), ('ietf', X'00')"), 0);
    }
    ASSERT_EQ(move(), 0);
    Receipts receipts;
    ASSERT_TRUE(loadReceiptsFile(receiptsPathOf(from), receipts));
    const Receipts expected = {{"bsd", "newer"}, {"custrule", "kept"}, {"ietf", std::string(1, '\0')}};
    EXPECT_EQ(receipts, expected);
    EXPECT_FALSE(exists(receiptsPathOf(to)));
}

TEST_F(DatabaseMoveTest, ReplacesAReceiptsFileThatIsBroken) {
    makeDatabase(from, {"row"});
    writeBytes(receiptsPathOf(from), "cut off");
    {
        Connection writer;
        ASSERT_EQ(writer.open(from, OpenMode::kReadWrite), 0);
        ASSERT_EQ(writer.execute("INSERT INTO receipts VALUES('bsd', X'61')"), 0);
    }
    ASSERT_EQ(move(), 0);
    Receipts receipts;
    ASSERT_TRUE(loadReceiptsFile(receiptsPathOf(from), receipts));
    EXPECT_EQ(receipts, (Receipts{{"bsd", "a"}}));
}

TEST_F(DatabaseMoveTest, FailsUntouchedWhenTheReceiptsCannotBeKept) {
    makeDatabase(from, {"row"});
    {
        Connection writer;
        ASSERT_EQ(writer.open(from, OpenMode::kReadWrite), 0);
        ASSERT_EQ(writer.execute("INSERT INTO receipts VALUES('bsd', X'61')"), 0);
    }
    std::filesystem::create_directory(receiptsPathOf(from));
    const std::string before = readBytes(from);
    EXPECT_NE(move(), 0);
    EXPECT_EQ(readBytes(from), before);
    EXPECT_FALSE(exists(to));
}

TEST_F(DatabaseMoveTest, LeavesNoReceiptsBesideAnArchive) {
    makeDatabase(to, {"row"});
    {
        Connection writer;
        ASSERT_EQ(writer.open(to, OpenMode::kReadWrite), 0);
        ASSERT_EQ(writer.execute("INSERT INTO receipts VALUES('bsd', X'61')"), 0);
    }
    ASSERT_EQ(VESKFileCopy(to.c_str(), (to + "_0").c_str(), nullptr), 0);
    EXPECT_FALSE(exists(receiptsPathOf(to)));
    makeDatabase(from, {"row"});
    ASSERT_EQ(move(), 0);
    EXPECT_FALSE(exists(receiptsPathOf(from))) << "a database without receipts needs no file";
}

TEST_F(DatabaseMoveTest, TakesTheEmptyJournalAway) {
    makeDatabase(from, {"row"});
    writeBytes(from + "-journal", "");
    ASSERT_EQ(move(), 0);
    EXPECT_FALSE(exists(from + "-journal"));
    EXPECT_FALSE(exists(to + "-journal"));
}

TEST_F(DatabaseMoveTest, KeepsTheRowsOfADatabaseInWalMode) {
    makeDatabase(from, {"first"});
    // The child dies with the database open, so its rows stay in the log beside the file.
    ASSERT_EQ(test::runInChild([&] {
                  Connection connection;
                  if (connection.open(from, OpenMode::kReadWrite) != 0) return 1;
                  if (connection.execute("PRAGMA journal_mode=WAL; UPDATE logs SET msg = 'changed'") != 0)
                      return 2;
                  ::_exit(std::filesystem::exists(from + "-wal") ? 0 : 3);
              }),
              0);
    ASSERT_EQ(move(), 0);
    EXPECT_THAT(messagesOf(to), ElementsAre("changed"));
    EXPECT_FALSE(exists(from + "-wal"));
}

TEST_F(DatabaseMoveTest, KeepsOwnerModeAndTime) {
    makeDatabase(from, {"row"});
    ASSERT_EQ(::chmod(from.c_str(), 0640), 0);
    const timespec times[2] = {{1'500'000'000, 0}, {1'600'000'000, 123}};
    ASSERT_EQ(::utimensat(AT_FDCWD, from.c_str(), times, 0), 0);
    ASSERT_EQ(move(), 0);
    struct stat info {};
    ASSERT_EQ(::stat(to.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0640U);
    EXPECT_EQ(info.st_mtim.tv_sec, 1'600'000'000);
}

TEST_F(DatabaseMoveTest, RefusesASymbolicLink) {
    makeDatabase(folder.at("real.DB"), {"row"});
    std::filesystem::create_symlink(folder.at("real.DB"), from);
    EXPECT_NE(move(), 0);
    EXPECT_EQ(VLIBCErrGet(), fromErrno(EINVAL));
    EXPECT_TRUE(std::filesystem::is_symlink(from));
    EXPECT_FALSE(exists(to));
}

TEST_F(DatabaseMoveTest, RefusesATakenNameEvenOfADanglingLink) {
    makeDatabase(from, {"row"});
    std::filesystem::create_symlink(folder.at("nowhere"), to);
    EXPECT_NE(move(), 0);
    EXPECT_EQ(VLIBCErrGet(), fromErrno(EEXIST));
    EXPECT_EQ(errno, EEXIST);
    EXPECT_THAT(messagesOf(from), ElementsAre("row"));
}

TEST_F(DatabaseMoveTest, RefusesADatabaseThatItCannotLock) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can give up its rights";
    makeDatabase(from, {"row"});
    ASSERT_EQ(::chmod(from.c_str(), 0444), 0);
    ASSERT_EQ(::chmod(folder.path().c_str(), 0777), 0);
    EXPECT_EQ(test::runInChild([&] {
                  if (::setuid(65534) != 0) return 1;
                  if (move() == 0) return 2;
                  return VLIBCErrGet() == fromSqlite(SQLITE_READONLY) ? 0 : 3;
              }),
              0);
    EXPECT_THAT(messagesOf(from), ElementsAre("row"));
    EXPECT_FALSE(exists(to));
}

TEST_F(DatabaseMoveTest, TellsWhatWentWrong) {
    EXPECT_NE(move(), 0);
    EXPECT_EQ(VLIBCErrGet(), fromErrno(ENOENT));
    std::filesystem::create_directory(from);
    EXPECT_NE(move(), 0);
    EXPECT_EQ(VLIBCErrGet(), fromErrno(EISDIR));
    EXPECT_NE(VESKFileCopy(nullptr, to.c_str(), nullptr), 0);
    EXPECT_EQ(VLIBCErrGet(), kErrorInvalidArgument);
}

struct DamagedCase {
    const char* name;
    std::string (*damage)(const std::string& sound);
};

class DamagedDatabase : public DatabaseMoveTest, public ::testing::WithParamInterface<DamagedCase> {};

TEST_P(DamagedDatabase, IsMovedByteForByte) {
    makeDatabase(from, std::vector<std::string>(500, "a message of some length to fill the pages of the file"));
    writeBytes(from, GetParam().damage(readBytes(from)));
    const std::string before = readBytes(from);
    ASSERT_EQ(move(), 0);
    EXPECT_FALSE(exists(from));
    EXPECT_EQ(readBytes(to), before);
}

INSTANTIATE_TEST_SUITE_P(
    Table, DamagedDatabase,
    ::testing::Values(
        DamagedCase{"Sound", [](const std::string& sound) { return sound; }},
        DamagedCase{"Empty", [](const std::string& /*sound*/) { return std::string(); }},
        DamagedCase{"Text", [](const std::string& /*sound*/) { return std::string("a text\n"); }},
        DamagedCase{"GarbageHead",
                    [](const std::string& sound) { return std::string(1000, '\x5a') + sound.substr(1000); }},
        DamagedCase{"HeadAlone", [](const std::string& sound) { return sound.substr(0, 100); }},
        DamagedCase{"CutInHalf", [](const std::string& sound) { return sound.substr(0, sound.size() / 2); }},
        DamagedCase{"OneByteShort", [](const std::string& sound) { return sound.substr(0, sound.size() - 1); }},
        DamagedCase{"GarbageSchema",
                    [](const std::string& sound) {
                        return sound.substr(0, 100) + std::string(3996, '\xff') + sound.substr(4096);
                    }},
        DamagedCase{"GarbageRows",
                    [](const std::string& sound) {
                        return sound.substr(0, 8192) + std::string(sound.size() - 8192, '\xff');
                    }}),
    [](const auto& test) { return std::string(test.param.name); });

}  // namespace
}  // namespace ombrel
