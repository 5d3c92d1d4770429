// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What is asked of the settings: show, get, check, diff.
#include <sysexits.h>

#include "linux/common/text_escape.h"
#include "tools/ombrel/answer.h"
#include "tools/ombrel/settings_check.h"
#include "tools/ombrel/settings_commands.h"
#include "tools/ombrel/settings_file.h"
#include "tools/ombrel/settings_input.h"

namespace ombrel {

namespace {

void writeField(JsonWriter& json, const SettingsField& field, const SettingsRecord& record) {
    writeValue(json.key(field.name), field, field.print(record));
}

}  // namespace

int showSettings(const Context& context) {
    const SettingsRead read = readSettings();
    if (!read.record) return read.exitCode;
    std::string text;
    JsonWriter json;
    json.beginObject();
    for (const SettingsField& field : settingsFields()) {
        text += std::string(field.name) + "=\"" + escapeForLine(field.print(*read.record)) + "\"\n";
        writeField(json, field, *read.record);
    }
    return endOfOutput(say(context.json ? json.endObject().takeLine() : text));
}

int getSettings(const Context& context, const std::vector<std::string>& keys) {
    for (const std::string& key : keys) {
        if (findSettingsField(key) == nullptr)
            return complain(EX_USAGE, "no setting \"" + key + "\"; ombrel settings show lists them");
    }
    const SettingsRead read = readSettings();
    if (!read.record) return read.exitCode;
    std::string text;
    JsonWriter json;
    json.beginObject();
    for (const std::string& key : keys) {
        const SettingsField& field = *findSettingsField(key);
        text += escapeForLine(field.print(*read.record)) + '\n';
        writeField(json, field, *read.record);
    }
    return endOfOutput(say(context.json ? json.endObject().takeLine() : text));
}

int diffSettings(const Context& context, const std::string& file) {
    const SettingsInput input = readSettingsInput(file);
    if (input.exitCode != 0) return input.exitCode;
    const SettingsRead read = readSettings();
    if (!read.record) return read.exitCode;
    SettingsRecord wanted = *read.record;
    if (const auto wrong = applyWords(input.words, wanted)) return complain(EX_DATAERR, *wrong);
    const auto changes = changesOf(*read.record, wanted);
    std::string text = changesText(changes);
    if (context.json) {
        JsonWriter json;
        json.beginObject().member("same", changes.empty());
        writeChanges(json, changes);
        text = json.endObject().takeLine();
    }
    return endOfOutput(say(text), changes.empty() ? 0 : 1);
}

int checkSettingsAsTheyStand(const Context& context) {
    const SettingsRead read = readSettings();
    if (!read.record) return read.exitCode;
    const Findings findings = checkSettings(*read.record);
    const bool written = say(context.json ? findingsJson(findings) : findingsText(findings, context.out));
    return endOfOutput(written, isGood(findings) ? 0 : 1);
}

}  // namespace ombrel
