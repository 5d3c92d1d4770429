// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The lock that serialises the writers of a folder.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "linux/common/error_record.h"
#include "linux/veskcore/folder_lock.h"
#include "tests/linux/child_process.h"

namespace ombrel {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using Clock = std::chrono::steady_clock;

/// A process that holds the lock until it is told to let go, or is killed.
class Holder {
public:
    explicit Holder(const std::string& folder) {
        int taken[2];
        int letGo[2];
        if (::pipe(taken) != 0 || ::pipe(letGo) != 0) return;
        const Fd takenRead(taken[0]);
        Fd takenWrite(taken[1]);
        Fd letGoRead(letGo[0]);
        letGo_ = Fd(letGo[1]);
        child_ = test::startChild([&] {
            letGo_.reset();
            FolderLock lock;
            if (lock.acquire(folder) != 0) return 1;
            takenWrite.reset();
            char byte;
            return ::read(letGoRead.get(), &byte, 1) == 0 ? 0 : 2;
        });
        takenWrite.reset();
        char byte;
        holds_ = ::read(takenRead.get(), &byte, 1) == 0;
    }
    ~Holder() {
        if (child_ > 0) (void)end();
    }
    [[nodiscard]] bool holds() const { return holds_; }
    [[nodiscard]] pid_t pid() const { return child_; }
    void letGo() { letGo_.reset(); }
    int end() {
        letGo();
        const int result = test::awaitChild(child_);
        child_ = -1;
        return result;
    }

private:
    Fd letGo_;
    pid_t child_ = -1;
    bool holds_ = false;
};

class FolderLockTest : public ::testing::Test {
protected:
    test::TemporaryFolder folder;
};

TEST_F(FolderLockTest, GivesUpAfterTheTimeGiven) {
    Holder holder(folder.path());
    ASSERT_TRUE(holder.holds());
    const Clock::time_point start = Clock::now();
    FolderLock lock;
    EXPECT_LT(lock.acquire(folder.path(), milliseconds(120)), 0);
    EXPECT_EQ(errno, ETIMEDOUT);
    EXPECT_EQ(VLIBCErrGet(), kErrorTimeout);
    EXPECT_GE(Clock::now() - start, milliseconds(120));
    EXPECT_EQ(holder.end(), 0);
}

TEST_F(FolderLockTest, IsTakenWhenItsHolderLetsGo) {
    Holder holder(folder.path());
    ASSERT_TRUE(holder.holds());
    FolderLock lock;
    EXPECT_LT(lock.acquire(folder.path(), milliseconds(1)), 0);
    holder.letGo();
    EXPECT_EQ(lock.acquire(folder.path(), seconds(10)), 0);
    EXPECT_GE(lock.folder(), 0);
}

TEST_F(FolderLockTest, IsTakenFromAKilledHolder) {
    Holder holder(folder.path());
    ASSERT_TRUE(holder.holds());
    ASSERT_EQ(::kill(holder.pid(), SIGKILL), 0);
    FolderLock lock;
    EXPECT_EQ(lock.acquire(folder.path(), seconds(10)), 0);
    EXPECT_EQ(holder.end(), 128 + SIGKILL);
}

TEST_F(FolderLockTest, IsFreeAgainAtItsEnd) {
    {
        FolderLock lock;
        ASSERT_EQ(lock.acquire(folder.path(), milliseconds(1)), 0);
        FolderLock second;
        EXPECT_LT(second.acquire(folder.path(), milliseconds(1)), 0);
    }
    FolderLock lock;
    EXPECT_EQ(lock.acquire(folder.path(), milliseconds(1)), 0);
}

TEST_F(FolderLockTest, NeedsAFolder) {
    test::writeBytes(folder.at("file"), "");
    FolderLock lock;
    EXPECT_LT(lock.acquire(folder.at("file")), 0);
    EXPECT_EQ(VLIBCErrGet(), fromErrno(ENOTDIR));
    EXPECT_LT(lock.acquire(folder.at("none")), 0);
    EXPECT_EQ(VLIBCErrGet(), fromErrno(ENOENT));
}

}  // namespace
}  // namespace ombrel
