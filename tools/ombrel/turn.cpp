// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/turn.h"

#include <fcntl.h>
#include <sysexits.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "linux/common/timed_lock.h"
#include "tools/ombrel/answer.h"

namespace ombrel {

namespace {

// A folder that is always there: nothing has to be made or left behind. Not that of the settings itself, whose
// lock belongs to each single change of a file in it.
constexpr const char* kFolder = "/var/packages/Ombrel/target/service";
constexpr const char* kSettingsFolder = "/var/packages/Ombrel/target/service/conf";

int complainNotLocked() {
    return complain(1, std::string(kFolder) + " cannot be locked: " + std::strerror(errno));
}

int complainNotWritable(int code) {
    const std::string what =
        std::string(kSettingsFolder) + " cannot be written to: " + std::strerror(code) + "; nothing was done";
    if (code == EACCES || code == EPERM) return complain(EX_NOPERM, what + ": run this as root");
    return complain(code == ENOENT ? EX_CONFIG : EX_IOERR, what);
}

}  // namespace

int Turn::open(For what) {
    // Without it a change would begin and fail on its way.
    if (what == For::kService && ::access(kSettingsFolder, W_OK) != 0) return complainNotWritable(errno);
    lock_ = Fd(::open(kFolder, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (lock_) return 0;
    const int code = errno;
    return complain(code == EACCES ? EX_NOPERM : EX_CONFIG,
                    std::string(kFolder) + " cannot be opened: " + std::strerror(code));
}

Turn::Try Turn::tryTake() {
    if (open(For::kService) != 0) return Try::kFailed;
    if (lockWithin(lock_.get(), LOCK_EX, std::chrono::milliseconds(0))) return Try::kTaken;
    if (errno == EWOULDBLOCK) return Try::kBusy;
    (void)complainNotLocked();
    return Try::kFailed;
}

int Turn::take(For what) {
    if (const int code = open(what)) return code;
    if (lockWithin(lock_.get(), LOCK_EX, std::chrono::seconds(kLongestWaitSeconds))) return 0;
    if (errno != EWOULDBLOCK) return complainNotLocked();
    return complain(EX_TEMPFAIL, "another command has been changing settings, rules or archives for " +
                                     std::to_string(kLongestWaitSeconds) +
                                     " s; nothing was done: try again later");
}

}  // namespace ombrel
