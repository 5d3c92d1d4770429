// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The verbs of `ombrel rule`. Each returns the exit code.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/ombrel/context.h"
#include "tools/ombrel/json_writer.h"
#include "tools/ombrel/rule_fields.h"

namespace ombrel {

// Questions.
int listRules(const Context& context);
int showRule(const Context& context, const std::string& name);
/// Of all rules without a name.
int checkRules(const Context& context, const std::string& name);

// Changes. What can be told to fail is refused before anything is changed.
int addRule(const Context& context, const std::string& name, const std::vector<std::string>& pairs, bool force);
int setRule(const Context& context, const std::string& name, const std::vector<std::string>& pairs, bool force);
int renameRule(const Context& context, const std::string& name, const std::string& newName);
int deleteRule(const Context& context, const std::string& name);
int enableRule(const Context& context, const std::string& name);
int disableRule(const Context& context, const std::string& name);

/// Says that the rule file cannot be read, with what the error record says; exit code.
int complainNoRules();
/// All rules, or the exit code (said).
std::optional<int> readAllRules(std::vector<RuleRecord>& rules);
/// Reads a rule that is there; nothing, or the exit code when there is none or it cannot be read (said).
std::optional<int> readOrRefuse(const std::string& name, RuleRecord& rule);
/// All values of a rule, a line each.
std::string ruleText(const RuleRecord& rule);
/// The same as an object.
void writeRule(JsonWriter& json, const RuleRecord& rule);

}  // namespace ombrel
