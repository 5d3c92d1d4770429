// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Rows on their way from the database to a callback, a block at a time. The callback of an export writes
// each line out at once, which takes longer than reading a row; so a long selection reads ahead on a second
// thread while the callbacks run, always on the caller's.
#pragma once

#include <array>
#include <cstddef>

#include "linux/common/day_text.h"
#include "linux/common/sqlite_db.h"
#include "platform/vesksyslog.h"

namespace ombrel {

/// What the columns of a selection hold, and so how its rows become records.
enum class RowColumns {
    kVersion1,
    kVersion2,
    kVersion2WithOriginalTexts,  ///< of a database that was upgraded and has days or times that are none
};

/// "SELECT ... FROM ...": columns in the order of the record's members.
constexpr const char* kSelectVersion2 =
    "SELECT id, utcsec, rutcsec, severity, sender, host, pid, facility, msgid, utcoff, NULL, program, msg FROM "
    "logs";
// One look into the other table for each row; with a sub-query for each of the two texts it would be two.
constexpr const char* kSelectVersion2WithOriginalTexts =
    "SELECT id, utcsec, rutcsec, severity, sender, host, pid, facility, msgid, utcoff, ltime, program, msg, ldate"
    " FROM logs LEFT JOIN original_texts ON log_id = id";
// Texts stand where version 2 has ids; there is one time, in local days and hours, and no sender.
constexpr const char* kSelectVersion1 =
    "SELECT rowid AS id, CAST(strftime('%s', ldate || ' ' || ltime, 'utc') AS INTEGER) AS utcsec, NULL,"
    " ombrel_severity(prio), NULL, host, NULL, facility, NULL, ldate, ltime, program, msg FROM logs";

/// A record is filled again and again, so that its strings keep their memory.
struct RowBlock {
    static constexpr size_t kRows = 64;
    static constexpr size_t kBytes = 64UL * 1024;  ///< long messages end a block early

    std::array<_SYSLOG_LOG_DATA_tag, kRows> rows;
    DayText day;
    size_t count = 0;
    long long lastId = 0;
    long long lastTime = 0;
    bool isLast = false;
    int code = 0;  ///< SQLite result code of the end, 0 when all rows were read
};

struct Delivered {
    long long rows = 0;
    long long lastId = 0;
    long long lastTime = 0;
};

using RowCallback = int (*)(_SYSLOG_LOG_DATA_tag&, void*);

/// Steps the statement to its end and calls `callback` for each row, until one answers with a negative
/// number. `mostRows`: the limit of the statement, negative without one.
/// @return 0, or -1 with the error record set unless the callback ended it
int deliverRows(Statement& statement, RowColumns columns, long long mostRows, RowCallback callback, void* context,
                Delivered& delivered);

}  // namespace ombrel
