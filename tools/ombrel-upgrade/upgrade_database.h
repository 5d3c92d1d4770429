// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#pragma once

#include <string>

#include "tools/ombrel-upgrade/conversion.h"
#include "tools/ombrel-upgrade/upgrade_watch.h"
#include "tools/ombrel-upgrade/work_folder.h"

namespace ombrel {

/// Where the new database is made of the old one at `path`. Empty when there is no such file.
std::string newDatabaseFor(const std::string& path, const WorkFolder& work);

/// Converts the database at `path` in the work folder, verifies it and puts it in its place; the old file stays
/// beside it as PATH.v1 unless `removeOld` says otherwise and nothing would be lost by it. Done at once when the
/// file is of the current layout already.
UpgradeOutcome upgradeDatabase(const std::string& path, const WorkFolder& work, bool removeOld,
                               UpgradeWatch& watch, const ConversionOptions& options = {});

}  // namespace ombrel
