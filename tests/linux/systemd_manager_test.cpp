// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What is asked of systemd, in which order, and what comes of its answers.
#include "linux/veskserviceconf/systemd_manager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>

#include "linux/common/error_record.h"
#include "tests/linux/fake_systemd.h"

using namespace ombrel;
using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class Systemd : public ::testing::Test {
protected:
    void SetUp() override {
        try {
            bus = std::make_unique<test::MessageBus>();
        } catch (const test::NoMessageBus& error) {
            GTEST_SKIP() << error.what();
        }
        fake = std::make_unique<test::FakeSystemd>(*bus);
        fake->units["job.service"] = {};
    }
    [[nodiscard]] SystemdManager manager(milliseconds longest = std::chrono::seconds(30)) const {
        return SystemdManager(bus->address(), longest);
    }
    test::FakeUnit& unit() { return fake->units["job.service"]; }
    std::vector<std::string> calls() { return fake->takeCalls(); }

    std::unique_ptr<test::MessageBus> bus;
    std::unique_ptr<test::FakeSystemd> fake;
};

TEST_F(Systemd, EnablesAndStartsAJob) {
    EXPECT_EQ(manager().start("job"), 0);
    EXPECT_THAT(calls(), ElementsAre("EnableUnitFiles job.service", "StartUnit job.service"));
    EXPECT_TRUE(manager().isRunning("job"));
}

TEST_F(Systemd, IsHeardWhenTheJobEndsBeforeTheCallReturns) {
    fake->endsBeforeAnswer = true;
    EXPECT_EQ(manager().start("job"), 0);
    EXPECT_EQ(manager().restart("job"), 0);
    EXPECT_EQ(manager().stop("job"), 0);
}

TEST_F(Systemd, EnablesARunningJobAndStartsItNotAgain) {
    for (const char* state : {"active", "reloading"}) {
        unit().activeState = state;
        EXPECT_EQ(manager().start("job"), 0);
        EXPECT_THAT(calls(), ElementsAre("EnableUnitFiles job.service"));
    }
}

TEST_F(Systemd, DisablesAndStopsAJob) {
    unit().activeState = "active";
    EXPECT_EQ(manager().stop("job"), 0);
    EXPECT_THAT(calls(), ElementsAre("DisableUnitFiles job.service", "StopUnit job.service"));
    EXPECT_FALSE(manager().isRunning("job"));
    EXPECT_EQ(manager().stop("job"), 0);
}

/// What does something once and ends is switched by its timer.
class SystemdTimer : public Systemd {
protected:
    void SetUp() override {
        Systemd::SetUp();
        if (fake == nullptr) return;
        unit().serviceType = "oneshot";
        fake->units["job.timer"] = {};
    }
};

TEST_F(SystemdTimer, IsEnabledAndStartedInPlaceOfItsService) {
    EXPECT_EQ(manager().start("job"), 0);
    EXPECT_THAT(calls(), ElementsAre("EnableUnitFiles job.timer", "StartUnit job.timer"));
    EXPECT_TRUE(manager().isRunning("job"));
    EXPECT_EQ(manager().restart("job"), 0);
    EXPECT_THAT(calls(), ElementsAre("EnableUnitFiles job.timer", "RestartUnit job.timer"));
    unit().activeState = "activating";
    EXPECT_EQ(manager().stop("job"), 0);
    EXPECT_THAT(calls(), ElementsAre("DisableUnitFiles job.timer", "StopUnit job.timer", "StopUnit job.service"));
    EXPECT_FALSE(manager().isRunning("job"));
}

TEST_F(SystemdTimer, ThatIsMissingOrCannotBeReloadedIsSaid) {
    fake->units["job.timer"].canReload = false;
    EXPECT_EQ(manager().reload("job"), -1);
    EXPECT_EQ(VLIBCErrGet(), fromErrno(EOPNOTSUPP));
    fake->units["job.timer"].stopResult = "timeout";
    EXPECT_EQ(manager().stop("job"), -1);
    EXPECT_EQ(VLIBCErrGet(), kErrorTimeout);
    fake->units.erase("job.timer");
    EXPECT_EQ(manager().start("job"), -1);
    EXPECT_EQ(VLIBCErrGet(), kErrorNotFound);
}

TEST_F(Systemd, KeepsAJobOffThatCouldNotBeStarted) {
    unit().jobResult = "failed";
    unit().serviceResult = "exit-code";
    unit().stateAfter = "activating";
    EXPECT_EQ(manager().start("job"), -1);
    EXPECT_EQ(VLIBCErrGet(), kErrorProgramFailed);
    EXPECT_THAT(calls(),
                ElementsAre("EnableUnitFiles job.service", "StartUnit job.service", "DisableUnitFiles job.service",
                            "StopUnit job.service", "ResetFailedUnit job.service"));
}

TEST_F(Systemd, SaysWhenAJobWasNotReadyInTime) {
    unit().jobResult = "failed";
    unit().serviceResult = "timeout";
    unit().stateAfter = "failed";
    EXPECT_EQ(manager().start("job"), -1);
    EXPECT_EQ(VLIBCErrGet(), kErrorTimeout);
    unit().jobResult = "timeout";
    unit().serviceResult = "success";
    EXPECT_EQ(manager().start("job"), -1);
    EXPECT_EQ(VLIBCErrGet(), kErrorTimeout);
}

TEST_F(Systemd, IsNotWaitedForBeyondTheBound) {
    unit().jobResult = "";
    EXPECT_EQ(manager(milliseconds(300)).start("job"), -1);
    EXPECT_EQ(VLIBCErrGet(), kErrorTimeout);
    EXPECT_THAT(calls(),
                ElementsAre("EnableUnitFiles job.service", "StartUnit job.service", "DisableUnitFiles job.service",
                            "StopUnit job.service", "ResetFailedUnit job.service"));
}

TEST_F(Systemd, MayCallAStartDoneThatNothingCameOf) {
    unit().stateAfter = "inactive";
    EXPECT_EQ(manager().start("job"), -1);
    EXPECT_EQ(VLIBCErrGet(), kErrorProgramFailed);
}

TEST_F(Systemd, StartsNothingThatItCannotEnable) {
    fake->errors["EnableUnitFiles"] = "org.freedesktop.DBus.Error.AccessDenied";
    EXPECT_EQ(manager().start("job"), -1);
    EXPECT_EQ(VLIBCErrGet(), fromErrno(EACCES));
    EXPECT_THAT(calls(), ElementsAre("EnableUnitFiles job.service"));
}

TEST_F(Systemd, StopsAJobThatItCannotDisableAndSaysSo) {
    unit().activeState = "active";
    fake->errors["DisableUnitFiles"] = "org.freedesktop.DBus.Error.AccessDenied";
    EXPECT_EQ(manager().stop("job"), -1);
    EXPECT_EQ(VLIBCErrGet(), fromErrno(EACCES));
    EXPECT_EQ(unit().activeState, "inactive");
}

TEST_F(Systemd, TellsOfAStopThatSomebodyElseCanceled) {
    unit().stopResult = "canceled";
    EXPECT_EQ(manager().stop("job"), -1);
    EXPECT_EQ(VLIBCErrGet(), fromErrno(ECANCELED));
}

TEST_F(Systemd, StartsAStoppedJobThatIsToBeRestarted) {
    for (const char* state : {"inactive", "failed"}) {
        unit().activeState = state;
        EXPECT_EQ(manager().restart("job"), 0);
        EXPECT_THAT(calls(), ElementsAre("EnableUnitFiles job.service", "StartUnit job.service"));
    }
}

TEST_F(Systemd, LeavesAJobWantedAfterAFailedRestart) {
    unit().activeState = "active";
    unit().jobResult = "failed";
    unit().stateAfter = "activating";
    EXPECT_EQ(manager().restart("job"), -1);
    EXPECT_EQ(VLIBCErrGet(), kErrorProgramFailed);
    EXPECT_THAT(calls(), ElementsAre("EnableUnitFiles job.service", "RestartUnit job.service"));
}

TEST_F(Systemd, ReloadsWhatRunsAndCanBeReloaded) {
    EXPECT_EQ(manager().reload("job"), -1);
    EXPECT_EQ(VLIBCErrGet(), fromErrno(ESRCH));
    unit().activeState = "activating";
    EXPECT_EQ(manager().reload("job"), -1);
    EXPECT_EQ(VLIBCErrGet(), fromErrno(ESRCH));
    EXPECT_THAT(calls(), IsEmpty());
    unit().activeState = "active";
    EXPECT_EQ(manager().reload("job"), 0);
    EXPECT_THAT(calls(), ElementsAre("ReloadUnit job.service"));
    unit().jobResult = "failed";
    EXPECT_EQ(manager().reload("job"), -1);
    EXPECT_EQ(VLIBCErrGet(), kErrorProgramFailed);
    unit().canReload = false;
    EXPECT_EQ(manager().reload("job"), -1);
    EXPECT_EQ(VLIBCErrGet(), fromErrno(EOPNOTSUPP));
}

TEST_F(Systemd, RunsAJobOnlyOnceItIsReady) {
    for (const char* state : {"activating", "deactivating", "inactive", "failed"}) {
        unit().activeState = state;
        EXPECT_FALSE(manager().isRunning("job")) << state;
    }
}

TEST_F(Systemd, ReadsTheUnitFilesAgain) {
    EXPECT_EQ(manager().reloadDefinitions(), 0);
    EXPECT_THAT(calls(), ElementsAre("Reload"));
}

struct LoadCase {
    const char* name;
    const char* state;
    int code;
};
void PrintTo(const LoadCase& one, std::ostream* out) {
    *out << one.state;
}
class SystemdUnit : public Systemd, public ::testing::WithParamInterface<LoadCase> {};

TEST_P(SystemdUnit, ThatCannotBeUsedIsNotTouched) {
    unit().loadState = GetParam().state;
    unit().activeState = "active";
    SystemdManager jobs = manager();
    for (const int result : {jobs.start("job"), jobs.stop("job"), jobs.restart("job"), jobs.reload("job")})
        EXPECT_EQ(result, -1);
    VLIBCErrSetEx(0, "", 0);
    EXPECT_FALSE(jobs.isRunning("job"));
    EXPECT_EQ(VLIBCErrGet(), GetParam().code);
    EXPECT_THAT(calls(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(LoadStates, SystemdUnit,
                         ::testing::Values(LoadCase{"Unknown", "not-found", kErrorNotFound},
                                           LoadCase{"Masked", "masked", fromErrno(EPERM)},
                                           LoadCase{"Bad", "bad-setting", kErrorProgramFailed},
                                           LoadCase{"Unreadable", "error", kErrorProgramFailed}),
                         [](const auto& one) { return std::string(one.param.name); });

struct ErrorCase {
    const char* name;
    const char* error;
    int code;
};
void PrintTo(const ErrorCase& one, std::ostream* out) {
    *out << one.error;
}
class SystemdError : public Systemd, public ::testing::WithParamInterface<ErrorCase> {};

TEST_P(SystemdError, GetsItsCode) {
    unit().activeState = "active";
    fake->errors["RestartUnit"] = GetParam().error;
    EXPECT_EQ(manager().restart("job"), -1);
    EXPECT_EQ(VLIBCErrGet(), GetParam().code);
}

INSTANTIATE_TEST_SUITE_P(
    Names, SystemdError,
    ::testing::Values(ErrorCase{"NoSuchUnit", "org.freedesktop.systemd1.NoSuchUnit", kErrorNotFound},
                      ErrorCase{"Masked", "org.freedesktop.systemd1.UnitMasked", fromErrno(EPERM)},
                      ErrorCase{"BadSetting", "org.freedesktop.systemd1.BadUnitSetting", kErrorProgramFailed},
                      ErrorCase{"LoadFailed", "org.freedesktop.systemd1.LoadFailed", kErrorProgramFailed},
                      ErrorCase{"NoRight", "org.freedesktop.DBus.Error.AccessDenied", fromErrno(EACCES)},
                      ErrorCase{"NoReply", "org.freedesktop.DBus.Error.NoReply", kErrorTimeout},
                      ErrorCase{"NoMemory", "org.freedesktop.DBus.Error.NoMemory", kErrorOutOfMemory},
                      ErrorCase{"Errno", "System.Error.EROFS", fromErrno(EROFS)},
                      ErrorCase{"Strange", "com.example.Strange", fromErrno(EIO)}),
    [](const auto& one) { return std::string(one.param.name); });

TEST_F(Systemd, ThatEndsItsBusEndsTheWait) {
    fake->busEndsAt = "StartUnit";
    EXPECT_EQ(manager().start("job"), -1);
    EXPECT_THAT(VLIBCErrGet(), ::testing::AnyOf(fromErrno(ECONNRESET), fromErrno(ENOTCONN), fromErrno(EPIPE)));
}

TEST_F(Systemd, ThatIsNotOnTheBusCannotBeAsked) {
    fake.reset();
    EXPECT_EQ(manager().start("job"), -1);
    EXPECT_EQ(VLIBCErrGet(), fromErrno(EHOSTUNREACH));
    EXPECT_FALSE(manager().isRunning("job"));
}

TEST_F(Systemd, WithoutABusCannotBeAsked) {
    SystemdManager nowhere("unix:path=/nonexistent/socket");
    EXPECT_EQ(nowhere.start("job"), -1);
    EXPECT_EQ(VLIBCErrGet(), fromErrno(ENOENT));
    bus->end();
    EXPECT_EQ(manager().stop("job"), -1);
    EXPECT_EQ(VLIBCErrGet(), fromErrno(ECONNREFUSED));
    EXPECT_EQ(manager().reloadDefinitions(), -1);
}

TEST(SystemdBusThatNeverAnswers, IsNotWaitedForBeyondTheBound) {
    const test::TemporaryFolder folder;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    folder.at("s").copy(address.sun_path, sizeof address.sun_path - 1);
    const Fd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(::listen(socket.get(), 5), 0);
    SystemdManager jobs("unix:path=" + folder.at("s"), milliseconds(200));
    EXPECT_EQ(jobs.start("job"), -1);
    EXPECT_EQ(VLIBCErrGet(), kErrorTimeout);
}

}  // namespace
