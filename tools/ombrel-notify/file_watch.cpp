// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel-notify/file_watch.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>

#include "linux/common/path_parts.h"

namespace ombrel {

namespace {

struct Free {
    void operator()(char* text) const noexcept { std::free(text); }
};

}  // namespace

bool FileWatch::start() {
    inotify_.reset(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    return static_cast<bool>(inotify_);
}

void FileWatch::add(const std::string& path, std::uint32_t events) {
    files_.push_back({path, events});
}

bool FileWatch::watchEntry(unsigned file, const std::string& path, std::vector<Entry>& entries) {
    Entry entry{file, folderOf(path), nameOf(path), -1};
    const std::uint32_t events = files_[file].events | IN_ONLYDIR | IN_MASK_ADD;
    entry.watch = ::inotify_add_watch(inotify_.get(), entry.folder.c_str(), events);
    const bool isWatched = entry.watch >= 0;
    entries.push_back(std::move(entry));
    return isWatched;
}

bool FileWatch::refresh() {
    int error = 0;
    std::vector<Entry> entries;
    for (unsigned file = 0; file < files_.size(); ++file) {
        const std::string& path = files_[file].path;
        if (!watchEntry(file, path, entries)) error = errno;
        const std::unique_ptr<char, Free> target(::realpath(path.c_str(), nullptr));
        if (target && path != target.get() && !watchEntry(file, target.get(), entries)) error = errno;
    }
    for (const Entry& old : entries_) {
        const bool isKept = std::any_of(entries.begin(), entries.end(),
                                        [&](const Entry& entry) { return entry.watch == old.watch; });
        if (!isKept && old.watch >= 0) (void)::inotify_rm_watch(inotify_.get(), old.watch);  // may be gone itself
    }
    entries_ = std::move(entries);
    errno = error;
    return error == 0;
}

unsigned FileWatch::concerned(int watch, std::string_view name) const {
    unsigned files = 0;
    for (const Entry& entry : entries_) {
        if (entry.watch == watch && entry.name == name) files |= 1U << entry.file;
    }
    return files;
}

unsigned FileWatch::changed() {
    alignas(inotify_event) std::array<char, 8192> buffer;
    unsigned files = 0;
    for (;;) {
        const ssize_t got = ::read(inotify_.get(), buffer.data(), buffer.size());
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return files;
        for (ssize_t at = 0; at < got;) {
            inotify_event event{};
            std::memcpy(&event, buffer.data() + at, sizeof event);
            const std::string_view name(event.len > 0 ? buffer.data() + at + sizeof event : "");
            files |= (event.mask & IN_Q_OVERFLOW) != 0 ? ~0U : concerned(event.wd, name);
            at += static_cast<ssize_t>(sizeof event + event.len);
        }
    }
}

}  // namespace ombrel
