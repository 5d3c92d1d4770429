// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel-notify/file_watch.h"

#include <sys/inotify.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <utility>

#include "linux/common/inotify_events.h"
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
    unsigned files = 0;
    readInotifyEvents(inotify_.get(), [&](const inotify_event& event, std::string_view name) {
        files |= (event.mask & IN_Q_OVERFLOW) != 0 ? ~0U : concerned(event.wd, name);
    });
    return files;
}

}  // namespace ombrel
