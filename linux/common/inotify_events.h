// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#pragma once

#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>

namespace ombrel {

/// Hands over each event that waits in an inotify(7) descriptor that does not block, with the name that belongs to
/// it (empty: of the watched folder itself).
template <typename Sink>
void readInotifyEvents(int fd, const Sink& sink) {
    alignas(inotify_event) std::array<char, 8192> buffer;
    for (;;) {
        const ssize_t got = ::read(fd, buffer.data(), buffer.size());
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return;
        for (ssize_t at = 0; at < got;) {
            inotify_event event{};
            std::memcpy(&event, buffer.data() + at, sizeof event);
            const std::string_view name(event.len > 0 ? buffer.data() + at + sizeof event : "");
            sink(event, name);
            at += static_cast<ssize_t>(sizeof event + event.len);
        }
    }
}

}  // namespace ombrel
