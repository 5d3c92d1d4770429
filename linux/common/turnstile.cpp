// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/common/turnstile.h"

#include <fcntl.h>
#include <sys/file.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <thread>

namespace ombrel {

bool Turnstile::open(const std::string& databasePath) noexcept try {
    folder_.reset(::open(folderOf(databasePath).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return isOpen();
} catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return false;
}

TurnstileResult Turnstile::pass(std::chrono::milliseconds timeout) noexcept {
    const TurnstileResult result = lock(LOCK_SH, timeout);
    leave();
    return result;
}

TurnstileResult Turnstile::hold(std::chrono::milliseconds timeout) noexcept {
    return lock(LOCK_EX, timeout);
}

void Turnstile::leave() noexcept {
    if (folder_) (void)::flock(folder_.get(), LOCK_UN);  // nothing is held when it fails
}

// flock knows no time limit and cannot be polled, so a taken turnstile is tried again, at first after a
// fraction of a millisecond: a writer lets go within microseconds, a mover within milliseconds.
TurnstileResult Turnstile::lock(int operation, std::chrono::milliseconds timeout) noexcept {
    using Clock = std::chrono::steady_clock;
    if (!folder_) return TurnstileResult::kFailed;
    const Clock::time_point deadline = Clock::now() + timeout;
    std::chrono::microseconds nap(100);
    while (::flock(folder_.get(), operation | LOCK_NB) != 0) {
        if (errno == EINTR) continue;
        if (errno != EWOULDBLOCK) return TurnstileResult::kEntered;  // no flock on this file system
        if (Clock::now() >= deadline) return TurnstileResult::kTimeout;
        std::this_thread::sleep_for(nap);
        nap = std::min(nap * 2, std::chrono::microseconds(10'000));
    }
    return TurnstileResult::kEntered;
}

}  // namespace ombrel
