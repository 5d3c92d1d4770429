// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The questions that the archive rules ask of one database. A failed probe never makes a database due,
// but for one that exists and cannot be opened: its start time of 0 makes it as old as can be.
#include <sys/stat.h>

#include <ctime>

#include "ombrel/logarchiver.h"
#include "platform/veskcore.h"
#include "platform/vesksyslog.h"
#include "src/fixed_paths.h"

namespace {

constexpr long long kMebibyte = 1048576;

long long recordedTime(const std::string& path, long long (DBHandler::*question)()) {
    DBHandler db(path, kSchemaFile);
    if (VLIBCFileExist(path.c_str()) == 0) return time(nullptr);
    long long seconds = 0;
    if (db.DBCon() < 0) {
        Debuger::MSG(0, "Fail to connect to database");
    } else {
        seconds = (db.*question)();
    }
    (void)db.DBDiscon();
    return seconds;
}

}  // namespace

int LogArchiver::DBSizeGet(const std::string& path) {
    struct stat64 status {};
    if (stat64(path.c_str(), &status) != 0) {
        Debuger::MSG(0, "Fail to state file status");
        return -1;
    }
    return static_cast<int>(status.st_size / kMebibyte);
}

long long LogArchiver::DBStartTimeGet(const std::string& path) {
    return recordedTime(path, &DBHandler::DBInfoStartGet);
}

long long LogArchiver::DBEndTimeGet(const std::string& path) {
    return recordedTime(path, &DBHandler::DBInfoEndGet);
}

long long LogArchiver::DBCountGet(const std::string& path) {
    DBHandler db(path, kSchemaFile);
    long long rows = -1;
    if (VLIBCFileExist(path.c_str()) != 0) {
        if (db.DBCon() < 0) {
            Debuger::MSG(0, "Fail to connect to database");
        } else {
            rows = db.DBInfoCntGet();
        }
    }
    (void)db.DBDiscon();
    return rows;
}
