// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The event of a job that ended by itself: its words, and at most one a minute.
#include "tools/ombrel-notify/job_died.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sysexits.h>

#include <algorithm>
#include <filesystem>
#include <vector>

#include "linux/common/fd.h"
#include "linux/vesksyslog/event_line.h"
#include "tests/linux/child_process.h"
#include "tools/ombrel-notify/boot_clock.h"

namespace fs = std::filesystem;

namespace ombrel {
namespace {

using ::testing::HasSubstr;

std::optional<JobDeath> readWords(std::vector<std::string> words) {
    std::vector<char*> pointers;
    pointers.reserve(words.size());
    for (std::string& word : words)
        pointers.push_back(word.data());
    return readJobDeath(pointers);
}

struct Words {
    const char* name;
    std::vector<std::string> words;
    const char* expected;  ///< "job exit-code signal"; null: refused
};
void PrintTo(const Words& one, std::ostream* out) {
    *out << one.name;
}

class JobDeathWords : public ::testing::TestWithParam<Words> {};

TEST_P(JobDeathWords, AreTakenOrRefused) {
    const auto death = readWords(GetParam().words);
    ASSERT_EQ(death.has_value(), GetParam().expected != nullptr);
    if (death) {
        EXPECT_EQ(death->job + " " + std::to_string(death->exitCode) + " " + death->signal, GetParam().expected);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Words, JobDeathWords,
    ::testing::Values(
        Words{"ExitCode", {"pkg-Ombrel-bsd", "78", "0"}, "pkg-Ombrel-bsd 78 "},
        Words{"Signal", {"pkg-Ombrel-bsd", "-1", "9"}, "pkg-Ombrel-bsd -1 KILL"},
        Words{"SignalByName", {"a", "-1", "SEGV"}, "a -1 SEGV"},
        Words{"SignalByLongName", {"a", "-1", "SIGTERM"}, "a -1 TERM"},
        Words{"RealTimeSignal", {"a", "-1", "40"}, "a -1 40"}, Words{"Zero", {"a", "0", "0"}, "a 0 "},
        Words{"Largest", {"a", "255", "0"}, "a 255 "}, Words{"None", {}, nullptr},
        Words{"TooFew", {"a", "1"}, nullptr}, Words{"TooMany", {"a", "1", "0", "0"}, nullptr},
        Words{"NoName", {"", "1", "0"}, nullptr}, Words{"NameWithSlash", {"../a", "1", "0"}, nullptr},
        Words{"NameWithLeadingDot", {".a", "1", "0"}, nullptr},
        Words{"NameLikeAnOption", {"-a", "1", "0"}, nullptr}, Words{"NameWithBlank", {"a b", "1", "0"}, nullptr},
        Words{"NameWithEscape", {"a\x1b[2J", "1", "0"}, nullptr},
        Words{"LongName", {std::string(201, 'a'), "1", "0"}, nullptr},
        Words{"ExitCodeTooLarge", {"a", "256", "0"}, nullptr}, Words{"ExitCodeIsText", {"a", "1x", "0"}, nullptr},
        Words{"EmptyExitCode", {"a", "", "0"}, nullptr},
        Words{"UnknownSignal", {"a", "-1", "SIGNOTHING"}, nullptr},
        Words{"SignalTooLarge", {"a", "-1", "65"}, nullptr}, Words{"NegativeSignal", {"a", "-1", "-9"}, nullptr},
        Words{"NeitherOfThem", {"a", "-1", "0"}, nullptr}, Words{"Both", {"a", "1", "9"}, nullptr}),
    [](const auto& one) { return std::string(one.param.name); });

class JobDeathEvent : public ::testing::Test {
protected:
    void SetUp() override { fs::create_directory(folder.at("log")); }

    int enter(const std::string& job, int exitCode = 78, const std::string& signal = "") {
        return enterJobDeath({job, exitCode, signal}, places);
    }
    [[nodiscard]] std::string events() const {
        return fs::exists(places.eventFile) ? test::readBytes(places.eventFile) : "";
    }
    [[nodiscard]] long count() const {
        const std::string text = events();
        return std::count(text.begin(), text.end(), '\n');
    }
    [[nodiscard]] std::string stamp(const std::string& job) const { return places.stampFolder + "/died-" + job; }

    test::TemporaryFolder folder;
    JobDeathPlaces places{folder.at("log/events.jsonl"), folder.at("journal"), folder.at("run")};
};

TEST_F(JobDeathEvent, HasTheJobAndHowItEnded) {
    ASSERT_EQ(enter("pkg-Ombrel-bsd"), EX_OK);
    ASSERT_EQ(enter("pkg-Ombrel-syslog", -1, "KILL"), EX_OK);
    EXPECT_THAT(events(), HasSubstr(R"("event":"job_died","text":"pkg-Ombrel-bsd: exit code 78",)"
                                    R"("job":"pkg-Ombrel-bsd","exit_code":78})"));
    EXPECT_THAT(events(), HasSubstr(R"("text":"pkg-Ombrel-syslog: signal KILL",)"
                                    R"("job":"pkg-Ombrel-syslog","signal":"KILL"})"));
}

TEST_F(JobDeathEvent, IsNoneAfterExitCode0) {
    EXPECT_EQ(enter("a", 0), EX_OK);
    EXPECT_EQ(events(), "");
}

TEST_F(JobDeathEvent, ComesOnceAMinuteForAJob) {
    EXPECT_EQ(enter("a"), EX_OK);
    EXPECT_EQ(enter("a"), EX_OK);
    EXPECT_EQ(enter("b"), EX_OK);
    EXPECT_EQ(count(), 2);
    const auto stampOf = [&](const std::string& boot, long long seconds) {
        test::writeBytes(stamp("a"), boot + " " + std::to_string(seconds) + "\n");
    };
    stampOf(bootName(), bootSeconds() - 59);
    EXPECT_EQ(enter("a"), EX_OK);
    EXPECT_EQ(count(), 2);
    stampOf(bootName(), bootSeconds() - 60);
    EXPECT_EQ(enter("a"), EX_OK);
    EXPECT_EQ(count(), 3);
    stampOf("another-boot", bootSeconds() - 1);
    EXPECT_EQ(enter("a"), EX_OK);
    EXPECT_EQ(count(), 4);
    stampOf(bootName(), bootSeconds() + 1000);  // of a time that cannot be
    EXPECT_EQ(enter("a"), EX_OK);
    EXPECT_EQ(count(), 5);
    EXPECT_EQ(enter("a"), EX_OK);
    EXPECT_EQ(count(), 5);
}

TEST_F(JobDeathEvent, ComesOnceFromManyProcesses) {
    std::vector<pid_t> children(16);
    for (pid_t& child : children)
        child = test::startChild([&] { return enter("a"); });
    for (const pid_t child : children)
        EXPECT_EQ(test::awaitChild(child), EX_OK);
    EXPECT_EQ(count(), 1);
}

TEST_F(JobDeathEvent, IsNotWaitedForWhileAnotherProcessEntersIt) {
    ASSERT_EQ(enter("a"), EX_OK);
    const Fd held(::open(stamp("a").c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_EQ(::flock(held.get(), LOCK_EX), 0);
    test::writeBytes(stamp("a"), "");
    EXPECT_EQ(enter("a"), EX_OK);
    EXPECT_EQ(count(), 1);
}

TEST_F(JobDeathEvent, IsEnteredThoughItsStampCannotBeKept) {
    places.stampFolder = folder.at("not/there");
    EXPECT_EQ(enter("a"), EX_OK);
    EXPECT_EQ(enter("a"), EX_OK);
    EXPECT_EQ(count(), 2);
    fs::create_directory(folder.at("run"));
    places.stampFolder = folder.at("run");
    test::writeBytes(folder.at("other"), "kept");
    fs::create_symlink(folder.at("other"), stamp("b"));
    EXPECT_EQ(enter("b"), EX_OK);
    EXPECT_EQ(test::readBytes(folder.at("other")), "kept");
}

TEST_F(JobDeathEvent, ThatCannotBeEnteredIsAFailureAndTriedAgain) {
    fs::remove(folder.at("log"));
    test::writeBytes(folder.at("log"), "");
    EXPECT_EQ(enter("a"), EX_CANTCREAT);
    fs::remove(folder.at("log"));
    EXPECT_EQ(enter("a"), EX_OK);
    EXPECT_EQ(count(), 1);
}

}  // namespace
}  // namespace ombrel
