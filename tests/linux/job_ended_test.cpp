// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// ombrel-job-ended as the service managers run it: which ends it hands on, and with which words.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "linux/common/child_process.h"
#include "linux/veskserviceconf/job_places.h"
#include "linux/veskserviceconf/s6_manager.h"
#include "tests/linux/child_process.h"
#include "tests/linux/real_jobs.h"

namespace fs = std::filesystem;
using namespace ombrel;
using contract::JobKind;

namespace {

class JobEnded : public ::testing::Test {
protected:
    void SetUp() override {
        fs::copy_file(OMBREL_JOB_ENDED, folder.at("ombrel-job-ended"));
        script("ombrel-notify", "echo \"$*\" >>\"${0%/*}/told\"; exit 3");
    }
    void script(const std::string& name, const std::string& body) const {
        test::writeBytes(folder.at(name), "#!/bin/sh\n" + body + "\n");
        fs::permissions(folder.at(name), fs::perms(0755));
    }
    /// Under systemd, with what it says of the end, and the jobs that it is busy with.
    void endUnderSystemd(const std::string& result, const std::string& code, const std::string& status,
                         const std::string& busyWith = "") const {
        script("systemctl", "echo '" + busyWith + "'");
        ended({"/usr/bin/env", "PATH=" + folder.path() + ":/usr/bin:/bin", "SERVICE_RESULT=" + result,
               "EXIT_CODE=" + code, "EXIT_STATUS=" + status, folder.at("ombrel-job-ended"), "job"});
    }
    void ended(const std::vector<std::string>& words) const {
        const ProgramResult done = runProgram(words, std::chrono::seconds(20));
        EXPECT_EQ(done.exitCode, 0) << done.errors;
        EXPECT_EQ(done.errors, "");
    }
    void endUnderS6(const std::string& code, const std::string& signal) const {
        ended({folder.at("ombrel-job-ended"), "job", code, signal});
    }
    std::string told() const { return test::readBytes(folder.at("told")); }

    static constexpr const char* kNothing = "<no such file>";
    test::TemporaryFolder folder;
};

TEST_F(JobEnded, WithExitCodeZeroIsNoNews) {
    endUnderS6("0", "0");
    endUnderSystemd("success", "exited", "0");
    EXPECT_EQ(told(), kNothing);
}

TEST_F(JobEnded, OutOfSupervisionIsNoNews) {
    endUnderS6("1", "0");
    EXPECT_EQ(told(), kNothing);
}

TEST_F(JobEnded, WithAnotherExitCodeIsToldWithIt) {
    endUnderSystemd("exit-code", "exited", "7");
    EXPECT_EQ(told(), "died job 7 0\n");
}

TEST_F(JobEnded, ByASignalIsToldWithItsNumber) {
    endUnderSystemd("signal", "killed", "KILL");
    endUnderSystemd("core-dump", "dumped", "SEGV");
    EXPECT_EQ(told(), "died job -1 9\ndied job -1 11\n");
}

TEST_F(JobEnded, ByTheSignalOfItsStopIsNoNews) {
    endUnderSystemd("success", "killed", "TERM");
    EXPECT_EQ(told(), kNothing);
}

TEST_F(JobEnded, OnRequestIsNoNewsHoweverItEnded) {
    endUnderSystemd("exit-code", "exited", "1", "12 job.service stop running");
    endUnderSystemd("timeout", "killed", "KILL", "12 job.service restart running");
    EXPECT_EQ(told(), kNothing);
}

TEST_F(JobEnded, WhileItWasStartedIsTold) {
    endUnderSystemd("exit-code", "exited", "1", "12 job.service start running");
    EXPECT_EQ(told(), "died job 1 0\n");
}

TEST_F(JobEnded, WithoutTheProgramIsNoNewsAndNoComplaint) {
    fs::remove(folder.at("ombrel-notify"));
    endUnderSystemd("exit-code", "exited", "7");
    endUnderS6("7", "0");
}

class JobEndedUnderS6 : public JobEnded {
protected:
    void SetUp() override {
        JobEnded::SetUp();
        try {
            supervisor = std::make_unique<test::Supervisor>(folder.at("scan"));
        } catch (const std::runtime_error& error) {
            GTEST_SKIP() << error.what();
        }
    }
    /// A started job whose end is handed to the copy in our folder.
    void make(JobKind kind) {
        test::addJob(test::scriptedJob("job", kind, folder.path()), folder.at("scan"), folder.at("log"));
        std::string finish = test::readBytes(folder.at("scan/job/finish"));
        const std::string installed = kJobEnded;
        for (std::size_t at; (at = finish.find(installed)) != std::string::npos;)
            finish.replace(at, installed.size(), folder.at("ombrel-job-ended"));
        test::writeBytes(folder.at("scan/job/finish"), finish);
    }
    /// Returns when the supervisor has started the job again, and so has seen its end through.
    void killAndAwaitNext(const char* signal) {
        const std::string job = folder.at("scan/job");
        const ProgramResult back =
            runProgram({"/usr/bin/s6-ftrig-listen1", "-t", "10000", job + "/event", "d.*U", "/bin/sh", "-c",
                        std::string("kill -s ") + signal + " $(s6-svstat -o pid " + job + ")"},
                       std::chrono::seconds(20));
        EXPECT_EQ(back.exitCode, 0) << back.errors;
    }
    S6Manager jobs() { return S6Manager(folder.at("scan")); }

    std::unique_ptr<test::Supervisor> supervisor;
};

TEST_F(JobEndedUnderS6, ByASignalIsToldWithItsNumber) {
    make(JobKind::kReadyAtOnce);
    ASSERT_EQ(jobs().start("job"), 0);
    killAndAwaitNext("KILL");
    EXPECT_EQ(told(), "died job -1 9\n");
}

TEST_F(JobEndedUnderS6, WithAnExitCodeIsToldWithIt) {
    make(JobKind::kExitsAtOnce);
    EXPECT_EQ(jobs().start("job"), -1);
    EXPECT_THAT(told(), ::testing::StartsWith("died job 3 0\n"));
}

TEST_F(JobEndedUnderS6, ByAStopOrARestartIsNoNews) {
    make(JobKind::kReadyAtOnce);
    ASSERT_EQ(jobs().start("job"), 0);
    EXPECT_EQ(jobs().restart("job"), 0);
    EXPECT_EQ(jobs().stop("job"), 0);
    EXPECT_EQ(told(), kNothing);
}

TEST_F(JobEndedUnderS6, BecauseTheStopHadToKillItIsNoNews) {
    make(JobKind::kIgnoresSigterm);
    ASSERT_EQ(jobs().start("job"), 0);
    EXPECT_EQ(jobs().stop("job"), 0);
    EXPECT_EQ(told(), kNothing);
}

TEST_F(JobEndedUnderS6, ByTheSignalOfItsStopIsNoNews) {
    make(JobKind::kReadyAtOnce);
    test::writeBytes(folder.at("job.sh"), "#!/bin/sh\necho >&3; exec 3>&-\nexec sleep 1000\n");
    ASSERT_EQ(jobs().start("job"), 0);
    killAndAwaitNext("TERM");
    EXPECT_EQ(told(), kNothing);
    killAndAwaitNext("HUP");
    EXPECT_EQ(told(), "died job -1 1\n");
}

}  // namespace
