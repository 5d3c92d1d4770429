// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// File systems of a real mount table, and folders made on them.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "linux/common/child_process.h"
#include "linux/common/error_record.h"
#include "linux/vesksdk/file_system_kind.h"
#include "platform/vesksdk.h"
#include "tests/linux/private_world.h"

using namespace ombrel;
using namespace std::chrono_literals;

namespace {

class FileSystems : public test::PrivateRootTest {
protected:
    static int typeOf(const std::string& path) { return VESKGetFSType(path.c_str(), 0); }

    /// Mounts an image file of ext4 as mount(8) does; false where this machine has no loop devices for us.
    bool mountImage(const std::string& point) {
        const std::string image = folder + "/image.ext4";
        write(image, "");
        if (::truncate(image.c_str(), 4 << 20) != 0) return false;
        const ProgramResult made = runProgram({"/usr/sbin/mkfs.ext4", "-q", "-F", image}, 30s);
        if (made.error != 0 || made.exitCode != 0) return false;
        const ProgramResult done = runProgram({"/usr/bin/mount", "-o", "loop", image, point}, 30s);
        if (done.error != 0 || done.exitCode != 0) return false;
        mounted(0, point);
        return true;
    }
};

#define MOUNT_IMAGE(point) \
    if (!mountImage(point)) GTEST_SKIP() << "no loop device can be mounted here"

TEST_F(FileSystems, InMemoryAndOnDiskAreLocal) {
    const std::string point = makeFolder("memory");
    EXPECT_EQ(typeOf(folder), kFileSystemLocal);
    mountTmpfs(point);
    EXPECT_EQ(typeOf(point), kFileSystemLocal);
    EXPECT_EQ(VESKFSIsImageFS(typeOf(point)), 0);
    EXPECT_EQ(VESKFSIsRemoteFS(typeOf(point)), 0);
}

TEST_F(FileSystems, OfALoopMountedFileAreImages) {
    const std::string point = makeFolder("image of it");
    MOUNT_IMAGE(point);
    EXPECT_EQ(typeOf(point), kFileSystemImage);
    EXPECT_NE(VESKFSIsImageFS(typeOf(point)), 0);
    write(point + "/file", "text");
    EXPECT_EQ(typeOf(point + "/file"), kFileSystemImage);
    EXPECT_EQ(typeOf(point + "/lost+found/."), kFileSystemImage);
}

TEST_F(FileSystems, AreToldApartWhereTheyAreMountedOverOneAnother) {
    const std::string point = makeFolder("two floors");
    MOUNT_IMAGE(point);
    mountTmpfs(point);
    EXPECT_EQ(typeOf(point), kFileSystemLocal);
}

TEST_F(FileSystems, StayWhatTheyAreWhereTheyAreBound) {
    const std::string point = makeFolder("image");
    const std::string other = makeFolder("other");
    MOUNT_IMAGE(point);
    bind(point + "/lost+found", other);
    EXPECT_EQ(typeOf(other), kFileSystemImage);
}

TEST_F(FileSystems, AreFoundBehindSymbolicLinksAndOddNames) {
    const std::string point = makeFolder("tab\tand\\back 040 slash\nand line");
    MOUNT_IMAGE(point);
    ASSERT_EQ(::symlink(point.c_str(), (folder + "/link").c_str()), 0);
    EXPECT_EQ(typeOf(point), kFileSystemImage);
    EXPECT_EQ(typeOf(folder + "/link"), kFileSystemImage);
}

TEST_F(FileSystems, OfMissingPathsCannotBeTold) {
    EXPECT_EQ(typeOf(folder + "/missing"), -1);
    EXPECT_EQ(VLIBCErrGet(), fromErrno(ENOENT));
    ASSERT_EQ(::symlink("nowhere", (folder + "/dangling").c_str()), 0);
    EXPECT_EQ(typeOf(folder + "/dangling"), -1);
    EXPECT_EQ(typeOf(""), -1);
    EXPECT_EQ(VESKGetFSType(nullptr, 0), -1);
    EXPECT_EQ(VLIBCErrGet(), kErrorInvalidArgument);
}

class Folders : public test::PrivateRootTest {
protected:
    static mode_t modeOf(const std::string& path) {
        struct stat info {};
        return ::stat(path.c_str(), &info) == 0 ? info.st_mode & 07777U : 0;
    }
};

TEST_F(Folders, HaveTheModeLessTheUmask) {
    const mode_t old = ::umask(027);
    EXPECT_EQ(VESKFSMkdirP((folder + "/a/b").c_str(), 0, 1, -1, -1, 0777), 0);
    (void)::umask(old);
    EXPECT_EQ(modeOf(folder + "/a"), 0750U);
    EXPECT_EQ(modeOf(folder + "/a/b"), 0750U);
}

TEST_F(Folders, GetTheirOwnerAndThoseThatWereThereKeepTheirs) {
    (void)makeFolder("a");
    const int result = VESKFSMkdirP((folder + "/a/b/c").c_str(), 0, 0, 12345, 54321, 0755);
    if (result != 0 && (errno == EPERM || errno == EINVAL)) GTEST_SKIP() << "only root can give files away";
    ASSERT_EQ(result, 0);
    struct stat info {};
    ASSERT_EQ(::stat((folder + "/a/b").c_str(), &info), 0);
    EXPECT_EQ(info.st_uid, 12345U);
    EXPECT_EQ(info.st_gid, 54321U);
    ASSERT_EQ(::stat((folder + "/a").c_str(), &info), 0);
    EXPECT_EQ(info.st_uid, ::getuid());
}

TEST_F(Folders, AreMadeThroughLinksButNotThroughDanglingOnes) {
    (void)makeFolder("real");
    ASSERT_EQ(::symlink("real", (folder + "/link").c_str()), 0);
    ASSERT_EQ(::symlink("nowhere", (folder + "/dangling").c_str()), 0);
    EXPECT_EQ(VESKFSMkdirP((folder + "//link/./x/").c_str(), 0, 0, -1, -1, 0755), 0);
    EXPECT_NE(modeOf(folder + "/real/x"), 0U);
    EXPECT_EQ(VESKFSMkdirP((folder + "/dangling/x").c_str(), 0, 0, -1, -1, 0755), -1);
    EXPECT_EQ(errno, ENOTDIR);
}

TEST_F(Folders, ThatAreThereAreASuccessOnAReadOnlyFileSystemToo) {
    EXPECT_EQ(VESKFSMkdirP("/etc", 0, 0, -1, -1, 0755), 0);
    EXPECT_EQ(VESKFSMkdirP("/etc/ombrel-new", 0, 0, -1, -1, 0755), -1);
    EXPECT_EQ(errno, EROFS);
    EXPECT_EQ(VLIBCErrGet(), fromErrno(EROFS));
}

TEST_F(Folders, WithoutANameAreRefused) {
    EXPECT_EQ(VESKFSMkdirP("", 0, 0, -1, -1, 0755), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(VESKFSMkdirP(nullptr, 0, 0, -1, -1, 0755), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(VESKFSMkdirP("/", 0, 0, -1, -1, 0755), 0);
}

}  // namespace
