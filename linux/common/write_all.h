// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#pragma once

#include <unistd.h>

#include <cerrno>
#include <string_view>

namespace ombrel {

/// Writes all of `bytes`, however many writes that takes. False with errno set; a part may then be written.
inline bool writeAll(int fd, std::string_view bytes) noexcept {
    while (!bytes.empty()) {
        const ssize_t put = ::write(fd, bytes.data(), bytes.size());
        if (put >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(put));
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

}  // namespace ombrel
