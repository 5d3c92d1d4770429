// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The job of the customized rules, the switch of one rule, and the checks of a port and of the archive folder.
#include "src/customizerule_control.h"

#include <new>

#include "tests/unit/rule_file.h"
#include "tests/unit/sample_settings.h"

namespace ombrel::test {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string kStop = "VLIBServicectlJobStop(\"pkg-Ombrel-custrule\")";
const std::string kStart = "VLIBServicectlJobStart(\"pkg-Ombrel-custrule\")";
const std::string kStopFails = "err customizerule:45 Fail to stop service (pkg-Ombrel-custrule)" + kTail;
const std::string kStartFails = "err customizerule:50 Fail to start service (pkg-Ombrel-custrule)" + kTail;

// ---- the job

class RuleJob : public RuleTest {};

TEST_F(RuleJob, IsStoppedAndStarted) {
    EXPECT_EQ(CustomizedRuleServiceRestart(), 0);
    EXPECT_THAT(platform.calls.lines(), ElementsAre(kStop, kStart));
    EXPECT_EQ(platform.jobs[kRuleJob], 1);
    EXPECT_THAT(platform.syslogLines, IsEmpty());
}

TEST_F(RuleJob, IsStartedAlsoWithoutAnyRule) {
    platform.removeFile(kRules);
    platform.jobs[kRuleJob] = 0;
    EXPECT_EQ(CustomizedRuleServiceRestart(), 0);
    EXPECT_EQ(platform.jobs[kRuleJob], 1);
}

TEST_F(RuleJob, ThatDoesNotStopIsNotStarted) {
    platform.failCall("VLIBServicectlJobStop");
    EXPECT_EQ(CustomizedRuleServiceRestart(), -1);
    EXPECT_EQ(platform.calls.linesOf({"VLIBServicectlJobStart"}), Lines());
    EXPECT_THAT(platform.syslogLines, ElementsAre(kStopFails));
}

TEST_F(RuleJob, ThatDoesNotStartStaysDown) {
    platform.failCall("VLIBServicectlJobStart");
    EXPECT_EQ(CustomizedRuleServiceRestart(), -1);
    EXPECT_EQ(platform.jobs[kRuleJob], 0);
    EXPECT_THAT(platform.syslogLines, ElementsAre(kStartFails));
}

// ---- the switch

const std::string kRead = "VLIBCFileGetSectionValue(\"" + std::string(kRules) + "\", \"lamp\", \"enable\", 8)";

std::string writing(const std::string& value) {
    return "VLIBCFileSetSectionValue(\"" + std::string(kRules) + "\", \"lamp\", \"enable\", \"" + value + "\")";
}

int control(const std::string& name, int command) {
    return VESKCustomziedRuleControl(name, static_cast<_CUSTOMIZED_RULE_CMD_tag>(command));
}

struct ControlCase {
    std::string name;
    std::string stored;  ///< the line of the key
    int command;
    std::string written;  ///< nothing: neither the file nor the job is touched
};

class RuleControl : public RuleTestWith<ControlCase> {};

TEST_P(RuleControl, WritesAndRestartsUnlessTheExactTextStandsThere) {
    const std::string before = "[lamp]\n" + GetParam().stored + "port=\"1\"\n";
    platform.addFile(kRules, before);
    EXPECT_EQ(control("lamp", GetParam().command), 0);
    EXPECT_THAT(platform.syslogLines, IsEmpty());
    if (GetParam().written.empty()) {
        EXPECT_THAT(platform.calls.lines(), ElementsAre(kRead));
        EXPECT_EQ(rules(), before);
        return;
    }
    EXPECT_THAT(platform.calls.lines(), ElementsAre(kRead, writing(GetParam().written), kStop, kStart));
    const std::string line = "enable=\"" + GetParam().written + "\"\n";
    EXPECT_EQ(rules(), GetParam().stored.empty() ? before + line : "[lamp]\n" + line + "port=\"1\"\n");
}

INSTANTIATE_TEST_SUITE_P(States, RuleControl,
                         ::testing::Values(ControlCase{"OnStaysOn", "enable=\"yes\"\n", 0, ""},
                                           ControlCase{"OffStaysOff", "enable=\"no\"\n", 1, ""},
                                           ControlCase{"OnGoesOff", "enable=\"yes\"\n", 1, "no"},
                                           ControlCase{"OffGoesOn", "enable=\"no\"\n", 0, "yes"},
                                           ControlCase{"UpperCaseYes", "enable=\"YES\"\n", 0, "yes"},
                                           ControlCase{"UpperCaseNo", "enable=\"NO\"\n", 1, "no"},
                                           ControlCase{"LongerYes", "enable=\"yes!\"\n", 0, "yes"},
                                           ControlCase{"CutValue", "enable=\"yesyesyesyes\"\n", 0, "yes"},
                                           ControlCase{"Empty", "enable=\"\"\n", 1, "no"},
                                           ControlCase{"NoKeyOn", "", 0, "yes"},
                                           ControlCase{"NoKeyOff", "", 1, "no"},
                                           ControlCase{"OtherCommandOfOff", "enable=\"no\"\n", 2, "no"},
                                           ControlCase{"OtherCommandOfOn", "enable=\"yes\"\n", 2, "no"},
                                           ControlCase{"NegativeCommand", "enable=\"no\"\n", -1, "no"}),
                         CaseName());

class RuleSwitch : public RuleTest {};

TEST_F(RuleSwitch, WritesAlsoWhatCouldNotBeRead) {
    platform.addFile(kRules, "[lamp]\nenable=\"yes\"\n");
    platform.failCall("VLIBCFileGetSectionValue");
    EXPECT_EQ(control("lamp", 0), 0);
    EXPECT_THAT(platform.calls.lines(), ElementsAre(kRead, writing("yes"), kStop, kStart));
}

TEST_F(RuleSwitch, FailsWhenTheValueCannotBeWritten) {
    platform.failCall("VLIBCFileSetSectionValue");
    EXPECT_EQ(control("lamp", 0), -1);
    EXPECT_THAT(platform.syslogLines, ElementsAre("err customizerule:316 Fail set section to file" + kTail));
    EXPECT_EQ(platform.calls.count("VLIBServicectlJobStop"), 0);
}

TEST_F(RuleSwitch, LeavesTheNewValueWhenTheJobDoesNotStop) {
    platform.failCall("VLIBServicectlJobStop");
    EXPECT_EQ(control("lamp", 0), -1);
    EXPECT_THAT(platform.syslogLines,
                ElementsAre(kStopFails, "err customizerule:322 Fail to start custimized rule service (lamp)"));
    Rule on = lampRule();
    on.enable = true;
    EXPECT_EQ(rules(), ruleSection(on) + other);
}

TEST_F(RuleSwitch, LeavesTheNewValueWhenTheJobDoesNotStart) {
    platform.failCall("VLIBServicectlJobStart");
    EXPECT_EQ(control("door", 1), -1);
    EXPECT_THAT(platform.syslogLines,
                ElementsAre(kStartFails, "err customizerule:322 Fail to start custimized rule service (door)"));
    EXPECT_EQ(rules().find("enable=\"yes\""), std::string::npos);
}

// ---- the port

const std::string kFreePorts = "VESKServiceConfPortsFree()";

std::string asking(const std::string& service, const std::string& port, const std::string& protocol) {
    return "VLIBIsPortConflict(\"" + service + "\", \"" + port + "\", \"" + protocol + "\", 28)";
}

class RulePortCheck : public RuleTest {};

TEST_F(RulePortCheck, OfAFreePortSucceeds) {
    EXPECT_EQ(VESKCustomizedRulePortCheck("lamp", 6514, "tcp"), 0);
    EXPECT_THAT(platform.calls.lines(), ElementsAre(asking("lamp", "6514", "tcp"), kFreePorts));
    EXPECT_THAT(platform.syslogLines, IsEmpty());
}

TEST_F(RulePortCheck, TakesOnlyTheAnswerOneForAConflict) {
    platform.noConflict = 2;
    EXPECT_EQ(VESKCustomizedRulePortCheck("lamp", 6514, "tcp"), 0);
    EXPECT_THAT(platform.syslogLines, IsEmpty());
}

TEST_F(RulePortCheck, OfATakenPortFailsInSilenceAndReleasesWhoTakesIt) {
    EXPECT_EQ(VESKCustomizedRulePortCheck("lamp", 2514, "udp"), -1);
    EXPECT_THAT(platform.calls.lines(), ElementsAre(asking("lamp", "2514", "udp"), kFreePorts));
    EXPECT_THAT(platform.syslogLines, IsEmpty());
}

TEST_F(RulePortCheck, PassesTheProtocolAsItIs) {
    EXPECT_EQ(VESKCustomizedRulePortCheck("lamp", 2514, "UDP"), -1);
    EXPECT_THAT(platform.calls.linesOf({"VLIBIsPortConflict"}), ElementsAre(asking("lamp", "2514", "UDP")));
    EXPECT_THAT(platform.syslogLines,
                ElementsAre("err customizerule:349 Fail to check if port conflict (lamp, 2514)" + kTail));
}

struct CheckFailure {
    std::string name;
    bool handsOut;
};

class RulePortCheckFails : public RuleTestWith<CheckFailure> {};

TEST_P(RulePortCheckFails, WithAMessageAndReleasesWhatItWasGiven) {
    platform.failuresHandOutObjects = GetParam().handsOut;
    platform.failCall("VLIBIsPortConflict");
    EXPECT_EQ(VESKCustomizedRulePortCheck("%s", -5, "tcp"), -1);
    EXPECT_THAT(platform.calls.linesOf({"VLIBIsPortConflict"}), ElementsAre(asking("%s", "-5", "tcp")));
    EXPECT_THAT(platform.syslogLines,
                ElementsAre("err customizerule:349 Fail to check if port conflict (%s, -5)" + kTail));
}

INSTANTIATE_TEST_SUITE_P(Objects, RulePortCheckFails,
                         ::testing::Values(CheckFailure{"Without", false}, CheckFailure{"With", true}),
                         CaseName());

TEST_F(RulePortCheck, CutsANameThatIsTooLongForItsText) {
    EXPECT_EQ(VESKCustomizedRulePortCheck(std::string(1023, 'n'), 1, "tcp"), 0);
    EXPECT_EQ(VESKCustomizedRulePortCheck(std::string(1024, 'n'), 1, "tcp"), 0);
    EXPECT_THAT(
        platform.calls.linesOf({"VLIBIsPortConflict"}),
        ElementsAre(asking(std::string(1023, 'n'), "1", "tcp"), asking(std::string(1023, 'n'), "1", "tcp")));
}

TEST_F(RulePortCheck, WritesThePortInDecimal) {
    (void)VESKCustomizedRulePortCheck("lamp", -2147483647 - 1, "tcp");
    (void)VESKCustomizedRulePortCheck("lamp", 2147483647, "tcp");
    EXPECT_THAT(platform.calls.linesOf({"VLIBIsPortConflict"}),
                ElementsAre(asking("lamp", "-2147483648", "tcp"), asking("lamp", "2147483647", "tcp")));
}

// ---- the archive folder

class RuleShareCheck : public PlatformTest {
protected:
    RuleShareCheck() { platform.addFile(kServerConf, sampleText()); }
    void TearDown() override {
        EXPECT_THAT(platform.syslogLines, IsEmpty());
        PlatformTest::TearDown();
    }
    void setFolder(const std::string& folder) {
        platform.addFile(kServerConf, sampleText({{"arch_dest", folder}}));
    }
};

TEST_F(RuleShareCheck, SucceedsWhenTheArchiveFolderIsAFolder) {
    platform.addFolder("/volume1/logs");
    EXPECT_EQ(VESKCustomizedRuleShareCheck(), 0);
    EXPECT_THAT(platform.calls.linesOf({"stat64"}), ElementsAre("stat64(\"/volume1/logs\")"));
    EXPECT_EQ(platform.calls.lines().back(), "stat64(\"/volume1/logs\")");
}

TEST_F(RuleShareCheck, FailsWhenItIsAFile) {
    platform.addFile("/volume1/logs");
    EXPECT_EQ(VESKCustomizedRuleShareCheck(), -1);
}

TEST_F(RuleShareCheck, FailsWhenThereIsNone) {
    EXPECT_EQ(VESKCustomizedRuleShareCheck(), -1);
}

TEST_F(RuleShareCheck, FailsWhenItIsEmpty) {
    setFolder("");
    EXPECT_EQ(VESKCustomizedRuleShareCheck(), -1);
    EXPECT_THAT(platform.calls.linesOf({"stat64"}), ElementsAre("stat64(\"\")"));
}

TEST_F(RuleShareCheck, FailsWhenItCannotBeLookedAt) {
    platform.addFolder("/volume1/logs");
    platform.failCall("stat64");
    EXPECT_EQ(VESKCustomizedRuleShareCheck(), -1);
}

TEST_F(RuleShareCheck, FailsWithoutSettingsAndAsksNoFurther) {
    platform.addFolder("/volume1/logs");
    platform.removeFile(kServerConf);
    EXPECT_EQ(VESKCustomizedRuleShareCheck(), -1);
    EXPECT_EQ(platform.calls.count("stat64"), 0);
}

TEST_F(RuleShareCheck, FailsWithoutTheStorageSettings) {
    platform.addFolder("/volume1/logs");
    platform.addFile(kServerConf, sampleText({}, {"arch_time"}));
    EXPECT_EQ(VESKCustomizedRuleShareCheck(), -1);
    EXPECT_EQ(platform.calls.count("stat64"), 0);
}

TEST_F(RuleShareCheck, FailsWithoutMemoryForTheSettings) {
    platform.addFolder("/volume1/logs");
    platform.calls.onFailure = [] { throw std::bad_alloc(); };
    platform.failCall("VLIBCFileGetKeyValue");
    EXPECT_EQ(VESKCustomizedRuleShareCheck(), -1);
}

}  // namespace

}  // namespace ombrel::test
