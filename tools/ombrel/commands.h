// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The sub-commands of `ombrel`, one file each (cmd_NAME.cpp). Each adds itself to the tree.
#pragma once

#include "tools/ombrel/answer.h"
#include "tools/ombrel/command.h"

namespace ombrel {

void addArchiveCommand(Command& root);
void addCompleteCommand(Command& root);
void addDoctorCommand(Command& root);
void addEventsCommand(Command& root);
void addExportCommand(Command& root);
void addImportCommand(Command& root);
void addJobCommand(Command& root);
void addRetentionCommand(Command& root);
void addRuleCommand(Command& root);
void addScheduleCommand(Command& root);
void addSearchCommand(Command& root);
void addSettingsCommand(Command& root);
void addStatsCommand(Command& root);
void addStatusCommand(Command& root);
void addStorageCommand(Command& root);
void addTailCommand(Command& root);
void addUpgradeCommand(Command& root);

/// The whole tree.
Command ombrelCommands();

}  // namespace ombrel
