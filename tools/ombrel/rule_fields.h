// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The fields of a customized rule as people write them: KEY=VALUE in the words of the rule file. Pure.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "ombrel/customizerule.h"

namespace ombrel {

using RuleRecord = _CUSTOMIZED_RULE_tag;

struct RuleField {
    const char* name;
    const char* allowed;  ///< what a value may be, to stand behind "expected"
    std::string (*print)(const RuleRecord&);
    /// False, with the record as it was, when the text is not allowed.
    bool (*parse)(std::string_view, RuleRecord&);
};

/// All fields but the name, in the order of the rule file.
std::span<const RuleField> ruleFields();
/// Null when there is no such field.
const RuleField* findRuleField(std::string_view name);

/// Changes the record as the words KEY=VALUE say. Nothing, or what is wrong with the first wrong word.
std::optional<std::string> applyRuleWords(const std::vector<std::string>& words, RuleRecord& record);

/// KEY="VALUE", safe for a terminal.
std::string ruleLine(const RuleField& field, const RuleRecord& record);
/// The same of the name.
std::string nameLine(const RuleRecord& record);

}  // namespace ombrel
