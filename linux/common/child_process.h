// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Programs run by an argument vector, with a bounded wait and both output streams captured. No shell, no
// environment of the caller: PATH and LC_ALL=C are all they get, so that their output never changes with a
// language. Objects are used by one thread; std::bad_alloc is the only exception.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

#include "linux/common/fd.h"

namespace ombrel {

using Deadline = std::chrono::steady_clock::time_point;
inline Deadline deadlineIn(std::chrono::milliseconds wait) {
    return std::chrono::steady_clock::now() + wait;
}
/// Milliseconds until then, rounded up; 0 when it has passed.
int millisecondsUntil(Deadline deadline);

/// A started program. Whatever of it still runs at the end of the object is killed and waited for.
class ChildProcess {
public:
    /// Starts a program; the first argument is its absolute path. See error() for how that went.
    explicit ChildProcess(const std::vector<std::string>& arguments);
    ~ChildProcess();
    ChildProcess(ChildProcess&& other) noexcept;
    ChildProcess& operator=(ChildProcess&&) = delete;
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    /// Waits until one of `children` has ended or could not be started: true. False at the deadline, and
    /// when there is no memory or descriptor left to wait with.
    static bool awaitAny(std::initializer_list<ChildProcess*> children, Deadline deadline);
    bool await(Deadline deadline) { return awaitAny({this}, deadline); }

    /// 0, or a code of error_record.h: why it could not be started or how it failed after its start. Ended by
    /// a signal, an exit code that nobody can know and an output beyond kMaxOutput count as failures.
    [[nodiscard]] int error() const { return error_; }
    [[nodiscard]] bool ended() const { return ended_; }
    /// Only of a program that ended without an error().
    [[nodiscard]] int exitCode() const { return exitCode_; }
    /// What it wrote so far.
    [[nodiscard]] const std::string& output() const { return output_.text; }
    [[nodiscard]] const std::string& errors() const { return errors_.text; }

    static constexpr std::size_t kMaxOutput = std::size_t{16} << 20;

private:
    struct Stream {
        Fd fd;
        std::string text;
    };

    int spawn(const std::vector<std::string>& arguments, int outputEnd, int errorEnd);
    void drain(Stream& stream);
    void reap();

    pid_t pid_ = -1;
    Fd handle_;  // readable once the process has ended
    Stream output_;
    Stream errors_;
    int error_ = 0;
    bool ended_ = false;
    int exitCode_ = -1;
};

/// Runs a program to its end. The result has ended with an exit code, or has an error(): kErrorTimeout when
/// it took longer than `wait`.
struct ProgramResult {
    int error = 0;
    int exitCode = -1;
    std::string output;
    std::string errors;
};
ProgramResult runProgram(const std::vector<std::string>& arguments, std::chrono::milliseconds wait);

}  // namespace ombrel
