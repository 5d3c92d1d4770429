// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/rules/rule_file.h"

#include <cerrno>
#include <cstdlib>
#include <unordered_set>

#include "linux/common/bounded_file.h"
#include "linux/veskcore/settings_line.h"

namespace ombrel {

namespace {

// Texts reach the library as C strings.
std::string untilNul(std::string_view text) {
    return std::string(text.substr(0, text.find('\0')));
}

void take(const KeyValue& pair, _CUSTOMIZED_RULE_tag& rule) {
    const std::string value = untilNul(pair.value);
    if (pair.key == "format") rule.format = value;
    if (pair.key == "protocol") rule.protocol = value;
    if (pair.key == "port") rule.port = static_cast<int>(std::strtoll(value.c_str(), nullptr, 10));
    if (pair.key == "ssl") rule.ssl = value == "yes";
    if (pair.key == "enable") rule.enable = value == "yes";
}

}  // namespace

std::vector<_CUSTOMIZED_RULE_tag> parseRules(std::string_view text) {
    std::vector<_CUSTOMIZED_RULE_tag> rules;
    std::unordered_set<std::string_view> sections;
    std::unordered_set<std::string_view> keys;
    bool inRule = false;
    for (LineReader reader(text); reader.next();) {
        if (const auto name = parseHeader(reader.text())) {
            inRule = sections.insert(*name).second;
            if (!inRule) continue;
            rules.emplace_back().name = untilNul(*name);
            keys.clear();
        } else if (const auto pair = inRule ? parseKeyValue(reader.text()) : std::nullopt) {
            if (keys.insert(pair->key).second) take(*pair, rules.back());
        }
    }
    return rules;
}

int readRules(const std::string& path, std::vector<_CUSTOMIZED_RULE_tag>& rules) {
    std::string text;
    const int error = readBounded(path, kMostRuleFileBytes, text);
    if (error != 0 && error != ENOENT) return error;
    rules = parseRules(text);
    return 0;
}

}  // namespace ombrel
