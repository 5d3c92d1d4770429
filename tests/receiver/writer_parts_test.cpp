// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The small parts of the log writer.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "receiver/settings_watch.h"
#include "receiver/token.h"
#include "receiver/writer/file_lines.h"
#include "receiver/writer/flush_policy.h"
#include "receiver/writer/import_progress.h"
#include "receiver/writer/quarantine.h"
#include "receiver/writer/writer_settings.h"
#include "receiver/writer/year_tracker.h"
#include "tests/receiver/settings_file.h"
#include "tests/receiver/temp_folder.h"

namespace ombrel {
namespace {

using std::chrono::seconds;
using testing::ElementsAre;
using testing::HasSubstr;

class FlushPolicyTest : public testing::Test {
protected:
    FlushPolicyTest() { policy.configure(10, seconds(3)); }
    FlushPolicy policy;
    const FlushPolicy::Clock::time_point start = FlushPolicy::Clock::now();
};

TEST_F(FlushPolicyTest, WaitsForNothingWithoutRows) {
    EXPECT_FALSE(policy.deadline());
    EXPECT_FALSE(policy.isDue(start + seconds(100)));
}

TEST_F(FlushPolicyTest, IsDueWhenTimeIsUpCountedFromTheFirstRows) {
    policy.add(1, false, start);
    policy.add(1, false, start + seconds(2));
    EXPECT_FALSE(policy.isDue(start + seconds(2)));
    EXPECT_TRUE(policy.isDue(start + seconds(3)));
}

TEST_F(FlushPolicyTest, IsDueWithEnoughRows) {
    policy.add(9, false, start);
    EXPECT_FALSE(policy.isDue(start));
    policy.add(1, false, start);
    EXPECT_TRUE(policy.isDue(start));
}

TEST_F(FlushPolicyTest, IsDueWithAFullBatchSinceMoreWaitsBehindIt) {
    policy.add(1, true, start);
    EXPECT_TRUE(policy.isDue(start));
    policy.clear();
    policy.add(1, false, start);
    EXPECT_FALSE(policy.isDue(start));
}

TEST_F(FlushPolicyTest, TakesOddSettingsForTheNearestSensibleOnes) {
    policy.configure(1000, seconds(0));
    policy.add(1, false, start);
    EXPECT_TRUE(policy.isDue(start)) << "no wait at all";
    policy.configure(-5, seconds(60));
    EXPECT_TRUE(policy.isDue(start)) << "less than a row is a row";
    policy.configure(1000, seconds(60));
    EXPECT_EQ(policy.deadline(), start + kLongestFlushWait);
    policy.configure(1000, seconds(-1));
    EXPECT_TRUE(policy.isDue(start));
}

TEST(Quarantine, KeepsBodiesAndForgetsTheOldest) {
    const TempFolder folder;
    Quarantine quarantine(folder.path(), 100);
    ASSERT_TRUE(quarantine.keep("bsd-tcp", std::string(200, 'a'), "the length is wrong"));
    EXPECT_THAT(readText(quarantine.path()), HasSubstr(" bsd-tcp 200 bytes: the length is wrong\naaaa"));
    ASSERT_TRUE(quarantine.keep("bsd-tcp", "second", "why"));
    EXPECT_THAT(readText(quarantine.path() + ".old"), HasSubstr("aaaa"));
    EXPECT_THAT(readText(quarantine.path()), HasSubstr("why\nsecond\n"));
    struct stat status {};
    ASSERT_EQ(::stat(quarantine.path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST(Quarantine, SaysWhenItCannotKeepABody) {
    Quarantine quarantine("/proc/no/such/folder");
    EXPECT_FALSE(quarantine.keep("bsd-tcp", "x", "why"));
}

TEST(Token, IsTheSameForAllWhoMakeItAtOnce) {
    const TempFolder folder;
    std::vector<std::optional<std::string>> tokens(8);
    std::vector<std::thread> threads;
    for (auto& token : tokens)
        threads.emplace_back([&token, &folder] { token = readOrMakeToken(folder.path()); });
    for (std::thread& thread : threads)
        thread.join();
    ASSERT_TRUE(tokens[0]);
    EXPECT_EQ(tokens[0]->size(), 64U);
    EXPECT_THAT(tokens, testing::Each(tokens[0]));
    struct stat status {};
    ASSERT_EQ(::stat((folder / "token").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST(Token, ThatOthersCanReadOrThatIsNoneIsRefused) {
    const TempFolder folder;
    ASSERT_TRUE(readOrMakeToken(folder.path()));
    ASSERT_EQ(::chmod((folder / "token").c_str(), 0640), 0);
    EXPECT_FALSE(readOrMakeToken(folder.path()));
    EXPECT_THAT(tokenTrouble(folder.path()), testing::HasSubstr("others than the owner may use"));
    ASSERT_EQ(::chmod((folder / "token").c_str(), 0600), 0);
    writeText(folder / "token", "short\n");
    EXPECT_FALSE(readOrMakeToken(folder.path()));
    EXPECT_THAT(tokenTrouble(folder.path()), testing::HasSubstr("/token holds no token; remove it"));
    EXPECT_FALSE(readOrMakeToken(folder / "missing"));
    EXPECT_THAT(tokenTrouble(folder / "missing"), testing::HasSubstr("/missing/token: No such file"));
}

TEST(Token, IsComparedByteForByte) {
    EXPECT_TRUE(sameToken("abc", "abc"));
    EXPECT_FALSE(sameToken("abc", "abd"));
    EXPECT_FALSE(sameToken("abc", "ab"));
}

class SettingsTest : public testing::Test {
protected:
    // Whether the watch tells of a change within a bounded time.
    bool seesChange() {
        pollfd one{watch.fd(), POLLIN, 0};
        while (::poll(&one, 1, 1000) == 1) {
            if (watch.changed()) return true;
        }
        return false;
    }
    TempFolder folder;
    const std::string path = folder / "server.conf";
    SettingsWatch watch;
    std::string error;
};

TEST_F(SettingsTest, AreReadFromTheFile) {
    writeSettings(path, {{"arch_dest", "/srv/logs//"}, {"arch_by_device", "1"}, {"system_flush_timeout", "7"}});
    const auto settings = readWriterSettings(path, error);
    ASSERT_TRUE(settings) << error;
    EXPECT_EQ(*settings, (WriterSettings{"/srv/logs", true, 100, 7}));
}

TEST_F(SettingsTest, ThatMakeNoSenseAreRefusedByName) {
    EXPECT_FALSE(readWriterSettings(path, error));
    EXPECT_THAT(error, HasSubstr(path));
    writeSettings(path, {{"arch_dest", "logs"}});
    EXPECT_FALSE(readWriterSettings(path, error));
    EXPECT_THAT(error, HasSubstr("arch_dest=\"logs\""));
}

TEST_F(SettingsTest, AreWatchedWhetherReplacedOrWrittenInPlace) {
    writeSettings(path, {});
    ASSERT_TRUE(watch.start(path));
    writeSettings(path, {{"arch_by_device", "1"}});
    EXPECT_TRUE(seesChange());
    writeText(path, "in place");
    EXPECT_TRUE(seesChange());
    writeText(folder / "another", "x");
    EXPECT_FALSE(watch.changed());
}

TEST_F(SettingsTest, AreWatchedBehindASymbolicLink) {
    const TempFolder elsewhere;
    writeSettings(elsewhere / "real.conf", {});
    std::filesystem::create_symlink(elsewhere / "real.conf", path);
    ASSERT_TRUE(watch.start(path));
    writeSettings(elsewhere / "real.conf", {{"arch_by_device", "1"}});
    EXPECT_TRUE(seesChange());
}

TEST_F(SettingsTest, CannotBeWatchedInAFolderThatIsMissing) {
    EXPECT_FALSE(watch.start(folder / "missing/server.conf"));
}

std::vector<std::string> linesOf(const std::string& path, const std::string& text, size_t* split = nullptr) {
    writeText(path, text);
    const Fd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    FileLines reader(file.get());
    std::vector<std::string> lines;
    std::string_view line;
    while (reader.next(line))
        lines.emplace_back(line);
    EXPECT_EQ(reader.error(), 0);
    EXPECT_EQ(reader.bytesRead(), text.size());
    if (split != nullptr) *split = reader.splitLines();
    return lines;
}

TEST(FileLines, TakesBothLineEndsAndALastLineWithoutOne) {
    const TempFolder folder;
    EXPECT_THAT(linesOf(folder / "f", "a\r\n\nb\nc"), ElementsAre("a", "", "b", "c"));
    EXPECT_THAT(linesOf(folder / "f", ""), ElementsAre());
}

TEST(FileLines, SplitsLongLinesAndLosesNothing) {
    const TempFolder folder;
    const std::string text(5 * FileLines::kMaxLine / 2, 'x');
    size_t split = 0;
    const auto lines = linesOf(folder / "f", "a\n" + text + "\nb\n", &split);
    ASSERT_EQ(lines.size(), 5U);
    EXPECT_EQ(lines[1] + lines[2] + lines[3], text);
    EXPECT_EQ(lines[4], "b");
    EXPECT_EQ(split, 1U);
}

TEST(FileLines, TellsOfAFailedRead) {
    const Fd folder(::open("/", O_RDONLY | O_CLOEXEC));
    FileLines reader(folder.get());
    std::string_view line;
    EXPECT_FALSE(reader.next(line));
    EXPECT_EQ(reader.error(), EISDIR);
}

TEST(YearTracker, GoesOverNewYear) {
    YearTracker years(2004);
    EXPECT_EQ(years.next(11), 2004);
    EXPECT_EQ(years.next(12), 2004);
    EXPECT_EQ(years.next(1), 2005);
    EXPECT_EQ(years.next(12), 2004) << "a line that came late";
    EXPECT_EQ(years.next(1), 2005);
    EXPECT_EQ(years.next(3), 2005);
    EXPECT_EQ(years.next(2), 2005) << "a line that came late";
    EXPECT_EQ(years.next(9), 2005);
    EXPECT_EQ(years.next(1), 2006);
}

TEST(ImportProgress, ShowsShareAndRate) {
    EXPECT_EQ(ImportProgress::text(500'000, 1'000'000, 100, 2),
              "[############............]  50 %  0.5 MB  100 rows  50 rows/s");
    EXPECT_EQ(ImportProgress::text(500'000, 0, 100, 0), "0.5 MB  100 rows  0 rows/s");
}

}  // namespace
}  // namespace ombrel
