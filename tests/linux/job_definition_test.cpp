// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Job definitions: what is read from them, what is refused, and the service folder and unit that come of one.
#include "linux/veskserviceconf/job_definition.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>

#include "linux/veskserviceconf/s6_service_folder.h"
#include "linux/veskserviceconf/systemd_unit.h"

using namespace ombrel;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

namespace {

constexpr const char* kNeeded = "description=\"A job\"\ncommand=\"/bin/job --fd=3\"\n";

TEST(Definition, IsReadWithAllItsKeys) {
    JobDefinition job;
    EXPECT_EQ(
        parseJobDefinition("# a comment\n\n"
                           "description=\"What it does\"\ncommand=\"/bin/job  one\ttwo\"\nuser=\"log_user\"\n"
                           "ready_fd=\"9\"\nreload_signal=\"USR1\"\nstop_signal=\"INT\"\n"
                           "stop_timeout_seconds=\"25\"\nafter=\"other\"\n",
                           job),
        "");
    EXPECT_EQ(job.description, "What it does");
    EXPECT_THAT(job.command, ElementsAre("/bin/job", "one", "two"));
    EXPECT_EQ(job.user, "log_user");
    EXPECT_EQ(job.readyFd, 9);
    EXPECT_EQ(job.reloadSignal, "USR1");
    EXPECT_EQ(job.stopSignal, "INT");
    EXPECT_EQ(job.stopTimeoutSeconds, 25);
    EXPECT_EQ(job.after, "other");
}

TEST(Definition, HasDefaults) {
    JobDefinition job;
    EXPECT_EQ(parseJobDefinition(std::string(kNeeded) + "ready_fd=\"4\"\n", job), "");
    EXPECT_EQ(job.readyFd, 4);
    EXPECT_EQ(job.user, "root");
    EXPECT_EQ(job.reloadSignal, "");
    EXPECT_EQ(job.stopSignal, "TERM");
    EXPECT_EQ(job.stopTimeoutSeconds, 10);
    EXPECT_EQ(job.everySeconds, 0);
}

struct Wrong {
    const char* name;
    const char* text;
    const char* said;
};
class WrongDefinition : public ::testing::TestWithParam<Wrong> {};

TEST_P(WrongDefinition, IsRefusedWithTheReason) {
    JobDefinition job;
    EXPECT_THAT(parseJobDefinition(GetParam().text, job), HasSubstr(GetParam().said));
}

INSTANTIATE_TEST_SUITE_P(
    Texts, WrongDefinition,
    ::testing::Values(
        Wrong{"Empty", "", "\"description\" is missing"},
        Wrong{"NoCommand", "description=\"x\"\nready_fd=\"3\"\n", "\"command\" is missing"},
        Wrong{"NoReadiness", "description=\"x\"\ncommand=\"/x\"\n", "\"ready_fd\" is missing"},
        Wrong{"CheckInsteadOfReadiness", "ready_check=\"/y\"\n", "line 1: bad key or value for \"ready_check\""},
        Wrong{"ControlInCommand", "command=\"/x\x1b[2J\"\n", "\"command\""},
        Wrong{"ControlInDescription", "description=\"a\x7f\"\n", "\"description\""},
        Wrong{"RelativeCommand", "command=\"x --y\"\n", "line 1: bad key or value for \"command\""},
        Wrong{"EmptyCommand", "command=\"\"\n", "\"command\""},
        Wrong{"UnknownKey", "description=\"x\"\n\nrestart=\"yes\"\n", "line 3: bad key or value for \"restart\""},
        Wrong{"TwiceTheSameKey", "command=\"/x\"\ncommand=\"/y\"\n", "line 2: \"command\" stands twice"},
        Wrong{"Junk", "description=\"x\"\nhello\n", "line 2: not of the form"},
        Wrong{"StandardOutputAsReadyFd", "ready_fd=\"1\"\n", "\"ready_fd\""},
        Wrong{"ReadyFdWithJunk", "ready_fd=\"3x\"\n", "\"ready_fd\""},
        Wrong{"UnknownSignal", "reload_signal=\"KILL\"\n", "\"reload_signal\""},
        Wrong{"StopLongerThanAnyoneWaits", "stop_timeout_seconds=\"26\"\n", "\"stop_timeout_seconds\""},
        Wrong{"UserWithBlanks", "user=\"a b\"\n", "\"user\""},
        Wrong{"NeverAgain", "every_seconds=\"0\"\n", "\"every_seconds\""},
        Wrong{"AfterAPath", "after=\"../x\"\n", "\"after\""}),
    [](const auto& one) { return std::string(one.param.name); });

JobDefinition job(const char* name, const char* after) {
    JobDefinition result;
    result.name = name;
    result.after = after;
    return result;
}

std::vector<std::string> namesOf(const std::vector<JobDefinition>& jobs) {
    std::vector<std::string> names;
    for (const JobDefinition& one : jobs)
        names.push_back(one.name);
    return names;
}

TEST(Order, PutsEachJobBehindTheOneItNames) {
    std::vector<JobDefinition> jobs{job("a", "c"), job("b", ""), job("c", "d"), job("d", "")};
    EXPECT_TRUE(orderJobs(jobs));
    EXPECT_THAT(namesOf(jobs), ElementsAre("b", "d", "c", "a"));
}

TEST(Order, IsImpossibleInACircleOrBehindAMissingJob) {
    std::vector<JobDefinition> circle{job("a", "b"), job("b", "a")};
    EXPECT_FALSE(orderJobs(circle));
    std::vector<JobDefinition> self{job("a", "a")};
    EXPECT_FALSE(orderJobs(self));
    std::vector<JobDefinition> missing{job("a", "z"), job("b", "")};
    EXPECT_FALSE(orderJobs(missing));
}

std::string textOf(const std::vector<ServiceFile>& files, const std::string& name) {
    const auto found =
        std::find_if(files.begin(), files.end(), [&](const auto& file) { return file.name == name; });
    return found == files.end() ? "<no such file>" : found->text;
}

TEST(ServiceFolder, RunsTheCommandWordByWord) {
    JobDefinition odd = job("odd", "");
    odd.command = {"/bin/job", "it's", "$(reboot)", "`x`"};
    odd.readyFd = 4;
    odd.user = "logger";
    const auto files = renderServiceFolder(odd, "/logs");
    EXPECT_THAT(textOf(files, "run"),
                HasSubstr("\nexec /usr/bin/s6-setuidgid 'logger' '/bin/job' 'it'\\''s' '$(reboot)' '`x`'\n"));
    EXPECT_EQ(textOf(files, "notification-fd"), "4\n");
    EXPECT_EQ(textOf(files, "data/check"), "<no such file>");
    EXPECT_EQ(textOf(files, "data/reload-signal"), "<no such file>");
    EXPECT_EQ(textOf(files, "down"), "<no such file>");
}

TEST(ServiceFolder, HoldsHowTheJobIsReloadedStoppedAndLogged) {
    JobDefinition plain = job("plain", "");
    plain.command = {"/bin/job"};
    plain.reloadSignal = "HUP";
    const auto files = renderServiceFolder(plain, "/logs");
    EXPECT_THAT(textOf(files, "run"), HasSubstr("\nexec '/bin/job'\n"));
    EXPECT_EQ(textOf(files, "data/reload-signal"), "HUP\n");
    EXPECT_EQ(textOf(files, "down-signal"), "SIGTERM\n");
    EXPECT_EQ(textOf(files, "timeout-kill"), "10000\n");
    EXPECT_THAT(textOf(files, "log/run"), HasSubstr("'/logs/plain'"));
}

TEST(ServiceFolder, HandsOnHowTheJobEnded) {
    JobDefinition plain = job("plain", "");
    plain.command = {"/bin/job"};
    EXPECT_THAT(textOf(renderServiceFolder(plain, "/logs"), "finish"),
                HasSubstr("\n[ ! -x '/var/packages/Ombrel/target/sbin/ombrel-job-ended' ] || "
                          "'/var/packages/Ombrel/target/sbin/ombrel-job-ended' 'plain' \"$1\" \"$2\"\nexit 0\n"));
}

std::string bytesOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file) << path;
    return std::string(std::istreambuf_iterator<char>(file), {});
}

class Unit : public ::testing::TestWithParam<const char*> {};

TEST_P(Unit, IsWhatItsDefinitionSays) {
    const std::string path = OMBREL_JOB_FILES "/" + std::string(GetParam());
    JobDefinition read;
    ASSERT_EQ(parseJobDefinition(bytesOf(path + ".job"), read), "");
    read.name = GetParam();
    EXPECT_EQ(renderUnit(read, "/jobs"), bytesOf(path + ".expected"));
}

TEST(Timer, IsWhatItsDefinitionSays) {
    JobDefinition read;
    ASSERT_EQ(parseJobDefinition(bytesOf(OMBREL_JOB_FILES "/timed.job"), read), "");
    read.name = "timed";
    EXPECT_EQ(renderTimer(read, "/jobs"), bytesOf(OMBREL_JOB_FILES "/timed.timer.expected"));
    EXPECT_THAT(textOf(renderServiceFolder(read, "/logs"), "run"),
                HasSubstr("'logger' '/usr/bin/job' 'run' '--all' '--every=300' '--notify-fd=4'\n"));
}

INSTANTIATE_TEST_SUITE_P(Files, Unit, ::testing::Values("plain", "odd_words", "timed"),
                         [](const auto& one) { return std::string(one.param); });

}  // namespace
