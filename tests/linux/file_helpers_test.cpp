// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What the platform libraries share about paths and files.
#include <gtest/gtest.h>

#include <cerrno>

#include "linux/common/path_parts.h"
#include "linux/common/sync_folder.h"
#include "linux/common/write_all.h"
#include "tests/linux/child_process.h"

namespace ombrel {
namespace {

TEST(PathParts, AreTheFolderAndTheName) {
    struct Case {
        const char* path;
        const char* folder;
        const char* name;
    };
    for (const Case& c : {Case{"/a/b/c", "/a/b", "c"}, Case{"/c", "/", "c"}, Case{"c", ".", "c"},
                          Case{"a/c", "a", "c"}, Case{"/a/b/", "/a/b", ""}, Case{"", ".", ""}}) {
        EXPECT_EQ(folderOf(c.path), c.folder) << c.path;
        EXPECT_EQ(nameOf(c.path), c.name) << c.path;
    }
}

TEST(SyncFolder, SucceedsOnAFileSystemThatCannotSyncFolders) {
    const test::TemporaryFolder folder;
    EXPECT_TRUE(syncFolder(folder.path()));
    const Fd proc(::open("/proc", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ASSERT_NE(::fsync(proc.get()), 0) << "this test needs a folder that cannot be synced";
    EXPECT_TRUE(syncFolder("/proc"));
}

TEST(SyncFolder, FailsWithoutAFolder) {
    const test::TemporaryFolder folder;
    EXPECT_FALSE(syncFolder(folder.at("none")));
    EXPECT_EQ(errno, ENOENT);
    test::writeBytes(folder.at("file"), "");
    EXPECT_FALSE(syncFolder(folder.at("file")));
    EXPECT_EQ(errno, ENOTDIR);
}

TEST(WriteAll, FailsOnAFullDevice) {
    const Fd full(::open("/dev/full", O_WRONLY | O_CLOEXEC));
    EXPECT_FALSE(writeAll(full.get(), "text"));
    EXPECT_EQ(errno, ENOSPC);
}

}  // namespace
}  // namespace ombrel
