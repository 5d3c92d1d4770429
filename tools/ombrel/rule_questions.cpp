// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What is asked of the customized rules: list, show, check.
#include <sysexits.h>

#include <algorithm>
#include <vector>

#include "linux/common/text_escape.h"
#include "ombrel/utils.h"
#include "platform/veskcore.h"
#include "src/fixed_paths.h"
#include "tools/ombrel/answer.h"
#include "tools/ombrel/finding.h"
#include "tools/ombrel/rule_checks.h"
#include "tools/ombrel/rule_commands.h"
#include "tools/ombrel/rule_store.h"
#include "tools/ombrel/rule_table.h"

namespace {

using ombrel::RuleRecord;

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

std::optional<int> ombrel::readAllRules(std::vector<RuleRecord>& rules) {
    const auto names = ruleNames();
    if (!names) return complainNoRules();
    for (const std::string& name : *names) {
        const auto rule = readRule(name);
        if (!rule) return complainNoRules();
        rules.push_back(*rule);
    }
    return std::nullopt;
}

std::string ombrel::ruleText(const RuleRecord& rule) {
    std::string text = nameLine(rule) + '\n';
    for (const auto& field : ruleFields())
        text += ruleLine(field, rule) + '\n';
    return text;
}

void ombrel::writeRule(JsonWriter& json, const RuleRecord& rule) {
    json.beginObject().member("name", rule.name).member("format", rule.format).member("protocol", rule.protocol);
    json.member("port", rule.port).member("ssl", rule.ssl).member("enable", rule.enable).endObject();
}

int ombrel::listRules(const Context& context) {
    std::vector<RuleRecord> rules;
    if (const auto failed = readAllRules(rules)) return *failed;
    if (!context.json) return endOfOutput(say(ruleTable(rules).text(context.out)));
    JsonWriter json;
    json.beginObject().key("rules").beginArray();
    for (const RuleRecord& rule : rules)
        writeRule(json, rule);
    return endOfOutput(say(json.endArray().endObject().takeLine()));
}

int ombrel::showRule(const Context& context, const std::string& name) {
    RuleRecord rule;
    if (const auto refused = readOrRefuse(name, rule)) return *refused;
    if (!context.json) return endOfOutput(say(ruleText(rule)));
    JsonWriter json;
    writeRule(json, rule);
    return endOfOutput(say(json.takeLine()));
}

int ombrel::checkRules(const Context& context, const std::string& name) {
    std::vector<RuleRecord> rules(name.empty() ? 0 : 1);
    const auto failed = name.empty() ? readAllRules(rules) : readOrRefuse(name, rules[0]);
    if (failed) return *failed;
    std::vector<RuleRecord> all;  // a rule may be wrong because of another one
    if (const auto unread = readAllRules(all)) return *unread;
    const std::string noTls = whyNoTls(rules);
    Findings findings;
    std::string text;
    for (const RuleRecord& rule : rules) {
        const std::string faults = joined(faultsOf(rule, all, noTls));
        findings.push_back({faults.empty() ? FindingState::kOk : FindingState::kWrong, rule.name, faults, ""});
        text += escapeForLine(rule.name + ": " + (faults.empty() ? "ok" : faults)) + '\n';
    }
    const bool written = say(context.json ? findingsJson(findings) : text);
    const int exitCode = endOfOutput(written);
    return isGood(findings) ? exitCode : 1;
}
