// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/common/turnstile.h"

#include <fcntl.h>

#include <cerrno>
#include <new>

#include "linux/common/timed_lock.h"

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

TurnstileResult Turnstile::lock(int operation, std::chrono::milliseconds timeout) noexcept {
    if (!folder_) return TurnstileResult::kFailed;
    if (lockWithin(folder_.get(), operation, timeout)) return TurnstileResult::kEntered;
    // Any other failure: no flock on this file system.
    return errno == EWOULDBLOCK ? TurnstileResult::kTimeout : TurnstileResult::kEntered;
}

}  // namespace ombrel
