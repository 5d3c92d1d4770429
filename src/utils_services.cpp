// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Switching the package's service jobs. The numbers are the lines that the messages name.
#include <syslog.h>

#include "ombrel/utils.h"
#include "platform/veskserviceconf.h"
#include "platform/vesksyslog.h"
#include "src/fixed_paths.h"
#include "src/no_throw.h"
#include "src/platform_handles.h"
#include "src/service_jobs.h"
#include "src/settings_keys.h"

namespace {

using ombrel::Hash;

constexpr const char* kUnit = "utils";

int start(const char* job, int line) {
    if (VLIBServicectlJobStart(job) >= 0) return 0;
    syslog(LOG_ERR, "%s:%d fail to start service (%s)", kUnit, line, job);
    return -1;
}

int reload(const char* job, int line) {
    if (VLIBServicectlJobReload(job) >= 0) return 0;
    syslog(LOG_ERR, "%s:%d fail to restart service (%s)", kUnit, line, job);
    return -1;
}

int startStopped(const char* job, int line) {
    if (VLIBServicectlJobStart(job) >= 0) return 0;
    syslog(LOG_ERR, "%s:%d Fail to restart service (%s)", kUnit, line, job);
    return -1;
}

int record(const Hash& keys, const char* job, bool enabled) {
    if (VLIBCSzHashSetValue(keys.get(), job, enabled ? "yes" : "no") < 0) return -1;
    return VLIBCFileSetKeys(kEnabledJobsFile, keys.get(), 0, ombrel::kSettingsLineFormat);
}

int bringTo(const std::string& job, const std::string& description, bool wasEnabled, bool enable) {
    Logger events;
    const Hash keys(VLIBCSzHashAlloc(ombrel::kSettingsHashEntries));
    if (keys == nullptr) return -1;
    if (enable && startStopped(job.c_str(), wasEnabled ? 367 : 372) < 0) return -1;
    if (enable == wasEnabled) return 0;
    if (record(keys, job.c_str(), enable) < 0) return -1;
    if (enable) {
        events.LogAddServStart(description);
    } else {
        events.LogAddServStop(description);
    }
    return 0;
}

}  // namespace

int stopServiceJob(const char* job, int line) {
    if (VLIBServicectlJobStop(job) >= 0) return 0;
    syslog(LOG_ERR, "%s:%d fail to stop service (%s)", kUnit, line, job);
    return -1;
}

int SyslogUpstartJobEnable(__SYSLOG_SERVICE_ENABLE_CMD_tag cmd, char* jobName) {
    switch (cmd) {
        case SYSLOG_SERVICE_START:
            return start(jobName, 319);
        case SYSLOG_SERVICE_STOP:
            return stopServiceJob(jobName, 325);
        case SYSLOG_SERVICE_RESTART:
            return stopServiceJob(jobName, 331) < 0 ? -1 : start(jobName, 335);
        case SYSLOG_SERVICE_RELOAD:
            return reload(jobName, 341);
        default:
            return -1;
    }
}

int SyslogServiceEnableSet(const std::string& jobName, const std::string& description, bool wasEnabled,
                           bool enable) {
    return ombrel::orFailure(-1, [&] { return bringTo(jobName, description, wasEnabled, enable); });
}
