// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/rule_checks.h"

#include <algorithm>

#include "linux/common/text_escape.h"

namespace ombrel {

namespace {

constexpr std::size_t kLongestName = 255;  // more does not fit the name of a port declaration

bool isBlankAtAnEnd(const std::string& name) {
    return name.front() == ' ' || name.back() == ' ';
}

}  // namespace

std::optional<std::string> whyNoRuleName(const std::string& name) {
    if (name == "syslog_server" || name == "syslog_server_ietf") {
        return "a rule cannot be named \"" + name + "\": a receiver declares its own port under that name";
    }
    const bool fits = !name.empty() && name.size() <= kLongestName;
    // What needs no escape is UTF-8 without control characters.
    if (fits && name.find(']') == std::string::npos && escapeForLine(name) == name && !isBlankAtAnEnd(name)) {
        return std::nullopt;
    }
    return "a rule cannot be named \"" + name +
           "\": expected 1 to 255 bytes of UTF-8 without control characters, without \"]\" and without blanks at "
           "either end";
}

std::vector<std::string> ruleFaults(const RuleRecord& rule) {
    std::vector<std::string> faults;
    RuleRecord read;
    for (const RuleField& field : ruleFields()) {
        const std::string value = field.print(rule);
        if (!field.parse(value, read)) {
            faults.push_back(std::string(field.name) + "=\"" + value + "\": expected " + field.allowed);
        }
    }
    if (rule.ssl && transportOf(rule) == "udp")
        faults.emplace_back("ssl=yes needs protocol=tcp: TLS runs over TCP");
    return faults;
}

bool hasPort(const RuleRecord& rule) {
    RuleRecord read;
    const RuleField* field = findRuleField("port");
    return field->parse(field->print(rule), read);
}

std::string transportOf(const RuleRecord& rule) {
    return rule.protocol == "udp" ? "udp" : "tcp";
}

std::string portText(const RuleRecord& rule) {
    return std::to_string(rule.port) + "/" + transportOf(rule);
}

const RuleRecord* findWithSamePort(std::span<const RuleRecord> rules, const RuleRecord& rule) {
    const auto found = std::find_if(rules.begin(), rules.end(), [&rule](const RuleRecord& other) {
        return other.name != rule.name && other.port == rule.port && transportOf(other) == transportOf(rule);
    });
    return found == rules.end() ? nullptr : &*found;
}

}  // namespace ombrel
