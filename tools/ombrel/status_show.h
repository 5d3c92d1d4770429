// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What `ombrel status` found out, as people and programs read it. Pure.
#pragma once

#include <string>

#include "tools/ombrel/status_report.h"
#include "tools/ombrel/terminal.h"

namespace ombrel {

/// At most as many lines as the terminal has, without the end of the last one; what does not fit is counted.
std::string statusScreen(const StatusReport& report, const Terminal& terminal);

/// One thing a line, cells between tabs; the first cell says what kind of thing it is.
std::string statusLines(const StatusReport& report);

/// One object on one line.
std::string statusJson(const StatusReport& report);

}  // namespace ombrel
