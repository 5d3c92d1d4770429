// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The state that outlives a restart, as text and as a file.
#include "tools/ombrel-notify/notify_state.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "tests/linux/child_process.h"

namespace fs = std::filesystem;

namespace ombrel {
namespace {

NotifyState sample() {
    NotifyState state;
    state.events = {8, 1234, 56789, 0xffffffffffffffffU};
    state.sockets = std::vector<UdpSocket>{{514, 99, 12}, {5514, 100, 0}};
    state.notices.causes["archive"] = {100, 3, "/srv/a b/c.DB"};
    state.notices.causes["job pkg with blanks"] = {200, 0, ""};
    state.notices.failingFolders = {"/srv/a b", "."};
    state.notices.destination = "/srv/the logs";
    state.notices.isLow = true;
    return state;
}

TEST(NotifyStateText, ReadsAsItWasWritten) {
    EXPECT_EQ(parseState(renderState(sample(), "boot"), "boot"), sample());
    EXPECT_EQ(parseState(renderState({}, "boot"), "boot"), NotifyState{});
    NotifyState looked;
    looked.sockets.emplace();
    EXPECT_EQ(parseState(renderState(looked, "boot"), "boot"), looked);
}

TEST(NotifyStateText, OfAnotherBootHasNoTimes) {
    const auto state = parseState(renderState(sample(), "boot"), "next");
    ASSERT_TRUE(state);
    EXPECT_EQ(state->events, sample().events);
    ASSERT_EQ(state->notices.causes.size(), 1U);
    EXPECT_EQ(state->notices.causes.at("archive").pending, 3U);
    int told = 0;
    NoticePolicy policy(std::chrono::seconds(600), [&](int, const std::string&) { ++told; });
    policy.restore(state->notices);
    policy.tick(1);
    EXPECT_EQ(told, 1);
}

TEST(NotifyStateText, SkipsWhatItDoesNotUnderstand) {
    for (const char* text : {"", "junk", "ombrel-notify 2 x\n", "\n\n"})
        EXPECT_FALSE(parseState(text, "x")) << text;
    const auto state = parseState(
        "ombrel-notify 1 x\n\nevents 1 2\nevents -\nsocket 1 2 3\nlooked\nsocket 99999 1 1\n"
        "socket 1\ncause\ncause 1 2\ncause 1 2 x\nfuture 5\nevents 1 2 3 4\n",
        "x");
    ASSERT_TRUE(state);
    EXPECT_EQ(state->events, (EventPosition{1, 2, 3, 4}));
    ASSERT_TRUE(state->sockets);
    EXPECT_TRUE(state->sockets->empty());
    EXPECT_TRUE(state->notices.causes.empty());
}

TEST(NotifyStateText, IsReadToABound) {
    std::string text = "ombrel-notify 1 x\nlooked\n";
    for (int i = 0; i < 5000; ++i) {
        const std::string number = std::to_string(i);
        text += "socket 1 " + number + " 1\nfailing /" + number + "\ncause 1 1 job " + number + "\tx\n";
    }
    const auto state = parseState(text, "x");
    ASSERT_TRUE(state);
    EXPECT_LE(state->sockets->size(), 256U);
    EXPECT_LE(state->notices.failingFolders.size(), NoticePolicy::kMostFolders);
    EXPECT_LE(state->notices.causes.size(), NoticePolicy::kMostCauses);
}

class StateFile : public ::testing::Test {
protected:
    test::TemporaryFolder folder;
    std::string path = folder.at("notify");
};

TEST_F(StateFile, IsKeptInAFolderForItsOwnerAlone) {
    {
        StateFolder state;
        ASSERT_EQ(state.open(path), 0);
        EXPECT_FALSE(state.load("x"));
        ASSERT_EQ(state.save(sample(), "x"), 0);
        ASSERT_EQ(state.save(sample(), "x"), 0);
    }
    StateFolder state;
    ASSERT_EQ(state.open(path), 0);
    EXPECT_EQ(state.load("x"), sample());
    struct stat info {};
    ASSERT_EQ(::stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777U, 0700U);
    ASSERT_EQ(::stat((path + "/state").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777U, 0600U);
    EXPECT_EQ(std::distance(fs::directory_iterator(path), fs::directory_iterator()), 1);
}

TEST_F(StateFile, BelongsToOneAtATime) {
    StateFolder first;
    ASSERT_EQ(first.open(path), 0);
    StateFolder second;
    EXPECT_EQ(second.open(path), EWOULDBLOCK);
    EXPECT_FALSE(second.load("x"));
    EXPECT_EQ(second.save(sample(), "x"), EBADF);
}

TEST_F(StateFile, IsNotLookedForWhereItsFolderCannotBe) {
    StateFolder state;
    EXPECT_EQ(state.open(folder.at("not/installed")), ENOENT);
    test::writeBytes(folder.at("file"), "x");
    EXPECT_EQ(state.open(folder.at("file")), ENOTDIR);
    fs::create_directory_symlink(folder.path(), path);
    EXPECT_EQ(state.open(path), ENOTDIR);  // of a link
}

TEST_F(StateFile, ThatIsNoStateIsNone) {
    StateFolder state;
    ASSERT_EQ(state.open(path), 0);
    test::writeBytes(path + "/state", std::string(3 << 20, 'x'));
    EXPECT_FALSE(state.load("x"));
    fs::remove(path + "/state");
    ASSERT_EQ(::mkfifo((path + "/state").c_str(), 0600), 0);
    EXPECT_FALSE(state.load("x"));
}

TEST_F(StateFile, IsNotWrittenThroughALink) {
    StateFolder state;
    ASSERT_EQ(state.open(path), 0);
    test::writeBytes(folder.at("other"), "kept");
    fs::create_symlink(folder.at("other"), path + "/.state.new");
    EXPECT_EQ(state.save(sample(), "x"), ELOOP);
    EXPECT_EQ(test::readBytes(folder.at("other")), "kept");
}

}  // namespace
}  // namespace ombrel
