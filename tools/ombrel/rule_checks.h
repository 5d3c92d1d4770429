// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What keeps a customized rule from being served, as far as the rule itself tells. Pure.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "tools/ombrel/rule_fields.h"

namespace ombrel {

/// Why a rule cannot have this name; nothing when it can.
std::optional<std::string> whyNoRuleName(const std::string& name);

/// What is wrong with the values of a rule, its name aside: each names key, value and what is expected.
std::vector<std::string> ruleFaults(const RuleRecord& rule);

/// Whether its port is 1..65535.
bool hasPort(const RuleRecord& rule);
/// "udp" or "tcp", as its port is declared.
std::string transportOf(const RuleRecord& rule);
/// "1514/udp"
std::string portText(const RuleRecord& rule);

/// The first other rule that has the same port over the same transport; null when there is none.
const RuleRecord* findWithSamePort(std::span<const RuleRecord> rules, const RuleRecord& rule);

}  // namespace ombrel
