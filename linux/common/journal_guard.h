// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// SQLite finds the journal of a database by the name that the database was opened by. Once that file has been
// moved and another database begun at its name, the journal there belongs to the other one; a connection that
// still has the moved file open would take it for its own, left by a writer that died, and roll the moved file
// back by it: an archive would be emptied by whoever looks at it. So each connection has a layer of its own
// between SQLite and the system (a "VFS"), which shows no journal once the file has moved. That is without a
// gap: SQLite asks for the journal while it holds a lock on the file that keeps every mover from moving it.
#pragma once

#include <sqlite3.h>

#include <array>

namespace ombrel {

class JournalGuard {
public:
    /// The layer is known to SQLite by name() until the end of this object; the connection ends before.
    JournalGuard() noexcept;
    ~JournalGuard();
    JournalGuard(const JournalGuard&) = delete;
    JournalGuard& operator=(const JournalGuard&) = delete;

    /// For sqlite3_open_v2, which fails when there is no such layer.
    [[nodiscard]] const char* name() const noexcept { return name_.data(); }
    /// Right after the connection was opened, before its first statement.
    void watch(sqlite3* db) noexcept;

private:
    struct Layer : sqlite3_vfs {
        sqlite3_vfs* system = nullptr;
        sqlite3_file* file = nullptr;
        const char* journal = nullptr;  // SQLite's own copy, there as long as the connection
    };
    static int access(sqlite3_vfs* vfs, const char* name, int flags, int* result) noexcept;

    Layer layer_{};
    std::array<char, 32> name_{};
};

}  // namespace ombrel
