// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/launcher/child.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>

namespace ombrel {

namespace {

// In the child. Tells why it could not become the program; only what may be called after a fork.
[[noreturn]] void become(char* const* arguments, char* const* environment, int passed, int errors,
                         pid_t parent) noexcept {
    sigset_t none;
    sigemptyset(&none);
    // A group of its own: what a terminal sends to the receiver must not end it before it is drained.
    if (::prctl(PR_SET_PDEATHSIG, SIGKILL) == 0 && ::getppid() == parent && ::setpgid(0, 0) == 0 &&
        ::sigprocmask(SIG_SETMASK, &none, nullptr) == 0 && (passed < 0 || ::fcntl(passed, F_SETFD, 0) == 0)) {
        ::execve(arguments[0], arguments, environment);
    }
    const int error = errno;
    (void)!::write(errors, &error, sizeof error);  // the parent sees the exit code if not this
    ::_exit(127);
}

std::vector<char*> environmentOfChild() {
    std::vector<char*> variables;
    for (char** one = environ; one != nullptr && *one != nullptr; ++one) {
        if (!std::string_view(*one).starts_with("NOTIFY_SOCKET=")) variables.push_back(*one);
    }
    variables.push_back(nullptr);
    return variables;
}

}  // namespace

int pollTimeout(Deadline deadline) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count();
    return static_cast<int>(std::clamp<long long>(left, 0, 1 << 30));
}

std::optional<Child> Child::start(std::vector<std::string> words, int passed) {
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    const std::vector<char*> environment = environmentOfChild();
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) return std::nullopt;
    const Fd read(ends[0]);
    Fd write(ends[1]);
    const pid_t parent = ::getpid();
    const pid_t pid = ::fork();
    if (pid < 0) return std::nullopt;
    if (pid == 0) become(arguments.data(), environment.data(), passed, write.get(), parent);
    write.reset();
    int error = 0;
    ssize_t got = 0;
    do {
        got = ::read(read.get(), &error, sizeof error);  // ends when the program has begun
    } while (got < 0 && errno == EINTR);
    Child child(pid, static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
    if (got == 0 && child.handle_) return child;
    const int why = got == sizeof error ? error : errno;
    (void)::kill(pid, SIGKILL);
    child.reap();
    errno = why;
    return std::nullopt;
}

Child::~Child() {
    if (pid_ < 0) return;
    (void)::kill(pid_, SIGKILL);
    reap();
}

void Child::reap() noexcept {
    while (pid_ >= 0 && ::waitpid(pid_, &status_, 0) < 0 && errno == EINTR) {
    }
    pid_ = -1;
}

bool Child::wait(Deadline deadline) {
    if (pid_ < 0) return true;
    pollfd one{handle_.get(), POLLIN, 0};
    int ready = 0;
    do {
        ready = ::poll(&one, 1, pollTimeout(deadline));
    } while (ready < 0 && errno == EINTR);
    if (ready != 1) return false;
    reap();
    return true;
}

void Child::signal(int number) const noexcept {
    if (pid_ > 0) (void)::kill(pid_, number);
}

bool Child::end(Deadline deadline) {
    if (pid_ < 0) return true;
    signal(SIGTERM);
    if (wait(deadline)) return true;
    signal(SIGKILL);
    reap();
    return false;
}

std::string Child::howItEnded() const {
    if (WIFEXITED(status_)) return "exit code " + std::to_string(WEXITSTATUS(status_));
    return "signal " + std::to_string(WTERMSIG(status_)) + " (" + ::strsignal(WTERMSIG(status_)) + ")";
}

int Child::exitCode() const noexcept {
    return WIFEXITED(status_) ? WEXITSTATUS(status_) : 128 + WTERMSIG(status_);
}

}  // namespace ombrel
