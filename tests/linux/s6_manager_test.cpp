// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Jobs under a real supervisor: those that come up, those that do not, and what is left behind.
#include "linux/veskserviceconf/s6_manager.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <thread>

#include "linux/common/error_record.h"
#include "tests/linux/real_jobs.h"

namespace fs = std::filesystem;
using namespace ombrel;
using contract::JobKind;

namespace {

class S6Jobs : public ::testing::Test {
protected:
    void SetUp() override {
        std::string name = (fs::temp_directory_path() / "ombrel-s6-XXXXXX").string();
        ASSERT_NE(::mkdtemp(name.data()), nullptr);
        folder = name;
        try {
            supervisor = std::make_unique<test::Supervisor>(folder + "/scan");
        } catch (const std::runtime_error& error) {
            GTEST_SKIP() << error.what();
        }
    }
    void TearDown() override {
        supervisor.reset();
        std::error_code ignored;
        fs::remove_all(folder, ignored);
    }

    void make(const std::string& name, JobKind kind) {
        test::addJob(test::scriptedJob(name, kind, folder), folder + "/scan", folder + "/log");
    }
    S6Manager manager(std::chrono::milliseconds longest = std::chrono::seconds(30)) {
        return S6Manager(folder + "/scan", longest);
    }
    [[nodiscard]] bool isOff(const std::string& job) const {
        return fs::exists(folder + "/scan/" + job + "/down");
    }
    [[nodiscard]] std::string pidOf(const std::string& job) const {
        return runProgram({"/usr/bin/s6-svstat", "-o", "pid", folder + "/scan/" + job}, std::chrono::seconds(5))
            .output;
    }

    std::string folder;
    std::unique_ptr<test::Supervisor> supervisor;
};

/// Times are shown, not judged: the machine may be busy.
class Stopwatch {
public:
    ~Stopwatch() {
        const auto taken = std::chrono::steady_clock::now() - begin_;
        ::testing::Test::RecordProperty(
            "milliseconds", std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(taken).count()));
    }

private:
    std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
};

TEST_F(S6Jobs, AreReadyAfterTheirStartAndDownAfterTheirStop) {
    make("job", JobKind::kReadyAtOnce);
    S6Manager jobs = manager();
    EXPECT_FALSE(jobs.isRunning("job"));
    EXPECT_EQ(jobs.start("job"), 0);
    EXPECT_TRUE(jobs.isRunning("job"));
    EXPECT_FALSE(isOff("job"));
    EXPECT_EQ(jobs.stop("job"), 0);
    EXPECT_FALSE(jobs.isRunning("job"));
    EXPECT_TRUE(isOff("job"));
}

TEST_F(S6Jobs, StayAsTheyAreWhenAskedTwice) {
    make("job", JobKind::kReadyAtOnce);
    S6Manager jobs = manager();
    EXPECT_EQ(jobs.stop("job"), 0);
    ASSERT_EQ(jobs.start("job"), 0);
    const std::string pid = pidOf("job");
    EXPECT_EQ(jobs.start("job"), 0);
    EXPECT_EQ(pidOf("job"), pid);
    EXPECT_EQ(jobs.stop("job"), 0);
    EXPECT_EQ(jobs.stop("job"), 0);
}

TEST_F(S6Jobs, AreOthersAfterARestart) {
    make("job", JobKind::kReadyAtOnce);
    S6Manager jobs = manager();
    ASSERT_EQ(jobs.start("job"), 0);
    for (int round = 0; round < 3; ++round) {
        const std::string pid = pidOf("job");
        const Stopwatch stopwatch;
        ASSERT_EQ(jobs.restart("job"), 0);
        EXPECT_TRUE(jobs.isRunning("job"));
        EXPECT_NE(pidOf("job"), pid);
    }
}

TEST_F(S6Jobs, ThatAreStoppedAreStartedByARestart) {
    make("job", JobKind::kReadyAtOnce);
    S6Manager jobs = manager();
    EXPECT_EQ(jobs.restart("job"), 0);
    EXPECT_TRUE(jobs.isRunning("job"));
    EXPECT_FALSE(isOff("job"));
}

/// A job that was killed and whose finish script is still at work.
class S6JobsThatHaveJustEnded : public S6Jobs {
protected:
    void SetUp() override {
        S6Jobs::SetUp();
        if (IsSkipped()) return;
        make("job", JobKind::kReadyAtOnce);
        ASSERT_EQ(manager().start("job"), 0);
        for (const char* const fifo : {"/reached", "/goOn"})
            ASSERT_EQ(::mkfifo((folder + fifo).c_str(), 0600), 0);
        const std::string finish = folder + "/scan/job/finish";
        std::ofstream(finish) << "#!/bin/sh\necho >" << folder << "/reached\nread -r _ <" << folder << "/goOn\n";
        ASSERT_EQ(::chmod(finish.c_str(), 0755), 0);
        ASSERT_EQ(::kill(std::stoi(pidOf("job")), SIGKILL), 0);
        std::ifstream reached(folder + "/reached");
        std::string line;
        std::getline(reached, line);
        // The manager has to find it at work.
        release_ = std::thread([this] {
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
            std::ofstream(folder + "/goOn") << "\n";
        });
    }
    void TearDown() override {
        if (release_.joinable()) release_.join();
        std::error_code ignored;
        fs::remove(folder + "/scan/job/finish", ignored);  // nobody would release the next one
        S6Jobs::TearDown();
    }

private:
    std::thread release_;
};

TEST_F(S6JobsThatHaveJustEnded, AreReadyAfterARestart) {
    S6Manager jobs = manager();
    EXPECT_EQ(jobs.restart("job"), 0);
    EXPECT_TRUE(jobs.isRunning("job"));
    EXPECT_FALSE(isOff("job"));
}

TEST_F(S6JobsThatHaveJustEnded, AreReadyAfterAStart) {
    S6Manager jobs = manager();
    EXPECT_EQ(jobs.start("job"), 0);
    EXPECT_TRUE(jobs.isRunning("job"));
    EXPECT_FALSE(isOff("job"));
}

TEST_F(S6Jobs, ThatExitAtOnceFailWithoutTheLongWaitAndStayOff) {
    make("job", JobKind::kExitsAtOnce);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(manager(std::chrono::seconds(60)).start("job"), -1);
    EXPECT_EQ(VLIBCErrGet(), kErrorProgramFailed);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(30));
    EXPECT_TRUE(isOff("job"));
    EXPECT_EQ(pidOf("job"), "-1\n");
}

TEST_F(S6Jobs, ThatNeverGetReadyFailInTimeAndStayOff) {
    make("job", JobKind::kNeverReady);
    const Stopwatch stopwatch;
    EXPECT_EQ(manager(std::chrono::milliseconds(500)).start("job"), -1);
    EXPECT_EQ(VLIBCErrGet(), kErrorTimeout);
    EXPECT_FALSE(manager().isRunning("job"));
    EXPECT_TRUE(isOff("job"));
    EXPECT_EQ(pidOf("job"), "-1\n");
}

TEST_F(S6Jobs, ThatIgnoreTheSignalAreKilledByStopAndByRestart) {
    make("job", JobKind::kIgnoresSigterm);
    S6Manager jobs = manager();
    ASSERT_EQ(jobs.start("job"), 0);
    const std::string pid = pidOf("job");
    EXPECT_EQ(jobs.restart("job"), 0);
    EXPECT_NE(pidOf("job"), pid);
    EXPECT_TRUE(jobs.isRunning("job"));
    EXPECT_EQ(jobs.stop("job"), 0);
    EXPECT_EQ(pidOf("job"), "-1\n");
}

TEST_F(S6Jobs, ThatCannotComeUpAgainStayWantedAfterAFailedRestart) {
    make("job", JobKind::kReadyAtOnce);
    S6Manager jobs = manager();
    ASSERT_EQ(jobs.start("job"), 0);
    std::ofstream(folder + "/job.sh") << "#!/bin/sh\nexit 1\n";
    EXPECT_EQ(jobs.restart("job"), -1);
    EXPECT_EQ(VLIBCErrGet(), kErrorProgramFailed);
    EXPECT_FALSE(jobs.isRunning("job"));
    EXPECT_FALSE(isOff("job"));
}

TEST_F(S6Jobs, AreBackAfterTheyWereKilled) {
    make("job", JobKind::kReadyAtOnce);
    S6Manager jobs = manager();
    ASSERT_EQ(jobs.start("job"), 0);
    const std::string pid = pidOf("job");
    const ProgramResult back = runProgram({"/usr/bin/s6-ftrig-listen1", "-t", "10000", folder + "/scan/job/event",
                                           "d.*U", "/bin/kill", "-KILL", pid.substr(0, pid.size() - 1)},
                                          std::chrono::seconds(20));
    EXPECT_EQ(back.exitCode, 0) << back.errors;
    EXPECT_TRUE(jobs.isRunning("job"));
    EXPECT_NE(pidOf("job"), pid);
}

TEST_F(S6Jobs, StayOnOrOffWhenTheSupervisorComesBack) {
    make("on", JobKind::kReadyAtOnce);
    make("off", JobKind::kReadyAtOnce);
    ASSERT_EQ(manager().start("on"), 0);
    ASSERT_EQ(manager().start("off"), 0);
    ASSERT_EQ(manager().stop("off"), 0);
    supervisor.reset();
    EXPECT_FALSE(manager().isRunning("on"));
    supervisor = std::make_unique<test::Supervisor>(folder + "/scan");
    const ProgramResult up =
        runProgram({"/usr/bin/s6-svwait", "-U", "-t", "10000", folder + "/scan/on"}, std::chrono::seconds(20));
    EXPECT_EQ(up.exitCode, 0) << up.errors;
    EXPECT_TRUE(manager().isRunning("on"));
    EXPECT_FALSE(manager().isRunning("off"));
}

TEST_F(S6Jobs, GetTheReloadSignalOnlyWhenTheyAreReady) {
    make("job", JobKind::kReadyAtOnce);
    ASSERT_EQ(::mkfifo((folder + "/events").c_str(), 0600), 0);
    const Fd events(::open((folder + "/events").c_str(), O_RDWR | O_CLOEXEC));
    S6Manager jobs = manager();
    EXPECT_EQ(jobs.reload("job"), -1);
    EXPECT_EQ(VLIBCErrGet(), fromErrno(ESRCH));
    ASSERT_EQ(jobs.start("job"), 0);
    const std::string pid = pidOf("job");
    EXPECT_EQ(jobs.reload("job"), 0);
    pollfd wait{events.get(), POLLIN, 0};
    EXPECT_EQ(::poll(&wait, 1, 10000), 1) << "no reload reached the job";
    EXPECT_EQ(pidOf("job"), pid);
}

TEST_F(S6Jobs, WithoutAReloadSignalCannotBeReloaded) {
    JobDefinition job = test::scriptedJob("job", JobKind::kReadyAtOnce, folder);
    job.reloadSignal.clear();
    test::addJob(job, folder + "/scan", folder + "/log");
    ASSERT_EQ(manager().start("job"), 0);
    EXPECT_EQ(manager().reload("job"), -1);
    EXPECT_EQ(VLIBCErrGet(), fromErrno(EOPNOTSUPP));
    EXPECT_TRUE(manager().isRunning("job"));
}

TEST_F(S6Jobs, AreEndedByTheSignalOfTheirDefinition) {
    JobDefinition job = test::scriptedJob("job", JobKind::kReadyAtOnce, folder);
    job.stopSignal = "QUIT";
    job.stopTimeoutSeconds = 25;
    std::ofstream(folder + "/job.sh") << "#!/bin/sh\ntrap '' TERM\ntrap 'kill -KILL $!; touch \"" << folder
                                      << "/quit\"; exit' QUIT\necho >&3; exec 3>&-\nsleep 1000 & wait\n";
    test::addJob(job, folder + "/scan", folder + "/log");
    ASSERT_EQ(manager().start("job"), 0);
    EXPECT_EQ(manager(std::chrono::seconds(20)).stop("job"), 0);
    EXPECT_TRUE(fs::exists(folder + "/quit"));
}

TEST_F(S6Jobs, KeepWhatTheyPrint) {
    JobDefinition job = test::scriptedJob("job", JobKind::kReadyAtOnce, folder);
    std::ofstream(folder + "/job.sh") << "#!/bin/sh\necho to stdout; echo to stderr >&2\necho >&3; exec 3>&-\n"
                                         "exec sleep 1000\n";
    test::addJob(job, folder + "/scan", folder + "/log");
    ASSERT_EQ(manager().start("job"), 0);
    ASSERT_EQ(manager().stop("job"), 0);
    supervisor.reset();  // which ends the logger, after it has written everything
    std::ifstream log(folder + "/log/job/current");
    const std::string text(std::istreambuf_iterator<char>(log), {});
    EXPECT_NE(text.find("to stdout\n"), std::string::npos) << text;
    EXPECT_NE(text.find("to stderr\n"), std::string::npos) << text;
}

TEST_F(S6Jobs, ThatAreUnknownCannotBeDealtWith) {
    S6Manager jobs = manager();
    EXPECT_EQ(jobs.start("nobody"), -1);
    EXPECT_EQ(VLIBCErrGet(), kErrorNotFound);
    EXPECT_EQ(jobs.stop("nobody"), -1);
    EXPECT_EQ(VLIBCErrGet(), kErrorNotFound);
    EXPECT_EQ(jobs.restart("nobody"), -1);
    EXPECT_EQ(jobs.reload("nobody"), -1);
    EXPECT_FALSE(jobs.isRunning("nobody"));
}

TEST_F(S6Jobs, WithoutASupervisorAreStoppedAndCannotBeStarted) {
    make("job", JobKind::kReadyAtOnce);
    supervisor.reset();
    S6Manager jobs = manager();
    EXPECT_EQ(jobs.start("job"), -1);
    EXPECT_EQ(VLIBCErrGet(), fromErrno(ECONNREFUSED));
    EXPECT_TRUE(isOff("job"));
    EXPECT_EQ(jobs.restart("job"), -1);
    EXPECT_EQ(jobs.stop("job"), 0);
    EXPECT_FALSE(jobs.isRunning("job"));
}

TEST_F(S6Jobs, KeepTheirStateWhenTheirFolderIsRenewed) {
    make("job", JobKind::kReadyAtOnce);
    ASSERT_EQ(manager().start("job"), 0);
    JobDefinition job = test::scriptedJob("job", JobKind::kReadyAtOnce, folder);
    job.reloadSignal.clear();
    test::makeServiceFolder(job, folder + "/scan", folder + "/log");
    EXPECT_TRUE(manager().isRunning("job"));
    EXPECT_FALSE(isOff("job"));
    EXPECT_EQ(manager().reload("job"), -1);
    ASSERT_EQ(manager().stop("job"), 0);
    test::makeServiceFolder(job, folder + "/scan", folder + "/log");
    EXPECT_TRUE(isOff("job"));
}

TEST(JobName, IsNoPath) {
    for (const char* good : {"pkg-Ombrel-syslog", "a", "x.y_z-1"})
        EXPECT_TRUE(isJobName(good)) << good;
    for (const char* bad : {"", ".", "..", "../x", "a/b", "a b", ".hidden", "a\n", "\u00e4", "a;b"})
        EXPECT_FALSE(isJobName(bad)) << bad;
    EXPECT_FALSE(isJobName(nullptr));
    EXPECT_TRUE(isJobName(std::string(200, 'x').c_str()));
    EXPECT_FALSE(isJobName(std::string(201, 'x').c_str()));
}

}  // namespace
