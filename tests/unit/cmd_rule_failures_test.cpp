// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// `ombrel rule` when a call of the platform fails: what failed, how far it came, what is down and what to do.
#include <map>

#include "tests/unit/command_line_run.h"
#include "tests/unit/failure_sweep.h"
#include "tests/unit/rule_file.h"
#include "tests/unit/sample_settings.h"

namespace ombrel::test::cmd_rule_failures {

namespace {

using ::testing::HasSubstr;
using ::testing::Not;

constexpr int kNoPermission = 0x1000 + EACCES;
const std::string kUnreadable =
    "ombrel: /var/packages/Ombrel/target/service/conf/custrule.conf cannot be read (Permission denied)\n";
const std::string kLook = "; the system log names the step";
const std::string kJobLook = kLook + ", and the log of the job why it did not start; ";
const std::string kPortOrJob =
    "but its port could not be declared or pkg-Ombrel-custrule not be restarted (Permission denied)";
const std::string kWithdrawalOrJob =
    "but its port could not be withdrawn or pkg-Ombrel-custrule not be restarted (Permission denied)";
const std::string kSetAgain = "ombrel rule set NAME port=N tries again\n";
const std::string kRestart = "ombrel job restart pkg-Ombrel-custrule tries again\n";

struct Failure {
    std::string name;
    Lines words;
    std::string call;
    int nth;
    int exitCode;
    std::string complaint;
};

class RuleCommandFails : public RuleTestWith<Failure> {
protected:
    RuleCommandFails() {
        platform.calls.onFailure = [this] { platform.error.code = kNoPermission; };
    }
    int run(const Lines& words) { return command.runBelow("rule", words); }

    CommandLineRun command;
};

TEST_P(RuleCommandFails, InOneLineThatSaysHowFarItCame) {
    platform.failCall(GetParam().call, GetParam().nth);
    EXPECT_EQ(run(GetParam().words), GetParam().exitCode);
    EXPECT_EQ(command.out, "");
    EXPECT_EQ(command.err, GetParam().complaint);
}

Failure unreadable(const std::string& name, const Lines& words, const std::string& call, int nth = 1) {
    return {name, words, call, nth, 78, kUnreadable};
}

INSTANTIATE_TEST_SUITE_P(
    Reading, RuleCommandFails,
    ::testing::Values(unreadable("ListNames", {"list"}, "VLIBCFileEnumSection"),
                      unreadable("ListRule", {"list"}, "VLIBCFileGetSection", 2),
                      unreadable("ShowNames", {"show", "lamp"}, "VLIBCFileEnumSection"),
                      unreadable("ShowRule", {"show", "lamp"}, "VLIBCFileGetSection"),
                      unreadable("CheckNames", {"check"}, "VLIBCFileEnumSection"),
                      unreadable("CheckRule", {"check", "lamp"}, "VLIBCFileGetSection"),
                      unreadable("AddNames", {"add", "roof", "port=1"}, "VLIBCSzListAlloc"),
                      unreadable("SetNames", {"set", "lamp", "port=1"}, "VLIBCFileEnumSection"),
                      unreadable("SetRule", {"set", "lamp", "port=1"}, "VLIBCFileGetSection"),
                      unreadable("RenameNames", {"rename", "lamp", "x"}, "VLIBCFileEnumSection", 2),
                      unreadable("RenameRule", {"rename", "lamp", "x"}, "VLIBCSzHashAlloc"),
                      unreadable("DeleteNames", {"delete", "lamp"}, "VLIBCFileEnumSection"),
                      unreadable("EnableNames", {"enable", "lamp"}, "VLIBCFileEnumSection"),
                      unreadable("DisableRule", {"disable", "door"}, "VLIBCFileGetSection")),
    CaseName());

Failure notDone(const std::string& name, const Lines& words, const std::string& call, int nth = 1) {
    const std::map<std::string, std::string> participles = {{"add", "added"},      {"set", "changed"},
                                                            {"rename", "renamed"}, {"delete", "deleted"},
                                                            {"enable", "enabled"}, {"disable", "disabled"}};
    return {name,
            words,
            call,
            nth,
            1,
            "ombrel: the rule \"" + words[1] + "\" could not be " + participles.at(words[0]) +
                " (Permission denied)" + kLook + "\n"};
}

const Lines kAdd = {"add", "roof", "port=1514"};
const Lines kSet = {"set", "lamp", "port=1514"};
const Lines kRename = {"rename", "lamp", "roof"};
const Lines kDelete = {"delete", "lamp"};
const Lines kEnable = {"enable", "lamp"};
const Lines kDisable = {"disable", "door"};

INSTANTIATE_TEST_SUITE_P(Writing, RuleCommandFails,
                         ::testing::Values(notDone("AddMemory", kAdd, "VLIBCSzHashAlloc"),
                                           notDone("AddValue", kAdd, "VLIBCSzHashSetValue", 3),
                                           notDone("Add", kAdd, "VLIBCFileAddSection"),
                                           notDone("SetMemory", kSet, "VLIBCSzHashAlloc", 2),
                                           notDone("SetValue", kSet, "VLIBCSzHashSetValue"),
                                           notDone("Set", kSet, "VLIBCFileSetSection"),
                                           notDone("Rename", kRename, "VLIBCFileSetSection"),
                                           notDone("Delete", kDelete, "VLIBCFileRemoveSection"),
                                           notDone("Enable", kEnable, "VLIBCFileSetSectionValue"),
                                           notDone("Disable", kDisable, "VLIBCFileSetSectionValue")),
                         CaseName());

Failure halfDone(const std::string& name, const Lines& words, const std::string& call,
                 const std::string& complaint) {
    return {name, words, call, 1, 1, "ombrel: the rule " + complaint};
}

const std::string kJobAlone = "but pkg-Ombrel-custrule could not be restarted (Permission denied)";
const std::string kDown = "; down: pkg-Ombrel-custrule";

INSTANTIATE_TEST_SUITE_P(
    HalfWay, RuleCommandFails,
    ::testing::Values(halfDone("AddPort", kAdd, "VESKServiceComposePortInfo",
                               "\"roof\" is added, " + kPortOrJob + kJobLook + kSetAgain),
                      halfDone("AddSection", kAdd, "VESKServiceComposeSectionInfo",
                               "\"roof\" is added, " + kPortOrJob + kJobLook + kSetAgain),
                      halfDone("AddDeclaration", kAdd, "VLIBServiceConfSectionSet",
                               "\"roof\" is added, " + kPortOrJob + kJobLook + kSetAgain),
                      halfDone("AddStop", kAdd, "VLIBServicectlJobStop",
                               "\"roof\" is added, " + kPortOrJob + kJobLook + kSetAgain),
                      halfDone("AddStart", kAdd, "VLIBServicectlJobStart",
                               "\"roof\" is added, " + kPortOrJob + kDown + kJobLook + kSetAgain),
                      halfDone("SetWithdrawal", kSet, "VLIBServiceConfSectionRemove",
                               "\"lamp\" is changed, " + kPortOrJob + kJobLook + kSetAgain),
                      halfDone("SetDeclaration", kSet, "VLIBServiceConfSectionSet",
                               "\"lamp\" is changed, " + kPortOrJob + kJobLook + kSetAgain),
                      halfDone("SetStart", kSet, "VLIBServicectlJobStart",
                               "\"lamp\" is changed, " + kPortOrJob + kDown + kJobLook + kSetAgain),
                      halfDone("RenameDeclaration", kRename, "VLIBServiceConfSectionSet",
                               "\"lamp\" is renamed, " + kPortOrJob + kJobLook + kSetAgain),
                      halfDone("DeleteWithdrawal", kDelete, "VLIBServiceConfSectionRemove",
                               "\"lamp\" is deleted, " + kWithdrawalOrJob + kJobLook + kRestart),
                      halfDone("DeleteStart", kDelete, "VLIBServicectlJobStart",
                               "\"lamp\" is deleted, " + kWithdrawalOrJob + kDown + kJobLook + kRestart),
                      halfDone("EnableStop", kEnable, "VLIBServicectlJobStop",
                               "\"lamp\" is enabled, " + kJobAlone + kJobLook + kRestart),
                      halfDone("DisableStart", kDisable, "VLIBServicectlJobStart",
                               "\"door\" is disabled, " + kJobAlone + kDown + kJobLook + kRestart)),
    CaseName());

const std::string kPortUnknown = "whether port 1514/udp is free cannot be told (Permission denied)";

TEST_F(RuleCommandFails, APortThatCannotBeToldIsNotTaken) {
    platform.failCall("VLIBIsPortConflict");
    EXPECT_EQ(run(kAdd), 1);
    EXPECT_EQ(command.err, "ombrel: " + kPortUnknown + "; --force takes it all the same\n");
    EXPECT_EQ(rules(), ruleSection(lampRule()) + other);
}

TEST_F(RuleCommandFails, ACheckSaysThatAPortCannotBeTold) {
    platform.addFile(kRules, ruleSection(newRule()));
    platform.failCall("VLIBIsPortConflict");
    EXPECT_EQ(run({"check"}), 1);
    EXPECT_EQ(command.out, "roof: " + kPortUnknown + "\n");
}

TEST_F(RuleCommandFails, AnEarlierErrorIsNotTakenForThatOfTheFailure) {
    platform.calls.onFailure = [] {};
    platform.error.code = kNoPermission;
    platform.failCall("VLIBCFileAddSection");
    EXPECT_EQ(run(kAdd), 1);
    EXPECT_THAT(command.err, Not(HasSubstr("Permission denied")));
}

TEST_F(RuleCommandFails, TheSameValuesThatCouldNotBeWrittenAgainAreNotCalledChanged) {
    platform.failCall("VLIBCFileSetSection");
    EXPECT_EQ(run({"set", "lamp", "port=6514"}), 1);
    EXPECT_EQ(command.err, "ombrel: the rule \"lamp\" could not be changed (Permission denied)" + kLook + "\n");
}

// ---- every call in turn

/// The exit code and what stands in front of the first semicolon or line end, without the name of the program.
std::string outcome(const Lines& words) {
    CommandLineRun command;
    const int exitCode = command.runBelow("rule", words);
    const std::string said = command.err.empty() ? command.out : command.err.substr(8);
    EXPECT_EQ(command.err.empty(), exitCode == 0 || words[0] == "check") << command.err;
    return std::to_string(exitCode) + " " + said.substr(0, said.find_first_of(";\n"));
}

void prepareRules(FakePlatform& platform) {
    platform.addFile(kRules, ruleSection(lampRule()));
    platform.addFile(kRulePorts, rulePort("lamp", "tcp", "6514"));
    platform.addFile(kServerConf, sampleText());
    platform.jobs[kRuleJob] = 1;
}

const std::string kNotRead = "78 /var/packages/Ombrel/target/service/conf/custrule.conf cannot be read";
const std::string kNoRule = "64 no rule \"lamp\"";
const std::string kHalf = "but its port could not be declared or pkg-Ombrel-custrule not be restarted";
const std::string kHalfGone =
    "1 the rule \"lamp\" is deleted, but its port could not be withdrawn or pkg-Ombrel-custrule not be restarted";

const Operation kAddInTurn = {
    "RuleAdd",
    prepareRules,
    [] { return outcome(kAdd); },
    "0 name=\"roof\"",
    {{"VLIBCSzListAlloc", kNotRead},
     {"VLIBCFileEnumSection", kNotRead},
     {"VLIBIsPortConflict", "64 port 1514/udp is declared by another rule or service or held by another program"},
     {"VLIBCSzHashAlloc", "1 the rule \"roof\" could not be added"},
     {"VLIBCSzHashSetValue", "1 the rule \"roof\" could not be added"},
     {"VLIBCFileAddSection", "1 the rule \"roof\" could not be added"},
     {"VESKServiceComposePortInfo", "1 the rule \"roof\" is added, " + kHalf},
     {"VESKServiceComposeSectionInfo", "1 the rule \"roof\" is added, " + kHalf},
     {"VLIBServiceConfSectionSet", "1 the rule \"roof\" is added, " + kHalf},
     {"VLIBServicectlJobStop", "1 the rule \"roof\" is added, " + kHalf},
     {"VLIBServicectlJobStart", "1 the rule \"roof\" is added, " + kHalf}}};

const Operation kShowInTurn = {"RuleShow",
                               prepareRules,
                               [] {
                                   return outcome({"show", "lamp"});
                               },
                               "0 name=\"lamp\"",
                               {{"VLIBCFileExist", kNoRule},
                                {"VLIBCSzListAlloc", kNotRead},
                                {"VLIBCFileEnumSection", kNotRead},
                                {"VLIBCSzListGet", kNoRule},
                                {"VLIBCSzHashAlloc", kNotRead},
                                {"VLIBCFileGetSection", kNotRead}}};

const Operation kDeleteInTurn = {"RuleDelete",
                                 prepareRules,
                                 [] { return outcome(kDelete); },
                                 "0 ",
                                 {{"VLIBCFileExist#1", kNoRule},
                                  {"VLIBCSzListAlloc", kNotRead},
                                  {"VLIBCFileEnumSection", kNotRead},
                                  {"VLIBCSzListGet", kNoRule},
                                  {"VLIBCSzHashAlloc#1", kNotRead},
                                  {"VLIBCFileGetSection#1", kNotRead},
                                  {"VLIBCFileRemoveSection", "1 the rule \"lamp\" could not be deleted"},
                                  {"VLIBCSzHashAlloc#2", kHalfGone},
                                  {"VLIBServiceConfSectionRemove", kHalfGone},
                                  {"VLIBServicectlJobStop", kHalfGone},
                                  {"VLIBServicectlJobStart", kHalfGone}}};

INSTANTIATE_TEST_SUITE_P(RuleCommands, FailureSweep, ::testing::Values(kAddInTurn, kShowInTurn, kDeleteInTurn),
                         operationName);

}  // namespace

}  // namespace ombrel::test::cmd_rule_failures
