// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Each step of a change of the customized rules that can fail: its messages, and what is left.
#include <functional>
#include <new>

#include "tests/unit/rule_file.h"

namespace ombrel::test {

namespace {

enum class Step { kNothing, kWritten, kWithdrawn, kDeclared, kStopped };

struct ChangeFailure {
    std::string name;
    std::string call;
    int nth;
    Step reached;
    Lines messages;
};

class RuleChangeFails : public RuleTestWith<ChangeFailure> {
protected:
    /// Runs the change, and says how far it came by what is left of the three.
    void expectFailure(const std::function<int()>& change, bool handOut) {
        const std::string rulesBefore = rules();
        const std::string portsBefore = ports();
        platform.failuresHandOutObjects = handOut;
        platform.failCall(GetParam().call, GetParam().nth);
        EXPECT_EQ(change(), -1);
        Lines expected;
        for (const std::string& message : GetParam().messages)
            expected.push_back("err " + message);
        EXPECT_EQ(platform.syslogLines, expected);
        EXPECT_EQ(rules() == rulesBefore, GetParam().reached == Step::kNothing);
        EXPECT_EQ(ports() == portsBefore, GetParam().reached < Step::kWithdrawn);
        EXPECT_EQ(ports().find("1514") != std::string::npos, declares && GetParam().reached >= Step::kDeclared);
        EXPECT_EQ(platform.jobs[kRuleJob], GetParam().reached == Step::kStopped ? 0 : 1);
        EXPECT_EQ(platform.calls.count("VLIBServicectlJobStart"), GetParam().reached == Step::kStopped ? 1 : 0);
    }

    bool declares = true;
};

class RuleAddFails : public RuleChangeFails {};

TEST_P(RuleAddFails, WithAMessageAndUndoesNothing) {
    expectFailure([] { return VESKCustomizedRuleAdd(newRule()); }, false);
}

TEST_P(RuleAddFails, ReleasesWhatTheFailedCallHandedOut) {
    expectFailure([] { return VESKCustomizedRuleAdd(newRule()); }, true);
}

const std::string kStopFailed = "customizerule:45 Fail to stop service (pkg-Ombrel-custrule)" + kTail;
const std::string kStartFailed = "customizerule:50 Fail to start service (pkg-Ombrel-custrule)" + kTail;

ChangeFailure addFails(const std::string& name, const std::string& call, int nth = 1) {
    return {
        name, call, nth, Step::kNothing, {"customizerule:196 Fail create custimized rule config (roof)" + kTail}};
}

ChangeFailure addPortFails(const std::string& name, const std::string& call, const std::string& message) {
    return {name,
            call,
            1,
            Step::kWritten,
            {"utils:" + message + kTail, "customizerule:205 Fail to create custimized rule port (roof)"}};
}

INSTANTIATE_TEST_SUITE_P(
    Steps, RuleAddFails,
    ::testing::Values(
        ChangeFailure{
            "Memory", "VLIBCSzHashAlloc", 1, Step::kNothing, {"customizerule:180 Fail to allocate memory"}},
        addFails("Format", "VLIBCSzHashSetValue", 1), addFails("Protocol", "VLIBCSzHashSetValue", 2),
        addFails("Port", "VLIBCSzHashSetValue", 3), addFails("Tls", "VLIBCSzHashSetValue", 4),
        addFails("Enable", "VLIBCSzHashSetValue", 5), addFails("Writing", "VLIBCFileAddSection"),
        addPortFails("ComposePort", "VESKServiceComposePortInfo", "414 Fail to compose port info"),
        addPortFails("ComposeSection", "VESKServiceComposeSectionInfo", "435 Fail to compose section info"),
        addPortFails("Declare", "VLIBServiceConfSectionSet", "443 Fail to create port section (vesk_syslog.sc)"),
        ChangeFailure{"Stop",
                      "VLIBServicectlJobStop",
                      1,
                      Step::kDeclared,
                      {kStopFailed, "customizerule:211 Fail to start custimized rule service (roof)"}},
        ChangeFailure{"Start",
                      "VLIBServicectlJobStart",
                      1,
                      Step::kStopped,
                      {kStartFailed, "customizerule:211 Fail to start custimized rule service (roof)"}}),
    CaseName());

class RuleSetFails : public RuleChangeFails {};

TEST_P(RuleSetFails, WithAMessageAndUndoesNothing) {
    expectFailure([] { return VESKCustomizedRuleSet("lamp", newRule()); }, false);
}

TEST_P(RuleSetFails, ReleasesWhatTheFailedCallHandedOut) {
    expectFailure([] { return VESKCustomizedRuleSet("lamp", newRule()); }, true);
}

ChangeFailure setFails(const std::string& name, const std::string& call, int nth = 1) {
    return {
        name, call, nth, Step::kNothing, {"customizerule:244 Fail to set custimized rule config (roof)" + kTail}};
}

const std::string kPortNotSet = "customizerule:250 Fail to set custimized rule port (roof)";

ChangeFailure setPortFails(const std::string& name, const std::string& call, const std::string& message) {
    return {
        name,
        call,
        1,
        Step::kWithdrawn,
        {"utils:" + message + kTail, "customizerule:30 Fail to create custimized rule port (roof)", kPortNotSet}};
}

INSTANTIATE_TEST_SUITE_P(
    Steps, RuleSetFails,
    ::testing::Values(
        ChangeFailure{
            "Memory", "VLIBCSzHashAlloc", 1, Step::kNothing, {"customizerule:227 Fail to allocate memory"}},
        setFails("Format", "VLIBCSzHashSetValue", 1), setFails("Protocol", "VLIBCSzHashSetValue", 2),
        setFails("Port", "VLIBCSzHashSetValue", 3), setFails("Tls", "VLIBCSzHashSetValue", 4),
        setFails("Enable", "VLIBCSzHashSetValue", 5), setFails("Writing", "VLIBCFileSetSection"),
        ChangeFailure{"MemoryToWithdraw",
                      "VLIBCSzHashAlloc",
                      2,
                      Step::kWritten,
                      {"utils:474 Failed to alloc memory",
                       "customizerule:23 Fail to remove custimized rule port (lamp)", kPortNotSet}},
        ChangeFailure{"Withdraw",
                      "VLIBServiceConfSectionRemove",
                      1,
                      Step::kWritten,
                      {"utils:480 Fail to remove port section! (vesk_syslog.sc), retVal=4" + kTail,
                       "customizerule:23 Fail to remove custimized rule port (lamp)", kPortNotSet}},
        setPortFails("ComposePort", "VESKServiceComposePortInfo", "414 Fail to compose port info"),
        setPortFails("ComposeSection", "VESKServiceComposeSectionInfo", "435 Fail to compose section info"),
        setPortFails("Declare", "VLIBServiceConfSectionSet", "443 Fail to create port section (vesk_syslog.sc)"),
        ChangeFailure{"Stop",
                      "VLIBServicectlJobStop",
                      1,
                      Step::kDeclared,
                      {kStopFailed, "customizerule:256 Fail to start custimized rule service (roof)"}},
        ChangeFailure{"Start",
                      "VLIBServicectlJobStart",
                      1,
                      Step::kStopped,
                      {kStartFailed, "customizerule:256 Fail to start custimized rule service (roof)"}}),
    CaseName());

class RuleDelFails : public RuleChangeFails {
protected:
    RuleDelFails() { declares = false; }
};

TEST_P(RuleDelFails, WithAMessageAndUndoesNothing) {
    expectFailure([] { return VESKCustomizedRuleDel("lamp"); }, false);
}

TEST_P(RuleDelFails, ReleasesWhatTheFailedCallHandedOut) {
    expectFailure([] { return VESKCustomizedRuleDel("lamp"); }, true);
}

INSTANTIATE_TEST_SUITE_P(
    Steps, RuleDelFails,
    ::testing::Values(
        ChangeFailure{"Removing",
                      "VLIBCFileRemoveSection",
                      1,
                      Step::kNothing,
                      {"customizerule:273 Fail to remove custimized rule config (lamp)" + kTail}},
        ChangeFailure{
            "MemoryToWithdraw",
            "VLIBCSzHashAlloc",
            1,
            Step::kWritten,
            {"utils:474 Failed to alloc memory", "customizerule:279 Fail to remove custimized rule port (lamp)"}},
        ChangeFailure{"Withdraw",
                      "VLIBServiceConfSectionRemove",
                      1,
                      Step::kWritten,
                      {"utils:480 Fail to remove port section! (vesk_syslog.sc), retVal=4" + kTail,
                       "customizerule:279 Fail to remove custimized rule port (lamp)"}},
        ChangeFailure{"Stop",
                      "VLIBServicectlJobStop",
                      1,
                      Step::kWithdrawn,
                      {kStopFailed, "customizerule:285 Fail to start custimized rule service (lamp)"}},
        ChangeFailure{"Start",
                      "VLIBServicectlJobStart",
                      1,
                      Step::kStopped,
                      {kStartFailed, "customizerule:285 Fail to start custimized rule service (lamp)"}}),
    CaseName());

/// No memory for a text of a rule in the middle of an operation.
class RuleWithoutMemory : public RuleTest {
protected:
    void noMemoryAt(const std::string& call) {
        platform.calls.onFailure = [] { throw std::bad_alloc(); };
        platform.failCall(call);
    }
};

TEST_F(RuleWithoutMemory, EveryOperationFailsAndReleasesWhatItHad) {
    Rule rule;
    noMemoryAt("VLIBCSzHashGetValue");
    EXPECT_EQ(VESKCustomizedRuleGet("lamp", rule), -1);
    noMemoryAt("VLIBCSzHashSetValue");
    EXPECT_EQ(VESKCustomizedRuleAdd(newRule()), -1);
    noMemoryAt("VLIBCSzHashSetValue");
    EXPECT_EQ(VESKCustomizedRuleSet("lamp", newRule()), -1);
    noMemoryAt("VLIBCFileRemoveSection");
    EXPECT_EQ(VESKCustomizedRuleDel("lamp"), -1);
    EXPECT_EQ(rules(), ruleSection(lampRule()) + other);
}

}  // namespace

}  // namespace ombrel::test
