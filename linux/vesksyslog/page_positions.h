// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Where the last pages of selections ended, so that the next page of a walk begins by row id and not by
// counting all rows before it. A small memory for the whole process; it may forget at any time, and what
// it tells is only true of the very file and state that it was told about. Safe for several threads.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "linux/common/sqlite_db.h"

namespace ombrel {

/// Which file, and in which state. A new file may get the inode number of a deleted one, but not its time
/// of birth.
struct FileState {
    dev_t device = 0;
    ino_t inode = 0;
    long long birthNanoseconds = 0;
    std::uint32_t changeCounter = 0;  ///< SQLite's own: every commit raises it

    [[nodiscard]] bool isSameFile(const FileState& other) const {
        return device == other.device && inode == other.inode && birthNanoseconds == other.birthNanoseconds;
    }
};

/// Call inside a read transaction. Nothing when the path no longer names the open file.
std::optional<FileState> readFileState(const Connection& connection, const std::string& path) noexcept;

struct PagePosition {
    std::string walk;      ///< file name, conditions and order in one text
    FileState file;        ///< as it was when the page was read
    long long offset = 0;  ///< rows from the beginning up to and with the last row
    long long lastId = 0;
    long long lastTime = 0;
};

class PagePositions {
public:
    static constexpr size_t kCapacity = 64;

    void remember(PagePosition position);
    /// The farthest position of this walk in this file that is not behind `offset`.
    std::optional<PagePosition> find(const std::string& walk, const FileState& file, long long offset);

private:
    struct Entry {
        PagePosition position;
        unsigned long long lastUse = 0;
    };

    std::mutex mutex_;
    std::vector<Entry> entries_;
    unsigned long long uses_ = 0;
};

}  // namespace ombrel
