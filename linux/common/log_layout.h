// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What makes an SQLite file a log database, and how one begins.
#pragma once

#include <string>

#include "linux/common/sqlite_db.h"

namespace ombrel {

enum class LogLayout {
    kNone,      ///< no log database
    kVersion1,  ///< plain text columns and `ldate`, no information record
    kVersion2,  ///< the layout of loginfo2.sql
};

/// Tells the layout from the tables alone. Returns an SQLite result code.
int readLogLayout(const Connection& connection, LogLayout& layout) noexcept;

/// Whether a database of version 2 was upgraded and has days or times that are none, which stand in the table
/// `original_texts` of file-formats.md. SQLite result code.
int readOriginalTexts(const Connection& connection, bool& found) noexcept;

/// The settings of every connection that writes into a log database: journal mode TRUNCATE, since a
/// database in WAL mode cannot be moved without losing rows, and a synced commit. SQLite result code.
int prepareForWriting(Connection& connection) noexcept;

/// Ends the WAL mode that somebody else has put a database into: it keeps its last rows in another file then, and
/// cannot be moved. SQLITE_BUSY when others have it open. SQLite result code.
int leaveWal(Connection& connection) noexcept;

/// Runs the schema in one transaction on a database without tables; leaves any other one alone, so two
/// programs may do it at once. SQLITE_READONLY_DBMOVED when the file has been moved away since it was opened.
/// SQLite result code.
int createLogDatabase(Connection& connection, const std::string& schemaText) noexcept;

}  // namespace ombrel
