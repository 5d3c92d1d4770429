// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/common/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <utility>

#include "linux/common/error_record.h"

namespace ombrel {

namespace {

// Every program starts with the same few things, whatever its starter was given.
char pathVariable[] = "PATH=/usr/sbin:/usr/bin:/sbin:/bin";
char localeVariable[] = "LC_ALL=C";
char* environment[] = {pathVariable, localeVariable, nullptr};

class FileActions {
public:
    FileActions(int outputEnd, int errorEnd) {
        (void)::posix_spawn_file_actions_init(&actions_);  // these fail on Linux only for want of memory,
        (void)::posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        (void)::posix_spawn_file_actions_adddup2(&actions_, outputEnd, STDOUT_FILENO);  // which the spawn
        (void)::posix_spawn_file_actions_adddup2(&actions_, errorEnd, STDERR_FILENO);   // then meets too
        (void)::posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1);
    }
    ~FileActions() { (void)::posix_spawn_file_actions_destroy(&actions_); }
    FileActions(const FileActions&) = delete;
    FileActions& operator=(const FileActions&) = delete;
    const posix_spawn_file_actions_t* get() const { return &actions_; }

private:
    posix_spawn_file_actions_t actions_{};
};

/// No signal is blocked or ignored in the program, whatever is in the caller.
class Attributes {
public:
    Attributes() {
        (void)::posix_spawnattr_init(&attributes_);
        sigset_t none;
        ::sigemptyset(&none);
        (void)::posix_spawnattr_setsigmask(&attributes_, &none);
        sigset_t all;
        ::sigfillset(&all);
        (void)::posix_spawnattr_setsigdefault(&attributes_, &all);
        (void)::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    ~Attributes() { (void)::posix_spawnattr_destroy(&attributes_); }
    Attributes(const Attributes&) = delete;
    Attributes& operator=(const Attributes&) = delete;
    const posix_spawnattr_t* get() const { return &attributes_; }

private:
    posix_spawnattr_t attributes_{};
};

bool makePipe(Fd& readEnd, Fd& writeEnd) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) return false;
    readEnd.reset(ends[0]);
    writeEnd.reset(ends[1]);
    return ::fcntl(ends[0], F_SETFL, O_NONBLOCK) == 0;
}

}  // namespace

int millisecondsUntil(Deadline deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    return static_cast<int>(std::clamp<long long>(left.count(), 0, INT_MAX));
}

ChildProcess::ChildProcess(const std::vector<std::string>& arguments) {
    Fd outputEnd;
    Fd errorEnd;
    if (!makePipe(output_.fd, outputEnd) || !makePipe(errors_.fd, errorEnd)) {
        error_ = fromErrno(errno);
        return;
    }
    const int failure = spawn(arguments, outputEnd.get(), errorEnd.get());
    if (failure != 0) error_ = fromErrno(failure);
}

int ChildProcess::spawn(const std::vector<std::string>& arguments, int outputEnd, int errorEnd) {
    std::vector<char*> vector;
    vector.reserve(arguments.size() + 1);
    for (const std::string& argument : arguments)
        vector.push_back(const_cast<char*>(argument.c_str()));  // posix_spawn does not write to them
    vector.push_back(nullptr);
    const FileActions actions(outputEnd, errorEnd);
    const Attributes attributes;
    pid_t pid = -1;
    const int failure =
        ::posix_spawn(&pid, vector[0], actions.get(), attributes.get(), vector.data(), environment);
    if (failure != 0) return failure;
    pid_ = pid;
    handle_.reset(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
    if (handle_) return 0;
    if (errno != ESRCH) return errno;
    pid_ = -1;  // the caller ignores SIGCHLD, and the program has come and gone
    return ECHILD;
}

ChildProcess::~ChildProcess() {
    if (pid_ < 0) return;
    // By its handle, so that the number of a process that somebody else waited for is never signalled.
    if (handle_)
        (void)::syscall(SYS_pidfd_send_signal, handle_.get(), SIGKILL, nullptr, 0);
    else
        (void)::kill(pid_, SIGKILL);
    while (::waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
    }
}

ChildProcess::ChildProcess(ChildProcess&& other) noexcept
    : pid_(std::exchange(other.pid_, -1)),
      handle_(std::move(other.handle_)),
      output_(std::move(other.output_)),
      errors_(std::move(other.errors_)),
      error_(other.error_),
      ended_(other.ended_),
      exitCode_(other.exitCode_) {
}

/// Takes what is there. A program's own children may keep the stream open, so its end says nothing.
void ChildProcess::drain(Stream& stream) {
    std::array<char, 16384> buffer;
    while (stream.fd) {
        const ssize_t count = ::read(stream.fd.get(), buffer.data(), buffer.size());
        if (count > 0) {
            if (stream.text.size() + static_cast<std::size_t>(count) > kMaxOutput) {
                error_ = fromErrno(EFBIG);
                stream.fd.reset();
            } else {
                stream.text.append(buffer.data(), static_cast<std::size_t>(count));
            }
        } else if (count == 0) {
            stream.fd.reset();
        } else if (errno != EINTR) {
            return;  // EAGAIN: nothing more for now
        }
    }
}

void ChildProcess::reap() {
    int status = 0;
    pid_t result;
    do {
        result = ::waitpid(pid_, &status, 0);
    } while (result < 0 && errno == EINTR);
    if (result < 0) {
        error_ = fromErrno(errno);  // ECHILD: the caller ignores SIGCHLD, nobody can know the exit code
    } else if (WIFEXITED(status)) {
        exitCode_ = WEXITSTATUS(status);
    } else {
        error_ = kErrorProgramFailed;
    }
    pid_ = -1;
    ended_ = true;
    drain(output_);
    drain(errors_);
}

bool ChildProcess::awaitAny(std::initializer_list<ChildProcess*> children, Deadline deadline) {
    std::vector<pollfd> waits;
    for (;;) {
        waits.clear();
        for (ChildProcess* child : children) {
            if (child->ended_ || child->error_ != 0) return true;
            for (const int fd : {child->handle_.get(), child->output_.fd.get(), child->errors_.fd.get()})
                waits.push_back({fd, POLLIN, 0});
        }
        const int ready = ::poll(waits.data(), waits.size(), millisecondsUntil(deadline));
        if (ready == 0) return false;
        if (ready < 0 && errno != EINTR) return false;
        if (ready < 0) continue;
        auto wait = waits.begin();
        for (ChildProcess* child : children) {
            const bool ended = wait->revents != 0;
            child->drain(child->output_);
            child->drain(child->errors_);
            if (ended) child->reap();
            wait += 3;
        }
    }
}

ProgramResult runProgram(const std::vector<std::string>& arguments, std::chrono::milliseconds wait) {
    ChildProcess child(arguments);
    if (!child.await(deadlineIn(wait))) return {kErrorTimeout, -1, child.output(), child.errors()};
    return {child.error(), child.exitCode(), child.output(), child.errors()};
}

}  // namespace ombrel
