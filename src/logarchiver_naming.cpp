// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Names and folders of archives.
#include <cerrno>
#include <cstring>

#include "ombrel/logarchiver.h"
#include "ombrel/utils_updater.h"
#include "platform/veskcore.h"
#include "platform/vesksdk.h"
#include "platform/vesksyslog.h"
#include "src/fixed_paths.h"
#include "src/logarchiver_internal.h"

namespace {

constexpr std::size_t kExtensionLength = 3;
constexpr const char* kExtension = ".DB";
constexpr const char* kUnreadableName = "1970-01-01_1970-01-01.DB";
constexpr int kHighestNumber = 1000;
constexpr int kFolderMode = 0755;

/// The archive's name by the days that the database covers; without a folder, not yet numbered.
std::string dayName(std::string& dbPath) {
    std::string name = kUnreadableName;
    DBHandler db(dbPath, kSchemaFile);
    if (db.DBCon() < 0) {
        Debuger::MSG(0, "Fail to connect to database");
    } else if (SyslogDBVersionGet(dbPath) == 1) {
        name = SyslogUpdaterArchNameGet(dbPath);
    } else {
        const std::string firstDay = db.DBInfoStartStrGet();
        name = firstDay + "_" + db.DBInfoEndStrGet() + kExtension;
    }
    (void)db.DBDiscon();
    return name;
}

/// The first of NAME, STEM_1, ... STEM_1000 that does not exist in `folder`; empty when all do.
std::string freeName(const std::string& folder, const std::string& name) {
    const std::string stem = withoutExtension(name);
    std::string candidate = name;
    for (int number = 0; number <= kHighestNumber; ++number) {
        if (number > 0) candidate = stem + "_" + std::to_string(number) + kExtension;
        if (VLIBCFileExist((folder + "/" + candidate).c_str()) == 0) return candidate;
    }
    Debuger::MSG(0, "Cannot find propriate archive destination");
    return {};
}

}  // namespace

std::string withoutExtension(const std::string& path) {
    return path.size() < kExtensionLength ? path : path.substr(0, path.size() - kExtensionLength);
}

std::string DBSuffixNameGet(const std::string& name, const std::string& tag) {
    return withoutExtension(name) + "_" + tag;
}

std::string LogArchiver::ArchDestGet(_SYSLOG_WORKING_DB_tag& db) {
    const std::string folder = ByDevice == 0 ? strArchDest + "/" : strArchDest + "/" + db.strDevice + "/";
    if (VESKFSMkdirP(folder.c_str(), 0, 0, -1, -1, kFolderMode) < 0) {
        const std::string reason = strerror(errno);
        Debuger::MSG(0,
                     "VESKFSMkdirP fails to create archive destination folder: " + folder + " (" + reason + ")");
        return {};
    }
    const std::string name = freeName(folder, dayName(db.strDBPath));
    if (name.empty()) {
        Debuger::MSG(0, "Fail to compose archive destination file name");
        return {};
    }
    return folder + name;
}
