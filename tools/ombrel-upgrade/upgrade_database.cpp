// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel-upgrade/upgrade_database.h"

#include <cerrno>
#include <cstring>

#include "platform/vesksyslog.h"
#include "tools/ombrel-upgrade/old_database.h"
#include "tools/ombrel-upgrade/placement.h"

namespace ombrel {

namespace {

/// Whoever writes to an old database all the time keeps it from being upgraded.
constexpr int kMostTries = 3;

UpgradeOutcome convertAndPlace(OldDatabase& old, const std::string& newPath, bool removeOld, UpgradeWatch& watch,
                               const ConversionOptions& options) {
    for (int attempts = 1;; ++attempts) {
        Conversion conversion = convertDatabase(old, newPath, watch, options);
        if (conversion.outcome.end != UpgradeEnd::kDone) return conversion.outcome;
        std::string error;
        const Placed placed = placeDatabase(old, conversion.oldVersion, newPath, removeOld, error);
        if (placed == Placed::kDone) return conversion.outcome;
        if (placed == Placed::kFailed || attempts == kMostTries) return UpgradeOutcome::failed(std::move(error));
    }
}

}  // namespace

std::string newDatabaseFor(const std::string& path, const WorkFolder& work) {
    return work.placeFor(path, ".DB");
}

UpgradeOutcome upgradeDatabase(const std::string& path, const WorkFolder& work, bool removeOld,
                               UpgradeWatch& watch, const ConversionOptions& options) {
    if (SyslogDBVersionGet(path) == 2) {
        DBHandler current(path, options.schemaFile);
        UpgradeOutcome outcome;
        outcome.end = UpgradeEnd::kDone;
        if (current.DBCon() == 0) outcome.rows = current.DBInfoCntGet();
        outcome.notice = "it has the current layout already";
        return outcome;
    }
    OldDatabase old;
    if (std::string error = old.open(path); !error.empty()) return UpgradeOutcome::failed(std::move(error));
    // An immutable file, or one without the right to write: locked against others it could not be in the end.
    if (old.connection().isReadOnly())
        return UpgradeOutcome::failed("cannot replace " + path + ": it may only be read");
    const bool keepsOld = !removeOld || !old.foreignContents().empty();
    if (std::string error = checkReplaceable(path, !keepsOld); !error.empty())
        return UpgradeOutcome::failed(std::move(error));
    const std::string newPath = newDatabaseFor(path, work);
    if (newPath.empty()) return UpgradeOutcome::failed("cannot read " + path + ": " + std::strerror(errno));
    UpgradeOutcome outcome = convertAndPlace(old, newPath, !keepsOld, watch, options);
    if (outcome.end == UpgradeEnd::kDone && !old.foreignContents().empty()) {
        outcome.notice = keptNameOf(path) + " was kept, since only it holds: " + old.foreignContents();
    }
    return outcome;
}

}  // namespace ombrel
