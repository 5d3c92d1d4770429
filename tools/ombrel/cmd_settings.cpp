// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// `ombrel settings`: shows the settings, or applies a change of them to the receivers, the ports, the archiving
// and the settings file, all by the library.
#include <memory>

#include "tools/ombrel/commands.h"
#include "tools/ombrel/settings_commands.h"

namespace ombrel {

namespace {

struct SettingsWords {
    std::vector<std::string> words;
    std::string file;
    ApplyOptions options;
};

constexpr const char* kSettingsUnreadable = "the settings cannot be read";
constexpr const char* kNoFile = "FILE cannot be opened";
constexpr const char* kBadFile = "FILE has a line that is no setting";

void addSettingsQuestions(Command& group) {
    group.add("show", "all settings, KEY=\"VALUE\" on a line each")
        .example("ombrel settings show > settings.txt")
        .exitCode(78, kSettingsUnreadable)
        .run(showSettings);
    auto got = std::make_shared<SettingsWords>();
    group.add("get", "the values of these settings, one on a line")
        .words("KEY", got->words, "the settings", true, WordKind::kSetting)
        .example("ombrel settings get server_port")
        .exitCode(78, kSettingsUnreadable)
        .run([got](const Context& context) { return getSettings(context, got->words); });
    group.add("check", "whether this machine can do what the settings say: ports, certificates, folders, share")
        .example("ombrel settings check")
        .exitCode(1, "something is wrong")
        .exitCode(78, kSettingsUnreadable)
        .run(checkSettingsAsTheyStand);
    auto compared = std::make_shared<SettingsWords>();
    group.add("diff", "what applying a file would change")
        .word("FILE", compared->file, "lines KEY=\"VALUE\", as show prints them", WordKind::kPath)
        .example("ombrel settings diff settings.txt")
        .exitCode(0, "nothing would change")
        .exitCode(1, "something would, or the comparison failed")
        .exitCode(65, kBadFile)
        .exitCode(66, kNoFile)
        .exitCode(78, kSettingsUnreadable)
        .run([compared](const Context& context) { return diffSettings(context, compared->file); });
}

Command& addApplyOptions(Command& command, ApplyOptions& options) {
    return command.flag("--dry-run", options.dryRun, "say what would happen, and do nothing")
        .flag("--force", options.force, "apply it although the machine is found not to be fit for it")
        .exitCode(1, "the change failed on its way; the line says what is down")
        .exitCode(64, "refused, nothing was changed")
        .exitCode(75, "another command is changing something")
        .exitCode(78, kSettingsUnreadable);
}

void addChanges(Command& group) {
    auto given = std::make_shared<SettingsWords>();
    Command& set = group.add("set", "change settings, and bring everything that depends on them up to date");
    set.describe(
        "Checked first: ports, certificates, the archive folder and the share, as far as the change touches "
        "them. A change of receiver settings restarts both receivers; one of storage settings archives "
        "every working database first.");
    addApplyOptions(set, given->options)
        .words("KEY=VALUE", given->words, "the settings and their new values", true, WordKind::kSetting)
        .example("ombrel settings set server_port=1514 bsd_enable=1")
        .example("ombrel settings set --dry-run arch_dest=/volume1/logs")
        .run([given](const Context& context) { return setSettings(context, given->words, given->options); });
    auto applied = std::make_shared<SettingsWords>();
    Command& apply = group.add("apply", "change all settings that a file names, as one change");
    addApplyOptions(apply, applied->options)
        .word("FILE", applied->file, "lines KEY=\"VALUE\", as show prints them; not all have to be there",
              WordKind::kPath)
        .example("ombrel settings apply --dry-run settings.txt")
        .exitCode(65, kBadFile)
        .exitCode(66, kNoFile)
        .run([applied](const Context& context) {
            return applySettingsFile(context, applied->file, applied->options);
        });
}

}  // namespace

void addSettingsCommand(Command& root) {
    Command& group = root.add("settings", "show, check and change the settings");
    group.example("ombrel settings show");
    addSettingsQuestions(group);
    addChanges(group);
}

}  // namespace ombrel
