// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Conditions on rows as SQL. What a caller looks for is only ever bound, never part of the text.
#pragma once

#include <list>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "linux/common/log_layout.h"
#include "linux/common/sqlite_db.h"
#include "platform/vesksyslog.h"

namespace ombrel {

/// Parameters in the order of their question marks; texts point into the conditions.
using Parameters = std::vector<std::variant<long long, std::string_view>>;

/// Appends " AND ..." for each condition. False for a field, a comparison or a number out of range, a
/// comparison that the field does not know, or a field that the layout does not have.
bool appendConditions(LogLayout layout, const std::list<_SYSLOG_SQL_COND_tag>& conditions, std::string& sql,
                      Parameters& parameters);

/// Gives the connection the functions that the conditions' SQL calls. SQLite result code.
int addConditionFunctions(const Connection& connection) noexcept;

/// SQLite result code. The texts must stay until the statement is reset.
int bindAll(Statement& statement, const Parameters& parameters) noexcept;

/// The same text for the same conditions, and for no others.
std::string conditionsKey(const std::list<_SYSLOG_SQL_COND_tag>& conditions);

}  // namespace ombrel
