// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The event file as it grows, turns and is found again.
#include "tools/ombrel-notify/event_follower.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <vector>

#include "linux/vesksyslog/event_line.h"
#include "tests/linux/child_process.h"

namespace fs = std::filesystem;

namespace ombrel {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class FollowedFile : public ::testing::Test {
protected:
    void append(const std::string& bytes) { std::ofstream(path, std::ios::app | std::ios::binary) << bytes; }
    void turn() { fs::rename(path, path + ".1"); }
    static std::vector<std::string> linesOf(EventFollower& one) {
        std::vector<std::string> lines;
        EXPECT_EQ(one.read([&](std::string_view line) { lines.emplace_back(line); }), 0);
        return lines;
    }
    /// What a follower that is started at this place reads.
    [[nodiscard]] std::vector<std::string> linesFrom(const EventPosition& position) const {
        EventFollower next(path);
        next.start(position);
        return linesOf(next);
    }

    test::TemporaryFolder folder;
    std::string path = folder.at("events.jsonl");
    EventFollower follower{path};
};

TEST_F(FollowedFile, IsReadFromItsEndAtTheFirstStart) {
    append("old\n");
    follower.start(std::nullopt);
    EXPECT_THAT(linesOf(follower), IsEmpty());
    append("new\nnewer\n");
    EXPECT_THAT(linesOf(follower), ElementsAre("new", "newer"));
    EXPECT_THAT(linesOf(follower), IsEmpty());
}

TEST_F(FollowedFile, IsReadFromItsBeginningWhenItIsMadeLater) {
    follower.start(std::nullopt);
    EXPECT_THAT(linesOf(follower), IsEmpty());
    const EventPosition position = follower.position();
    append("first\n");
    EXPECT_THAT(linesOf(follower), ElementsAre("first"));
    EXPECT_THAT(linesFrom(position), ElementsAre("first"));
}

TEST_F(FollowedFile, KeepsALineBackUntilItIsWhole) {
    follower.start(std::nullopt);
    append("one\ntw");
    EXPECT_THAT(linesOf(follower), ElementsAre("one"));
    const EventPosition position = follower.position();
    append("o\n");
    EXPECT_THAT(linesOf(follower), ElementsAre("two"));
    EXPECT_THAT(linesFrom(position), ElementsAre("two"));
}

TEST_F(FollowedFile, IsReadToItsEndBeforeTheNextOne) {
    append("old\n");
    follower.start(std::nullopt);
    append("last\n");
    turn();
    append("first\n");
    EXPECT_THAT(linesOf(follower), ElementsAre("last", "first"));
}

TEST_F(FollowedFile, IsFoundAgainAfterItWasTurnedAway) {
    follower.start(std::nullopt);
    append("told\n");
    (void)linesOf(follower);
    const EventPosition position = follower.position();
    append("last\n");
    turn();
    EXPECT_THAT(linesFrom(position), ElementsAre("last"));
    append("first\n");
    EXPECT_THAT(linesFrom(position), ElementsAre("last", "first"));
}

TEST_F(FollowedFile, OfAnotherNameAndAgeIsNotMistakenForIt) {
    follower.start(std::nullopt);
    append("told\n");
    (void)linesOf(follower);
    EventPosition position = follower.position();
    fs::remove(path);
    append("another\nmore\n");
    struct stat info {};
    ASSERT_EQ(::stat(path.c_str(), &info), 0);
    position.inode = info.st_ino;  // as when the number has come to belong to this file
    EXPECT_THAT(linesFrom(position), ElementsAre("another", "more"));
}

TEST_F(FollowedFile, ThatIsGoneIsWaitedFor) {
    append("old\n");
    follower.start(std::nullopt);
    fs::remove(path);
    EXPECT_THAT(linesOf(follower), IsEmpty());
    append("new\n");
    EXPECT_THAT(linesOf(follower), ElementsAre("new"));
}

TEST_F(FollowedFile, ThatWasCutOffIsReadFromItsBeginning) {
    append("a long old line\n");
    follower.start(std::nullopt);
    fs::resize_file(path, 0);
    append("new\n");
    EXPECT_THAT(linesOf(follower), ElementsAre("new"));
}

TEST_F(FollowedFile, LosesOnlyTheLineThatIsTooLong) {
    follower.start(std::nullopt);
    append("one\n" + std::string(3 * kLongestEventLine, 'x'));
    EXPECT_THAT(linesOf(follower), ElementsAre("one"));
    append(std::string(kLongestEventLine, 'x') + "\ntwo\n");
    EXPECT_THAT(linesOf(follower), ElementsAre("two"));
}

TEST_F(FollowedFile, HandsOverManyLinesInTheirOrder) {
    follower.start(std::nullopt);
    std::string text;
    std::vector<std::string> expected;
    for (int i = 0; i < 20'000; ++i) {
        expected.push_back("line number " + std::to_string(i));
        text += expected.back() + "\n";
    }
    append(text);
    EXPECT_EQ(linesOf(follower), expected);
}

TEST_F(FollowedFile, IsAFileAndNothingElse) {
    follower.start(std::nullopt);
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    EXPECT_EQ(follower.read([](std::string_view) {}), EINVAL);  // and does not wait for a writer
    fs::remove(path);
    test::writeBytes(folder.at("other"), "secret\n");
    fs::create_symlink(folder.at("other"), path);
    EXPECT_EQ(follower.read([](std::string_view) { FAIL(); }), ELOOP);
}

}  // namespace
}  // namespace ombrel
