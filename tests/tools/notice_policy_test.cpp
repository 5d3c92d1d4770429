// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Which notices are written, and when.
#include "tools/ombrel-notify/notice_policy.h"

#include <gmock/gmock.h>
#include <syslog.h>

#include <vector>

namespace ombrel {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

constexpr long long kQuiet = 600;

class Notices : public ::testing::Test {
protected:
    NoticePolicy::Sink sink() {
        return [this](int priority, const std::string& text) {
            lines.push_back((priority == LOG_ERR ? "err " : priority == LOG_WARNING ? "warning " : "? ") + text);
        };
    }
    std::vector<std::string> told() { return std::exchange(lines, {}); }

    void archive(const char* event, const std::string& path, long long now) {
        EventLine line;
        line.event = event;
        line.text = path;
        policy.event(line, now);
    }
    void failed(const std::string& path, long long now) { archive("archive_failed", path, now); }
    void finished(const std::string& path, long long now) { archive("archive_finished", path, now); }
    void died(const std::string& job, long long now, int exitCode = 1) {
        EventLine line;
        line.event = "job_died";
        line.job = job;
        line.exitCode = exitCode;
        policy.event(line, now);
    }

    std::vector<std::string> lines;
    NoticePolicy policy{std::chrono::seconds(kQuiet), sink()};
};

TEST_F(Notices, OfAFailedArchivingAreWrittenOnceWhileItLasts) {
    failed("/srv/logs/a.DB", 0);
    EXPECT_THAT(told(), ElementsAre("err Archiving failed: /srv/logs/a.DB; the system log says at which step"));
    failed("/srv/logs/a.DB", 100);
    failed("/srv/logs/a_1.DB", 5000);
    policy.tick(50'000);
    EXPECT_THAT(told(), IsEmpty());
}

TEST_F(Notices, OfAFailedArchivingComeAgainAfterOneThatWorked) {
    failed("/srv/logs/a.DB", 0);
    finished("/srv/other/a.DB", 10);
    failed("/srv/logs/a.DB", 20);
    policy.tick(kQuiet);
    EXPECT_EQ(told().size(), 1U);
    finished("/srv/logs/a.DB", kQuiet + 1);
    EXPECT_THAT(told(), IsEmpty());
    failed("/srv/logs/b.DB", kQuiet + 2);
    EXPECT_THAT(told(), ElementsAre(StartsWith("err Archiving failed: /srv/logs/b.DB")));
}

TEST_F(Notices, OfManyFoldersAreSummedUp) {
    for (int i = 0; i < 1000; ++i)
        failed("/srv/logs/host" + std::to_string(i) + "/a.DB", 1);
    EXPECT_THAT(told(), ElementsAre(HasSubstr("/srv/logs/host0/a.DB")));
    policy.tick(kQuiet);
    EXPECT_THAT(told(), IsEmpty());
    policy.tick(kQuiet + 1);
    EXPECT_THAT(told(), ElementsAre(StartsWith("err Archiving failed 999 more times, the last time: "
                                               "/srv/logs/host999/a.DB")));
    EXPECT_LE(policy.record().failingFolders.size(), NoticePolicy::kMostFolders);
}

TEST_F(Notices, OfAFailureWithoutAnyNameSayThat) {
    failed("", 0);
    EXPECT_THAT(told(), ElementsAre(HasSubstr("Archiving failed: no name was left for the archive")));
    failed("", 1);
    finished("/srv/logs/a.DB", kQuiet + 1);
    policy.tick(kQuiet + 1);
    failed("", kQuiet + 2);
    EXPECT_EQ(told().size(), 1U);
}

TEST_F(Notices, OfADyingJobAreWrittenAtOnceAndThenSummedUp) {
    died("pkg-Ombrel-bsd", 0, 78);
    EXPECT_THAT(told(), ElementsAre("err Job pkg-Ombrel-bsd ended by itself (exit code 78); its log says why"));
    for (long long now = 60; now < kQuiet; now += 60)
        died("pkg-Ombrel-bsd", now, 75);
    EXPECT_THAT(told(), IsEmpty());
    policy.tick(kQuiet);
    EXPECT_THAT(told(),
                ElementsAre("err Job pkg-Ombrel-bsd ended by itself (exit code 75) again, 9 more times; its "
                            "log says why"));
    policy.tick(2 * kQuiet);  // it is over
    EXPECT_THAT(told(), IsEmpty());
    died("pkg-Ombrel-bsd", 2 * kQuiet + 1);
    EXPECT_THAT(told(), ElementsAre(Not(HasSubstr("again"))));
}

TEST_F(Notices, OfDifferentJobsDoNotWaitForEachOther) {
    died("a", 0);
    died("b", 0);
    EXPECT_EQ(told().size(), 2U);
}

TEST_F(Notices, NameTheSignal) {
    EventLine line;
    line.event = "job_died";
    line.job = "a";
    line.signal = "KILL";
    policy.event(line, 0);
    EXPECT_THAT(told(), ElementsAre(HasSubstr("Job a ended by itself (signal KILL)")));
}

TEST_F(Notices, OfLostDatagramsAreSummedUpForEachPort) {
    policy.datagramsLost(514, 12, 0);
    policy.datagramsLost(5514, 1, 0);
    EXPECT_THAT(told(), ElementsAre("warning 12 datagrams to UDP port 514 were lost: the receive buffer was full",
                                    StartsWith("warning 1 datagrams to UDP port 5514")));
    policy.datagramsLost(514, 5, 10);
    policy.datagramsLost(514, 6, 20);
    policy.tick(kQuiet - 1);
    EXPECT_THAT(told(), IsEmpty());
    policy.tick(kQuiet);
    EXPECT_THAT(told(), ElementsAre(StartsWith("warning 11 more datagrams to UDP port 514")));
    policy.datagramsLost(514, 0, 2 * kQuiet);
    EXPECT_THAT(told(), IsEmpty());
}

TEST_F(Notices, HoldNothingThatATerminalWouldFollow) {
    failed("/srv/logs/\x1b[2Jhost\n\xff/a.DB", 0);
    died("job\r\x07", 0);
    const auto all = told();
    ASSERT_EQ(all.size(), 2U);
    EXPECT_THAT(all[0], HasSubstr("/srv/logs/\\x1b[2Jhost\\x0a\\xff/a.DB"));
    EXPECT_THAT(all[1], HasSubstr("job\\x0d\\x07"));
}

TEST_F(Notices, HaveABoundedLength) {
    failed("/srv/" + std::string(4000, '\x01'), 0);
    died(std::string(60'000, 'x'), 0);
    for (const std::string& line : told())
        EXPECT_LT(line.size(), 700U);
}

TEST_F(Notices, OfMoreJobsThanThereCanBeShareOneCause) {
    for (int i = 0; i < 10'000; ++i)
        died("job" + std::to_string(i), 0);
    EXPECT_LE(told().size(), NoticePolicy::kMostCauses + 1);
    EXPECT_LE(policy.record().causes.size(), NoticePolicy::kMostCauses + 1);
    policy.tick(kQuiet);
    EXPECT_THAT(told(), ElementsAre(AllOf(HasSubstr("job9999"), HasSubstr("9935 more times"))));
}

TEST_F(Notices, OfOtherEventsAreNotWritten) {
    for (const char* event :
         {"service_started", "service_stopped", "archive_finished", "archive_failed_not", "archive_removed", ""})
        archive(event, "/srv/logs/a.DB", 0);
    EXPECT_THAT(told(), IsEmpty());
}

TEST_F(Notices, GoOnAfterARestartWhereTheyWere) {
    policy.watchDestination("/srv/logs");
    policy.freeSpace(10, 100);
    failed("/srv/logs/a.DB", 0);
    died("a", 0);
    died("a", 1);
    EXPECT_EQ(told().size(), 3U);
    NoticePolicy next(std::chrono::seconds(kQuiet), sink());
    next.restore(policy.record());
    next.watchDestination("/srv/logs");
    next.freeSpace(10, 100);
    EventLine line;
    line.event = "archive_failed";
    line.text = "/srv/logs/a.DB";
    next.event(line, 2);
    next.tick(3);
    EXPECT_THAT(told(), IsEmpty());
    next.tick(kQuiet);
    EXPECT_THAT(told(), ElementsAre(HasSubstr("Job a")));
}

struct Step {
    long long free;
    long long bound;
    const char* notice;  ///< null: none
};
struct SpaceCase {
    const char* name;
    std::vector<Step> steps;
};
void PrintTo(const SpaceCase& one, std::ostream* out) {
    *out << one.name;
}

class FreeSpace : public Notices, public ::testing::WithParamInterface<SpaceCase> {};

TEST_P(FreeSpace, IsToldOnceEachWay) {
    policy.watchDestination("/srv/logs");
    for (const Step& step : GetParam().steps) {
        policy.freeSpace(step.free, step.bound);
        const auto all = told();
        const std::vector<std::string> expected(step.notice == nullptr ? 0 : 1,
                                                step.notice == nullptr ? "" : step.notice);
        EXPECT_EQ(all, expected) << step.free;
    }
}

constexpr const char* kLow99 =
    "warning Only 99 MiB are free on the volume of /srv/logs, less than the 100 MiB of notify_free_mib";

INSTANTIATE_TEST_SUITE_P(
    Steps, FreeSpace,
    ::testing::Values(
        SpaceCase{"Enough", {{1000, 100, nullptr}, {100, 100, nullptr}}},
        SpaceCase{"FallsAndStays",
                  {{100, 100, nullptr}, {99, 100, kLow99}, {50, 100, nullptr}, {0, 100, nullptr}}},
        SpaceCase{"UpAndDownAtTheBound",
                  {{99, 100, kLow99}, {100, 100, nullptr}, {109, 100, nullptr}, {99, 100, nullptr}}},
        SpaceCase{"OverAgain",
                  {{99, 100, kLow99},
                   {110, 100, "warning There is room again on the volume of /srv/logs: 110 MiB are free"},
                   {111, 100, nullptr},
                   {99, 100, kLow99}}},
        SpaceCase{"SwitchedOff", {{0, 0, nullptr}, {99, 100, kLow99}, {0, 0, nullptr}, {99, 100, kLow99}}},
        SpaceCase{"SmallestBound",
                  {{0, 1,
                    "warning Only 0 MiB are free on the volume of /srv/logs, less than "
                    "the 1 MiB of notify_free_mib"},
                   {1, 1,
                    "warning There is room again on the volume of /srv/logs: 1 MiB are "
                    "free"}}},
        SpaceCase{"LargestBound", {{1LL << 40, 1LL << 30, nullptr}}}),
    [](const auto& one) { return std::string(one.param.name); });

TEST_F(Notices, BeginAnewWithAnotherDestination) {
    policy.watchDestination("/srv/logs");
    policy.freeSpace(1, 100);
    failed("/srv/logs/a.DB", 0);
    EXPECT_EQ(told().size(), 2U);
    policy.watchDestination("/srv/other");
    policy.freeSpace(1000, 100);
    EXPECT_THAT(told(), IsEmpty());
    EXPECT_TRUE(policy.record().failingFolders.empty());
}

}  // namespace
}  // namespace ombrel
