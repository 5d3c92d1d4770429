// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Applies a change of the storage settings: what was stored under the old settings is archived under them,
// before the new ones are written. The numbers are the lines that the messages name.
#include <syslog.h>

#include "ombrel/logarchiver.h"
#include "ombrel/utils.h"
#include "platform/veskserviceconf.h"
#include "src/fixed_paths.h"
#include "src/no_throw.h"
#include "src/platform_handles.h"
#include "src/service_jobs.h"
#include "src/settings_keys.h"

namespace {

using ombrel::Hash;
using Settings = _SYSLOG_CONF_SETTINGS_tag;

constexpr const char* kUnit = "utils";

/// The share and the folder of the database take no part: they are written along with a change, and a change
/// of them alone is none.
bool isUnchanged(const Settings& current, const Settings& wanted) {
    return current.arch_time == wanted.arch_time && current.arch_size == wanted.arch_size &&
           current.arch_count == wanted.arch_count && current.arch_fmt == wanted.arch_fmt &&
           current.arch_compress == wanted.arch_compress && current.arch_by_device == wanted.arch_by_device &&
           current.arch_last_time == wanted.arch_last_time &&
           current.system_flush_line == wanted.system_flush_line &&
           current.system_flush_timeout == wanted.system_flush_timeout &&
           current.arch_time_enable == wanted.arch_time_enable &&
           current.arch_count_enable == wanted.arch_count_enable &&
           current.localarchive_enable == wanted.localarchive_enable && current.arch_dest == wanted.arch_dest;
}

int archiveEverything(LogArchiver& archiver) {
    if (archiver.ArchiveAll() >= 0) return 0;
    syslog(LOG_ERR, "%s:%d Fail to archive all working database", kUnit, 656);
    return -1;
}

int writeKeys(const Hash& hash, const std::string& path, Settings& wanted) {
    ombrel::SettingsKeys keys(hash.get());
    keys.text("server_db_loc", wanted.server_db_loc);
    keys.text("server_db_path", wanted.server_db_path);
    keys.number("arch_time", wanted.arch_time);
    keys.number("arch_size", wanted.arch_size);
    keys.number("arch_count", wanted.arch_count);
    keys.format("arch_fmt", wanted.arch_fmt);
    keys.toggle("arch_compress", wanted.arch_compress);
    keys.toggle("arch_by_device", wanted.arch_by_device);
    keys.text("arch_dest", wanted.arch_dest);
    keys.number("arch_last_time", wanted.arch_last_time);
    keys.number("system_flush_line", wanted.system_flush_line);
    keys.number("system_flush_timeout", wanted.system_flush_timeout);
    keys.toggle("arch_time_enable", wanted.arch_time_enable);
    keys.toggle("arch_count_enable", wanted.arch_count_enable);
    return keys.areComplete() ? SyslogFileKeySet(hash.get(), path, wanted) : -1;
}

/// Restarted, a receiver takes up the new settings; one that is off will when it is started.
int restartRunning(const char* job, int line) {
    if (VLIBServicectlIsJobRunning(job, 0) == 0) return 0;
    if (VLIBServicectlRestart(job, 0) >= 0) return 0;
    syslog(LOG_ERR, "%s:%d Fail to restart service (%s)", kUnit, line, job);
    return -1;
}

int apply(LogArchiver& archiver, const std::string& path, const Settings& current, Settings& wanted, Hash& keys) {
    if (stopServiceJob(kLocalArchiveJob, 645) < 0) return -1;
    if (!current.arch_dest.empty() && archiveEverything(archiver) < 0) return -1;
    keys.reset(VLIBCSzHashAlloc(ombrel::kSettingsHashEntries));
    if (keys == nullptr || writeKeys(keys, path, wanted) < 0) return -1;
    if (restartRunning(kBsdJob, 685) < 0) return -1;
    if (restartRunning(kIetfJob, 691) < 0) return -1;
    if (restartRunning(kCustomRuleJob, 697) < 0) return -1;
    return SyslogServiceEnableSet(kLocalArchiveJob, "Local log archiving", current.localarchive_enable != 0,
                                  wanted.localarchive_enable != 0);
}

}  // namespace

int SyslogStorageConfSet(const std::string& path, _SYSLOG_CONF_SETTINGS_tag& current,
                         _SYSLOG_CONF_SETTINGS_tag& wanted) {
    return ombrel::orFailure(-1, [&] {
        LogArchiver archiver;
        Hash keys;
        return isUnchanged(current, wanted) ? 0 : apply(archiver, path, current, wanted, keys);
    });
}

int SyslogConfSet(const std::string& path, _SYSLOG_CONF_SETTINGS_tag& wanted) {
    if (path.empty()) return -2;
    return ombrel::orFailure(-1, [&] {
        Settings current;
        if (SyslogConfGet(kSettingsFile, current) < 0) return -1;
        if (SyslogServerConfSet(path, current, wanted) < 0) return -1;
        return SyslogStorageConfSet(path, current, wanted) < 0 ? -1 : 0;
    });
}
