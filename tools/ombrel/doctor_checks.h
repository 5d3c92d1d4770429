// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What `ombrel doctor` looks at beside the settings.
#pragma once

#include "tools/ombrel/context.h"
#include "tools/ombrel/finding.h"
#include "tools/ombrel/settings_fields.h"

namespace ombrel {

/// Whether the jobs that are wanted run.
Findings checkJobs();
/// Whether what runs listens on its ports. Without settings, on those that do not come from them.
Findings checkSockets(const SettingsRecord* record);
/// Whether the firewall lets in what is declared.
Findings checkFirewall();
/// Whether nobody else can change or read what is the package's own.
Findings checkPermissions(const SettingsRecord* record);
/// Whether the clock can be right.
Findings checkClock();
/// Whether the newest databases are whole.
Findings checkNewestDatabases(const Context& context);

}  // namespace ombrel
