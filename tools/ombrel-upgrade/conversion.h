// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// One database of the old layout becomes one of the current layout, in transactions that also record how far it
// came: whatever ends the program, the next run goes on behind the last transaction.
#pragma once

#include <string>

#include "tools/ombrel-upgrade/upgrade_watch.h"

namespace ombrel {

struct Conversion {
    UpgradeOutcome outcome;
    bool hasOwnContents = false;  ///< the old file holds tables or columns that the new one has no place for
};

/// Makes `newPath` of `oldPath`, or goes on where an earlier call has ended, and compares the two row by row. The
/// old file is only read. After kDone `newPath` is a log database of the current layout, on the disk, without a
/// journal.
Conversion convertDatabase(const std::string& oldPath, const std::string& newPath, UpgradeWatch& watch);

}  // namespace ombrel
