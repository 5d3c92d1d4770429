// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/commands.h"

namespace ombrel {

Command ombrelCommands() {
    Command root("ombrel", "The management of the log receiver.");
    addArchiveCommand(root);
    addCompleteCommand(root);
    addDoctorCommand(root);
    addEventsCommand(root);
    addImportCommand(root);
    addJobCommand(root);
    addRuleCommand(root);
    addSettingsCommand(root);
    addStatusCommand(root);
    addStorageCommand(root);
    addUpgradeCommand(root);
    return root;
}

}  // namespace ombrel
