// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The verbs of `ombrel rule`. Each takes the words behind it, as many as it wants, and returns the exit code.
#pragma once

#include <optional>
#include <span>
#include <string>

#include "tools/ombrel/rule_fields.h"

namespace ombrel {

using Words = std::span<char* const>;

// Questions.
int listRules(Words words);
int showRule(Words words);
int checkRules(Words words);

// Changes. What can be told to fail is refused before anything is changed.
int addRule(Words words);
int setRule(Words words);
int renameRule(Words words);
int deleteRule(Words words);
int enableRule(Words words);
int disableRule(Words words);

/// Says that the rule file cannot be read, with what the error record says; exit code.
int complainNoRules();
/// Reads a rule that is there; nothing, or the exit code when there is none or it cannot be read (said).
std::optional<int> readOrRefuse(const std::string& name, RuleRecord& rule);
/// Prints all values of a rule, a line each; exit code.
int printRule(const RuleRecord& rule);
}  // namespace ombrel
