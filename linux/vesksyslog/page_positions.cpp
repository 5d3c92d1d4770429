// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/vesksyslog/page_positions.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <array>

namespace ombrel {

namespace {

// The counter stands in the file's head; read through SQLite's own descriptor, since opening and closing
// another one would drop the locks of this process.
std::optional<std::uint32_t> readChangeCounter(const Connection& connection) {
    constexpr sqlite3_int64 kCounterOffset = 24;
    sqlite3_file* file = nullptr;
    const int code = sqlite3_file_control(connection.handle(), "main", SQLITE_FCNTL_FILE_POINTER, &file);
    if (code != SQLITE_OK || file == nullptr || file->pMethods == nullptr) return std::nullopt;
    std::array<unsigned char, 4> bytes{};
    if (file->pMethods->xRead(file, bytes.data(), static_cast<int>(bytes.size()), kCounterOffset) != SQLITE_OK) {
        return std::nullopt;
    }
    std::uint32_t counter = 0;
    for (const unsigned char byte : bytes)
        counter = counter << 8 | byte;
    return counter;
}

}  // namespace

std::optional<FileState> readFileState(const Connection& connection, const std::string& path) noexcept {
    struct statx info {};
    if (::statx(AT_FDCWD, path.c_str(), 0, STATX_INO | STATX_BTIME, &info) != 0) return std::nullopt;
    const auto counter = readChangeCounter(connection);
    if (!counter || connection.hasMoved()) return std::nullopt;
    FileState state;
    state.device = makedev(info.stx_dev_major, info.stx_dev_minor);
    state.inode = info.stx_ino;
    state.birthNanoseconds = info.stx_btime.tv_sec * 1'000'000'000LL + info.stx_btime.tv_nsec;
    state.changeCounter = *counter;
    return state;
}

void PagePositions::remember(PagePosition position) {
    const std::lock_guard lock(mutex_);
    const auto sameplace = std::find_if(entries_.begin(), entries_.end(), [&](const Entry& entry) {
        return entry.position.offset == position.offset && entry.position.walk == position.walk;
    });
    Entry* entry = nullptr;
    if (sameplace != entries_.end()) {
        entry = &*sameplace;
    } else if (entries_.size() < kCapacity) {
        entry = &entries_.emplace_back();
    } else {
        entry = &*std::min_element(entries_.begin(), entries_.end(),
                                   [](const Entry& a, const Entry& b) { return a.lastUse < b.lastUse; });
    }
    entry->position = std::move(position);
    entry->lastUse = ++uses_;
}

std::optional<PagePosition> PagePositions::find(const std::string& walk, const FileState& file, long long offset) {
    const std::lock_guard lock(mutex_);
    Entry* best = nullptr;
    for (Entry& entry : entries_) {
        const PagePosition& position = entry.position;
        if (position.offset > offset || position.walk != walk || !position.file.isSameFile(file)) continue;
        if (best == nullptr || position.offset > best->position.offset) best = &entry;
    }
    if (best == nullptr) return std::nullopt;
    best->lastUse = ++uses_;
    return best->position;
}

}  // namespace ombrel
