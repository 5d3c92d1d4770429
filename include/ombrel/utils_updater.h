// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Support for the migration of log databases of the old layout (version 1): folders, counts, progress.
// No function keeps state; failures are logged.
#pragma once

#include <string>

#include "ombrel/export.h"

/// The archive file name (no folder) of a version-1 database: its first and last day. Empty on failure.
OMBREL_EXPORT std::string SyslogUpdaterArchNameGet(std::string& dbPath);

/// The path of the share that holds the live log database; empty when it cannot be told.
OMBREL_EXPORT std::string SyslogUpdaterServiceFolderGet();
/// The archive folder of the settings; empty when it cannot be told.
OMBREL_EXPORT std::string SyslogUpdaterArchiveFolderGet();
/// The scratch folder on the volume of the live log database, made if missing; empty when it cannot be told.
OMBREL_EXPORT std::string SyslogUpdaterVolTmpFolderGet();

/// Rows of the old database; -1 on failure, -2 when the count query gives other than one row.
OMBREL_EXPORT int SyslogUpdaterOldDbTotalGet(std::string& oldPath);
/// Whether the new database exists.
OMBREL_EXPORT bool SyslogUpdaterUpdDbCheck(std::string& newPath);
/// Rows of the new database so far; negative on failure.
OMBREL_EXPORT int SyslogUpdaterUpdDbProgGet(std::string& newPath);
/// Whether the file exists and is a database of the old layout.
OMBREL_EXPORT bool SyslogUpdaterOldDbCheck(std::string& path);
/// Whether the new database holds as many rows as the old one.
OMBREL_EXPORT bool SyslogUpdaterUpdCompete(std::string& oldPath, std::string& newPath);
