// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The commands of the group `ombrel archive`.
#pragma once

#include <string>
#include <vector>

#include "ombrel/logarchiver.h"
#include "tools/ombrel/command.h"

namespace ombrel {

/// The archiver with the settings as they are, or what keeps it from reading them, which has been told then; 0, 77
/// or 78.
int loadArchiver(LogArchiver& archiver);

struct ArchiveRunWords {
    bool due = false;
    bool all = false;
    std::vector<std::string> databases;  ///< names or paths
};
int runArchiving(const Context& context, const ArchiveRunWords& words);
int listArchives(const Context& context);
int showDue(const Context& context);
int addHostIndex(const Context& context, const std::string& path);
/// All archives when none is named.
int verifyArchives(const Context& context, const std::vector<std::string>& paths);

}  // namespace ombrel
