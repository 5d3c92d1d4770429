// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Programs that are run: their streams, their ends, and how long they are waited for.
#include "linux/common/child_process.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>

#include "linux/common/error_record.h"

using namespace ombrel;
using namespace std::chrono_literals;

namespace {

ProgramResult shell(const std::string& script, std::chrono::milliseconds wait = 30s) {
    return runProgram({"/bin/sh", "-c", script}, wait);
}

TEST(Program, HandsOnItsStreamsAndItsExitCode) {
    const ProgramResult result = shell("echo out; echo err >&2; exit 7");
    EXPECT_EQ(result.error, 0);
    EXPECT_EQ(result.exitCode, 7);
    EXPECT_EQ(result.output, "out\n");
    EXPECT_EQ(result.errors, "err\n");
}

TEST(Program, MayFillBothStreamsBeyondAPipe) {
    const ProgramResult result = shell("head -c 1000000 /dev/zero; head -c 1000000 /dev/zero >&2");
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.output.size(), 1000000U);
    EXPECT_EQ(result.errors.size(), 1000000U);
}

TEST(Program, WithTooMuchOutputFails) {
    EXPECT_EQ(shell("head -c 20000000 /dev/zero").error, fromErrno(EFBIG));
}

TEST(Program, GetsItsArgumentsAsTheyAre) {
    EXPECT_EQ(runProgram({"/usr/bin/printf", "<%s>", "a b", "$(id)", "", "'"}, 30s).output, "<a b><$(id)><><'>");
}

TEST(Program, ThatIsMissingOrNoProgramSaysWhy) {
    EXPECT_EQ(runProgram({"/nonexistent/program"}, 30s).error, fromErrno(ENOENT));
    EXPECT_EQ(runProgram({"/etc/passwd"}, 30s).error, fromErrno(EACCES));
}

TEST(Program, ThatASignalEndsHasFailed) {
    EXPECT_EQ(shell("kill -SEGV $$").error, kErrorProgramFailed);
}

TEST(Program, ThatTakesTooLongIsKilledAndWhatItWroteIsKept) {
    const auto begin = std::chrono::steady_clock::now();
    const ProgramResult result = shell("echo started; exec sleep 1000", 300ms);
    EXPECT_EQ(result.error, kErrorTimeout);
    EXPECT_EQ(result.output, "started\n");
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 30s);
}

TEST(Program, IsNotWaitedForByItsChildrenThatHoldItsStreams) {
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(shell("setpriv --pdeathsig KILL sleep 100 & echo done").output, "done\n");
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 30s);
}

TEST(Program, KnowsNothingOfTheCallersEnvironmentAndDescriptors) {
    ASSERT_EQ(::setenv("LC_ALL", "de_DE.UTF-8", 1), 0);
    ASSERT_EQ(::setenv("OMBREL_SECRET", "x", 1), 0);
    const Fd leaky(::open("/etc/passwd", O_RDONLY));
    EXPECT_EQ(shell("echo $LC_ALL${OMBREL_SECRET-none}; ls /proc/self/fd | wc -l; cat").output, "Cnone\n4\n");
    (void)::unsetenv("LC_ALL");
    (void)::unsetenv("OMBREL_SECRET");
}

TEST(Program, StartsWithAllSignalsAtWork) {
    sigset_t blocked;
    sigset_t before;
    ::sigemptyset(&blocked);
    ::sigaddset(&blocked, SIGTERM);
    ASSERT_EQ(::sigprocmask(SIG_BLOCK, &blocked, &before), 0);
    const auto old = std::signal(SIGPIPE, SIG_IGN);
    const ProgramResult mask = shell("grep SigBlk /proc/self/status");
    const ProgramResult piped = shell("kill -PIPE $$; echo ignored");
    (void)std::signal(SIGPIPE, old);
    ASSERT_EQ(::sigprocmask(SIG_SETMASK, &before, nullptr), 0);
    EXPECT_EQ(mask.output, "SigBlk:\t0000000000000000\n");
    EXPECT_EQ(piped.error, kErrorProgramFailed);
    EXPECT_EQ(piped.output, "");
}

TEST(Program, WhoseExitCodeNobodyCanKnowHasFailed) {
    const auto old = std::signal(SIGCHLD, SIG_IGN);
    const ProgramResult result = shell("exit 0");
    (void)std::signal(SIGCHLD, old);
    EXPECT_EQ(result.error, fromErrno(ECHILD));
}

TEST(Programs, AreWaitedForUntilTheFirstEnds) {
    ChildProcess slow({"/bin/sleep", "1000"});
    ChildProcess quick({"/bin/sh", "-c", "exit 4"});
    ASSERT_TRUE(ChildProcess::awaitAny({&slow, &quick}, deadlineIn(30s)));
    EXPECT_FALSE(slow.ended());
    ASSERT_TRUE(quick.ended());
    EXPECT_EQ(quick.exitCode(), 4);
    EXPECT_FALSE(slow.await(deadlineIn(50ms)));
}

TEST(Programs, OfWhichOneCannotStartAreNotWaitedFor) {
    ChildProcess slow({"/bin/sleep", "1000"});
    ChildProcess missing({"/nonexistent/program"});
    EXPECT_TRUE(ChildProcess::awaitAny({&slow, &missing}, deadlineIn(30s)));
    EXPECT_NE(missing.error(), 0);
    EXPECT_FALSE(missing.ended());
}

}  // namespace
