// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/schedule_run.h"

#include <algorithm>
#include <climits>
#include <ctime>

#include "ombrel/utils.h"
#include "src/fixed_paths.h"
#include "src/platform_handles.h"
#include "tools/ombrel/archive_commands.h"
#include "tools/ombrel/error_text.h"
#include "tools/ombrel/retention_settings.h"
#include "tools/ombrel/schedule_report.h"

namespace ombrel {

namespace {

/// The key alone: a change of the storage settings would archive everything. The number is one that every reader's
/// int holds.
bool recordTime(long long now) {
    const Hash keys(VLIBCSzHashAlloc(1024));
    const std::string value = std::to_string(std::min<long long>(now, INT_MAX));
    if (!keys || VLIBCSzHashSetValue(keys.get(), "arch_last_time", value.c_str()) < 0) return false;
    _SYSLOG_CONF_SETTINGS_tag unused;
    return SyslogFileKeySet(keys.get(), kSettingsFile, unused) == 0;
}

void recordOrTell(ScheduleReport& report, long long now) {
    VLIBCErrSetEx(0, "", 0);
    if (recordTime(now)) return;
    const std::string why = errorText(VLIBCErrGet());
    report.problem("the time of the run could not be recorded in " + std::string(kSettingsFile) +
                   (why.empty() ? "" : " (" + why + ")"));
}

/// Without a limit no archive is looked at.
const Retention* look(ScheduleReport& report, std::optional<Retention>& retention, const LogArchiver& archiver,
                      const RetentionSettings& settings, long long now) {
    if (!settings.isOn()) return nullptr;
    retention.emplace(archiver.strArchDest, settings, now);
    for (const std::string& note : retention->notes())
        report.problem(note);
    report.setRetention(*retention);
    return &*retention;
}

void previewArchiving(ScheduleReport& report, LogArchiver& archiver) {
    for (const auto& db : archiver.ArchiveCheck()) {
        const long long rows = rowsOf(archiver, db.strDBPath);
        using End = Archiving::End;
        report.archiving({db.strDBPath, rows, rows < 0 ? End::kUnreadable : rows == 0 ? End::kEmpty : End::kDone});
    }
}

}  // namespace

int runSchedule(const Context& context, const std::function<bool()>& goesOn) {
    LogArchiver archiver;
    if (const int code = loadArchiver(archiver)) return code;
    // Archiving does not wait for limits that cannot be read; nothing is removed then.
    const RetentionRead limits = readRetention();
    const long long now = std::time(nullptr);
    ScheduleReport report(context, false);
    if (!limits.settings) {
        report.failed(limits.exitCode, "the limits of the retention cannot be read; no archive is removed");
    }
    archiveEach(
        archiver, archiver.ArchiveCheck(), [&report](const Archiving& each) { report.archiving(each); }, goesOn);
    recordOrTell(report, now);
    std::optional<Retention> retention;
    if (const Retention* found =
            look(report, retention, archiver, limits.settings.value_or(RetentionSettings{}), now)) {
        found->apply(
            [&report](const Removal& removal, const std::string& wrong) { report.removal(removal, wrong); },
            goesOn);
    }
    return report.end(now);
}

int previewSchedule(const Context& context) {
    LogArchiver archiver;
    if (const int code = loadArchiver(archiver)) return code;
    const RetentionRead limits = readRetention();
    if (!limits.settings) return limits.exitCode;
    const long long now = std::time(nullptr);
    ScheduleReport report(context, true);
    previewArchiving(report, archiver);
    std::optional<Retention> retention;
    if (const Retention* found = look(report, retention, archiver, *limits.settings, now)) {
        for (const Removal& removal : found->plan().removals)
            report.removal(removal);
    }
    return report.end(now);
}

}  // namespace ombrel
