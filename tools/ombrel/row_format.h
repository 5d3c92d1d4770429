// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Rows as text, one row a line. Pure.
#pragma once

#include <string>

#include "tools/ombrel/log_row.h"
#include "tools/ombrel/terminal.h"

namespace ombrel {

enum class RowFormat {
    kTable,  ///< for people: time, host, program, severity, message; coloured by severity
    kText,   ///< the seven columns of the text export between tabs, control characters escaped, LF
    kCsv,    ///< RFC 4180, with a head line
    kJson,   ///< one object a line
};

/// "time,received,severity,..." with its CR LF.
std::string csvHead();
/// One line with its end.
std::string rowLine(const LogRow& row, RowFormat format, const Terminal& terminal);

}  // namespace ombrel
