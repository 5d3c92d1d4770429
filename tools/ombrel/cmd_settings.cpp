// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// `ombrel settings`: shows the settings, or applies a change of them to the receivers, the ports, the archiving
// and the settings file, all by the library.
#include <sysexits.h>

#include <cstdio>
#include <string_view>

#include "linux/common/text_escape.h"
#include "platform/veskcore.h"
#include "src/fixed_paths.h"
#include "tools/ombrel/commands.h"
#include "tools/ombrel/error_text.h"
#include "tools/ombrel/settings_change.h"

namespace {

using ombrel::complain;
using ombrel::SettingsPart;
using ombrel::SettingsRecord;

constexpr const char* kUsage = "usage: ombrel settings show | ombrel settings set KEY=VALUE...";

int complainUnreadable() {
    return complain(EX_CONFIG, std::string(kSettingsFile) + " cannot be read or lacks a required key");
}

std::string line(const ombrel::SettingsField& field, const SettingsRecord& record) {
    return std::string(field.name) + "=\"" + ombrel::escapeForLine(field.print(record)) + "\"";
}

int show() {
    SettingsRecord record;
    if (SyslogConfGet(kSettingsFile, record) < 0) return complainUnreadable();
    bool shown = true;
    for (const auto& field : ombrel::settingsFields())
        shown = puts(line(field, record).c_str()) >= 0 && shown;
    return shown && fflush(stdout) == 0 ? EX_OK : complain(1, "the settings could not be written out");
}

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
    const std::string error = ombrel::errorText(code);
    const std::string reason = error.empty() ? "" : " (" + error + ")";
    SettingsRecord after;
    if (SyslogConfGet(kSettingsFile, after) < 0) {
        what += reason;
    } else {
        const bool receivers = ombrel::failedPart(before, wanted, after) == SettingsPart::kReceivers;
        what = receivers
                   ? "the receivers could not be changed" + reason + "; the storage settings are as they were"
                   : "the storage settings could not be changed" + reason;
        what += jobsDown(wanted, after);
    }
    return complain(1, what + "; the system log names the step, and the log of a job why it did not start");
}

void printChanges(const SettingsRecord& before, const SettingsRecord& wanted) {
    for (const auto& field : ombrel::settingsFields()) {
        if (field.print(before) != field.print(wanted)) (void)puts(line(field, wanted).c_str());
    }
}

int set(std::span<char* const> words) {
    if (words.empty()) return complain(EX_USAGE, kUsage);
    SettingsRecord blank;  // so that wrong words are told whatever the settings are
    if (const auto wrong = ombrel::applyWords(words, blank)) return complain(EX_USAGE, *wrong);
    SettingsRecord before;
    if (SyslogConfGet(kSettingsFile, before) < 0) return complainUnreadable();
    SettingsRecord wanted = before;
    if (const auto wrong = ombrel::applyWords(words, wanted)) return complain(EX_USAGE, *wrong);
    if (const auto why = ombrel::whyNotTogether(before, wanted)) return complain(EX_USAGE, *why);
    VLIBCErrSetEx(0, "", 0);
    if (SyslogConfSet(kSettingsFile, wanted) < 0) return complainNotApplied(before, wanted, VLIBCErrGet());
    printChanges(before, wanted);
    return EX_OK;
}

}  // namespace

int ombrel::cmdSettings(std::span<char* const> words) {
    if (asksForHelp(words)) return showHelp(kUsage);
    if (words.empty()) return complain(EX_USAGE, kUsage);
    const std::string_view action = words[0];
    if (action == "set") return set(words.subspan(1));
    if (action == "show") return words.size() == 1 ? show() : complain(EX_USAGE, kUsage);
    return complain(EX_USAGE, "no action \"" + std::string(action) + "\"; expected show or set");
}
