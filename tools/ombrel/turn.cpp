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

// A folder that is always there: nothing has to be made or left behind. Not that of the settings itself, whose
// lock belongs to each single change of a file in it.
int Turn::take() {
    const std::string folder = "/var/packages/Ombrel/target/service";
    lock_ = Fd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!lock_) {
        const int code = errno;
        return complain(code == EACCES ? EX_NOPERM : EX_CONFIG,
                        folder + " cannot be opened: " + std::strerror(code));
    }
    if (lockWithin(lock_.get(), LOCK_EX, std::chrono::seconds(kLongestWaitSeconds))) return 0;
    if (errno != EWOULDBLOCK) return complain(1, folder + " cannot be locked: " + std::strerror(errno));
    return complain(EX_TEMPFAIL, "another command has been changing settings, rules or archives for " +
                                     std::to_string(kLongestWaitSeconds) +
                                     " s; nothing was done: try again later");
}

}  // namespace ombrel
