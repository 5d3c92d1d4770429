// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#pragma once

#include <string>

#include "tools/ombrel-upgrade/upgrade_watch.h"
#include "tools/ombrel-upgrade/work_folder.h"

namespace ombrel {

/// Converts the database at `path` in the work folder, verifies it and puts it in its place. Done at once when the
/// file is of the current layout already.
UpgradeOutcome upgradeDatabase(const std::string& path, const WorkFolder& work, bool removeOld,
                               UpgradeWatch& watch);

}  // namespace ombrel
