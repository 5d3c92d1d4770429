// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Jobs under a real systemd: those that come up, those that do not, and what is left behind. To be run on a
// machine of its own that systemd has booted (scripts/systemd-root).
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <filesystem>

#include "linux/common/error_record.h"
#include "linux/veskserviceconf/job_places.h"
#include "linux/veskserviceconf/systemd_manager.h"
#include "tests/linux/child_process.h"
#include "tests/linux/real_jobs.h"

namespace fs = std::filesystem;
using namespace ombrel;
using contract::JobKind;
using std::chrono::milliseconds;
using std::chrono::seconds;
using ::testing::HasSubstr;

namespace {

class SystemdJobs : public ::testing::Test {
protected:
    void SetUp() override {
        if (std::getenv("OMBREL_PRIVATE_ROOT") == nullptr || ::sd_booted() <= 0)
            GTEST_SKIP() << "only under scripts/systemd-root";
        ASSERT_EQ(::mkfifo(folder.at("events").c_str(), 0600), 0);
        events.reset(::open(folder.at("events").c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK));
    }
    void TearDown() override {
        if (!job.name.empty()) (void)SystemdManager().stop(job.name);
    }

    /// Each test has a job of its own name, so that what systemd remembers of one is not the next one's.
    void make(JobKind kind) {
        job = test::scriptedJob(::testing::UnitTest::GetInstance()->current_test_info()->name(), kind,
                                folder.path());
        test::makeUnit(job);
    }
    void makeScript(const std::string& body) {
        make(JobKind::kReadyAtOnce);
        test::writeBytes(folder.at(job.name + ".sh"), test::kScriptHead + body);
    }
    [[nodiscard]] std::string show(const std::string& property) const {
        return run({"/usr/bin/systemctl", "show", "--value", "--property=" + property, job.name});
    }
    static std::string run(const std::vector<std::string>& words) { return runProgram(words, seconds(20)).output; }
    [[nodiscard]] bool isEnabled() const { return show("UnitFileState") == "enabled\n"; }
    /// The next line that a job writes into the fifo.
    std::string event() {
        pollfd wait{events.get(), POLLIN, 0};
        std::array<char, 200> text{};
        if (::poll(&wait, 1, 15000) != 1) return "<nothing>";
        const ssize_t got = ::read(events.get(), text.data(), text.size());
        return {text.data(), static_cast<std::size_t>(std::max<ssize_t>(got, 0))};
    }
    int start(milliseconds longest = seconds(30)) const { return SystemdManager({}, longest).start(job.name); }

    test::TemporaryFolder folder;
    Fd events;
    JobDefinition job;
    SystemdManager jobs;
};

TEST_F(SystemdJobs, AreReadyAndEnabledAfterTheirStartAndDownAndDisabledAfterTheirStop) {
    make(JobKind::kReadyAtOnce);
    EXPECT_FALSE(jobs.isRunning(job.name));
    EXPECT_FALSE(isEnabled());
    EXPECT_EQ(jobs.start(job.name), 0);
    EXPECT_TRUE(jobs.isRunning(job.name));
    EXPECT_TRUE(isEnabled());
    EXPECT_EQ(jobs.stop(job.name), 0);
    EXPECT_FALSE(jobs.isRunning(job.name));
    EXPECT_FALSE(isEnabled());
    EXPECT_EQ(show("ActiveState"), "inactive\n");
}

TEST_F(SystemdJobs, AreOthersAfterARestartAndTheSameAfterASecondStart) {
    make(JobKind::kReadyAtOnce);
    ASSERT_EQ(jobs.start(job.name), 0);
    const std::string first = show("MainPID");
    EXPECT_EQ(jobs.start(job.name), 0);
    EXPECT_EQ(show("MainPID"), first);
    EXPECT_EQ(jobs.restart(job.name), 0);
    EXPECT_NE(show("MainPID"), first);
    EXPECT_TRUE(jobs.isRunning(job.name));
}

TEST_F(SystemdJobs, ThatExitAtOnceFailWithoutTheLongWaitAndStayOff) {
    make(JobKind::kExitsAtOnce);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(start(), -1);
    EXPECT_EQ(VLIBCErrGet(), kErrorProgramFailed);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, seconds(20));
    EXPECT_FALSE(isEnabled());
    EXPECT_EQ(show("ActiveState"), "inactive\n");
}

TEST_F(SystemdJobs, ThatEndWellBeforeTheyAreReadyHaveFailedToo) {
    makeScript("exit 0\n");
    EXPECT_EQ(start(), -1);
    EXPECT_EQ(VLIBCErrGet(), kErrorProgramFailed);
    EXPECT_EQ(show("ActiveState"), "inactive\n");
}

TEST_F(SystemdJobs, ThatNeverGetReadyFailInTimeAndStayOff) {
    make(JobKind::kNeverReady);
    EXPECT_EQ(start(milliseconds(500)), -1);
    EXPECT_EQ(VLIBCErrGet(), kErrorTimeout);
    EXPECT_FALSE(isEnabled());
    EXPECT_EQ(show("ActiveState"), "inactive\n");
}

TEST_F(SystemdJobs, ThatSystemdGivesUpWaitingForWereNotReadyInTime) {
    make(JobKind::kNeverReady);
    fs::create_directory(std::string(kUnitFolder) + "/" + job.name + ".service.d");
    test::writeBytes(std::string(kUnitFolder) + "/" + job.name + ".service.d/short.conf",
                     "[Service]\nTimeoutStartSec=1\n");
    ASSERT_EQ(jobs.reloadDefinitions(), 0);
    EXPECT_EQ(start(), -1);
    EXPECT_EQ(VLIBCErrGet(), kErrorTimeout);
    EXPECT_EQ(show("ActiveState"), "inactive\n");
}

TEST_F(SystemdJobs, ThatIgnoreTheSignalAreKilledByStopAndByRestart) {
    make(JobKind::kIgnoresSigterm);
    ASSERT_EQ(start(), 0);
    const std::string first = show("MainPID");
    EXPECT_EQ(jobs.restart(job.name), 0);
    EXPECT_NE(show("MainPID"), first);
    EXPECT_EQ(jobs.stop(job.name), 0);
    EXPECT_FALSE(jobs.isRunning(job.name));
}

TEST_F(SystemdJobs, ThatCannotComeUpAgainStayWantedAfterAFailedRestart) {
    makeScript("ready\nexec sleep 1000\n");
    ASSERT_EQ(start(), 0);
    test::writeBytes(folder.at(job.name + ".sh"), "#!/bin/sh\necho tried >\"${0%/*}/events\"\nexit 1\n");
    EXPECT_EQ(jobs.restart(job.name), -1);
    EXPECT_EQ(VLIBCErrGet(), kErrorProgramFailed);
    EXPECT_FALSE(jobs.isRunning(job.name));
    EXPECT_TRUE(isEnabled());
    EXPECT_EQ(event(), "tried\n");
    EXPECT_EQ(event(), "tried\n") << "it is not tried again";
}

TEST_F(SystemdJobs, AreBackAfterTheyWereKilled) {
    makeScript("echo \"here $$\" >\"${0%/*}/events\"\nready\nexec sleep 1000\n");
    ASSERT_EQ(start(), 0);
    const std::string first = event();
    run({"/usr/bin/systemctl", "kill", "--signal=KILL", job.name});
    const std::string second = event();
    EXPECT_THAT(second, ::testing::StartsWith("here "));
    EXPECT_NE(second, first);
    EXPECT_EQ(start(), 0);
    EXPECT_TRUE(jobs.isRunning(job.name));
}

TEST_F(SystemdJobs, GetTheReloadSignalOnlyWhenTheyAreReady) {
    make(JobKind::kReadyAtOnce);
    EXPECT_EQ(jobs.reload(job.name), -1);
    EXPECT_EQ(VLIBCErrGet(), fromErrno(ESRCH));
    ASSERT_EQ(start(), 0);
    const std::string first = show("MainPID");
    EXPECT_EQ(jobs.reload(job.name), 0);
    EXPECT_EQ(event(), "reloaded\n");
    EXPECT_EQ(show("MainPID"), first);
}

TEST_F(SystemdJobs, WithoutAReloadSignalCannotBeReloaded) {
    make(JobKind::kReadyAtOnce);
    job.reloadSignal.clear();
    test::makeUnit(job);
    ASSERT_EQ(start(), 0);
    EXPECT_EQ(jobs.reload(job.name), -1);
    EXPECT_EQ(VLIBCErrGet(), fromErrno(EOPNOTSUPP));
}

TEST_F(SystemdJobs, AreEndedByTheSignalOfTheirDefinition) {
    makeScript(
        "trap '' TERM\ntrap 'echo quit >\"${0%/*}/events\"; kill $!; exit' QUIT\nready\nsleep 1000 & wait\n");
    job.stopSignal = "QUIT";
    job.stopTimeoutSeconds = 25;
    test::makeUnit(job);
    ASSERT_EQ(start(), 0);
    EXPECT_EQ(jobs.stop(job.name), 0);
    EXPECT_EQ(event(), "quit\n");
}

TEST_F(SystemdJobs, GetTheWordsOfTheirCommandAsTheyAre) {
    makeScript("printf '%s\\n' \"$@\" >\"${0%/*}/words\"\nready\nexec sleep 1000\n");
    const std::vector<std::string> odd{"%n", "$HOME", "${HOME}", "\"it's\"", "back\\slash", "\\",       ";", "a#b",
                                       "%%", "\\x41", "'",       "\xc3\xbc", "-",           "@x=\"y\"", "$$"};
    job.command.insert(job.command.end(), odd.begin(), odd.end());
    test::makeUnit(job);
    ASSERT_EQ(start(), 0);
    std::string expected;
    for (const std::string& word : odd)
        expected += word + "\n";
    EXPECT_EQ(test::readBytes(folder.at("words")), expected);
}

TEST_F(SystemdJobs, KeepWhatTheyPrintInTheJournal) {
    makeScript("echo to stdout; echo to stderr >&2\nready\nexec sleep 1000\n");
    ASSERT_EQ(start(), 0);
    run({"/usr/bin/journalctl", "--sync"});
    const std::string said = run({"/usr/bin/journalctl", "--no-pager", "--output=cat", "--unit=" + job.name});
    EXPECT_THAT(said, HasSubstr("to stdout\n"));
    EXPECT_THAT(said, HasSubstr("to stderr\n"));
}

TEST_F(SystemdJobs, ThatAreMaskedAreNotStarted) {
    make(JobKind::kReadyAtOnce);
    const std::string unit = std::string(kUnitFolder) + "/" + job.name + ".service";
    fs::remove(unit);
    fs::create_symlink("/dev/null", unit);
    ASSERT_EQ(jobs.reloadDefinitions(), 0);
    EXPECT_EQ(start(), -1);
    EXPECT_EQ(VLIBCErrGet(), fromErrno(EPERM));
}

TEST_F(SystemdJobs, ThatAreUnknownCannotBeDealtWith) {
    for (const int result :
         {jobs.start("nobody"), jobs.stop("nobody"), jobs.restart("nobody"), jobs.reload("nobody")})
        EXPECT_EQ(result, -1);
    VLIBCErrSetEx(0, "", 0);
    EXPECT_FALSE(jobs.isRunning("nobody"));
    EXPECT_EQ(VLIBCErrGet(), kErrorNotFound);
}

/// Jobs whose ends are told to a program in place of ombrel-notify, which hands them to the test.
class SystemdJobEnds : public SystemdJobs {
protected:
    void SetUp() override {
        SystemdJobs::SetUp();
        if (IsSkipped()) return;
        const fs::path notify = fs::path(kJobEnded).parent_path() / "ombrel-notify";
        fs::create_directories(notify.parent_path());
        if (fs::exists(fs::symlink_status(notify))) fs::rename(notify, notify.string() + ".real");
        test::writeBytes(notify, "#!/bin/sh\necho \"$*\" >" + folder.at("events") + "\n");
        fs::permissions(notify, fs::perms(0755));
        ASSERT_EQ(::access(kJobEnded, X_OK), 0) << "install-layout comes first";
    }
    void TearDown() override {
        SystemdJobs::TearDown();
        const std::string notify = (fs::path(kJobEnded).parent_path() / "ombrel-notify").string();
        std::error_code none;
        fs::remove(notify, none);
        fs::rename(notify + ".real", notify, none);
    }
};

TEST_F(SystemdJobEnds, BySignalOrExitCodeAreTold) {
    makeScript("ready\nexec sleep 1000\n");
    ASSERT_EQ(start(), 0);
    run({"/usr/bin/systemctl", "kill", "--signal=KILL", job.name});
    EXPECT_EQ(event(), "died " + job.name + " -1 9\n");
    test::writeBytes(folder.at(job.name + ".sh"), "#!/bin/sh\nexit 7\n");
    EXPECT_EQ(event(), "died " + job.name + " 7 0\n");
}

TEST_F(SystemdJobEnds, OnRequestAreNot) {
    makeScript("trap 'kill $!; exit 5' TERM\nready\nsleep 1000 & wait\n");
    ASSERT_EQ(start(), 0);
    EXPECT_EQ(jobs.restart(job.name), 0);
    EXPECT_EQ(jobs.stop(job.name), 0);
    EXPECT_EQ(start(), 0);
    run({"/usr/bin/systemctl", "kill", "--signal=KILL", job.name});
    EXPECT_EQ(event(), "died " + job.name + " -1 9\n") << "the first that was told";
}

}  // namespace
