// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/status_gather.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>

#include "tools/ombrel/event_history.h"
#include "tools/ombrel/job_names.h"
#include "tools/ombrel/machine_places.h"
#include "tools/ombrel/settings_file.h"
#include "tools/ombrel/status_machine.h"

namespace ombrel {

namespace {

/// As many as a tall terminal shows.
constexpr std::size_t kMostEvents = 20;

void lookAtVolume(const std::string& folder, StatusReport& report) {
    report.volume = volumeOf(folder);
    if (!report.volume)
        report.notes.push_back("the free space of " + folder + " is not known: " + std::strerror(errno));
}

void lookAtEvents(StatusReport& report) {
    EventQuery query;
    query.most = kMostEvents;
    EventHistory history = readEventHistory(eventFile(), query);
    if (history.error == 0) {
        report.events = std::move(history.records);
    } else if (history.error == EACCES) {
        report.notes.push_back(eventFile() + " may not be read; root can read it");
    } else {
        report.notes.push_back(eventFile() + " cannot be read: " + std::strerror(history.error));
    }
}

/// The jobs that nobody switches by name: that of the rules is needed where a rule is on, the log writer by
/// whoever receives.
void wantJobs(StatusReport& report) {
    for (JobStatus& job : report.jobs) {
        const std::string_view name = job.name;
        if (name != kWriterJob && name != kCustomRuleJob) continue;
        job.isWanted = std::any_of(report.receivers.begin(), report.receivers.end(), [&](const auto& receiver) {
            const bool isMeant = name == kWriterJob || receiver.kind == ReceiverStatus::Kind::kRule;
            return isMeant && (receiver.isWanted || receiver.running.value_or(false));
        });
    }
}

/// The settings know the last run of the schedule; of what was archived otherwise there is but the event.
long long lastArchived(const SettingsRecord& settings, const StatusReport& report) {
    long long last = settings.arch_last_time;
    if (!report.events) return last;
    for (const EventRecord& event : *report.events) {
        if (event.line.event == "archive_finished") last = std::max(last, event.time);
    }
    return last;
}

}  // namespace

StatusReport StatusWatch::look() {
    StatusReport report;
    report.time = time(nullptr);
    receivers_.lookAtJobs(report);
    SettingsRead settings = tryReadSettings();
    report.exitCode = settings.exitCode;
    if (settings.record) {
        receivers_.lookAtReceivers(*settings.record, report);
        databases_.look(*settings.record, report);
        lookAtVolume(settings.record->arch_dest, report);
    } else {
        report.complaint = settings.complaint;
        report.notes.push_back(settings.complaint);
    }
    wantJobs(report);
    lookAtEvents(report);
    if (settings.record) report.lastArchived = lastArchived(*settings.record, report);
    return report;
}

}  // namespace ombrel
