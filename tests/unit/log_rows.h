// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Log databases of the recording platform with rows that can be told apart.
#pragma once

#include <string>

#include "tests/fake/fake_platform.h"

namespace ombrel::test {

/// The hosts are alpha (1) and beta (2), the programs sshd (1) and cron (2), the facility is auth.
inline FakeDatabase emptyLogs() {
    FakeDatabase database;
    database.keys[SYSLOG_EXTKEY_HOST] = {{1, "alpha"}, {2, "beta"}};
    database.keys[SYSLOG_EXTKEY_PROGRAM] = {{1, "sshd"}, {2, "cron"}};
    database.keys[SYSLOG_EXTKEY_SENDER] = {{1, "192.0.2.7"}};
    database.keys[SYSLOG_EXTKEY_FACILITY] = {{1, "auth"}};
    return database;
}

struct RowMade {
    int host = 1;
    int program = 1;
    int severity = 6;
};

/// A row of 2 January 1970, `second` of that day, with the next id.
inline void addRow(FakeDatabase& database, int second, const std::string& message, RowMade made = {}) {
    _SYSLOG_LOG_DATA_tag row;
    row.rowId = std::to_string(database.rows.size() + 1);
    row.timestamp = std::to_string(86400 + second);
    row.receiveTime = row.timestamp;
    row.priority = static_cast<_SYSLOG_DB_PRIORITY_tag>(made.severity);
    row.senderId = "1";
    row.hostId = std::to_string(made.host);
    row.facilityId = "1";
    row.programId = std::to_string(made.program);
    row.date = "1970-01-02";
    char clock[16];
    (void)std::snprintf(clock, sizeof clock, "%02d:%02d:%02d", second / 3600, second / 60 % 60, second % 60);
    row.time = clock;
    row.message = message;
    database.rows.push_back(row);
}

}  // namespace ombrel::test
