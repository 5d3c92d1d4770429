// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What is changed of the customized rules. The library undoes nothing: after a failure it is told how far it came.
#include <sysexits.h>

#include <algorithm>
#include <functional>
#include <vector>

#include "platform/veskcore.h"
#include "platform/veskserviceconf.h"
#include "src/service_jobs.h"
#include "tools/ombrel/answer.h"
#include "tools/ombrel/rule_checks.h"
#include "tools/ombrel/rule_commands.h"
#include "tools/ombrel/rule_store.h"
#include "tools/ombrel/turn.h"
#include "tools/ombrel/waiting.h"

namespace {

using ombrel::complain;
using ombrel::Context;
using ombrel::RuleRecord;
using Words = std::vector<std::string>;

// ---- what is refused: nothing, or the exit code

std::optional<int> refuseNewName(const std::string& name) {
    if (const auto why = ombrel::whyNoRuleName(name)) return complain(EX_USAGE, *why);
    const auto names = ombrel::ruleNames();
    if (!names) return ombrel::complainNoRules();
    if (std::find(names->begin(), names->end(), name) == names->end()) return std::nullopt;
    return complain(EX_USAGE, "there is a rule \"" + name + "\" already");
}

/// Of a rule as it would be. What stands there already counts as well, since all of it is written again.
std::optional<int> refuseValues(const RuleRecord& before, const RuleRecord& wanted) {
    const std::vector<std::string> faults = ombrel::ruleFaults(wanted);
    if (faults.empty()) return std::nullopt;
    const std::vector<std::string> old = ombrel::ruleFaults(before);
    const bool isOld = std::find(old.begin(), old.end(), faults.front()) != old.end();
    if (!isOld) return complain(EX_USAGE, faults.front());
    return complain(EX_USAGE, "the rule \"" + before.name + "\" as it stands: " + faults.front() +
                                  "; ombrel rule set mends that");
}

std::optional<int> refusePort(const std::string& service, const RuleRecord& wanted) {
    const auto fault = ombrel::whyNoPort(service, wanted);
    if (!fault) return std::nullopt;
    return complain(fault->isTaken ? EX_USAGE : 1, fault->what + "; --force takes it all the same");
}

// ---- what failed

/// One kind of change in the words of its failure.
struct Kind {
    const char* done;   ///< "added"
    const char* steps;  ///< what comes after the rule file
    const char* remedy;
};

constexpr const char* kSetAgain = "ombrel rule set NAME port=N tries again";
constexpr const char* kRestart = "ombrel job restart pkg-Ombrel-custrule tries again";
constexpr const char* kDeclared = "its port could not be declared or pkg-Ombrel-custrule not be restarted";
constexpr const char* kWithdrawn = "its port could not be withdrawn or pkg-Ombrel-custrule not be restarted";
constexpr const char* kServed = "pkg-Ombrel-custrule could not be restarted";
constexpr Kind kAdded = {"added", kDeclared, kSetAgain};
constexpr Kind kChanged = {"changed", kDeclared, kSetAgain};
constexpr Kind kRenamed = {"renamed", kDeclared, kSetAgain};
constexpr Kind kDeleted = {"deleted", kWithdrawn, kRestart};
constexpr Kind kEnabled = {"enabled", kServed, kRestart};
constexpr Kind kDisabled = {"disabled", kServed, kRestart};

/// Whether it is done in the rule file, what is down because of it, and where to look.
int complainFailed(const Kind& kind, const std::string& name, bool done, const std::string& reason) {
    std::string what = "the rule \"" + name + "\" ";
    what +=
        done ? std::string("is ") + kind.done + ", but " + kind.steps : std::string("could not be ") + kind.done;
    what += reason;
    if (VLIBServicectlIsJobRunning(kCustomRuleJob, 0) == 0) what += std::string("; down: ") + kCustomRuleJob;
    what += "; the system log names the step";
    if (done) what += std::string(", and the log of the job why it did not start; ") + kind.remedy;
    return complain(1, what);
}

std::string takeReason() {
    return ombrel::reasonOf(VLIBCErrGet());
}

bool areEqual(const RuleRecord& a, const RuleRecord& b) {
    const auto fields = ombrel::ruleFields();
    return a.name == b.name && std::all_of(fields.begin(), fields.end(), [&](const ombrel::RuleField& field) {
               return field.print(a) == field.print(b);
           });
}

/// Whether the rule file says of a rule what was to be written.
bool isStored(const RuleRecord& rule) {
    const auto names = ombrel::ruleNames();
    if (!names || std::find(names->begin(), names->end(), rule.name) == names->end()) return false;
    const auto stored = ombrel::readRule(rule.name);
    return stored && areEqual(*stored, rule);
}

int sayChanged(const Context& context, const RuleRecord& before, const RuleRecord& wanted) {
    if (context.json) {
        ombrel::JsonWriter json;
        json.beginObject().member("changed", !areEqual(before, wanted)).key("rule");
        ombrel::writeRule(json, wanted);
        return ombrel::endOfOutput(ombrel::say(json.endObject().takeLine()));
    }
    std::string text = before.name == wanted.name ? "" : ombrel::nameLine(wanted) + '\n';
    for (const auto& field : ombrel::ruleFields()) {
        if (field.print(before) != field.print(wanted)) text += ombrel::ruleLine(field, wanted) + '\n';
    }
    return ombrel::endOfOutput(ombrel::say(text));
}

/// Every change ends with a restart of the rules' receiver, which takes its time.
int awaited(const Context& context, const std::function<int()>& change) {
    const ombrel::Waiting waiting(context.err, "applying the rule");
    return change();
}

int replace(const Context& context, const Kind& kind, const RuleRecord& before, const RuleRecord& wanted) {
    VLIBCErrSetEx(0, "", 0);
    if (awaited(context, [&] { return VESKCustomizedRuleSet(before.name, wanted); }) >= 0)
        return sayChanged(context, before, wanted);
    const std::string reason = takeReason();
    return complainFailed(kind, before.name, !areEqual(before, wanted) && isStored(wanted), reason);
}

int control(const Context& context, const Kind& kind, const std::string& name, _CUSTOMIZED_RULE_CMD_tag command) {
    ombrel::Turn turn;
    if (const int refused = turn.take()) return refused;
    RuleRecord before;
    if (const auto refused = ombrel::readOrRefuse(name, before)) return *refused;
    RuleRecord wanted = before;
    wanted.enable = command == CUSTOMIZED_RULE_ENABLE;
    VLIBCErrSetEx(0, "", 0);
    if (awaited(context, [&] { return VESKCustomziedRuleControl(name, command); }) >= 0)
        return sayChanged(context, before, wanted);
    const std::string reason = takeReason();
    return complainFailed(kind, name, !areEqual(before, wanted) && isStored(wanted), reason);
}

}  // namespace

int ombrel::addRule(const Context& context, const std::string& name, const Words& pairs, bool force) {
    RuleRecord rule{name, "BSD", "udp", 0, false, true};
    if (const auto wrong = applyRuleWords(pairs, rule)) return complain(EX_USAGE, *wrong);
    if (rule.port == 0) return complain(EX_USAGE, "port=N is missing: expected a port from 1 to 65535");
    if (const auto refused = refuseValues(RuleRecord{}, rule)) return *refused;
    Turn turn;
    if (const int refused = turn.take()) return refused;
    if (const auto refused = refuseNewName(rule.name)) return *refused;
    if (!force) {
        if (const auto refused = refusePort(rule.name, rule)) return *refused;
    }
    VLIBCErrSetEx(0, "", 0);
    if (awaited(context, [&] { return VESKCustomizedRuleAdd(rule); }) < 0) {
        const std::string reason = takeReason();
        return complainFailed(kAdded, rule.name, isStored(rule), reason);
    }
    return context.json ? sayChanged(context, RuleRecord{}, rule) : endOfOutput(say(ruleText(rule)));
}

int ombrel::setRule(const Context& context, const std::string& name, const Words& pairs, bool force) {
    RuleRecord blank;  // so that wrong words are told whatever the rules are
    if (const auto wrong = applyRuleWords(pairs, blank)) return complain(EX_USAGE, *wrong);
    Turn turn;
    if (const int refused = turn.take()) return refused;
    RuleRecord before;
    if (const auto refused = readOrRefuse(name, before)) return *refused;
    RuleRecord wanted = before;
    (void)applyRuleWords(pairs, wanted);  // the words have just been taken
    if (const auto refused = refuseValues(before, wanted)) return *refused;
    if (!force && portText(before) != portText(wanted)) {
        if (const auto refused = refusePort(before.name, wanted)) return *refused;
    }
    return replace(context, kChanged, before, wanted);
}

int ombrel::renameRule(const Context& context, const std::string& name, const std::string& newName) {
    Turn turn;
    if (const int refused = turn.take()) return refused;
    RuleRecord before;
    if (const auto refused = readOrRefuse(name, before)) return *refused;
    if (const auto refused = refuseNewName(newName)) return *refused;
    RuleRecord wanted = before;
    wanted.name = newName;
    if (const auto refused = refuseValues(before, wanted)) return *refused;
    return replace(context, kRenamed, before, wanted);
}

int ombrel::deleteRule(const Context& context, const std::string& name) {
    Turn turn;
    if (const int refused = turn.take()) return refused;
    RuleRecord rule;
    if (const auto refused = readOrRefuse(name, rule)) return *refused;
    VLIBCErrSetEx(0, "", 0);
    if (awaited(context, [&] { return VESKCustomizedRuleDel(rule.name); }) < 0) {
        const std::string reason = takeReason();
        const auto names = ruleNames();
        const bool gone = names && std::find(names->begin(), names->end(), rule.name) == names->end();
        return complainFailed(kDeleted, rule.name, gone, reason);
    }
    if (!context.json) return EX_OK;
    JsonWriter json;
    return endOfOutput(say(json.beginObject().member("deleted", rule.name).endObject().takeLine()));
}

int ombrel::enableRule(const Context& context, const std::string& name) {
    return control(context, kEnabled, name, CUSTOMIZED_RULE_ENABLE);
}

int ombrel::disableRule(const Context& context, const std::string& name) {
    return control(context, kDisabled, name, CUSTOMIZED_RULE_DISABLE);
}
