// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// A program run by the receiver: it writes to the receiver's own streams and never outlives it. To be used by
// the receiver's only thread, since the kernel ties a child to the thread that made it.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "linux/common/fd.h"

namespace ombrel {

using Deadline = std::chrono::steady_clock::time_point;

/// For poll: what is left, rounded up, 0 when the deadline has passed.
int pollTimeout(Deadline deadline);

class Child {
public:
    /// Nothing, with errno, when the program cannot be run. The first word is its path. `passed` is a
    /// descriptor that the program gets under the same number. It gets this environment but for $NOTIFY_SOCKET:
    /// it is not the one to say that the job is ready.
    static std::optional<Child> start(std::vector<std::string> words, int passed = -1);
    Child(Child&& other) noexcept
        : pid_(std::exchange(other.pid_, -1)), handle_(std::move(other.handle_)), status_(other.status_) {}
    Child& operator=(Child&&) = delete;
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    /// Kills what still runs.
    ~Child();

    /// -1 once it has ended and that has been seen.
    [[nodiscard]] pid_t pid() const noexcept { return pid_; }
    /// Readable once the program has ended.
    [[nodiscard]] int handle() const noexcept { return handle_.get(); }
    /// Whether it has ended, by the deadline at the latest.
    bool wait(Deadline deadline);
    /// Does nothing once it has ended.
    void signal(int number) const noexcept;
    /// Asks it to end; kills it at the deadline. Whether it ended by itself.
    bool end(Deadline deadline);
    /// "exit code 1" or "signal 9 (Killed)", once it has ended.
    [[nodiscard]] std::string howItEnded() const;
    /// Exit code, or 128 and the signal.
    [[nodiscard]] int exitCode() const noexcept;

private:
    Child(pid_t pid, int handle) noexcept : pid_(pid), handle_(handle) {}
    void reap() noexcept;

    pid_t pid_ = -1;  // -1 once it has been waited for
    Fd handle_;
    int status_ = 0;
};

}  // namespace ombrel
