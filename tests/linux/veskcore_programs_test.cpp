// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Programs that are run, and children that nobody waits for.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "linux/common/error_record.h"
#include "linux/common/fd.h"
#include "platform/veskcore.h"
#include "tests/linux/child_process.h"

namespace ombrel {
namespace {

using test::readBytes;
using test::runInChild;
using test::startChild;
using test::TemporaryFolder;
using test::writeBytes;

int shell(const char* script) {
    return VLIBCExec("/bin/sh", "-c", script, nullptr, nullptr);
}

struct Pipe {
    Pipe() {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0) throw std::bad_alloc();
        readEnd.reset(ends[0]);
        writeEnd.reset(ends[1]);
    }
    /// All that was written, once every writer is gone; "<timeout>" when one is not.
    std::string all() {
        writeEnd.reset();
        std::string text;
        for (;;) {
            pollfd event{readEnd.get(), POLLIN, 0};
            if (::poll(&event, 1, 10'000) <= 0) return text + "<timeout>";
            char bytes[256];
            const ssize_t count = ::read(readEnd.get(), bytes, sizeof bytes);
            if (count <= 0) return text;
            text.append(bytes, static_cast<std::size_t>(count));
        }
    }
    Fd readEnd;
    Fd writeEnd;
};

TEST(RunProgram, SucceedsWithItAndPassesTheArgumentsAsTheyAre) {
    const TemporaryFolder folder;
    const std::string from = folder.at("a; touch b");
    const std::string to = folder.at("$(c) `d` \"e\" *");
    writeBytes(from, "moved");
    EXPECT_EQ(VLIBCExec("/bin/mv", from.c_str(), to.c_str(), nullptr, nullptr), 0);
    EXPECT_EQ(readBytes(to), "moved");
    EXPECT_EQ(::access(from.c_str(), F_OK), -1);
}

TEST(RunProgram, EndsTheArgumentsAtTheFirstNull) {
    EXPECT_EQ(VLIBCExec("/usr/bin/test", "a", nullptr, "=", "b"), 0);
    EXPECT_LT(VLIBCExec("/usr/bin/test", "a", "=", "b", nullptr), 0);
    EXPECT_EQ(VLIBCExec("/bin/sh", "-c", "test \"$1\" = four", "sh", "four"), 0);
    EXPECT_EQ(VLIBCExec("/bin/true", nullptr, nullptr, nullptr, nullptr), 0);
}

TEST(RunProgram, TellsWhatWentWrong) {
    const TemporaryFolder folder;
    writeBytes(folder.at("text"), "no program");
    const std::string text = folder.at("text");
    errno = 0;
    EXPECT_LT(VLIBCExec(folder.at("none").c_str(), nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(VLIBCErrGet(), fromErrno(ENOENT));
    EXPECT_LT(VLIBCExec(text.c_str(), nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(errno, EACCES);
    ASSERT_EQ(::chmod(text.c_str(), 0755), 0);
    EXPECT_LT(VLIBCExec(text.c_str(), nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(errno, ENOEXEC);
    EXPECT_LT(shell("exit 3"), 0);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(VLIBCErrGet(), kErrorProgramFailed);
    EXPECT_LT(shell("kill -9 $$"), 0);
    EXPECT_EQ(errno, ECANCELED);
    EXPECT_LT(VLIBCExec(nullptr, nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(errno, EINVAL);
}

TEST(RunProgram, KeepsItsStandardOutputFromOursButNotItsErrors) {
    Pipe out;
    Pipe errors;
    EXPECT_EQ(runInChild([&] {
                  ::dup2(out.writeEnd.get(), STDOUT_FILENO);
                  ::dup2(errors.writeEnd.get(), STDERR_FILENO);
                  return shell("echo adding: x; echo trouble >&2") == 0 ? 0 : 1;
              }),
              0);
    EXPECT_EQ(out.all(), "");
    EXPECT_EQ(errors.all(), "trouble\n");
}

TEST(RunProgram, GivesItNothingToReadAndNoBlockedSignals) {
    EXPECT_EQ(runInChild([] {
                  sigset_t signals;
                  ::sigfillset(&signals);
                  ::sigprocmask(SIG_SETMASK, &signals, nullptr);
                  (void)::signal(SIGPIPE, SIG_IGN);
                  if (shell("read line && exit 1; exit 0") != 0) return 1;
                  if (shell("kill -TERM $$; exit 0") != -1 || errno != ECANCELED) return 2;
                  return shell("kill -PIPE $$; exit 0") == -1 && errno == ECANCELED ? 0 : 3;
              }),
              0);
}

TEST(RunProgram, FailsWhereNobodyCanKnowHowItEnded) {
    EXPECT_EQ(runInChild([] {
                  (void)::signal(SIGCHLD, SIG_IGN);
                  return shell("exit 0") < 0 && errno == ECHILD ? 0 : 1;
              }),
              0);
}

TEST(ReplaceProgram, RunsItInThisProcessOrSaysWhyNot) {
    char name[] = "sh";
    char option[] = "-c";
    char script[] = "exit 42";
    char* const arguments[] = {name, option, script, nullptr};
    EXPECT_EQ(runInChild([&] {
                  (void)VLIBCExecv("/bin/sh", arguments, 0);
                  return 1;
              }),
              42);
    EXPECT_LT(VLIBCExecv("/no/such/program", arguments, 0), 0);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(VLIBCErrGet(), fromErrno(ENOENT));
}

TEST(DetachedChild, IsNobodysChildAndLeavesNoZombie) {
    Pipe report;
    Pipe hold;
    const int child = VLIBCProcForkChildNoWait();
    ASSERT_GE(child, 0);
    if (child == 0) {
        hold.writeEnd.reset();
        char byte;
        (void)!::read(hold.readEnd.get(), &byte, 1);  // until the parent has looked
        (void)::dprintf(report.writeEnd.get(), "%d %d", ::getpid(), ::getpgrp() != ::getpid() ? 1 : 0);
        ::_exit(0);
    }
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
    EXPECT_NE(::getsid(child), ::getsid(0));
    hold.writeEnd.reset();
    EXPECT_EQ(report.all(), std::to_string(child) + " 1");
}

TEST(DetachedChild, OutlivesASignalToItsCallersGroup) {
    Pipe report;
    Pipe hold;
    const pid_t caller = startChild([&] {
        ::setpgid(0, 0);
        if (VLIBCProcForkChildNoWait() == 0) {
            hold.writeEnd.reset();
            char byte;
            (void)!::read(hold.readEnd.get(), &byte, 1);  // until the caller is dead
            return ::write(report.writeEnd.get(), "alive", 5) == 5 ? 0 : 1;
        }
        (void)::kill(0, SIGKILL);
        return 1;
    });
    EXPECT_EQ(test::awaitChild(caller), 128 + SIGKILL);
    hold.writeEnd.reset();
    EXPECT_EQ(report.all(), "alive");
}

TEST(DetachedChild, PrintsNothingTwiceWhenItExits) {
    Pipe out;
    const int result = runInChild([&] {
        std::FILE* file = ::fdopen(::dup(out.writeEnd.get()), "w");
        std::fputs("once\n", file);
        if (VLIBCProcForkChildNoWait() == 0) {
            std::fclose(file);  // what exit(0) does with it
            return 0;
        }
        std::fclose(file);
        return 0;
    });
    EXPECT_EQ(result, 0);
    EXPECT_EQ(out.all(), "once\n");
}

TEST(DetachedChild, IsMadeEvenWhereChildrenAreIgnored) {
    Pipe report;
    EXPECT_EQ(runInChild([&] {
                  (void)::signal(SIGCHLD, SIG_IGN);
                  const int child = VLIBCProcForkChildNoWait();
                  if (child == 0) return ::write(report.writeEnd.get(), "alive", 5) == 5 ? 0 : 1;
                  return child > 0 ? 0 : 1;
              }),
              0);
    EXPECT_EQ(report.all(), "alive");
}

TEST(DetachedChild, AFailedForkIsReported) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can become a user without other processes";
    EXPECT_EQ(runInChild([] {
                  const rlimit none{0, 0};
                  if (::setrlimit(RLIMIT_NPROC, &none) != 0 || ::setuid(54321) != 0) return 2;
                  const int child = VLIBCProcForkChildNoWait();
                  return child < 0 && VLIBCErrGet() == fromErrno(EAGAIN) ? 0 : 1;
              }),
              0);
}

}  // namespace
}  // namespace ombrel
