// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/rule_table.h"

#include <algorithm>
#include <array>
#include <vector>

#include "linux/common/text_escape.h"

namespace ombrel {

namespace {

constexpr std::size_t kColumns = 5;
using Row = std::array<std::string, kColumns>;

std::string cell(const std::string& text) {
    return text.empty() ? "-" : escapeForLine(text);
}

Row rowOf(const RuleRecord& rule) {
    return {cell(rule.name), rule.enable ? "on" : "off", cell(rule.format),
            cell(rule.protocol) + (rule.ssl ? "+TLS" : ""), std::to_string(rule.port)};
}

/// Characters, not bytes; all of them are taken for one column wide.
std::size_t widthOf(const std::string& text) {
    return static_cast<std::size_t>(std::count_if(
        text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xc0) != 0x80; }));
}

}  // namespace

std::string ruleTable(std::span<const RuleRecord> rules) {
    std::vector<Row> rows;
    std::array<std::size_t, kColumns> widths{};
    for (const RuleRecord& rule : rules) {
        rows.push_back(rowOf(rule));
        for (std::size_t i = 0; i < kColumns; ++i)
            widths[i] = std::max(widths[i], widthOf(rows.back()[i]));
    }
    std::string text;
    for (const Row& row : rows) {
        for (std::size_t i = 0; i + 1 < kColumns; ++i)
            text += row[i] + std::string(widths[i] - widthOf(row[i]) + 2, ' ');
        text += row[kColumns - 1] + "\n";
    }
    return text;
}

}  // namespace ombrel
