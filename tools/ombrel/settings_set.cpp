// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// A change of the settings: read, checked, and applied by the library as one change, or only told.
#include <sysexits.h>

#include "linux/common/text_escape.h"
#include "platform/veskcore.h"
#include "src/fixed_paths.h"
#include "tools/ombrel/answer.h"
#include "tools/ombrel/error_text.h"
#include "tools/ombrel/settings_check.h"
#include "tools/ombrel/settings_commands.h"
#include "tools/ombrel/settings_file.h"
#include "tools/ombrel/settings_input.h"
#include "tools/ombrel/settings_plan.h"
#include "tools/ombrel/turn.h"
#include "tools/ombrel/waiting.h"

namespace ombrel {

namespace {

/// The jobs that are wanted and do not run: "; JOB is down", or nothing.
std::string jobsDown(const SettingsRecord& wanted, const SettingsRecord& after) {
    std::string text;
    const auto add = [&text](const char* job, int wantedState, int state) {
        if (wantedState != 0 && state == 0) text += (text.empty() ? "; down: " : ", ") + std::string(job);
    };
    add("pkg-Ombrel-bsd", wanted.bsd_enable, after.bsd_enable);
    add("pkg-Ombrel-ietf", wanted.ietf_enable, after.ietf_enable);
    add("pkg-Ombrel-localarchive", wanted.localarchive_enable, after.localarchive_enable);
    return text;
}

/// Which part failed, with what, what is down because of it and where to look.
int complainNotApplied(const SettingsRecord& before, const SettingsRecord& wanted, int code) {
    std::string what = "the change was not applied";
    const std::string error = errorText(code);
    const std::string reason = error.empty() ? "" : " (" + error + ")";
    SettingsRecord after;
    if (SyslogConfGet(kSettingsFile, after) < 0) {
        what += reason;
    } else {
        const bool receivers = failedPart(before, wanted, after) == SettingsPart::kReceivers;
        what = receivers
                   ? "the receivers could not be changed" + reason + "; the storage settings are as they were"
                   : "the storage settings could not be changed" + reason;
        what += jobsDown(wanted, after);
    }
    return complain(1, what + "; the system log names the step, and the log of a job why it did not start");
}

/// The exit code of a change that is refused for what was found, and 0 for one that is not.
int refusalOf(const Findings& findings) {
    int code = 0;
    for (const Finding& finding : findings) {
        if (finding.state == FindingState::kWrong) return EX_USAGE;
        if (finding.state == FindingState::kUnknown) code = 1;
    }
    return code;
}

/// All that stands in the way, in one line.
int refuse(const Findings& findings, int exitCode) {
    std::string what;
    for (const Finding& finding : findings) {
        if (finding.state != FindingState::kWrong && finding.state != FindingState::kUnknown) continue;
        what += (what.empty() ? "" : "; ") + finding.what;
        if (!finding.advice.empty()) what += ", " + finding.advice;
    }
    return complain(exitCode, what + "; --force applies it all the same");
}

void warn(const Findings& findings) {
    for (const Finding& finding : findings) {
        if (finding.state != FindingState::kOk) (void)complain(0, "warning: " + finding.what);
    }
}

int sayPlan(const Context& context, const SettingsPlan& plan, const Findings& findings, int exitCode) {
    if (!context.json) return endOfOutput(say(planText(plan) + findingsText(findings, context.out)), exitCode);
    JsonWriter json;
    json.beginObject().member("dry_run", true);
    writePlan(json, plan);
    writeFindings(json, findings);
    return endOfOutput(say(json.endObject().takeLine()), exitCode);
}

int sayApplied(const Context& context, const SettingsRecord& before, const SettingsRecord& wanted,
               const Findings& findings) {
    const auto changes = changesOf(before, wanted);
    if (context.json) {
        JsonWriter json;
        json.beginObject().member("dry_run", false);
        writeChanges(json, changes);
        writeFindings(json, findings);
        return endOfOutput(say(json.endObject().takeLine()));
    }
    warn(findings);
    std::string text;
    for (const SettingsChange& change : changes)
        text += std::string(change.field->name) + "=\"" + escapeForLine(change.after) + "\"\n";
    return endOfOutput(say(text));
}

int apply(const Context& context, SettingsRecord& wanted) {
    const Waiting waiting(context.err, "applying the settings");
    return SyslogConfSet(kSettingsFile, wanted);
}

/// Words that have been found good by themselves.
int applyChange(const Context& context, const std::vector<std::string>& words, const ApplyOptions& options) {
    Turn turn;
    if (!options.dryRun) {
        if (const int refused = turn.take()) return refused;
    }
    const SettingsRead read = readSettings();
    if (!read.record) return read.exitCode;
    const SettingsRecord& before = *read.record;
    SettingsRecord wanted = before;
    if (const auto wrong = applyWords(words, wanted)) return complain(EX_USAGE, *wrong);
    if (const auto why = whyNotTogether(before, wanted)) return complain(EX_USAGE, *why);
    const Findings findings = checkChange(before, wanted);
    const int refusal = options.force ? 0 : refusalOf(findings);
    if (options.dryRun) return sayPlan(context, planOf(before, wanted), findings, refusal);
    if (refusal != 0) return refuse(findings, refusal);
    VLIBCErrSetEx(0, "", 0);
    if (apply(context, wanted) < 0) return complainNotApplied(before, wanted, VLIBCErrGet());
    return sayApplied(context, before, wanted, findings);
}

}  // namespace

int setSettings(const Context& context, const std::vector<std::string>& words, const ApplyOptions& options) {
    SettingsRecord blank;  // so that wrong words are told whatever the settings are
    if (const auto wrong = applyWords(words, blank)) return complain(EX_USAGE, *wrong);
    return applyChange(context, words, options);
}

int applySettingsFile(const Context& context, const std::string& file, const ApplyOptions& options) {
    const SettingsInput input = readSettingsInput(file);
    return input.exitCode != 0 ? input.exitCode : applyChange(context, input.words, options);
}

}  // namespace ombrel
