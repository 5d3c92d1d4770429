// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Archiving of several databases, one after the other, for whoever holds the turn.
#pragma once

#include <functional>
#include <list>
#include <string>
#include <vector>

#include "ombrel/logarchiver.h"
#include "tools/ombrel/json_writer.h"

namespace ombrel {

/// How it went with one database.
struct Archiving {
    enum class End {
        kDone,
        kEmpty,       ///< no rows, so there was nothing to archive
        kUnreadable,  ///< no log database; it was left in place
        kFailed,
    };
    std::string path;
    long long rows = 0;
    End end = End::kDone;

    [[nodiscard]] bool hasFailed() const { return end == End::kUnreadable || end == End::kFailed; }
};

/// Of a failed one: what is wrong with it, to stand behind its path.
std::string whyNotArchived(const Archiving& archiving);

/// Archives each database that holds rows and tells how it went; `goesOn` is asked before each.
void archiveEach(LogArchiver& archiver, const std::list<_SYSLOG_WORKING_DB_tag>& databases,
                 const std::function<void(const Archiving&)>& tell, const std::function<bool()>& goesOn = {});

/// The rows of a database, or -1 when it is no log database. One that is not there any more, or that the log
/// writer has just made and not yet begun, holds none.
long long rowsOf(LogArchiver& archiver, const std::string& path);

/// The members "archived" and "failed".
void addArchivings(JsonWriter& json, const std::vector<Archiving>& archivings);

}  // namespace ombrel
