// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#pragma once

#include <sys/stat.h>
#include <unistd.h>

namespace ombrel {

/// Gives an open file the owner, mode and times of another one. Whoever is not root keeps the owner. The owner
/// comes before the mode: a change of the owner takes set-id bits away. False with errno set.
inline bool dressLike(int fd, const struct stat& like) noexcept {
    const timespec times[2] = {like.st_atim, like.st_mtim};
    if (::fchown(fd, like.st_uid, like.st_gid) != 0 && ::geteuid() == 0) return false;
    return ::fchmod(fd, like.st_mode & 07777) == 0 && ::futimens(fd, times) == 0;
}

}  // namespace ombrel
