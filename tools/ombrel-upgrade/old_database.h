// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Reading a database of the old layout: its rows as bytes, in the order of their ids.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "linux/common/sqlite_db.h"

namespace ombrel {

/// The views are valid until the next row.
struct OldRow {
    long long id = 0;
    std::string_view host;
    std::string_view facility;
    std::string_view priority;  ///< a severity as a number or as a name
    std::string_view day;
    std::string_view time;
    std::string_view program;
    std::string_view message;
};

/// What to say of a database that is no longer where it was.
std::string movedMeanwhile(const std::string& path);

class OldDatabase {
public:
    /// Returns what is wrong, empty when the file is a database of the old layout. What a writer that died has
    /// left half done is rolled back first.
    std::string open(const std::string& path);
    [[nodiscard]] const std::string& path() const noexcept { return path_; }
    [[nodiscard]] Connection& connection() noexcept { return connection_; }

    /// Another number after somebody else has changed the file; empty when it cannot be read.
    std::optional<long long> version();
    /// Tables, columns and whatever else the current layout has no place for, for people to read; empty when the
    /// file holds none.
    [[nodiscard]] const std::string& foreignContents() const noexcept { return foreign_; }
    /// Whether the archiver has given it the index of hosts.
    [[nodiscard]] bool hasHostIndex() const noexcept { return hasHostIndex_; }

    /// Stands before the rows behind `id`, all rows without one, at most `rows` of them. SQLite result code.
    int seek(std::optional<long long> id, long long rows);
    /// Statement::kRow, Statement::kDone or a result code of SQLite. The file is locked against writers until the
    /// rows are at their end or rest() was called.
    int next(OldRow& row);
    void rest() noexcept;

private:
    std::string look();
    int lookForOthers();

    std::string path_;
    Connection connection_;
    Statement first_;
    Statement behind_;
    Statement* rows_ = nullptr;
    std::string foreign_;
    bool hasHostIndex_ = false;
};

}  // namespace ombrel
