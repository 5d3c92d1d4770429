// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/machine_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/timex.h>
#include <unistd.h>

namespace ombrel {

std::optional<FileFacts> fileFacts(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) return std::nullopt;
    using enum FileFacts::Kind;
    FileFacts facts;
    facts.kind = S_ISREG(status.st_mode) ? kFile : S_ISDIR(status.st_mode) ? kFolder : kOther;
    facts.mode = status.st_mode & 07777;
    facts.owner = status.st_uid;
    facts.isOurs = ::geteuid() == 0 || ::geteuid() == status.st_uid;
    const int enter = facts.kind == kFolder ? X_OK : 0;
    facts.mayRead = ::faccessat(AT_FDCWD, path.c_str(), R_OK | enter, AT_EACCESS) == 0;
    facts.mayWrite = ::faccessat(AT_FDCWD, path.c_str(), W_OK | enter, AT_EACCESS) == 0;
    return facts;
}

bool isRoot() {
    return ::geteuid() == 0;
}

std::optional<bool> isClockSynchronised() {
    timex question{};
    const int state = ::adjtimex(&question);
    if (state < 0) return std::nullopt;
    return state != TIME_ERROR && (question.status & STA_UNSYNC) == 0;
}

}  // namespace ombrel
