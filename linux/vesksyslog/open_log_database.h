// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The one way the library opens a log database: never creating it, and with its layout known. Results are
// codes of the error record, 0 for success.
#pragma once

#include <string>

#include "linux/common/log_layout.h"
#include "linux/common/sqlite_db.h"

namespace ombrel {

/// Opens an existing file, for writing where that is possible: only then can what a writer that died left
/// half done be rolled back.
int openLogFile(const std::string& path, Connection& connection) noexcept;

/// Tells the layout; kErrorNotALogDatabase when it is none.
int requireLogDatabase(const Connection& connection, LogLayout& layout) noexcept;

}  // namespace ombrel
