// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// `ombrel retention`: how long archives are kept. The schedule is what removes them.
#include <sysexits.h>

#include <ctime>
#include <memory>

#include "platform/veskcore.h"
#include "tools/ombrel/archive_commands.h"
#include "tools/ombrel/commands.h"
#include "tools/ombrel/error_text.h"
#include "tools/ombrel/retention_run.h"
#include "tools/ombrel/retention_settings.h"
#include "tools/ombrel/turn.h"

namespace ombrel {

namespace {

void addLimits(JsonWriter& json, const RetentionSettings& settings) {
    json.member("keep_days", settings.keepDays)
        .member("keep_bytes", settings.keepBytes)
        .member("free_bytes", settings.freeBytes);
}

std::string settingsText(const Context& context, const RetentionSettings& settings) {
    if (context.json) {
        JsonWriter json;
        json.beginObject();
        addLimits(json, settings);
        return json.endObject().takeLine();
    }
    std::string text;
    for (const std::string& line : retentionLines(settings))
        text += line + "\n";
    return text;
}

std::string previewJson(const RetentionSettings& settings, const Retention& retention) {
    JsonWriter json;
    json.beginObject();
    addLimits(json, settings);
    json.member("archives", retention.archiveCount())
        .member("archive_bytes", retention.archiveBytes())
        .member("volume_free_bytes", retention.freeBytes())
        .key("removals")
        .beginArray();
    for (const Removal& removal : retention.plan().removals)
        retention.addJson(json, removal);
    return json.endArray()
        .member("over_bytes", retention.plan().overBytes)
        .member("missing_free_bytes", retention.plan().missingFreeBytes)
        .endObject()
        .takeLine();
}

std::string previewText(const RetentionSettings& settings, const Retention& retention) {
    std::string text;
    for (const std::string& line : retentionLines(settings))
        text += line + "\n";
    for (const Removal& removal : retention.plan().removals)
        text += "would remove " + retention.textOf(removal) + "\n";
    if (retention.plan().removals.empty()) text += "nothing to remove\n";
    for (const std::string& line : retention.shortfalls())
        text += line + "\n";
    return text;
}

int preview(const Context& context, const RetentionSettings& settings) {
    LogArchiver archiver;
    if (const int code = loadArchiver(archiver)) return code;
    const Retention retention(archiver.strArchDest, settings, std::time(nullptr));
    int code = 0;
    for (const std::string& note : retention.notes())
        code = complain(1, note);
    return endOfOutput(say(context.json ? previewJson(settings, retention) : previewText(settings, retention)),
                       code);
}

int show(const Context& context, bool withPreview) {
    const RetentionRead read = readRetention();
    if (!read.settings) return read.exitCode;
    return withPreview ? preview(context, *read.settings)
                       : endOfOutput(say(settingsText(context, *read.settings)));
}

int set(const Context& context, const std::vector<std::string>& words) {
    RetentionSettings blank;  // so that wrong words are told whatever the file is
    if (const auto wrong = applyRetentionWords(words, blank)) return complain(EX_USAGE, *wrong);
    Turn turn;
    if (const int code = turn.take()) return code;
    const RetentionRead read = readRetention();
    if (!read.settings) return read.exitCode;
    RetentionSettings wanted = *read.settings;
    (void)applyRetentionWords(words, wanted);  // the words have just been taken
    VLIBCErrSetEx(0, "", 0);
    if (writeRetention(wanted)) return endOfOutput(say(settingsText(context, wanted)));
    const std::string why = errorText(VLIBCErrGet());
    return complain(1, std::string(kRetentionFile) + " cannot be written" + (why.empty() ? "" : " (" + why + ")") +
                           "; see who may write to its folder");
}

}  // namespace

void addRetentionCommand(Command& root) {
    Command& group = root.add("retention", "how long archives are kept");
    auto withPreview = std::make_shared<bool>(false);
    group.add("show", "show the limits")
        .describe(
            "Archives beyond a limit are removed by the schedule, the oldest first. Never removed are those of "
            "today and yesterday, those of the two newest last days that there are, and those that are being "
            "written to.")
        .flag("--preview", *withPreview, "also which archives would be removed now, and why")
        .example("ombrel retention show --preview")
        .run([withPreview](const Context& context) { return show(context, *withPreview); });
    auto words = std::make_shared<std::vector<std::string>>();
    group.add("set", "change limits")
        .describe(
            "keep_days=N: archives that end more than N days ago go. keep_gib=N: the archives take at most N "
            "GiB. free_gib=N: their volume has at least N GiB free. GiB may be given as a size, such as 500M. "
            "0 switches a limit off, as all are at first.")
        .words("KEY=VALUE", *words, "keep_days, keep_gib or free_gib and its new value")
        .exitCode(75, "another command was at work for two minutes; nothing was done")
        .example("ombrel retention set keep_days=90 free_gib=5")
        .run([words](const Context& context) { return set(context, *words); });
}

}  // namespace ombrel
