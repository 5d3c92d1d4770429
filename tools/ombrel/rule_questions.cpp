// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What is asked of the customized rules: list, show, check.
#include <sysexits.h>

#include <algorithm>
#include <cstdio>
#include <vector>

#include "linux/common/text_escape.h"
#include "ombrel/utils.h"
#include "platform/veskcore.h"
#include "src/fixed_paths.h"
#include "tools/ombrel/commands.h"
#include "tools/ombrel/rule_checks.h"
#include "tools/ombrel/rule_commands.h"
#include "tools/ombrel/rule_store.h"
#include "tools/ombrel/rule_table.h"

namespace {

using ombrel::RuleRecord;

/// All rules, or the exit code.
std::optional<int> readAll(std::vector<RuleRecord>& rules) {
    const auto names = ombrel::ruleNames();
    if (!names) return ombrel::complainNoRules();
    for (const std::string& name : *names) {
        const auto rule = ombrel::readRule(name);
        if (!rule) return ombrel::complainNoRules();
        rules.push_back(*rule);
    }
    return std::nullopt;
}

/// What keeps every rule with TLS from being served; empty when nothing does or no rule has TLS.
std::string whyNoTls(const std::vector<RuleRecord>& rules) {
    if (std::none_of(rules.begin(), rules.end(), [](const RuleRecord& rule) { return rule.ssl; })) return {};
    _SYSLOG_CONF_SETTINGS_tag settings;
    if (SyslogConfGet(kSettingsFile, settings) < 0) {
        return std::string("ssl=yes needs ") + kSettingsFile + ", which cannot be read or lacks a required key";
    }
    if (!settings.server_ca_key.empty() && !settings.server_ca_file.empty()) return {};
    return "ssl=yes needs server_ca_key and server_ca_file of ombrel settings";
}

std::optional<std::string> whyNoPort(const std::vector<RuleRecord>& rules, const RuleRecord& rule) {
    if (!ombrel::hasPort(rule)) return std::nullopt;  // which is a fault by itself
    if (const RuleRecord* other = ombrel::findWithSamePort(rules, rule)) {
        return "port " + ombrel::portText(rule) + " is also that of the rule \"" + other->name + "\"";
    }
    const auto fault = ombrel::whyNoPort(rule.name, rule);
    return fault ? std::optional(fault->what) : std::nullopt;
}

std::vector<std::string> faultsOf(const RuleRecord& rule, const std::vector<RuleRecord>& rules,
                                  const std::string& noTls) {
    std::vector<std::string> faults = ombrel::ruleFaults(rule);
    if (const auto why = ombrel::whyNoRuleName(rule.name)) faults.insert(faults.begin(), *why);
    if (rule.ssl && !noTls.empty()) faults.push_back(noTls);
    if (const auto why = whyNoPort(rules, rule)) faults.push_back(*why);
    return faults;
}

std::string joined(const std::vector<std::string>& faults) {
    std::string text;
    for (const std::string& fault : faults)
        text += (text.empty() ? "" : "; ") + fault;
    return text;
}

}  // namespace

int ombrel::complainNoRules() {
    return complain(EX_CONFIG, std::string(kRuleFile) + " cannot be read" + reasonOf(VLIBCErrGet()));
}

std::optional<int> ombrel::readOrRefuse(const std::string& name, RuleRecord& rule) {
    const auto names = ruleNames();
    if (!names) return complainNoRules();
    if (std::find(names->begin(), names->end(), name) == names->end()) {
        return complain(EX_USAGE, "no rule \"" + name + "\"; ombrel rule list shows them");
    }
    const auto found = readRule(name);
    if (!found) return complainNoRules();
    rule = *found;
    return std::nullopt;
}

int ombrel::printRule(const RuleRecord& rule) {
    bool written = puts(nameLine(rule).c_str()) >= 0;
    for (const auto& field : ruleFields())
        written = puts(ruleLine(field, rule).c_str()) >= 0 && written;
    return endOfOutput(written);
}

int ombrel::listRules(Words /*words*/) {
    std::vector<RuleRecord> rules;
    if (const auto failed = readAll(rules)) return *failed;
    return endOfOutput(fputs(ruleTable(rules).c_str(), stdout) >= 0);
}

int ombrel::showRule(Words words) {
    RuleRecord rule;
    if (const auto refused = readOrRefuse(words[0], rule)) return *refused;
    return printRule(rule);
}

int ombrel::checkRules(Words words) {
    std::vector<RuleRecord> rules(words.size());
    const auto failed = words.empty() ? readAll(rules) : readOrRefuse(words[0], rules[0]);
    if (failed) return *failed;
    const std::string noTls = whyNoTls(rules);
    bool good = true;
    bool written = true;
    for (const RuleRecord& rule : rules) {
        const std::vector<std::string> faults = faultsOf(rule, rules, noTls);
        good = good && faults.empty();
        const std::string answer = rule.name + ": " + (faults.empty() ? "ok" : joined(faults));
        written = puts(escapeForLine(answer).c_str()) >= 0 && written;
    }
    const int exitCode = endOfOutput(written);
    return good ? exitCode : 1;
}
