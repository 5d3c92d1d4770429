// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include <memory>

#include "tools/ombrel/commands.h"

namespace ombrel {

namespace {

void addOld(Command& root, const char* name, const char* summary, int (*run)(std::span<char* const>)) {
    auto words = std::make_shared<std::vector<std::string>>();
    root.add(name, summary).passOn("WORD", *words).run([words, run](const Context&) {
        std::vector<char*> pointers;
        for (std::string& word : *words)
            pointers.push_back(word.data());
        return run(pointers);
    });
}

}  // namespace

Command ombrelCommands() {
    Command root("ombrel", "The management of the log receiver.");
    addOld(root, "archive", "archive the databases that are due, or all that hold rows", cmdArchive);
    addDoctorCommand(root);
    addOld(root, "job", "switch a service job and wait until it is up or down", cmdJob);
    addRuleCommand(root);
    addSettingsCommand(root);
    addStorageCommand(root);
    addArchiveCommand(root);
    addCompleteCommand(root);
    addEventsCommand(root);
    addExportCommand(root);
    addImportCommand(root);
    addJobCommand(root);
    addRetentionCommand(root);
    addOld(root, "rule", "customized receiving rules", cmdRule);
    addScheduleCommand(root);
    addOld(root, "settings", "show and change the settings", cmdSettings);
    addStatsCommand(root);
    addStatusCommand(root);
    addTailCommand(root);
    addUpgradeCommand(root);
    return root;
}

}  // namespace ombrel
