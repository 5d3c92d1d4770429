// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// How far the upgrade of a log database is: rows of the old one, rows of the new one. A database is of the
// old layout exactly when it is there and the log database handle cannot count its rows.
#include <syslog.h>

#include <cstdlib>
#include <string>

#include "ombrel/utils_updater.h"
#include "platform/vesksyslog.h"
#include "src/fixed_paths.h"
#include "src/no_throw.h"
#include "src/platform_handles.h"

namespace {

using ombrel::Connection;
using ombrel::lend;
using ombrel::orFailure;
using ombrel::Result;

constexpr const char* kUnit = "utils_updater";
constexpr int kFailed = -1;
constexpr int kNotOneRow = -2;

/// The number in the one row of `result`; -1 without a row, -2 with more of them.
int countIn(VESKDBRESULT* result) {
    int row = 0;
    if (VESKDBFetchRow(result, &row) < 0) {
        syslog(LOG_ERR, "Fail to fetch row");
        return kFailed;
    }
    if (VESKDBNumRows(result) != 1) return kNotOneRow;
    const char* text = VESKDBFetchField(result, row, "COUNT(*)");
    // Narrowed, as the recorded count of the new database is: from 2^31 rows on the two no longer tell.
    return static_cast<int>(std::strtoll(text != nullptr ? text : "", nullptr, 10));
}

/// The messages of this question name neither unit nor line.
int rowsOfOldDatabase(const std::string& path) {
    if (path.empty() || path.front() != '/') {
        syslog(LOG_ERR, "Invalid syslog db path!");
        return kFailed;
    }
    const Connection connection(VESKDBConnect(nullptr, nullptr, nullptr, path.c_str()));
    if (connection == nullptr) {
        syslog(LOG_ERR, "Fail to connect syslog log database");
        return kFailed;
    }
    Result result;
    const int executed = lend(result, [&](VESKDBRESULT** out) {
        return VESKDBExecute(connection.get(), "SELECT COUNT(*) FROM logs", out);
    });
    if (executed < 0) {
        syslog(LOG_ERR, "Fail to select syslog log database");
        return kFailed;
    }
    return countIn(result.get());
}

/// Disconnects whatever becomes of the connection.
class NewDatabase {
public:
    explicit NewDatabase(const std::string& path) : handler(path, kSchemaFile) {}
    ~NewDatabase() { (void)handler.DBDiscon(); }
    NewDatabase(const NewDatabase&) = delete;
    NewDatabase& operator=(const NewDatabase&) = delete;

    DBHandler handler;
};

int rowsOfNewDatabase(const std::string& path) {
    NewDatabase db(path);
    if (db.handler.DBCon() < 0) {
        syslog(LOG_ERR, "%s:%d Fail to connect to database", kUnit, 182);
        return kFailed;
    }
    const int rows = static_cast<int>(db.handler.DBInfoCntGet());
    if (rows < 0) syslog(LOG_ERR, "%s:%d Fail to get log count", kUnit, 187);
    return rows;
}

}  // namespace

int SyslogUpdaterOldDbTotalGet(std::string& oldPath) {
    return orFailure(kFailed, [&] { return rowsOfOldDatabase(oldPath); });
}

bool SyslogUpdaterUpdDbCheck(std::string& newPath) {
    return VLIBCFileExist(newPath.c_str()) != 0;
}

int SyslogUpdaterUpdDbProgGet(std::string& newPath) {
    return orFailure(kFailed, [&] { return rowsOfNewDatabase(newPath); });
}

bool SyslogUpdaterOldDbCheck(std::string& path) {
    return VLIBCFileExist(path.c_str()) != 0 && SyslogUpdaterUpdDbProgGet(path) < 0;
}

bool SyslogUpdaterUpdCompete(std::string& oldPath, std::string& newPath) {
    const int total = SyslogUpdaterOldDbTotalGet(oldPath);
    if (total < 0) {
        syslog(LOG_ERR, "%s:%d Fail to get old database total count", kUnit, 203);
        return false;
    }
    const int progress = SyslogUpdaterUpdDbProgGet(newPath);
    if (progress < 0) {
        syslog(LOG_ERR, "%s:%d Fail to get database upgrade progress", kUnit, 210);
        return false;
    }
    return total == progress;
}
