// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Names of databases of the old layout.
#include "ombrel/utils_updater.h"

#include <syslog.h>

#include "src/no_throw.h"
#include "src/platform_handles.h"

namespace {

using ombrel::Connection;
using ombrel::lend;
using ombrel::Result;

constexpr const char* kUnit = "utils_updater";

/// Runs `sql` and takes the day from its first row. The two lines go into the failure messages.
bool readDay(VESKDBCONN* connection, const char* sql, int executeLine, int fetchLine, std::string& day) {
    Result result;
    const int executed = lend(result, [&](VESKDBRESULT** out) { return VESKDBExecute(connection, sql, out); });
    if (executed < 0) {
        syslog(LOG_ERR, "%s:%d Fail to execute SQL command: %s", kUnit, executeLine, sql);
        return false;
    }
    int row = 0;
    if (VESKDBFetchRow(result.get(), &row) < 0) {
        syslog(LOG_ERR, "%s:%d Fail to fetch row", kUnit, fetchLine);
        return false;
    }
    const char* text = VESKDBFetchField(result.get(), row, "ldate");
    day = text != nullptr ? text : "";
    return true;
}

std::string archiveNameOf(const std::string& dbPath) {
    const Connection connection(VESKDBConnect(nullptr, nullptr, nullptr, dbPath.c_str()));
    if (connection == nullptr) {
        syslog(LOG_ERR, "%s:%d Fail to open db: %s", kUnit, 235, dbPath.c_str());
        return {};
    }
    std::string firstDay;
    std::string lastDay;
    if (!readDay(connection.get(), "SELECT ldate FROM logs ORDER BY ldate ASC LIMIT 1", 242, 246, firstDay) ||
        !readDay(connection.get(), "SELECT ldate FROM logs ORDER BY ldate DESC LIMIT 1", 254, 258, lastDay)) {
        return {};
    }
    return firstDay + "_" + lastDay + ".DB";
}

}  // namespace

std::string SyslogUpdaterArchNameGet(std::string& dbPath) {
    return ombrel::orFailure(std::string(), [&] { return archiveNameOf(dbPath); });
}
