// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// `ombrel events` on the event file of the recording platform.
#include "linux/vesksyslog/event_log.h"
#include "tests/fake/platform_test.h"
#include "tests/unit/command_line_run.h"
#include "tests/unit/fake_status_machine.h"
#include "tests/unit/in_utc.h"
#include "tools/ombrel/event_history.h"

namespace ombrel::test::cmd_events {

namespace {

constexpr const char* kFinishedLine =
    R"({"time":"2024-03-09T10:00:00+01:00","event":"archive_finished","text":"/srv/logs/a.ZIP"})"
    "\n";
constexpr const char* kFailedLine =
    R"({"time":"2024-03-09T10:00:00+00:00","event":"archive_failed","text":"/srv/logs/b.DB"})"
    "\n";
constexpr const char* kDiedLine =
    R"({"time":"2024-03-09T11:00:00Z","event":"job_died","text":"pkg-Ombrel-bsd","job":"pkg-Ombrel-bsd","exit_code":78})"
    "\n";
constexpr const char* kRemovedLine =
    R"({"time":"2024-03-09T11:30:00Z","event":"archive_removed","text":"/srv/logs/old.ZIP","reason":"age","bytes":5000000000})"
    "\n";

class EventsCommand : public PlatformTest {
protected:
    EventsCommand() {
        fakeStatusMachine() = {};
        platform.now = 1709985600;  // 2024-03-09 12:00:00
        write(std::string(kFinishedLine) + kFailedLine + kDiedLine + kRemovedLine);
    }
    void write(const std::string& text) { platform.addFile(kEventFile, text); }
    int run(std::vector<std::string> words = {}) {
        words.insert(words.begin(), "events");
        return line.run(words);
    }

    InUtc zone;
    CommandLineRun line;
    std::string& out = line.out;
    std::string& err = line.err;
};

TEST_F(EventsCommand, ShowsTheLastOnesOldestFirst) {
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(err, "");
    EXPECT_EQ(out,
              "2024-03-09 09:00:00\tarchive_finished\t/srv/logs/a.ZIP\n"
              "2024-03-09 10:00:00\tarchive_failed\t/srv/logs/b.DB\n"
              "2024-03-09 11:00:00\tjob_died\tpkg-Ombrel-bsd exit_code=78\n"
              "2024-03-09 11:30:00\tarchive_removed\t/srv/logs/old.ZIP reason=age bytes=5000000000\n");
}

TEST_F(EventsCommand, ShowsATableWithRedFailuresOnATerminal) {
    EXPECT_EQ(runOnTerminal("events", 60, 24).out,
              "TIME                 EVENT             TEXT\n"
              "2024-03-09 09:00:00  archive_finished  /srv/logs/a.ZIP\n"
              "2024-03-09 10:00:00  archive_failed    /srv/logs/b.DB\n"
              "2024-03-09 11:00:00  job_died          pkg-Ombrel-bsd exit_c\n"
              "2024-03-09 11:30:00  archive_removed   /srv/logs/old.ZIP rea\n");
    const std::string coloured = runOnTerminal("events", 80, 24, true).out;
    EXPECT_NE(coloured.find("\x1b[31m2024-03-09 10:00:00  archive_failed    /srv/logs/b.DB\x1b[0m\n"),
              std::string::npos);
    EXPECT_NE(coloured.find("\n2024-03-09 09:00:00  archive_finished"), std::string::npos);
}

TEST_F(EventsCommand, GivesObjectsWithAllThatTheyHold) {
    EXPECT_EQ(run({"--json"}), 0);
    EXPECT_EQ(
        out,
        R"({"time":"2024-03-09T09:00:00+00:00","event":"archive_finished","text":"/srv/logs/a.ZIP","failure":false}
{"time":"2024-03-09T10:00:00+00:00","event":"archive_failed","text":"/srv/logs/b.DB","failure":true}
{"time":"2024-03-09T11:00:00+00:00","event":"job_died","text":"pkg-Ombrel-bsd","failure":true,"job":"pkg-Ombrel-bsd","exit_code":78}
{"time":"2024-03-09T11:30:00+00:00","event":"archive_removed","text":"/srv/logs/old.ZIP","failure":false,"reason":"age","bytes":5000000000}
)");
}

struct EventChoice {
    std::string name;
    std::vector<std::string> words;
    std::string events;  ///< their hours and minutes
};
class EventsChosen : public EventsCommand, public ::testing::WithParamInterface<EventChoice> {};

TEST_P(EventsChosen, AreThoseThatAreAskedFor) {
    EXPECT_EQ(run(GetParam().words), 0);
    std::string found;
    for (std::size_t at = 0; at < out.size(); at = out.find('\n', at) + 1)
        found += (found.empty() ? "" : " ") + out.substr(at + 11, 5);
    EXPECT_EQ(found, GetParam().events);
}

INSTANTIATE_TEST_SUITE_P(
    Words, EventsChosen,
    ::testing::Values(EventChoice{"Number", {"-n", "2"}, "11:00 11:30"},
                      EventChoice{"Since", {"--since", "90m"}, "11:00 11:30"},
                      EventChoice{"SinceAnInstant", {"--since", "2024-03-09T10:00:00Z"}, "10:00 11:00 11:30"},
                      EventChoice{"Event", {"--event", "archive_failed"}, "10:00"},
                      EventChoice{"NoSuchEvent", {"--event", "junk"}, ""},
                      EventChoice{"Failures", {"--failures"}, "10:00 11:00"},
                      EventChoice{"LastFailure", {"--failures", "--number", "1"}, "11:00"},
                      EventChoice{"FailuresSince", {"--failures", "--since", "10:30"}, "11:00"}),
    CaseName());

TEST_F(EventsCommand, ShowsTwentyUnlessAskedForMoreAndAllSinceATime) {
    std::string many;
    for (int i = 0; i < 50; ++i)
        many += kDiedLine;
    write(many);
    const auto rows = [this] { return std::count(out.begin(), out.end(), '\n'); };
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(rows(), 20);
    EXPECT_EQ(run({"-n", "1000"}), 0);
    EXPECT_EQ(rows(), 50);
    EXPECT_EQ(run({"--since", "1d"}), 0);
    EXPECT_EQ(rows(), 50);
}

TEST_F(EventsCommand, GoesOnInTheFileThatWasTurnedAway) {
    platform.addFile(std::string(kEventFile) + ".1", std::string(kFinishedLine) + kFailedLine);
    write(std::string(kDiedLine) + kRemovedLine);
    EXPECT_EQ(run({"-n", "3"}), 0);
    EXPECT_EQ(out.substr(0, 35), "2024-03-09 10:00:00\tarchive_failed\t");
    EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 3);
    platform.removeFile(kEventFile);
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 2);
}

TEST_F(EventsCommand, PassesOverDamagedLinesAndSaysSoOnce) {
    const std::string longest(200'000, 'x');
    write("junk\n" + longest + "\n" + kFailedLine + "\n{\"event\":\"job_died\"}\n" + longest + "\n" + kDiedLine +
          R"({"time":"2024-03-09T11:00:00Z","event":"archive_fai)");
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(err, "ombrel: damaged lines in " + platform.real(kEventFile) + " are passed over\n");
    EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 2);
}

TEST_F(EventsCommand, FindsLinesThatLieAcrossTheBlocksOfItsReading) {
    std::string many;
    for (int i = 0; i < 3000; ++i)
        many += R"({"time":"2024-03-09T11:00:00Z","event":"e)" + std::to_string(i) + R"(","text":")" +
                std::string(static_cast<std::size_t>(i % 300), 'x') + "\"}\n";
    write(many);
    const EventHistory history = readEventHistory(platform.real(kEventFile), {});
    EXPECT_EQ(history.damaged, 0U);
    ASSERT_EQ(history.records.size(), 3000U);
    for (int i = 0; i < 3000; ++i)
        ASSERT_EQ(history.records[static_cast<std::size_t>(i)].line.event, "e" + std::to_string(i));
}

TEST_F(EventsCommand, LeavesToWhoeverFollowsWhatIsWrittenBehindItsPlace) {
    EventFollower follower(platform.real(kEventFile));
    follower.start(std::nullopt);
    const auto place = follower.position();
    write(std::string(kFinishedLine) + kFailedLine + kDiedLine + kRemovedLine + kDiedLine);  // grown
    EXPECT_EQ(readEventHistory(platform.real(kEventFile), {}, place).records.size(), 4U);
    EXPECT_EQ(readEventHistory(platform.real(kEventFile), {}, EventPosition{}).records.size(), 0U)
        << "there was no file yet";
}

TEST_F(EventsCommand, WithoutAFileHasNothingToShow) {
    platform.removeFile(kEventFile);
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(out + err, "");
}

TEST_F(EventsCommand, SaysWhichRightIsMissing) {
    platform.failEveryCall("open", EACCES);
    EXPECT_EQ(run(), 77);
    EXPECT_EQ(err, "ombrel: " + platform.real(kEventFile) + " cannot be read: Permission denied; root can\n");
    platform.failEveryCall("open", EIO);
    EXPECT_EQ(run(), 66);
    EXPECT_EQ(err, "ombrel: " + platform.real(kEventFile) + " cannot be read: Input/output error\n");
}

TEST_F(EventsCommand, ShowsWhatStrangersPutThereInASafeWay) {
    write(R"({"time":"2024-03-09T11:00:00Z","event":"a\u001b[2Jb","text":"x\u001b[31m\n\ty","reason":"\u0007"})"
          "\n");
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(out, "2024-03-09 11:00:00\ta\\x1b[2Jb\tx\\x1b[31m\\x0a\\x09y reason=\\x07\n");
    EXPECT_EQ(runOnTerminal("events", 80, 24, true).out.find("\x1b[2J"), std::string::npos);
    EXPECT_EQ(run({"--json"}), 0);
    EXPECT_EQ(out,
              R"({"time":"2024-03-09T11:00:00+00:00","event":"a\u001b[2Jb","text":"x\u001b[31m\u000a\u0009y",)"
              R"("failure":false,"reason":"\u0007"})"
              "\n");
}

TEST_F(EventsCommand, FollowsWithTheSameWishes) {
    fakeStatusMachine().followed = {
        R"({"time":"2024-03-09T12:00:00Z","event":"archive_failed","text":"x"})", "junk",
        R"({"time":"2024-03-09T12:00:01Z","event":"archive_finished","text":"y"})", "junk"};
    EXPECT_EQ(run({"-f", "--failures", "-n", "1"}), 0);
    EXPECT_EQ(out,
              "2024-03-09 11:00:00\tjob_died\tpkg-Ombrel-bsd exit_code=78\n"
              "2024-03-09 12:00:00\tarchive_failed\tx\n");
    EXPECT_EQ(err, "ombrel: damaged lines in " + platform.real(kEventFile) + " are passed over\n");
    fakeStatusMachine().followError = EACCES;
    EXPECT_EQ(run({"-f"}), 77);
}

TEST_F(EventsCommand, RefusesWrongWords) {
    EXPECT_EQ(run({"--since", "junk"}), 64);
    EXPECT_EQ(err.substr(0, 37), "ombrel: --since \"junk\": expected a ti");
    EXPECT_EQ(run({"-n", "0"}), 64);
    EXPECT_EQ(run({"more"}), 64);
    EXPECT_EQ(out, "");
}

}  // namespace

}  // namespace ombrel::test::cmd_events
