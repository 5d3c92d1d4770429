// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Finds the working databases on disk.
#include <syslog.h>

#include "ombrel/logarchiver.h"
#include "src/platform_handles.h"

namespace {

using ombrel::lend;
using ombrel::List;
using WorkingList = std::list<_SYSLOG_WORKING_DB_tag>;

constexpr const char* kUnit = "logarchiver";
constexpr const char* kPrefix = "VESKSYSLOGDB_";
constexpr const char* kExtension = ".DB";
constexpr int kFolderListEntries = 1024;
constexpr int kSubFolders = 0x40;
constexpr int kOutOfMemory = 0x200;

/// The databases that lie in the archive folder itself. Any answer but 0 counts as present.
void addFixed(WorkingList& found, const std::string& folder, const std::string& device, const std::string& tag) {
    const std::string name = kPrefix + tag + kExtension;
    const std::string path = folder + "/" + name;
    if (VLIBCFileExist(path.c_str()) != 0) found.push_back({device, name, path});
}

/// One database for each host, in a sub-folder of its name. Only a positive answer counts as present.
void addHosts(WorkingList& found, const std::string& folder) {
    List names(VLIBCSzListAlloc(kFolderListEntries));
    if (names == nullptr) {
        syslog(LOG_ERR, "%s:%d Failed to alloc pFolderList", kUnit, 80);
        VLIBCErrSetEx(kOutOfMemory, kUnit, 81);
        return;
    }
    const auto enumerate = [&](VLIBSZLIST** list) {
        return VLIBCFileEnumDir(folder.c_str(), 0, list, kSubFolders);
    };
    if (lend(names, enumerate) < 0) {
        syslog(LOG_ERR, "%s:%d Failed to enum hostname folder under %s", kUnit, 86, folder.c_str());
        return;
    }
    for (int i = 0; i < names->count; ++i) {
        const char* text = VLIBCSzListGet(names.get(), i);
        if (text == nullptr) continue;
        const std::string host = text;
        const std::string name = kPrefix + host + kExtension;
        const std::string path = folder + "/" + host + "/" + name;
        if (VLIBCFileExist(path.c_str()) > 0) found.push_back({host, name, path});
    }
}

}  // namespace

std::list<_SYSLOG_WORKING_DB_tag> LogArchiver::CurrentWorkingDBGet() {
    WorkingList found;
    addFixed(found, strArchDest, "local", "_LOCALARCH");
    if (ByDevice == 0) {
        addFixed(found, strArchDest, "_ARCH", "_ARCH");
    } else {
        addHosts(found, strArchDest);
    }
    return found;
}

bool SameDevice(_SYSLOG_WORKING_DB_tag a, _SYSLOG_WORKING_DB_tag b) {
    return a.strDBPath == b.strDBPath;
}
