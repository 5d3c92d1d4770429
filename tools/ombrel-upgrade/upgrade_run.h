// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// One run of the program: find, see whether there is room, then one file after the other.
#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <vector>

#include "tools/ombrel-upgrade/database_finder.h"
#include "tools/ombrel-upgrade/upgrade_options.h"
#include "tools/ombrel-upgrade/upgrade_plan.h"
#include "tools/ombrel-upgrade/upgrade_watch.h"
#include "tools/ombrel-upgrade/work_folder.h"

namespace ombrel {

/// What the run is made of.
struct UpgradeSteps {
    using Upgrade = std::function<UpgradeOutcome(const std::string& path, const WorkFolder& work, bool removeOld,
                                                 UpgradeWatch& watch)>;
    Upgrade database;
    Upgrade zip;
    std::function<std::string(const std::string& path)> workFolder;
    DatabaseFinder::Probes probes;
    SpaceCheck isEnough;
    FreeBytes freeBytes;
};

/// The exit code of the program. Results go to standard output, what is wrong and progress to standard error.
int runUpgrade(const UpgradeOptions& options, const UpgradeSteps& steps, const std::atomic<bool>& stop);

}  // namespace ombrel
