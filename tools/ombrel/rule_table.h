// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The customized rules as a table for people. Pure.
#pragma once

#include <span>
#include <string>

#include "tools/ombrel/rule_fields.h"

namespace ombrel {

/// One line a rule, safe for a terminal: name, on or off, format, protocol and "+TLS", port. A value that is
/// empty shows as "-".
std::string ruleTable(std::span<const RuleRecord> rules);

}  // namespace ombrel
