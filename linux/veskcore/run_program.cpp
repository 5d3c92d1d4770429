// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Running programs: argument vectors only, never a shell.
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <initializer_list>

#include "linux/common/error_record.h"
#include "linux/common/fd.h"

using namespace ombrel;

namespace {

int failWith(int error, int code, int line = __builtin_LINE()) {
    errno = error;
    return fail(code, __FILE__, line);
}

/// How the program starts: nothing to read, its standard output goes nowhere (our caller's belongs to our
/// caller), its standard error is ours; no signal is blocked, and those that services ignore act again.
class SpawnSetup {
public:
    SpawnSetup() {
        (void)::posix_spawn_file_actions_init(&actions_);  // these fail on Linux only for want of memory,
        (void)::posix_spawnattr_init(&attributes_);        // which the spawn itself then meets too
        (void)::posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        (void)::posix_spawn_file_actions_addopen(&actions_, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        sigset_t none;
        ::sigemptyset(&none);
        (void)::posix_spawnattr_setsigmask(&attributes_, &none);
        sigset_t defaults;
        ::sigemptyset(&defaults);
        for (const int number : {SIGPIPE, SIGCHLD})
            ::sigaddset(&defaults, number);
        (void)::posix_spawnattr_setsigdefault(&attributes_, &defaults);
        (void)::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    ~SpawnSetup() {
        (void)::posix_spawn_file_actions_destroy(&actions_);
        (void)::posix_spawnattr_destroy(&attributes_);
    }
    SpawnSetup(const SpawnSetup&) = delete;
    SpawnSetup& operator=(const SpawnSetup&) = delete;

    /// 0 or the errno of what failed, the exec included.
    int spawn(const char* program, char* const arguments[], pid_t* child) const {
        return ::posix_spawn(child, program, &actions_, &attributes_, arguments, environ);
    }

private:
    posix_spawn_file_actions_t actions_;
    posix_spawnattr_t attributes_;
};

bool await(pid_t child, int& status) {
    while (::waitpid(child, &status, 0) != child) {
        if (errno != EINTR) return false;
    }
    return true;
}

/// In the process between: makes the child, reports its id or a negative errno, and goes away, so that
/// the child has no parent that would have to wait for it. Returns in the child alone.
void detach(int report) {
    // A session of its own: neither the end of a terminal nor a signal to the caller's group reaches it.
    (void)::setsid();  // a process just forked leads no group, so this cannot fail
    const pid_t child = ::fork();
    if (child == 0) return;
    const int told = child > 0 ? child : -errno;
    const bool reported = ::write(report, &told, sizeof told) == sizeof told;
    ::_exit(reported ? 0 : 1);
}

}  // namespace

extern "C" {

// errno of a failure: what kept the program from running (ENOENT, EACCES, ...), EIO when it exited
// non-zero, ECANCELED when a signal ended it, ECHILD when the caller ignores SIGCHLD, so that nobody can
// know. Waits as long as the program runs: compressing a large archive takes its time.
int VLIBCExec(const char* prog, const char* a1, const char* a2, const char* a3, const char* a4) {
    if (prog == nullptr) return failWith(EINVAL, kErrorInvalidArgument);
    char* arguments[6] = {};
    int count = 0;
    for (const char* argument : {prog, a1, a2, a3, a4}) {
        if (argument == nullptr) break;
        arguments[count++] = const_cast<char*>(argument);  // posix_spawn does not write to them
    }
    pid_t child = -1;
    const int error = SpawnSetup().spawn(prog, arguments, &child);
    if (error != 0) return failWith(error, fromErrno(error));
    int status = 0;
    if (!await(child, status)) return failWith(errno, fromErrno(errno));
    if (WIFSIGNALED(status)) return failWith(ECANCELED, kErrorProgramFailed);
    if (WEXITSTATUS(status) != 0) return failWith(EIO, kErrorProgramFailed);
    return 0;
}

int VLIBCExecv(const char* path, char* const argv[], int /*flags*/) {
    if (path == nullptr || argv == nullptr) return failWith(EINVAL, kErrorInvalidArgument);
    (void)::execv(path, argv);  // returns only on failure
    return fail(fromErrno(errno));
}

int VLIBCProcForkChildNoWait(void) {
    (void)std::fflush(nullptr);  // what cannot be written now fails for its owner later
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) return fail(fromErrno(errno));
    const Fd readEnd(ends[0]);
    Fd writeEnd(ends[1]);
    const pid_t between = ::fork();
    if (between < 0) return fail(fromErrno(errno));
    if (between == 0) {
        detach(writeEnd.get());
        return 0;
    }
    int status = 0;
    (void)await(between, status);  // fails where SIGCHLD is ignored: then there is no zombie either
    writeEnd.reset();              // so that the read ends even when nothing was reported
    int told = -EAGAIN;
    ssize_t count;
    do {
        count = ::read(readEnd.get(), &told, sizeof told);
    } while (count < 0 && errno == EINTR);
    if (count == sizeof told && told > 0) return told;
    return failWith(-told, fromErrno(-told));
}

}  // extern "C"
