// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// `ombrel schedule`: archives what is due and removes what is no longer kept, once or again and again.
#include <fcntl.h>
#include <sysexits.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "platform/veskserviceconf.h"
#include "tools/ombrel/commands.h"
#include "tools/ombrel/job_names.h"
#include "tools/ombrel/json_writer.h"
#include "tools/ombrel/metronome.h"
#include "tools/ombrel/retention_settings.h"
#include "tools/ombrel/schedule_run.h"
#include "tools/ombrel/settings_file.h"
#include "tools/ombrel/time_words.h"
#include "tools/ombrel/turn.h"

namespace ombrel {

namespace {

constexpr long long kLongestDistance = 7LL * 86400;

struct ScheduleWords {
    bool dryRun = false;
    long long every = 0;
    long long notifyFd = -1;
};

/// Beats until it is asked to end. What fails is told, and tried again at the next beat.
int beat(const Context& context, const ScheduleWords& words) {
    Metronome metronome;
    if (!metronome.begin(static_cast<int>(words.every), static_cast<int>(words.notifyFd))) {
        return complain(EX_OSERR, std::string("no timer, signals or readiness: ") + std::strerror(errno));
    }
    const auto goesOn = [&metronome] { return !metronome.isAskedToEnd(); };
    do {
        Turn turn;
        const Turn::Try tried = turn.tryTake();
        if (tried == Turn::Try::kBusy)
            (void)complain(EX_TEMPFAIL, "another command is at work; this run is left out");
        if (tried == Turn::Try::kTaken) (void)runSchedule(context, goesOn);
    } while (goesOn() && metronome.await());
    return 0;
}

int run(const Context& context, const ScheduleWords& words) {
    if (words.dryRun && words.every > 0) {
        return complain(EX_USAGE, "expected --dry-run or --every; ombrel schedule run --help says more");
    }
    if (words.notifyFd >= 0 && words.every == 0) return complain(EX_USAGE, "--notify-fd belongs to --every");
    if (words.notifyFd >= 0 && ::fcntl(static_cast<int>(words.notifyFd), F_GETFD) < 0) {
        return complain(EX_USAGE, "--notify-fd: that descriptor is not open");
    }
    if (words.dryRun) return previewSchedule(context);
    if (words.every > 0) return beat(context, words);
    Turn turn;
    if (const int code = turn.take()) return code;
    return runSchedule(context);
}

std::string showText(bool isRunning, long long lastRun, const RetentionSettings& limits) {
    std::string text = std::string(kScheduleJob) + (isRunning ? ": running\n" : ": stopped\n");
    text += "last run: " + (lastRun == 0 ? std::string("never") : localTimeText(lastRun)) + "\n";
    for (const std::string& line : retentionLines(limits))
        text += line + "\n";
    return text;
}

std::string showJson(bool isRunning, long long lastRun, const RetentionSettings& limits) {
    JsonWriter json;
    json.beginObject().member("job", kScheduleJob).member("running", isRunning).key("last_run");
    if (lastRun == 0) {
        json.null();
    } else {
        json.text(timeJson(lastRun));
    }
    return json.key("retention")
        .beginObject()
        .member("keep_days", limits.keepDays)
        .member("keep_bytes", limits.keepBytes)
        .member("free_bytes", limits.freeBytes)
        .endObject()
        .endObject()
        .takeLine();
}

int showSchedule(const Context& context) {
    const SettingsRead settings = readSettings();
    if (!settings.record) return settings.exitCode;
    const RetentionRead limits = readRetention();
    if (!limits.settings) return limits.exitCode;
    const bool isRunning = VLIBServicectlIsJobRunning(kScheduleJob, 0) != 0;
    const long long lastRun = settings.record->arch_last_time;
    const auto text = context.json ? showJson : showText;
    return endOfOutput(say(text(isRunning, lastRun, *limits.settings)));
}

}  // namespace

void addScheduleCommand(Command& root) {
    Command& group = root.add("schedule", "archive what is due and remove what is no longer kept");
    group
        .add("show", "tell whether the schedule's job runs, when its last run was, and how long archives are kept")
        .example("ombrel schedule show")
        .run(showSchedule);
    auto words = std::make_shared<ScheduleWords>();
    group.add("run", "archive what is due, record the time of the run, and remove what is no longer kept")
        .describe("The job " + std::string(kScheduleJob) +
                  " does so every few minutes once it is started: ombrel job "
                  "start " +
                  kScheduleJob + ".")
        .flag("--dry-run", words->dryRun, "tell what would be done, and do nothing")
        .number(
            "--every", "SECONDS", {&words->every, 1, kLongestDistance},
            "do it again and again until a signal ends it (SIGTERM, SIGINT); a run at which another command is at "
            "work is left out")
        .number("--notify-fd", "FD", {&words->notifyFd, 3, 1024}, "with --every: where to tell that it is ready")
        .exitCode(1,
                  "a database could not be archived, an archive not be removed or the time not be recorded; the "
                  "rest was done")
        .exitCode(71, "no timer or no signals")
        .exitCode(75, "another command was at work for two minutes; nothing was done")
        .example("ombrel schedule run --dry-run")
        .run([words](const Context& context) { return run(context, *words); });
}

}  // namespace ombrel
