// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Archives one database. The order is the design: move the file away, restart the log writer so that it
// begins a fresh one, and only then start the slow post-processing, which nobody waits for.
#include <syslog.h>

#include <cstdlib>

#include "ombrel/logarchiver.h"
#include "platform/veskserviceconf.h"
#include "platform/vesksyslog.h"
#include "src/fixed_paths.h"
#include "src/logarchiver_internal.h"
#include "src/platform_handles.h"

namespace {

using ombrel::lend;
using ombrel::List;

constexpr const char* kWriterJob = "pkg-Ombrel-syslog";
constexpr int kArgumentListEntries = 1024;

bool push(List& list, const char* text) {
    return lend(list, [&](VLIBSZLIST** raw) { return VLIBCSzListPush(raw, text); }) >= 0;
}

/// The argument vector of the post-processing tool, ended by a null item; nothing when memory is short.
List postProcessArguments(const std::string& archive) {
    List arguments(VLIBCSzListAlloc(kArgumentListEntries));
    if (arguments == nullptr) return arguments;
    const std::string dbPath = "--dbpath=" + archive;
    if (!push(arguments, kPostProcessTool) || !push(arguments, dbPath.c_str()) || !push(arguments, "")) return {};
    arguments->items[arguments->count - 1] = nullptr;
    return arguments;
}

/// A companion that does not exist or cannot be moved stops nothing.
void moveCompanions(const std::string& from, const std::string& to) {
    for (const char* tag : {"SYS", "CON", "XFER"}) {
        (void)SyslogDBFileMove(DBSuffixNameGet(from, tag), DBSuffixNameGet(to, tag));
    }
}

void startPostProcessing(const List& arguments) {
    if (VLIBCProcForkChildNoWait() != 0) return;
    if (VLIBCExecv(kPostProcessTool, arguments->items, 0) < 0) {
        Debuger::MSG(0, "Fail to do syslog database post process");
    }
    exit(0);
}

int archive(const std::string& source, const std::string& dest) {
    if (dest.empty()) {
        Debuger::MSG(0, "Fail to get archive destination path");
        return -1;
    }
    if (SyslogDBFileMove(source, dest) < 0) {
        Debuger::MSG(0, "Fail to move database: " + source + " to " + dest);
        return -1;
    }
    moveCompanions(source, dest);
    if (VLIBServicectlRestart(kWriterJob, 0) < 0) {
        syslog(LOG_ERR, "Fail to send HUP signal to syslog-ng");
        return -1;
    }
    const List arguments = postProcessArguments(dest);
    if (arguments == nullptr) {
        Debuger::MSG(0, "Out of memory");
        return -1;
    }
    startPostProcessing(arguments);
    return 0;
}

}  // namespace

int LogArchiver::DoArchive(_SYSLOG_WORKING_DB_tag& db, bool /*flag*/) {
    Logger events;
    const std::string dest = ArchDestGet(db);
    const int result = archive(db.strDBPath, dest);
    if (result < 0) {
        events.LogAddArchFailed(dest);
    } else {
        events.LogAddArchFinish(dest);
    }
    return result;
}
