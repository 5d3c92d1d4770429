// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#pragma once

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <string>

#include "linux/common/fd.h"

namespace ombrel {

/// Reads a regular file of at most `mostBytes` bytes; a pipe or a device in its place blocks nobody.
/// @return 0; else an errno, EFBIG for a larger file and EINVAL for one that is not regular: `text` is as it was
inline int readBounded(const std::string& path, std::size_t mostBytes, std::string& text) {
    const Fd fd(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!fd) return errno;
    struct stat info {};
    if (::fstat(fd.get(), &info) != 0) return errno;
    if (!S_ISREG(info.st_mode)) return S_ISDIR(info.st_mode) ? EISDIR : EINVAL;
    // Read, not asked for its size: files of /proc have none, and others may grow.
    std::string bytes;
    constexpr std::size_t kLeastRoom = 16384;
    while (bytes.size() <= mostBytes) {
        const std::size_t before = bytes.size();
        bytes.resize(before + std::max(kLeastRoom, before));
        const ssize_t count = ::read(fd.get(), bytes.data() + before, bytes.size() - before);
        const int failure = errno;
        bytes.resize(before + static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        if (count < 0 && failure != EINTR) return failure;
        if (count == 0) {
            text = std::move(bytes);
            return 0;
        }
    }
    return EFBIG;
}

}  // namespace ombrel
