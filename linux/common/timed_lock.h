// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#pragma once

#include <sys/file.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <thread>

namespace ombrel {

/// flock(2) with an end. `operation` is LOCK_SH or LOCK_EX.
/// False with errno set: EWOULDBLOCK when the time is over, anything else where this file cannot be locked.
inline bool lockWithin(int fd, int operation, std::chrono::milliseconds timeout) noexcept {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point deadline = Clock::now() + timeout;
    // flock knows no time limit and cannot be polled, so it is tried again, at first after a fraction of a
    // millisecond: those who hold such locks let go within milliseconds.
    std::chrono::microseconds nap(100);
    while (::flock(fd, operation | LOCK_NB) != 0) {
        if (errno == EINTR) continue;
        if (errno != EWOULDBLOCK) return false;
        if (Clock::now() >= deadline) {
            errno = EWOULDBLOCK;
            return false;
        }
        std::this_thread::sleep_for(nap);
        nap = std::min(nap * 2, std::chrono::microseconds(10'000));
    }
    return true;
}

}  // namespace ombrel
