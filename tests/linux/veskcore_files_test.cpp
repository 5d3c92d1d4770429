// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Settings files and folders on a real file system: owners, rights, links, full and read-only disks.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <vector>

#include "linux/common/error_record.h"
#include "platform/veskcore.h"
#include "tests/contract/core_handles.h"
#include "tests/linux/child_process.h"

namespace ombrel {
namespace {

using contract::hashOf;
using contract::List;
using test::readBytes;
using test::runInChild;
using test::TemporaryFolder;
using test::writeBytes;
using ::testing::ElementsAre;

constexpr const char* kKeyFormat = "%s=\"%s\"\n";
constexpr uid_t kNobody = 65534;

int setKey(const std::string& path, const std::string& value) {
    return VLIBCFileSetKeys(path.c_str(), hashOf({{"key", value}}).get(), 0, kKeyFormat);
}

std::vector<std::string> entriesOf(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

/// In the child: a change must fail with this errno and leave the folder as it was; 0 when it does.
int failsUntouched(const std::string& folder, const std::string& value, int expected) {
    const std::string path = folder + "/server.conf";
    const std::string before = readBytes(path);
    const auto entries = entriesOf(folder);
    if (setKey(path, value) >= 0) return 1;
    if (VLIBCErrGet() != fromErrno(expected)) return VLIBCErrGet() - kErrorFromErrno;
    if (readBytes(path) != before) return 2;
    return entriesOf(folder) == entries ? 0 : 3;
}

class SettingsFile : public ::testing::Test {
protected:
    TemporaryFolder folder;
    std::string path = folder.at("server.conf");
};

TEST_F(SettingsFile, KeepsOwnerAndMode) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can give files away";
    writeBytes(path, "key=\"old\"\n");
    ASSERT_EQ(::chown(path.c_str(), 1234, 5678), 0);
    ASSERT_EQ(::chmod(path.c_str(), 0640), 0);
    ASSERT_EQ(setKey(path, "new"), 0);
    struct stat info {};
    ASSERT_EQ(::stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_uid, 1234U);
    EXPECT_EQ(info.st_gid, 5678U);
    EXPECT_EQ(info.st_mode & 07777, 0640U);
    EXPECT_EQ(readBytes(path), "key=\"new\"\n");
}

TEST_F(SettingsFile, KeepsExtendedAttributes) {
    writeBytes(path, "key=\"old\"\n");
    if (::setxattr(path.c_str(), "user.note", "kept", 4, 0) != 0) GTEST_SKIP() << "no user attributes here";
    ASSERT_EQ(setKey(path, "new"), 0);
    char value[8] = {};
    EXPECT_EQ(::getxattr(path.c_str(), "user.note", value, sizeof value), 4);
    EXPECT_STREQ(value, "kept");
}

TEST_F(SettingsFile, IsMadeReadableForAllWhateverTheUmask) {
    const mode_t before = ::umask(077);
    EXPECT_EQ(setKey(path, "new"), 0);
    (void)::umask(before);
    struct stat info {};
    ASSERT_EQ(::stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0644U);
}

TEST_F(SettingsFile, ALinkStaysAndItsTargetIsReplaced) {
    ASSERT_EQ(::mkdir(folder.at("real").c_str(), 0755), 0);
    writeBytes(folder.at("real/target.conf"), "key=\"old\"\n");
    ASSERT_EQ(::symlink("real/target.conf", folder.at("middle").c_str()), 0);
    ASSERT_EQ(::symlink(folder.at("middle").c_str(), path.c_str()), 0);
    ASSERT_EQ(setKey(path, "new"), 0);
    EXPECT_TRUE(std::filesystem::is_symlink(path));
    EXPECT_TRUE(std::filesystem::is_symlink(folder.at("middle")));
    EXPECT_EQ(readBytes(folder.at("real/target.conf")), "key=\"new\"\n");
}

TEST_F(SettingsFile, TheMissingTargetOfALinkIsMade) {
    ASSERT_EQ(::symlink("target.conf", path.c_str()), 0);
    ASSERT_EQ(setKey(path, "new"), 0);
    EXPECT_TRUE(std::filesystem::is_symlink(path));
    EXPECT_EQ(readBytes(folder.at("target.conf")), "key=\"new\"\n");
}

TEST_F(SettingsFile, LinksInACircleFail) {
    ASSERT_EQ(::symlink("b", folder.at("a").c_str()), 0);
    ASSERT_EQ(::symlink("a", folder.at("b").c_str()), 0);
    EXPECT_LT(setKey(folder.at("a"), "new"), 0);
    EXPECT_EQ(VLIBCErrGet(), fromErrno(ELOOP));
}

TEST_F(SettingsFile, WhatIsNoFileIsNeitherReadNorReplaced) {
    char buffer[8];
    ASSERT_EQ(::mkdir(path.c_str(), 0755), 0);
    ASSERT_EQ(::mkfifo(folder.at("pipe").c_str(), 0600), 0);
    for (const std::string& place : {path, folder.at("pipe"), path + "/"}) {
        EXPECT_LT(setKey(place, "new"), 0) << place;
        EXPECT_LT(VLIBCFileGetKeyValue(place.c_str(), "key", buffer, 4, 0), 0) << place;
    }
    EXPECT_THAT(entriesOf(folder.path()), ElementsAre("pipe", "server.conf"));
    EXPECT_TRUE(std::filesystem::is_empty(path));
}

TEST_F(SettingsFile, AMissingFolderFails) {
    EXPECT_LT(setKey(folder.at("none/server.conf"), "new"), 0);
    EXPECT_EQ(VLIBCErrGet(), fromErrno(ENOENT));
    EXPECT_LT(setKey("", "new"), 0);
}

TEST_F(SettingsFile, AnUnchangedTextIsNotWrittenAgain) {
    writeBytes(path, "key=\"same\"\n");
    struct stat before {};
    struct stat after {};
    ASSERT_EQ(::stat(path.c_str(), &before), 0);
    EXPECT_EQ(setKey(path, "same"), 0);
    ASSERT_EQ(::stat(path.c_str(), &after), 0);
    EXPECT_EQ(before.st_ino, after.st_ino);
}

TEST_F(SettingsFile, SweepsUpWhatAKilledWriterLeft) {
    writeBytes(folder.at(".ombrel-settings.tmp"), "half a li");
    EXPECT_EQ(setKey(path, "new"), 0);
    EXPECT_THAT(entriesOf(folder.path()), ElementsAre("server.conf"));
}

TEST_F(SettingsFile, SaysThatATextIsForbidden) {
    EXPECT_LT(setKey(path, "a\nb"), 0);
    EXPECT_EQ(VLIBCErrGet(), kErrorForbiddenText);
    EXPECT_LT(VLIBCFileAddSection(path.c_str(), "a]", hashOf({}).get(), kKeyFormat), 0);
    EXPECT_EQ(VLIBCErrGet(), kErrorForbiddenText);
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(SettingsFile, IsReadWhateverItsSize) {
    std::string text;
    for (int i = 0; i < 200'000; ++i)
        text += "key" + std::to_string(i) + "=\"" + std::to_string(i) + "\"\n";
    writeBytes(path, text);
    char buffer[16];
    EXPECT_GT(VLIBCFileGetKeyValue(path.c_str(), "key199999", buffer, 15, 0), 0);
    EXPECT_STREQ(buffer, "199999");
    EXPECT_EQ(setKey(path, "new"), 0);
    EXPECT_EQ(readBytes(path), text + "key=\"new\"\n");
}

TEST_F(SettingsFile, TooLargeForTheMemoryFails) {
#ifdef OMBREL_SANITIZED
    GTEST_SKIP() << "a sanitizer needs more address space than this test leaves";
#endif
    constexpr off_t kSize = off_t{1} << 32;
    writeBytes(path, "");
    ASSERT_EQ(::truncate(path.c_str(), kSize), 0);
    EXPECT_EQ(runInChild([&] {
                  const rlimit limit{std::size_t{1} << 30, std::size_t{1} << 30};
                  if (::setrlimit(RLIMIT_AS, &limit) != 0) return 1;
                  char buffer[8];
                  if (VLIBCFileGetKeyValue(path.c_str(), "key", buffer, 7, 0) >= 0) return 2;
                  if (VLIBCErrGet() != kErrorOutOfMemory) return 3;
                  return setKey(path, "new") < 0 && VLIBCErrGet() == kErrorOutOfMemory ? 0 : 4;
              }),
              0);
    EXPECT_EQ(std::filesystem::file_size(path), static_cast<std::uintmax_t>(kSize));
}

TEST_F(SettingsFile, OnAFullDiskStaysAsItWas) {
    const int result = runInChild([&] {
        if (!test::enterPrivateMounts()) return test::kSkip;
        if (::mount("none", folder.path().c_str(), "tmpfs", 0, "size=64k") != 0) return test::kSkip;
        writeBytes(path, "key=\"old\"\n");
        return failsUntouched(folder.path(), std::string(200'000, 'x'), ENOSPC);
    });
    if (result == test::kSkip) GTEST_SKIP() << "no mount namespace here";
    EXPECT_EQ(result, 0);
}

TEST_F(SettingsFile, InAReadOnlyFolderStaysAsItWas) {
    writeBytes(path, "key=\"old\"\n");
    const int result = runInChild([&] {
        const char* place = folder.path().c_str();
        if (!test::enterPrivateMounts()) return test::kSkip;
        if (::mount(place, place, nullptr, MS_BIND, nullptr) != 0) return test::kSkip;
        if (::mount(nullptr, place, nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) != 0) return test::kSkip;
        return failsUntouched(folder.path(), "new", EROFS);
    });
    if (result == test::kSkip) GTEST_SKIP() << "no mount namespace here";
    EXPECT_EQ(result, 0);
    EXPECT_EQ(readBytes(path), "key=\"old\"\n");
}

TEST_F(SettingsFile, IsKeptFromThoseWithoutTheRight) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can become somebody else";
    writeBytes(path, "key=\"old\"\n");
    ASSERT_EQ(::chmod(folder.path().c_str(), 0755), 0);
    const auto asNobody = [&] { return ::setgid(kNobody) == 0 && ::setuid(kNobody) == 0; };
    EXPECT_EQ(runInChild([&] { return asNobody() ? failsUntouched(folder.path(), "new", EACCES) : 4; }), 0);
    // A folder that anybody may write does not make its files anybody's.
    ASSERT_EQ(::chmod(folder.path().c_str(), 0777), 0);
    EXPECT_EQ(runInChild([&] { return asNobody() ? failsUntouched(folder.path(), "new", EACCES) : 4; }), 0);
    ASSERT_EQ(::chmod(path.c_str(), 0666), 0);
    EXPECT_EQ(runInChild([&] { return asNobody() ? failsUntouched(folder.path(), "new", EPERM) : 4; }), 0);
    // Nor is a file read that is not theirs to read.
    ASSERT_EQ(::chmod(path.c_str(), 0600), 0);
    EXPECT_EQ(runInChild([&] {
                  char buffer[8];
                  return asNobody() && VLIBCFileGetKeyValue(path.c_str(), "key", buffer, 7, 0) < 0 ? 0 : 1;
              }),
              0);
    EXPECT_EQ(readBytes(path), "key=\"old\"\n");
}

TEST_F(SettingsFile, ExistenceOfWhatCannotBeToldIsNegative) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can become somebody else";
    ASSERT_EQ(::chmod(folder.path().c_str(), 0700), 0);
    EXPECT_EQ(runInChild([&] { return ::setuid(kNobody) == 0 && VLIBCFileExist(path.c_str()) < 0 ? 0 : 1; }), 0);
    EXPECT_LT(VLIBCFileExist(std::string(5000, 'x').c_str()), 0);
}

TEST_F(SettingsFile, ADanglingLinkAndASocketExist) {
    ASSERT_EQ(::symlink("nowhere", path.c_str()), 0);
    EXPECT_GT(VLIBCFileExist(path.c_str()), 0);
    ASSERT_EQ(::mkfifo(folder.at("pipe").c_str(), 0600), 0);
    EXPECT_GT(VLIBCFileExist(folder.at("pipe").c_str()), 0);
}

TEST_F(SettingsFile, LinksToFoldersAreNoSubFolders) {
    ASSERT_EQ(::mkdir(folder.at("real").c_str(), 0755), 0);
    ASSERT_EQ(::mkdir(folder.at("Another\nline").c_str(), 0755), 0);
    ASSERT_EQ(::symlink("real", folder.at("link").c_str()), 0);
    List list;
    EXPECT_EQ(VLIBCFileEnumDir(folder.path().c_str(), 0, list.address(), 0x40), 0);
    EXPECT_THAT(list.texts(), ElementsAre("Another\nline", "real"));
    EXPECT_LT(VLIBCFileEnumDir(folder.path().c_str(), 0, list.address(), 0x20), 0);
}

}  // namespace
}  // namespace ombrel
