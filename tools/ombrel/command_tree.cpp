// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/commands.h"

namespace ombrel {

Command ombrelCommands() {
    Command root("ombrel", "manage the log receiver of this machine");
    addArchiveCommand(root);
    addCompleteCommand(root);
    addDoctorCommand(root);
    addEventsCommand(root);
    addExportCommand(root);
    addImportCommand(root);
    addJobCommand(root);
    addRetentionCommand(root);
    addRuleCommand(root);
    addScheduleCommand(root);
    addSearchCommand(root);
    addSettingsCommand(root);
    addStatsCommand(root);
    addStatusCommand(root);
    addStorageCommand(root);
    addTailCommand(root);
    addUpgradeCommand(root);
    return root;
}

}  // namespace ombrel
