// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Shares, the file systems that they lie on, and folders made with their parents, on every platform.
#include <gmock/gmock.h>

#include <cerrno>
#include <memory>

#include "platform/vesksdk.h"
#include "tests/contract/contract_fixture.h"
#include "tests/contract/core_handles.h"

namespace ombrel::contract {
namespace {

using ::testing::ElementsAre;

constexpr int kEnumFlags = 513;

struct ShareFree {
    void operator()(VESKSHARE* share) const noexcept { VESKShareFree(share); }
};
using Share = std::unique_ptr<VESKSHARE, ShareFree>;

Share shareOf(const char* name) {
    VESKSHARE* share = nullptr;
    const int result = VESKShareGet(name, &share);
    Share owned(share);
    return result >= 0 ? std::move(owned) : nullptr;
}

class Shares : public ContractTest {
protected:
    std::string folderAt(const std::string& name) {
        world->makeFolder(at(name));
        return at(name);
    }
};

#define MAKE_SHARE(name, path) \
    if (!world->makeShare(name, path)) GTEST_SKIP() << world->whyNot()

TEST_F(Shares, AreFoundByTheirName) {
    const std::string path = folderAt("logs");
    MAKE_SHARE("Logs", path);
    const Share share = shareOf("Logs");
    ASSERT_NE(share, nullptr);
    EXPECT_EQ(share->path, path);
    EXPECT_EQ(shareOf("Logs2"), nullptr);
    EXPECT_EQ(shareOf(""), nullptr);
}

TEST_F(Shares, HaveBlanksInTheirNamesAndPaths) {
    const std::string path = folderAt("two words");
    MAKE_SHARE("my logs", path);
    const Share share = shareOf("my logs");
    ASSERT_NE(share, nullptr);
    EXPECT_EQ(share->path, path);
}

TEST_F(Shares, AreAppendedToTheListOfTheirNames) {
    MAKE_SHARE("first", folderAt("a"));
    MAKE_SHARE("second", folderAt("b"));
    List list(1);
    ASSERT_GE(VLIBCSzListPush(list.address(), "held"), 0);
    EXPECT_GE(VESKShareEnum(list.address(), kEnumFlags), 0);
    EXPECT_THAT(list.texts(), ElementsAre("held", "first", "second"));
}

TEST_F(Shares, OfLocalFoldersLieOnNoImageAndNotOnTheNetwork) {
    const std::string path = folderAt("logs");
    MAKE_SHARE("Logs", path);
    const int type = VESKGetFSType(path.c_str(), 0);
    ASSERT_GE(type, 0);
    EXPECT_EQ(VESKFSIsImageFS(type), 0);
    EXPECT_EQ(VESKFSIsRemoteFS(type), 0);
}

TEST_F(Shares, WithoutAFolderHaveNoFileSystemType) {
    MAKE_SHARE("Logs", folderAt("logs"));
    EXPECT_LT(VESKGetFSType(at("missing").c_str(), 0), 0);
}

TEST_F(Shares, WithoutARecordAreReleasedToo) {
    VESKShareFree(nullptr);
}

class MadeFolders : public ContractTest {
protected:
    static int make(const std::string& path) { return VESKFSMkdirP(path.c_str(), 0, 1, -1, -1, 0777); }
};

TEST_F(MadeFolders, HaveTheirMissingParents) {
    EXPECT_GE(make(at("a/b c/d")), 0);
    EXPECT_TRUE(world->exists(at("a/b c/d")));
}

TEST_F(MadeFolders, MayEndInASlash) {
    EXPECT_GE(make(at("a/b/")), 0);
    EXPECT_TRUE(world->exists(at("a/b")));
}

TEST_F(MadeFolders, MayBeThereAlready) {
    ASSERT_GE(make(at("a/b")), 0);
    EXPECT_GE(make(at("a/b")), 0);
    EXPECT_GE(make(world->folder()), 0);
}

TEST_F(MadeFolders, CannotLieBelowAFile) {
    file("a", "text");
    errno = 0;
    EXPECT_LT(make(at("a/b")), 0);
    EXPECT_EQ(errno, ENOTDIR);
    EXPECT_EQ(bytesOf(at("a")), "text");
}

}  // namespace
}  // namespace ombrel::contract
