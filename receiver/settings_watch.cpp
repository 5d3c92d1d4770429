// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/settings_watch.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

#include "linux/common/path_parts.h"

namespace ombrel {

namespace {

struct Free {
    void operator()(char* text) const noexcept { std::free(text); }
};

}  // namespace

bool SettingsWatch::watchFolderOf(const std::string& path) {
    constexpr unsigned kEvents = IN_CLOSE_WRITE | IN_MOVED_TO | IN_CREATE;
    return ::inotify_add_watch(inotify_.get(), folderOf(path).c_str(), kEvents) >= 0;
}

bool SettingsWatch::start(const std::string& path) {
    path_ = path;
    name_ = nameOf(path);
    inotify_.reset(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    if (!inotify_ || !watchFolderOf(path)) return false;
    const std::unique_ptr<char, Free> target(::realpath(path.c_str(), nullptr));
    if (!target || path == target.get()) return true;
    targetName_ = nameOf(target.get());
    return watchFolderOf(target.get());
}

bool SettingsWatch::changed() {
    alignas(inotify_event) std::array<char, 8192> buffer;
    bool concerns = false;
    for (;;) {
        const ssize_t got = ::read(inotify_.get(), buffer.data(), buffer.size());
        if (got <= 0) {
            if (got < 0 && errno == EINTR) continue;
            return concerns;
        }
        for (ssize_t at = 0; at < got;) {
            inotify_event event{};
            std::memcpy(&event, buffer.data() + at, sizeof event);
            const std::string_view name(event.len > 0 ? buffer.data() + at + sizeof event : "");
            concerns = concerns || name == name_ || name == targetName_ || (event.mask & IN_Q_OVERFLOW) != 0;
            at += static_cast<ssize_t>(sizeof event + event.len);
        }
    }
}

}  // namespace ombrel
