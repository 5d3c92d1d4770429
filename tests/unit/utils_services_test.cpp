// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Switching the service jobs.
#include "ombrel/utils.h"
#include "src/service_jobs.h"
#include "tests/fake/platform_test.h"

namespace ombrel::test {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string kEnabledJobs = "/var/packages/Ombrel/target/service/conf/enable_services";
const std::string kJob = "pkg-Ombrel-bsd";

std::string startOf(const std::string& job) {
    return "VLIBServicectlJobStart(\"" + job + "\")";
}

std::string stopOf(const std::string& job) {
    return "VLIBServicectlJobStop(\"" + job + "\")";
}

class JobCommand : public PlatformTest {
protected:
    static int run(int command) {
        std::string job = kJob;
        return SyslogUpstartJobEnable(static_cast<__SYSLOG_SERVICE_ENABLE_CMD_tag>(command), job.data());
    }
};

TEST_F(JobCommand, StartStartsTheJobAndNothingElse) {
    EXPECT_EQ(run(SYSLOG_SERVICE_START), 0);
    EXPECT_THAT(platform.calls.lines(), ElementsAre(startOf(kJob)));
    EXPECT_EQ(platform.jobs[kJob], 1);
}

TEST_F(JobCommand, StopStopsTheJobAndNothingElse) {
    platform.jobs[kJob] = 1;
    EXPECT_EQ(run(SYSLOG_SERVICE_STOP), 0);
    EXPECT_THAT(platform.calls.lines(), ElementsAre(stopOf(kJob)));
    EXPECT_EQ(platform.jobs[kJob], 0);
}

TEST_F(JobCommand, RestartStopsTheJobAndThenStartsIt) {
    platform.jobs[kJob] = 1;
    EXPECT_EQ(run(SYSLOG_SERVICE_RESTART), 0);
    EXPECT_THAT(platform.calls.lines(), ElementsAre(stopOf(kJob), startOf(kJob)));
    EXPECT_EQ(platform.jobs[kJob], 1);
}

TEST_F(JobCommand, ReloadReloadsTheJobAndNothingElse) {
    platform.jobs[kJob] = 1;
    EXPECT_EQ(run(SYSLOG_SERVICE_RELOAD), 0);
    EXPECT_THAT(platform.calls.lines(), ElementsAre("VLIBServicectlJobReload(\"" + kJob + "\")"));
}

TEST_F(JobCommand, ARestartThatCannotStopTheJobDoesNotStartIt) {
    platform.jobs[kJob] = 1;
    platform.failCall("VLIBServicectlJobStop");
    EXPECT_EQ(run(SYSLOG_SERVICE_RESTART), -1);
    EXPECT_EQ(platform.calls.count("VLIBServicectlJobStart"), 0);
    EXPECT_EQ(platform.jobs[kJob], 1);
    EXPECT_THAT(platform.syslogLines, ElementsAre("err utils:331 fail to stop service (pkg-Ombrel-bsd)"));
}

TEST_F(JobCommand, AnyOtherCommandFailsInSilence) {
    for (const int command : {4, -1, 2147483647}) {
        EXPECT_EQ(run(command), -1) << command;
    }
    EXPECT_THAT(platform.calls.lines(), IsEmpty());
}

struct CommandFailure {
    std::string name;
    __SYSLOG_SERVICE_ENABLE_CMD_tag command;
    std::string call;
    std::string message;
};

class JobCommandFails : public PlatformTestWith<CommandFailure> {};

TEST_P(JobCommandFails, WithOneLineOfItsOwn) {
    platform.failCall(GetParam().call);
    std::string job = kJob;
    EXPECT_EQ(SyslogUpstartJobEnable(GetParam().command, job.data()), -1);
    EXPECT_THAT(platform.syslogLines, ElementsAre("err utils:" + GetParam().message));
    EXPECT_THAT(platform.events, IsEmpty());
    EXPECT_FALSE(platform.exists(kEnabledJobs));
}

INSTANTIATE_TEST_SUITE_P(
    Commands, JobCommandFails,
    ::testing::Values(CommandFailure{"Start", SYSLOG_SERVICE_START, "VLIBServicectlJobStart",
                                     "319 fail to start service (pkg-Ombrel-bsd)"},
                      CommandFailure{"Stop", SYSLOG_SERVICE_STOP, "VLIBServicectlJobStop",
                                     "325 fail to stop service (pkg-Ombrel-bsd)"},
                      CommandFailure{"RestartAtTheStop", SYSLOG_SERVICE_RESTART, "VLIBServicectlJobStop",
                                     "331 fail to stop service (pkg-Ombrel-bsd)"},
                      CommandFailure{"RestartAtTheStart", SYSLOG_SERVICE_RESTART, "VLIBServicectlJobStart",
                                     "335 fail to start service (pkg-Ombrel-bsd)"},
                      CommandFailure{"Reload", SYSLOG_SERVICE_RELOAD, "VLIBServicectlJobReload",
                                     "341 fail to restart service (pkg-Ombrel-bsd)"}),
    CaseName());

class JobSwitch : public PlatformTest {
protected:
    static int set(bool wasEnabled, bool enable) {
        return SyslogServiceEnableSet(kJob, "Log receiving (BSD)", wasEnabled, enable);
    }
    static std::string record(const std::string& value) {
        return "VLIBCFileSetKeys(\"" + kEnabledJobs + "\", {" + kJob + "=" + value + "}, 0, \"%s=\\\"%s\\\"\\n\")";
    }
    static std::string keep(const std::string& value) {
        return "VLIBCSzHashSetValue(\"" + kJob + "\", \"" + value + "\")";
    }
    void expectNothingRecorded() {
        EXPECT_FALSE(platform.exists(kEnabledJobs));
        EXPECT_THAT(platform.events, IsEmpty());
    }
};

TEST_F(JobSwitch, OnStartsTheJobRecordsItAndEntersTheEvent) {
    EXPECT_EQ(set(false, true), 0);
    EXPECT_THAT(platform.calls.lines(),
                ElementsAre("Logger()", "VLIBCSzHashAlloc(1024)", startOf(kJob), keep("yes"), record("yes"),
                            "LogAddServStart(\"Log receiving (BSD)\")", "VLIBCSzHashFree()", "~Logger()"));
    EXPECT_EQ(platform.read(kEnabledJobs), "pkg-Ombrel-bsd=\"yes\"\n");
    EXPECT_EQ(platform.jobs[kJob], 1);
}

TEST_F(JobSwitch, OffRecordsItAndEntersTheEventAndLeavesTheJobAlone) {
    platform.jobs[kJob] = 1;
    EXPECT_EQ(set(true, false), 0);
    EXPECT_THAT(platform.calls.lines(),
                ElementsAre("Logger()", "VLIBCSzHashAlloc(1024)", keep("no"), record("no"),
                            "LogAddServStop(\"Log receiving (BSD)\")", "VLIBCSzHashFree()", "~Logger()"));
    EXPECT_EQ(platform.read(kEnabledJobs), "pkg-Ombrel-bsd=\"no\"\n");
    EXPECT_EQ(platform.jobs[kJob], 1);
}

TEST_F(JobSwitch, AJobThatStaysOnIsOnlyStarted) {
    EXPECT_EQ(set(true, true), 0);
    EXPECT_THAT(platform.calls.lines(), ElementsAre("Logger()", "VLIBCSzHashAlloc(1024)", startOf(kJob),
                                                    "VLIBCSzHashFree()", "~Logger()"));
    expectNothingRecorded();
}

TEST_F(JobSwitch, AJobThatStaysOffIsNotTouched) {
    EXPECT_EQ(set(false, false), 0);
    EXPECT_THAT(platform.calls.lines(),
                ElementsAre("Logger()", "VLIBCSzHashAlloc(1024)", "VLIBCSzHashFree()", "~Logger()"));
    expectNothingRecorded();
}

TEST_F(JobSwitch, KeepsTheLinesOfOtherJobs) {
    platform.addFile(kEnabledJobs, "pkg-Ombrel-ietf=\"yes\"\npkg-Ombrel-bsd=\"no\"\n");
    EXPECT_EQ(set(false, true), 0);
    EXPECT_EQ(platform.read(kEnabledJobs), "pkg-Ombrel-ietf=\"yes\"\npkg-Ombrel-bsd=\"yes\"\n");
}

struct SwitchFailure {
    std::string name;
    bool wasEnabled;
    bool enable;
    std::string call;
    Lines messages;
    int running;  ///< afterwards; it was stopped before
};

class JobSwitchFails : public PlatformTestWith<SwitchFailure> {};

TEST_P(JobSwitchFails, RecordsNothingAndEntersNoEvent) {
    platform.failCall(GetParam().call);
    EXPECT_EQ(SyslogServiceEnableSet(kJob, "text", GetParam().wasEnabled, GetParam().enable), -1);
    EXPECT_EQ(platform.syslogLines, GetParam().messages);
    EXPECT_EQ(platform.jobs[kJob], GetParam().running);
    EXPECT_FALSE(platform.exists(kEnabledJobs));
    EXPECT_THAT(platform.events, IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Steps, JobSwitchFails,
    ::testing::Values(SwitchFailure{"NoMemory", false, true, "VLIBCSzHashAlloc", {}, 0},
                      SwitchFailure{"NoMemoryForAJobThatStaysOff", false, false, "VLIBCSzHashAlloc", {}, 0},
                      SwitchFailure{"StartAgain",
                                    true,
                                    true,
                                    "VLIBServicectlJobStart",
                                    {"err utils:367 Fail to restart service (pkg-Ombrel-bsd)"},
                                    0},
                      SwitchFailure{"StartFirst",
                                    false,
                                    true,
                                    "VLIBServicectlJobStart",
                                    {"err utils:372 Fail to restart service (pkg-Ombrel-bsd)"},
                                    0},
                      SwitchFailure{"NoRoomForTheRecordOfOn", false, true, "VLIBCSzHashSetValue", {}, 1},
                      SwitchFailure{"RecordOfOn", false, true, "VLIBCFileSetKeys", {}, 1},
                      SwitchFailure{"NoRoomForTheRecordOfOff", true, false, "VLIBCSzHashSetValue", {}, 0},
                      SwitchFailure{"RecordOfOff", true, false, "VLIBCFileSetKeys", {}, 0}),
    CaseName());

}  // namespace

}  // namespace ombrel::test
