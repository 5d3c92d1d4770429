// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The customized rules, with each of the platform calls of their operations failing in turn.
#include "src/customizerule_control.h"
#include "tests/unit/failure_sweep.h"
#include "tests/unit/rule_file.h"
#include "tests/unit/sample_settings.h"

namespace ombrel::test {

namespace {

using Results = std::map<std::string, std::string>;

void prepareSweptRules(FakePlatform& platform) {
    platform.addFile(kRules, ruleSection(lampRule()));
    platform.addFile(kRulePorts, rulePort("lamp", "tcp", "6514"));
    platform.jobs[kRuleJob] = 1;
}

/// The names in square brackets.
std::string sections(const std::string& path) {
    const std::string text = FakePlatform::current().read(path).value_or("");
    std::string names;
    for (auto at = text.find('['); at != std::string::npos; at = text.find('[', at + 1))
        names += text.substr(at + 1, text.find(']', at) - at - 1) + " ";
    return names;
}

/// The result, the rules, the declared ports and whether the job runs.
std::string ruleState(int result) {
    return std::to_string(result) + " " + sections(kRules) + "| " + sections(kRulePorts) +
           (FakePlatform::current().jobs[kRuleJob] != 0 ? "+" : "-");
}

std::string readRule() {
    Rule rule = {"", "F", "P", 1, false, true};
    const int result = VESKCustomizedRuleGet("lamp", rule);
    return std::to_string(result) + " " + rule.name + " " + rule.format + " " + rule.protocol + " " +
           std::to_string(rule.port) + (rule.ssl ? " yes" : " no") + (rule.enable ? " yes" : " no");
}

const Operation kReadRule = {"ReadRule",
                             prepareSweptRules,
                             readRule,
                             "0 lamp IETF tcp 6514 yes no",
                             {{"VLIBCSzHashAlloc", "-1  F P 1 no yes"},
                              {"VLIBCFileGetSection", "-1  F P 1 no yes"},
                              {"VLIBCSzHashGetValue#1", "0 lamp F tcp 6514 yes no"},
                              {"VLIBCSzHashGetValue#2", "0 lamp IETF P 6514 yes no"},
                              {"VLIBCSzHashGetValue#3", "0 lamp IETF tcp 1 yes no"},
                              {"VLIBCSzHashGetValue#4", "0 lamp IETF tcp 6514 no no"},
                              {"VLIBCSzHashGetValue#5", "0 lamp IETF tcp 6514 yes yes"}}};

std::string addRule() {
    return ruleState(VESKCustomizedRuleAdd(newRule()));
}

const std::string kAsItWas = "-1 lamp | lamp +";
const std::string kNotDeclared = "-1 lamp roof | lamp +";

const Operation kAddRule = {"AddRule",
                            prepareSweptRules,
                            addRule,
                            "0 lamp roof | lamp roof +",
                            {{"VLIBCSzHashAlloc", kAsItWas},
                             {"VLIBCSzHashSetValue", kAsItWas},
                             {"VLIBCFileAddSection", kAsItWas},
                             {"VESKServiceComposePortInfo", kNotDeclared},
                             {"VESKServiceComposeSectionInfo", kNotDeclared},
                             {"VLIBServiceConfSectionSet", kNotDeclared},
                             {"VLIBServicectlJobStop", "-1 lamp roof | lamp roof +"},
                             {"VLIBServicectlJobStart", "-1 lamp roof | lamp roof -"}}};

std::string replaceRule() {
    return ruleState(VESKCustomizedRuleSet("lamp", newRule()));
}

const Operation kReplaceRule = {"ReplaceRule",
                                prepareSweptRules,
                                replaceRule,
                                "0 roof | roof +",
                                {{"VLIBCSzHashAlloc#1", kAsItWas},
                                 {"VLIBCSzHashAlloc#2", "-1 roof | lamp +"},
                                 {"VLIBCSzHashSetValue", kAsItWas},
                                 {"VLIBCFileSetSection", kAsItWas},
                                 // Taken for missing, the file of ports has nothing to withdraw.
                                 {"VLIBCFileExist", "0 roof | lamp roof +"},
                                 {"VLIBServiceConfSectionRemove", "-1 roof | lamp +"},
                                 {"VESKServiceComposePortInfo", "-1 roof | +"},
                                 {"VESKServiceComposeSectionInfo", "-1 roof | +"},
                                 {"VLIBServiceConfSectionSet", "-1 roof | +"},
                                 {"VLIBServicectlJobStop", "-1 roof | roof +"},
                                 {"VLIBServicectlJobStart", "-1 roof | roof -"}}};

std::string deleteRule() {
    return ruleState(VESKCustomizedRuleDel("lamp"));
}

const Operation kDeleteRule = {"DeleteRule",
                               prepareSweptRules,
                               deleteRule,
                               "0 | +",
                               {{"VLIBCFileRemoveSection", kAsItWas},
                                {"VLIBCSzHashAlloc", "-1 | lamp +"},
                                {"VLIBCFileExist", "0 | lamp +"},
                                {"VLIBServiceConfSectionRemove", "-1 | lamp +"},
                                {"VLIBServicectlJobStop", "-1 | +"},
                                {"VLIBServicectlJobStart", "-1 | -"}}};

std::string joinedNames(const std::list<std::string>& names) {
    std::string text;
    for (const std::string& name : names)
        text += " " + name;
    return text;
}

void prepareTwoRules(FakePlatform& platform) {
    platform.addFile(kRules, "[lamp]\n[door]\n");
}

std::string listRules() {
    std::list<std::string> names = {"callers"};
    const int result = VESKCustomizedRuleEnum(names);
    return std::to_string(result) + joinedNames(names);
}

const Operation kListRules = {"ListRules",
                              prepareTwoRules,
                              listRules,
                              "0 lamp door",
                              {{"VLIBCFileExist", "0 callers"},
                               {"VLIBCSzListAlloc", "-1 callers"},
                               {"VLIBCFileEnumSection", "-1 callers"},
                               {"VLIBCSzListGet#1", "0 door"},
                               {"VLIBCSzListGet#2", "0 lamp"}}};

std::string returnRules() {
    return joinedNames(VESKCustomizedRuleEnum());
}

const Operation kReturnRules = {"ReturnRules",
                                prepareTwoRules,
                                returnRules,
                                " lamp door",
                                {{"VLIBCFileExist", ""},
                                 {"VLIBCSzListAlloc", ""},
                                 {"VLIBCFileEnumSection", ""},
                                 {"VLIBCSzListGet#1", " door"},
                                 {"VLIBCSzListGet#2", " lamp"}}};

std::string checkName() {
    return std::to_string(VESKCustomizedRuleNameCheck("door"));
}

const Operation kCheckName = {"CheckName",
                              prepareTwoRules,
                              checkName,
                              "-1",
                              {{"VLIBCFileExist", "0"},
                               {"VLIBCSzListAlloc", "0"},
                               {"VLIBCFileEnumSection", "0"},
                               {"VLIBCSzListGet#2", "0"}}};

std::string restartRules() {
    return ruleState(CustomizedRuleServiceRestart());
}

const Operation kRestartRules = {
    "RestartRules",
    prepareSweptRules,
    restartRules,
    "0 lamp | lamp +",
    {{"VLIBServicectlJobStop", kAsItWas}, {"VLIBServicectlJobStart", "-1 lamp | lamp -"}}};

/// Behind the ruleState whether the rule is on.
std::string switchOn() {
    const std::string text = ruleState(VESKCustomziedRuleControl("lamp", CUSTOMIZED_RULE_ENABLE));
    const bool on = FakePlatform::current().read(kRules).value_or("").find("enable=\"yes\"") != std::string::npos;
    return text + (on ? " on" : " off");
}

const Operation kSwitchOn = {"SwitchRuleOn",
                             prepareSweptRules,
                             switchOn,
                             "0 lamp | lamp + on",
                             {{"VLIBCFileSetSectionValue", kAsItWas + " off"},
                              {"VLIBServicectlJobStop", kAsItWas + " on"},
                              {"VLIBServicectlJobStart", "-1 lamp | lamp - on"}}};

std::string checkPort() {
    return std::to_string(VESKCustomizedRulePortCheck("roof", 1514, "udp"));
}

const Operation kCheckPort = {"CheckPort", prepareSweptRules, checkPort, "0", {{"VLIBIsPortConflict", "-1"}}};

void prepareArchiveFolder(FakePlatform& platform) {
    platform.addFile(kServerConf, sampleText());
    platform.addFolder("/volume1/logs");
}

std::string checkShare() {
    return std::to_string(VESKCustomizedRuleShareCheck());
}

const Operation kCheckShare = {"CheckShare",
                               prepareArchiveFolder,
                               checkShare,
                               "0",
                               {{"VLIBCFileGetKeyValue", "-1"},
                                {"VLIBCFileGetKeyValue#4", "0"},  // the keys of the other receiver
                                {"VLIBCFileGetKeyValue#5", "0"},
                                {"VLIBCFileGetKeyValue#6", "0"},
                                {"stat64", "-1"}}};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Rules, FailureSweep,
                         ::testing::Values(kReadRule, kAddRule, kReplaceRule, kDeleteRule, kListRules,
                                           kReturnRules, kCheckName, kRestartRules, kSwitchOn, kCheckPort,
                                           kCheckShare),
                         operationName);

}  // namespace ombrel::test
