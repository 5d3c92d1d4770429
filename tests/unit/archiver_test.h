// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The fixture of the archiver's tests: an archiver whose rules and folder a test sets itself.
#pragma once

#include <string>

#include "ombrel/logarchiver.h"
#include "tests/fake/platform_test.h"
#include "tests/unit/sample_settings.h"

namespace ombrel::test {

inline constexpr const char* kDest = "/volume1/logs";
inline const std::string kLocalDb = "/volume1/logs/VESKSYSLOGDB__LOCALARCH.DB";
inline const std::string kSharedDb = "/volume1/logs/VESKSYSLOGDB__ARCH.DB";

inline std::string hostDb(const std::string& host) {
    return std::string(kDest) + "/" + host + "/VESKSYSLOGDB_" + host + ".DB";
}

/// A readable database of `rows` rows from 3 to 9 March 2024.
inline FakeDatabase march(long long rows = 5) {
    FakeDatabase database;
    database.startDay = "2024-03-03";
    database.endDay = "2024-03-09";
    database.count = rows;
    return database;
}

class ArchiverTest : public PlatformTest {
protected:
    ArchiverTest() {
        archiver.ArchCount = 0;
        archiver.ArchInterval = 0;
        archiver.ArchSize = 0;
        archiver.ByDevice = 0;
        archiver.strArchDest = kDest;
        platform.addFolder(kDest);
        platform.messages.clear();
        platform.calls.clear();
    }
    static _SYSLOG_WORKING_DB_tag record(const std::string& device, const std::string& path) {
        return {device, path.substr(path.rfind('/') + 1), path};
    }

    LogArchiver archiver;  // without a settings file
};

/// The paths of a list of working databases.
inline Lines paths(const std::list<_SYSLOG_WORKING_DB_tag>& list) {
    Lines found;
    for (const auto& db : list)
        found.push_back(db.strDBPath);
    return found;
}

}  // namespace ombrel::test
