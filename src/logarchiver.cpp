// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The archiver's configuration and the rules that make a database due.
#include "ombrel/logarchiver.h"

#include <ctime>

#include "platform/veskcore.h"
#include "platform/vesksyslog.h"
#include "src/fixed_paths.h"

namespace {

/// Numbers are dumped as the platform writes them: sign-extended to 64 bits and printed unsigned.
std::string numberText(long long value) {
    return ullNumberToString(static_cast<unsigned long long>(value));
}

void dump(const LogArchiver& archiver) {
    Debuger::MSG(2, "======Archiver Configuration======>");
    Debuger::MSG(2, "ArchCount: " + numberText(archiver.ArchCount));
    Debuger::MSG(2, "ArchInterval: " + numberText(archiver.ArchInterval));
    Debuger::MSG(2, "ArchSize: " + numberText(archiver.ArchSize));
    Debuger::MSG(2, "ArchFmt: " + numberText(archiver.ArchFmt));
    Debuger::MSG(2, "Compress: " + numberText(archiver.Compress));
    Debuger::MSG(2, "ByDevice: " + numberText(archiver.ByDevice));
    Debuger::MSG(2, "strArchDest: " + archiver.strArchDest);
    Debuger::MSG(2, "LastArchTime: " + numberText(archiver.LastArchTime));
    Debuger::MSG(2, "");
}

}  // namespace

LogArchiver::LogArchiver() {
    if (ConfigLoad(kSettingsFile) < 0) Debuger::MSG(0, "Fail to load configuration");
}

LogArchiver::~LogArchiver() = default;

int LogArchiver::ConfigLoad(const std::string& path) {
    _SYSLOG_CONF_SETTINGS_tag settings;
    if (SyslogConfGet(path, settings) < 0) {
        Debuger::MSG(0, "Fail to get syslog configuration");
        return -1;
    }
    ArchCount = settings.arch_count_enable != 0 ? settings.arch_count : 0;
    ArchInterval = settings.arch_time_enable != 0 ? settings.arch_time : 0;
    ArchSize = settings.arch_size;
    ArchFmt = settings.arch_fmt;
    Compress = settings.arch_compress;
    ByDevice = settings.arch_by_device;
    strArchDest = settings.arch_dest;
    LastArchTime = settings.arch_last_time != 0 ? settings.arch_last_time : time(nullptr);
    dump(*this);
    return 0;
}

std::list<_SYSLOG_WORKING_DB_tag> LogArchiver::ArchiveCheck() {
    const long long now = time(nullptr);
    // A rule that is off does not probe; the first rule that holds decides.
    const auto isDue = [&](const std::string& path) {
        if (ArchCount != 0 && DBCountGet(path) > ArchCount) return true;
        if (ArchInterval != 0 && now - DBStartTimeGet(path) > ArchInterval) return true;
        return ArchSize != 0 && DBSizeGet(path) > ArchSize;
    };
    std::list<_SYSLOG_WORKING_DB_tag> due;
    for (const auto& db : CurrentWorkingDBGet()) {
        if (VLIBCFileExist(db.strDBPath.c_str()) != 0 && isDue(db.strDBPath)) due.push_back(db);
    }
    return due;
}

int LogArchiver::DoArchive(std::list<_SYSLOG_WORKING_DB_tag>& list, bool flag) {
    int failed = 0;
    for (auto& db : list) {
        if (DBCountGet(db.strDBPath) <= 0) continue;
        if (DoArchive(db, flag) < 0) {
            Debuger::MSG(0, "Fail to archive database " + db.strDBPath);
            failed = 1;
        }
    }
    return -failed;
}

int LogArchiver::ArchiveAll() {
    auto all = CurrentWorkingDBGet();
    if (DoArchive(all, false) < 0) {
        Debuger::MSG(0, "Fail to archive all working database");
        return -1;
    }
    return 0;
}
