// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// One database of the old layout becomes one of the current layout, in transactions that also record how far it
// came: whatever ends the program, the next run goes on behind the last transaction.
#pragma once

#include <string>

#include "tools/ombrel-upgrade/old_database.h"
#include "tools/ombrel-upgrade/upgrade_watch.h"

namespace ombrel {

struct ConversionOptions {
    std::string schemaFile = "/usr/vesk/syslog/schema/loginfo2.sql";
    long long pageRows = 20'000;  ///< of one transaction
};

struct Conversion {
    UpgradeOutcome outcome;
    long long oldVersion = 0;  ///< OldDatabase::version() of the rows that were compared
};

/// Makes `newPath` of the old database, or goes on where an earlier call has ended, and compares the two row by
/// row. The old file is only read. After kDone `newPath` is a log database of the current layout, on the disk,
/// without a journal.
Conversion convertDatabase(OldDatabase& old, const std::string& newPath, UpgradeWatch& watch,
                           const ConversionOptions& options = {});

}  // namespace ombrel
