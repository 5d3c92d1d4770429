// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Log databases for the tests of the platform libraries, and questions to them.
#pragma once

#include <string>
#include <vector>

#include "linux/common/sqlite_db.h"
#include "tests/contract/contract_world.h"
#include "tests/contract/linux_makers.h"

namespace ombrel::test {

/// Rows with these messages, a second apart.
std::vector<contract::Row> rowsOf(const std::vector<std::string>& messages);
/// A version-2 database with these messages.
void makeDatabase(const std::string& path, const std::vector<std::string>& messages);
/// The messages in order of arrival; "<CODE>" alone when the file cannot be read.
std::vector<std::string> messagesOf(const std::string& path);
/// "ok" for a sound database.
std::string integrityOf(const std::string& path);
/// The value of a statement's first row; "<CODE>" when there is none.
std::string valueOf(const Connection& connection, const char* sql);

/// Adds rows in a transaction that is big enough to reach the file before its end, and dies in it: the file
/// is left with a journal that has to be rolled back. True when that is so.
bool leaveHotJournal(const std::string& path);

}  // namespace ombrel::test
