// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// `ombrel rule`: shows the customized rules, or changes one, its port and its receiver, all by the library.
#include <memory>

#include "tools/ombrel/commands.h"
#include "tools/ombrel/rule_commands.h"

namespace ombrel {

namespace {

struct RuleWords {
    std::string name;
    std::string newName;
    std::vector<std::string> pairs;
    bool force = false;
};
using SharedRuleWords = std::shared_ptr<RuleWords>;

SharedRuleWords newWords() {
    return std::make_shared<RuleWords>();
}

constexpr const char* kKeys = "format=BSD|IETF|RAW, protocol=udp|tcp, port=N, ssl=yes|no, enable=yes|no";
constexpr const char* kForce = "take the port even if another service has declared it or another program holds it";
constexpr const char* kRulesUnreadable = "the rules cannot be read";
constexpr const char* kRefused = "refused, nothing was changed";

Command& addNamed(Command& group, const char* verb, const char* summary, const SharedRuleWords& words) {
    return group.add(verb, summary)
        .word("NAME", words->name, "the rule", WordKind::kRule)
        .exitCode(78, kRulesUnreadable);
}

void addRuleQuestions(Command& group) {
    group.add("list", "one line a rule: name, on or off, format, protocol, port")
        .example("ombrel rule list")
        .exitCode(78, kRulesUnreadable)
        .run([](const Context& context) { return listRules(context); });
    auto shown = newWords();
    addNamed(group, "show", "all values of a rule", shown)
        .example("ombrel rule show printers")
        .run([shown](const Context& context) { return showRule(context, shown->name); });
    auto checked = newWords();
    group.add("check", "each rule: ok, or what is wrong with it")
        .optionalWord("NAME", checked->name, "this rule alone", WordKind::kRule)
        .example("ombrel rule check")
        .exitCode(1, "a rule is wrong")
        .exitCode(78, kRulesUnreadable)
        .run([checked](const Context& context) { return checkRules(context, checked->name); });
}

void addAdd(Command& group) {
    auto words = newWords();
    group.add("add", "make a rule, and serve it unless enable=no")
        .describe("What is not said is format=BSD protocol=udp ssl=no enable=yes; the port has to be said.")
        .word("NAME", words->name, "the new rule's name")
        .words("KEY=VALUE", words->pairs, kKeys)
        .flag("--force", words->force, kForce)
        .example("ombrel rule add printers port=1514")
        .example("ombrel rule add \"edge firewall\" port=6515 format=IETF protocol=tcp ssl=yes")
        .exitCode(64, kRefused)
        .exitCode(78, kRulesUnreadable)
        .run(
            [words](const Context& context) { return addRule(context, words->name, words->pairs, words->force); });
}

void addSet(Command& group) {
    auto words = newWords();
    addNamed(group, "set", "change values of a rule", words)
        .words("KEY=VALUE", words->pairs, kKeys)
        .flag("--force", words->force, kForce)
        .example("ombrel rule set printers port=1515 protocol=tcp")
        .exitCode(64, kRefused)
        .run(
            [words](const Context& context) { return setRule(context, words->name, words->pairs, words->force); });
}

void addOtherChanges(Command& group) {
    auto renamed = newWords();
    addNamed(group, "rename", "give a rule another name", renamed)
        .word("NEW", renamed->newName, "its new name")
        .example("ombrel rule rename printers \"office printers\"")
        .exitCode(64, kRefused)
        .run([renamed](const Context& context) { return renameRule(context, renamed->name, renamed->newName); });
    auto deleted = newWords();
    addNamed(group, "delete", "remove a rule and withdraw its port", deleted)
        .example("ombrel rule delete printers")
        .run([deleted](const Context& context) { return deleteRule(context, deleted->name); });
    auto enabled = newWords();
    addNamed(group, "enable", "serve a rule", enabled)
        .example("ombrel rule enable printers")
        .run([enabled](const Context& context) { return enableRule(context, enabled->name); });
    auto disabled = newWords();
    addNamed(group, "disable", "keep a rule, but do not serve it", disabled)
        .example("ombrel rule disable printers")
        .run([disabled](const Context& context) { return disableRule(context, disabled->name); });
}

}  // namespace

void addRuleCommand(Command& root) {
    Command& group = root.add("rule", "customized receiving rules: a port of its own for each");
    group.describe("Every change restarts the receiver of the rules.")
        .example("ombrel rule add printers port=1514");
    addRuleQuestions(group);
    addAdd(group);
    addSet(group);
    addOtherChanges(group);
}

}  // namespace ombrel
