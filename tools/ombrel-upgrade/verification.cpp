// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel-upgrade/verification.h"

#include <sqlite3.h>

#include <charconv>
#include <list>
#include <vector>

#include "linux/common/severity_text.h"
#include "platform/vesksyslog.h"
#include "tools/ombrel-upgrade/rendered_row.h"

namespace ombrel {

namespace {

using KeyMap = NewKeys::Map;

struct ExpectedRow {
    long long id = 0;
    RowChecksum checksum;
};

/// The new file's rows as they come from its reader, one after the other beside what is expected.
struct NewRows {
    const NewKeys& keys;
    const std::vector<ExpectedRow>& expected;
    RowHasher hasher{};
    size_t seen = 0;
    bool differ = false;
};

long long numberOf(const std::string& digits) {
    long long number = 0;
    (void)std::from_chars(digits.data(), digits.data() + digits.size(), number);  // they were made of a number
    return number;
}

std::string_view textOf(const KeyMap& keys, const std::string& id) {
    const auto found = keys.find(static_cast<unsigned long long>(numberOf(id)));
    return found != keys.end() ? std::string_view(found->second) : std::string_view();
}

int compareRow(_SYSLOG_LOG_DATA_tag& row, void* context) {
    auto& rows = *static_cast<NewRows*>(context);
    const std::string severity = PriorTypeToStr(row.priority);
    const RenderedRow rendered = {row.date,
                                  row.time,
                                  severity,
                                  textOf(rows.keys.hosts, row.hostId),
                                  textOf(rows.keys.facilities, row.facilityId),
                                  textOf(rows.keys.programs, row.programId),
                                  row.message};
    rows.differ = rows.seen >= rows.expected.size() ||
                  rows.hasher.of(numberOf(row.rowId), rendered) != rows.expected[rows.seen].checksum;
    if (rows.differ) return -1;
    ++rows.seen;
    return 0;
}

std::string renderedSeverity(std::string_view text) {
    return PriorTypeToStr(static_cast<_SYSLOG_DB_PRIORITY_tag>(severityOfText(text)));
}

int readExpected(OldDatabase& old, std::optional<long long> lastId, long long mostRows,
                 std::vector<ExpectedRow>& expected) {
    RowHasher hasher;
    OldRow row;
    int code = old.seek(lastId, mostRows);
    if (code != 0) return code;
    for (code = old.next(row); code == Statement::kRow; code = old.next(row)) {
        const std::string severity = renderedSeverity(row.priority);
        expected.push_back({row.id, hasher.of(row.id, {row.day, row.time, severity, row.host, row.facility,
                                                       row.program, row.message})});
    }
    return code == Statement::kDone ? SQLITE_OK : code;
}

}  // namespace

Comparison Verification::failed(const std::string& path, const std::string& why) {
    error_ = "cannot read " + path + ": " + why;
    return Comparison::kFailed;
}

// Where the rows before end is asked of the new file: its ids have been compared then, row by row.
Comparison Verification::begin(long long rows) {
    compared_ = rows;
    lastId_.reset();
    if (SyslogDBExtkeyMapGet(newPath_, SYSLOG_EXTKEY_HOST, keys_.hosts) != 0 ||
        SyslogDBExtkeyMapGet(newPath_, SYSLOG_EXTKEY_PROGRAM, keys_.programs) != 0 ||
        SyslogDBExtkeyMapGet(newPath_, SYSLOG_EXTKEY_FACILITY, keys_.facilities) != 0) {
        return failed(newPath_, "its key tables");
    }
    if (rows == 0) return Comparison::kEqual;
    std::list<_SYSLOG_SQL_COND_tag> all;
    _SYSLOG_SQL_LIMIT_tag limit{1, rows - 1};
    _SYSLOG_SQL_ORDER_tag order{0, 0};
    const auto takeId = [](_SYSLOG_LOG_DATA_tag& row, void* id) {
        *static_cast<std::optional<long long>*>(id) = numberOf(row.rowId);
        return 0;
    };
    if (SyslogDBSelect(newPath_, all, &limit, &order, takeId, &lastId_, false) < 0 || !lastId_) {
        return failed(newPath_, "it lacks rows");
    }
    return Comparison::kEqual;
}

Comparison Verification::next(long long count) {
    std::vector<ExpectedRow> expected;
    if (const int code = readExpected(old_, lastId_, count, expected)) {
        return failed(old_.path(), sqlite3_errstr(code));
    }
    NewRows rows{keys_, expected};
    std::list<_SYSLOG_SQL_COND_tag> all;
    _SYSLOG_SQL_LIMIT_tag limit{count, compared_};
    _SYSLOG_SQL_ORDER_tag order{0, 0};
    const int result = SyslogDBSelect(newPath_, all, &limit, &order, compareRow, &rows, false);
    if (!rows.differ && result < 0) return failed(newPath_, "its rows");
    if (rows.differ || static_cast<long long>(rows.seen) != count) {
        const bool isExtra = rows.seen >= expected.size();
        error_ = (isExtra ? "a row" : "row " + std::to_string(expected[rows.seen].id)) + " of " + newPath_ +
                 " is not as in " + old_.path();
        return Comparison::kDiffers;
    }
    compared_ += count;
    if (!expected.empty()) lastId_ = expected.back().id;
    return Comparison::kEqual;
}

}  // namespace ombrel
