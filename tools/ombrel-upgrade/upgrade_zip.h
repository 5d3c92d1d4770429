// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#pragma once

#include <string>

#include "tools/ombrel-upgrade/conversion.h"
#include "tools/ombrel-upgrade/upgrade_watch.h"
#include "tools/ombrel-upgrade/work_folder.h"

namespace ombrel {

/// How many databases of the old layout a ZIP file holds, and the bytes they unpack to.
struct ZipContents {
    std::string error;   ///< not empty: it cannot be read
    std::string notice;  ///< what could not be looked into, such as an encrypted entry; mostly empty
    int oldDatabases = 0;
    unsigned long long bytes = 0;
};
ZipContents oldDatabasesInZip(const std::string& path);

/// Converts the databases of the old layout in the ZIP file at `path`, each as upgradeDatabase does, and puts a
/// ZIP file with them in the place of the old one; its other entries stay byte for byte. Done at once without any.
/// In the work folder there are at most the databases as they were, the new ones and the new ZIP file.
UpgradeOutcome upgradeZip(const std::string& path, const WorkFolder& work, bool removeOld, UpgradeWatch& watch,
                          const ConversionOptions& options = {});

}  // namespace ombrel
