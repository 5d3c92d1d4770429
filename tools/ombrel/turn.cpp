// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/turn.h"

#include <fcntl.h>
#include <sysexits.h>

#include <cerrno>
#include <cstring>

#include "linux/common/timed_lock.h"
#include "tools/ombrel/answer.h"

namespace ombrel {

namespace {

// A folder that is always there: nothing has to be made or left behind. Not that of the settings itself, whose
// lock belongs to each single change of a file in it.
constexpr const char* kFolder = "/var/packages/Ombrel/target/service";

int complainNotLocked() {
    return complain(1, std::string(kFolder) + " cannot be locked: " + std::strerror(errno));
}

}  // namespace

int Turn::open() {
    lock_ = Fd(::open(kFolder, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (lock_) return 0;
    const int code = errno;
    return complain(code == EACCES ? EX_NOPERM : EX_CONFIG,
                    std::string(kFolder) + " cannot be opened: " + std::strerror(code));
}

Turn::Try Turn::tryTake() {
    if (open() != 0) return Try::kFailed;
    if (lockWithin(lock_.get(), LOCK_EX, std::chrono::milliseconds(0))) return Try::kTaken;
    if (errno == EWOULDBLOCK) return Try::kBusy;
    (void)complainNotLocked();
    return Try::kFailed;
}

int Turn::take() {
    if (const int code = open()) return code;
    if (lockWithin(lock_.get(), LOCK_EX, std::chrono::seconds(kLongestWaitSeconds))) return 0;
    if (errno != EWOULDBLOCK) return complainNotLocked();
    return complain(EX_TEMPFAIL, "another command has been changing settings, rules or archives for " +
                                     std::to_string(kLongestWaitSeconds) +
                                     " s; nothing was done: try again later");
}

}  // namespace ombrel
