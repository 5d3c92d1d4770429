// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/rule_table.h"

namespace ombrel {

Table ruleTable(std::span<const RuleRecord> rules) {
    Table table({{"NAME"}, {"STATE"}, {"FORMAT"}, {"PROTOCOL"}, {"PORT", Align::kRight}});
    for (const RuleRecord& rule : rules) {
        const Cell state = rule.enable ? Cell{"on", Colour::kGreen} : Cell{"off", Colour::kDim};
        const std::string protocol = (rule.protocol.empty() ? "-" : rule.protocol) + (rule.ssl ? "+TLS" : "");
        table.add({{rule.name}, state, {rule.format}, {protocol}, {std::to_string(rule.port)}});
    }
    return table;
}

}  // namespace ombrel
