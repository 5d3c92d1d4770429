// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The fixture of the post-processor's tests.
#pragma once

#include <string>

#include "ombrel/postprocessor.h"
#include "tests/fake/platform_test.h"
#include "tests/unit/sample_settings.h"

namespace ombrel::test {

class PostProcessorTest : public PlatformTest {
protected:
    PostProcessorTest() {
        platform.messages.clear();
        platform.calls.clear();
    }

    PostProcessor processor;  // without a settings file
};

/// Row `number` of a version-2 database whose keys `textKeys` resolves.
inline _SYSLOG_LOG_DATA_tag textRow(int number) {
    _SYSLOG_LOG_DATA_tag row;
    row.rowId = std::to_string(number);
    row.timestamp = "1709424000";
    row.receiveTime = "1709424001";
    row.priority = SYSLOG_DB_PRIORITY_WARNING;
    row.senderId = "9";
    row.hostId = "1";
    row.processId = "777";
    row.facilityId = "3";
    row.messageId = "ID47";
    row.date = "2024-03-03";
    row.time = "01:02:03";
    row.programId = "2";
    row.message = "message " + std::to_string(number);
    return row;
}

inline FakeDatabase textDatabase(int rows) {
    FakeDatabase database;
    // The same ids in every table: a column resolved through the wrong one shows.
    for (int type = 0; type < 4; ++type) {
        for (unsigned long long id = 1; id <= 3; ++id) {
            database.keys[type][id] = "table" + std::to_string(type) + "-" + std::to_string(id);
        }
    }
    for (int number = 1; number <= rows; ++number)
        database.rows.push_back(textRow(number));
    return database;
}

}  // namespace ombrel::test
