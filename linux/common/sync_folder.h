// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "linux/common/fd.h"

namespace ombrel {

/// Has the entries of an open folder on the disk. False with errno set.
inline bool syncFolder(int folder) noexcept {
    // EINVAL: a file system without a way to sync folders keeps its own promises.
    return ::fsync(folder) == 0 || errno == EINVAL;
}

inline bool syncFolder(const std::string& folder) noexcept {
    const Fd fd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return fd && syncFolder(fd.get());
}

}  // namespace ombrel
