// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Moving on file systems that cannot rename without replacing, as some network and FUSE ones: the linker
// puts the function below in the place of renameat2 (--wrap).
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "linux/common/error_record.h"
#include "linux/veskfileop/file_place.h"
#include "platform/veskfileop.h"
#include "tests/linux/child_process.h"
#include "tests/linux/test_database.h"

namespace {

bool canRenameWithoutReplacing = true;

}  // namespace

extern "C" {

int __real_renameat2(int fromFolder, const char* from, int toFolder, const char* to, unsigned flags);
int __wrap_renameat2(int fromFolder, const char* from, int toFolder, const char* to, unsigned flags);

int __wrap_renameat2(int fromFolder, const char* from, int toFolder, const char* to, unsigned flags) {
    if (canRenameWithoutReplacing || flags == 0) return __real_renameat2(fromFolder, from, toFolder, to, flags);
    errno = EINVAL;
    return -1;
}

}  // extern "C"

namespace ombrel {
namespace {

class MoveByNames : public ::testing::Test {
protected:
    void SetUp() override { canRenameWithoutReplacing = false; }
    void TearDown() override { canRenameWithoutReplacing = true; }

    test::TemporaryFolder folder;
    std::string from = folder.at("VESKSYSLOGDB__ARCH.DB");
    std::string to = folder.at("2024-03-03_2024-03-09.DB");
};

TEST_F(MoveByNames, CarriesALogDatabase) {
    test::makeDatabase(from, {"row"});
    EXPECT_EQ(VESKFileCopy(from.c_str(), to.c_str(), nullptr), 0);
    EXPECT_FALSE(std::filesystem::exists(from));
    EXPECT_EQ(std::filesystem::hard_link_count(to), 1U);
    EXPECT_THAT(test::messagesOf(to), ::testing::ElementsAre("row"));
}

TEST_F(MoveByNames, ReplacesNothing) {
    test::writeBytes(from, "new");
    test::writeBytes(to, "old");
    EXPECT_EQ(renameWithoutReplacing(from, to), fromErrno(EEXIST));
    EXPECT_EQ(test::readBytes(from), "new");
    EXPECT_EQ(test::readBytes(to), "old");
}

TEST_F(MoveByNames, LeavesOneNameWhenTheOldOneCannotBeTakenAway) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can give up its rights";
    // In a sticky folder of somebody else a file may get a second name, but only its owner takes one away.
    ASSERT_EQ(::mkdir(folder.at("sticky").c_str(), 0700), 0);
    ASSERT_EQ(::chmod(folder.at("sticky").c_str(), 01777), 0);
    ASSERT_EQ(::chmod(folder.path().c_str(), 0777), 0);
    const std::string stuck = folder.at("sticky/file");
    test::writeBytes(stuck, "text");
    ASSERT_EQ(::chmod(stuck.c_str(), 0666), 0);
    EXPECT_EQ(test::runInChild([&] {
                  if (::setuid(65534) != 0) return 1;
                  return renameWithoutReplacing(stuck, to) == fromErrno(EPERM) ? 0 : 2;
              }),
              0);
    EXPECT_EQ(test::readBytes(stuck), "text");
    EXPECT_FALSE(std::filesystem::exists(to));
}

}  // namespace
}  // namespace ombrel
