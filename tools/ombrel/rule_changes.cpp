// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What is changed of the customized rules. The library undoes nothing: after a failure it is told how far it came.
#include <sysexits.h>

#include <algorithm>
#include <cstdio>
#include <string_view>
#include <vector>

#include "platform/veskcore.h"
#include "platform/veskserviceconf.h"
#include "src/service_jobs.h"
#include "tools/ombrel/commands.h"
#include "tools/ombrel/rule_checks.h"
#include "tools/ombrel/rule_commands.h"
#include "tools/ombrel/rule_store.h"

namespace {

using ombrel::complain;
using ombrel::RuleRecord;
using ombrel::Words;

/// The words of a change behind the name.
struct Change {
    std::vector<char*> pairs;
    bool force = false;
};

Change changeOf(Words words) {
    Change change;
    for (char* const word : words) {
        if (std::string_view(word) == "--force") {
            change.force = true;
        } else {
            change.pairs.push_back(word);
        }
    }
    return change;
}

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

int printChanges(const RuleRecord& before, const RuleRecord& wanted) {
    bool written = before.name == wanted.name || puts(ombrel::nameLine(wanted).c_str()) >= 0;
    for (const auto& field : ombrel::ruleFields()) {
        if (field.print(before) == field.print(wanted)) continue;
        written = puts(ombrel::ruleLine(field, wanted).c_str()) >= 0 && written;
    }
    return ombrel::endOfOutput(written);
}

int replace(const Kind& kind, const RuleRecord& before, const RuleRecord& wanted) {
    VLIBCErrSetEx(0, "", 0);
    if (VESKCustomizedRuleSet(before.name, wanted) >= 0) return printChanges(before, wanted);
    const std::string reason = takeReason();
    return complainFailed(kind, before.name, !areEqual(before, wanted) && isStored(wanted), reason);
}

int control(const Kind& kind, const std::string& name, _CUSTOMIZED_RULE_CMD_tag command) {
    RuleRecord before;
    if (const auto refused = ombrel::readOrRefuse(name, before)) return *refused;
    RuleRecord wanted = before;
    wanted.enable = command == CUSTOMIZED_RULE_ENABLE;
    VLIBCErrSetEx(0, "", 0);
    if (VESKCustomziedRuleControl(name, command) >= 0) return printChanges(before, wanted);
    const std::string reason = takeReason();
    return complainFailed(kind, name, !areEqual(before, wanted) && isStored(wanted), reason);
}

}  // namespace

int ombrel::addRule(Words words) {
    const Change change = changeOf(words.subspan(1));
    RuleRecord rule{words[0], "BSD", "udp", 0, false, true};
    if (const auto wrong = applyRuleWords(change.pairs, rule)) return complain(EX_USAGE, *wrong);
    if (rule.port == 0) return complain(EX_USAGE, "port=N is missing: expected a port from 1 to 65535");
    if (const auto refused = refuseValues(RuleRecord{}, rule)) return *refused;
    if (const auto refused = refuseNewName(rule.name)) return *refused;
    if (!change.force) {
        if (const auto refused = refusePort(rule.name, rule)) return *refused;
    }
    VLIBCErrSetEx(0, "", 0);
    if (VESKCustomizedRuleAdd(rule) >= 0) return printRule(rule);
    const std::string reason = takeReason();
    return complainFailed(kAdded, rule.name, isStored(rule), reason);
}

int ombrel::setRule(Words words) {
    const Change change = changeOf(words.subspan(1));
    if (change.pairs.empty()) return complain(EX_USAGE, "nothing to set: expected KEY=VALUE behind the name");
    RuleRecord blank;  // so that wrong words are told whatever the rules are
    if (const auto wrong = applyRuleWords(change.pairs, blank)) return complain(EX_USAGE, *wrong);
    RuleRecord before;
    if (const auto refused = readOrRefuse(words[0], before)) return *refused;
    RuleRecord wanted = before;
    (void)applyRuleWords(change.pairs, wanted);  // the words have just been taken
    if (const auto refused = refuseValues(before, wanted)) return *refused;
    if (!change.force && portText(before) != portText(wanted)) {
        if (const auto refused = refusePort(before.name, wanted)) return *refused;
    }
    return replace(kChanged, before, wanted);
}

int ombrel::renameRule(Words words) {
    RuleRecord before;
    if (const auto refused = readOrRefuse(words[0], before)) return *refused;
    if (const auto refused = refuseNewName(words[1])) return *refused;
    RuleRecord wanted = before;
    wanted.name = words[1];
    if (const auto refused = refuseValues(before, wanted)) return *refused;
    return replace(kRenamed, before, wanted);
}

int ombrel::deleteRule(Words words) {
    RuleRecord rule;
    if (const auto refused = readOrRefuse(words[0], rule)) return *refused;
    VLIBCErrSetEx(0, "", 0);
    if (VESKCustomizedRuleDel(rule.name) >= 0) return EX_OK;
    const std::string reason = takeReason();
    const auto names = ruleNames();
    const bool gone = names && std::find(names->begin(), names->end(), rule.name) == names->end();
    return complainFailed(kDeleted, rule.name, gone, reason);
}

int ombrel::enableRule(Words words) {
    return control(kEnabled, words[0], CUSTOMIZED_RULE_ENABLE);
}

int ombrel::disableRule(Words words) {
    return control(kDisabled, words[0], CUSTOMIZED_RULE_DISABLE);
}
