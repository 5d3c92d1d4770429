// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The customized rules as a table for people. Pure.
#pragma once

#include <span>

#include "tools/ombrel/rule_fields.h"
#include "tools/ombrel/table.h"

namespace ombrel {

/// One line a rule: name, on or off, format, protocol and "+TLS", port.
Table ruleTable(std::span<const RuleRecord> rules);

}  // namespace ombrel
