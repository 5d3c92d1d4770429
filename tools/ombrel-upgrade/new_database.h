// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The new file while it is made. Its rows keep the ids of the old ones, so the last id and the number of rows,
// which a transaction brings up to date with its rows, say where to go on.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "linux/common/name_ids.h"
#include "linux/common/sqlite_db.h"
#include "tools/ombrel-upgrade/old_database.h"
#include "tools/ombrel-upgrade/row_time.h"

namespace ombrel {

class NewDatabase {
public:
    /// Opens the file, or begins it with `schema`. SQLite result code; SQLITE_NOTADB for a file that is there and
    /// is no log database of the current layout.
    int open(const std::string& path, const std::string& schema, bool isLarge);
    void close();
    [[nodiscard]] const std::string& path() const noexcept { return path_; }
    [[nodiscard]] Connection& connection() noexcept { return connection_; }

    struct Position {
        long long rows = 0;
        std::optional<long long> lastId;
        std::optional<std::int64_t> lastTime;  ///< of the row with this id
    };
    int readPosition(Position& position);

    /// How many rows, from the first on, were found equal to the old ones; recorded in the file for the next run.
    int readVerified(long long& rows);
    int writeVerified(long long rows);

    /// Rows between begin() and commit() are there together or not at all.
    int begin();
    /// `isExact`: date and time of the row read the same when they are made of `time`.
    int add(const OldRow& row, const RowTime& time, bool isExact);
    int commit();
    void rollBack();

    int addHostIndex();

private:
    struct Totals {
        long long rows = 0;
        std::int64_t first = INT64_MAX;
        std::int64_t last = INT64_MIN;
        std::string firstDay;
        std::string lastDay;
    };

    int prepare();
    int keepTexts(const OldRow& row, bool isExact, bool hasSeverity);
    int writeInfo();

    std::string path_;
    Connection connection_;
    Statement addRow_;
    Statement addTexts_;
    Statement updateInfo_;
    NameIds hosts_;
    NameIds facilities_;
    NameIds programs_;
    long long noSender_ = 0;  // id of the sender of all rows: nobody wrote down who it was
    DayText day_;
    Totals totals_;
};

}  // namespace ombrel
