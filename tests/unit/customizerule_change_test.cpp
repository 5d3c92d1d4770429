// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Adding, replacing and deleting customized rules.
#include "tests/unit/rule_file.h"

namespace ombrel::test {

namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

const std::string kRuleFormat = "\"%s=\\\"%s\\\"\\n\"";
const std::string kDescription = "\"Customized log receiving of Ombrel\"";

std::string onRuleFile(const std::string& call, const std::string& rest) {
    return call + "(\"" + kRules + "\", " + rest + ")";
}

Lines allLines(std::initializer_list<Lines> parts) {
    Lines all;
    for (const Lines& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

/// The calls that fill the hash, and how the fake shows it.
Lines filling(const Rule& rule, const std::string& portText) {
    const auto set = [](const std::string& key, const std::string& value) {
        return "VLIBCSzHashSetValue(\"" + key + "\", \"" + value + "\")";
    };
    return {
        "VLIBCSzHashAlloc(1024)", set("format", rule.format),          set("protocol", rule.protocol),
        set("port", portText),    set("ssl", rule.ssl ? "yes" : "no"), set("enable", rule.enable ? "yes" : "no")};
}

std::string shownKeys(const Rule& rule) {
    return "\"{format=" + rule.format + ", protocol=" + rule.protocol + ", port=" + std::to_string(rule.port) +
           ", ssl=" + (rule.ssl ? "yes" : "no") + ", enable=" + (rule.enable ? "yes" : "no") + "}\"";
}

Lines declaring(const std::string& name, int protocol, const std::string& portText) {
    return {"VESKServiceComposePortInfo(1, 0, " + std::to_string(protocol) + ", " + portText + ")",
            "VESKServiceComposeSectionInfo(\"" + name + "\", \"Ombrel\", " + kDescription + ", 1)",
            "VLIBServiceConfSectionSet(\"vesk_syslog.sc[" + name + "]\", \"2 1 1 4 2 zero\")"};
}

Lines withdrawing(const std::string& name) {
    return {"VLIBCSzHashAlloc(1024)", "VLIBCFileExist(\"" + std::string(kRulePorts) + "\")",
            "VLIBCFileGetSection(\"" + std::string(kRulePorts) + "\", \"" + name + "\")",
            "VLIBServiceConfSectionRemove(\"vesk_syslog.sc[" + name + "]\", \"2 1 3 4 2 zero\")",
            "VLIBCSzHashFree()"};
}

const Lines kRuleRestart = {"VLIBServicectlJobStop(\"pkg-Ombrel-custrule\")",
                            "VLIBServicectlJobStart(\"pkg-Ombrel-custrule\")"};

class RuleChange : public RuleTest {};

TEST_F(RuleChange, AnAddedRuleIsWrittenThenDeclaredThenServed) {
    EXPECT_EQ(VESKCustomizedRuleAdd(newRule()), 0);
    EXPECT_THAT(platform.calls.lines(),
                ElementsAreArray(allLines(
                    {filling(newRule(), "1514"),
                     {onRuleFile("VLIBCFileAddSection", "\"roof\", " + shownKeys(newRule()) + ", " + kRuleFormat)},
                     declaring("roof", 2, "1514"),
                     kRuleRestart,
                     {"VLIBCSzHashFree()"}})));
    EXPECT_EQ(rules(), ruleSection(lampRule()) + other + ruleSection(newRule()));
    EXPECT_EQ(ports(), rulePort("lamp", "tcp", "6514") + otherPort + rulePort("roof", "udp", "1514"));
    EXPECT_EQ(platform.jobs[kRuleJob], 1);
    EXPECT_THAT(platform.syslogLines, IsEmpty());
    EXPECT_EQ(platform.firewallReloads, 0);
}

TEST_F(RuleChange, TheFirstRuleMakesTheFileAndStartsTheJob) {
    platform.removeFile(kRules);
    platform.removeFile(kRulePorts);
    platform.jobs[kRuleJob] = 0;
    EXPECT_EQ(VESKCustomizedRuleAdd(newRule()), 0);
    EXPECT_EQ(rules(), ruleSection(newRule()));
    EXPECT_EQ(ports(), rulePort("roof", "udp", "1514"));
    EXPECT_EQ(platform.jobs[kRuleJob], 1);
}

TEST_F(RuleChange, AReplacedRuleIsWrittenThenDeclaredAnewThenServed) {
    Rule wanted = newRule();
    EXPECT_EQ(VESKCustomizedRuleSet("lamp", wanted), 0);
    EXPECT_THAT(
        platform.calls.lines(),
        ElementsAreArray(allLines(
            {filling(wanted, "1514"),
             {onRuleFile("VLIBCFileSetSection", "\"lamp\", \"roof\", " + shownKeys(wanted) + ", " + kRuleFormat)},
             withdrawing("lamp"),
             declaring("roof", 2, "1514"),
             kRuleRestart,
             {"VLIBCSzHashFree()"}})));
    EXPECT_EQ(rules(), ruleSection(wanted) + other);
    EXPECT_EQ(ports(), otherPort + rulePort("roof", "udp", "1514"));
    EXPECT_THAT(platform.syslogLines, IsEmpty());
}

TEST_F(RuleChange, ARuleMayBeReplacedUnderItsOwnName) {
    Rule wanted = newRule();
    wanted.name = "lamp";
    EXPECT_EQ(VESKCustomizedRuleSet(wanted.name, wanted), 0);
    EXPECT_EQ(rules(), ruleSection(wanted) + other);
    EXPECT_EQ(ports(), otherPort + rulePort("lamp", "udp", "1514"));
}

TEST_F(RuleChange, KeysThatTheLibraryDoesNotKnowGoWithTheOldRule) {
    platform.addFile(kRules, "[lamp]\nnote=\"old\"\nport=\"1\"\n" + other);
    EXPECT_EQ(VESKCustomizedRuleSet("lamp", lampRule()), 0);
    EXPECT_EQ(rules(), ruleSection(lampRule()) + other);
}

TEST_F(RuleChange, ADeletedRuleIsRemovedThenWithdrawnThenServedNoMore) {
    EXPECT_EQ(VESKCustomizedRuleDel("lamp"), 0);
    EXPECT_THAT(platform.calls.lines(),
                ElementsAreArray(allLines(
                    {{onRuleFile("VLIBCFileRemoveSection", "\"lamp\"")}, withdrawing("lamp"), kRuleRestart})));
    EXPECT_EQ(rules(), other);
    EXPECT_EQ(ports(), otherPort);
    EXPECT_THAT(platform.syslogLines, IsEmpty());
}

TEST_F(RuleChange, ARuleThatWasNeverDeclaredCanBeDeleted) {
    platform.removeFile(kRulePorts);
    EXPECT_EQ(VESKCustomizedRuleDel("lamp"), 0);
    EXPECT_EQ(rules(), other);
    EXPECT_THAT(platform.syslogLines, IsEmpty());
}

TEST_F(RuleChange, ARuleThatIsOffIsDeclaredAndTheJobRestartedAllTheSame) {
    Rule off = newRule();
    off.enable = false;
    EXPECT_EQ(VESKCustomizedRuleAdd(off), 0);
    EXPECT_EQ(ports(), rulePort("lamp", "tcp", "6514") + otherPort + rulePort("roof", "udp", "1514"));
    EXPECT_EQ(platform.calls.linesOf({"VLIBServicectlJobStop", "VLIBServicectlJobStart"}), kRuleRestart);
}

struct ProtocolCase {
    std::string name;
    std::string protocol;
    std::string declared;
};

class RuleProtocol : public RuleTestWith<ProtocolCase> {
protected:
    RuleProtocol() { rule.protocol = GetParam().protocol; }

    Rule rule = newRule();
};

TEST_P(RuleProtocol, OfAnAddedRuleIsDeclaredAndKeptVerbatim) {
    EXPECT_EQ(VESKCustomizedRuleAdd(rule), 0);
    EXPECT_EQ(ports(),
              rulePort("lamp", "tcp", "6514") + otherPort + rulePort("roof", GetParam().declared, "1514"));
    EXPECT_EQ(rules(), ruleSection(lampRule()) + other + ruleSection(rule));
}

TEST_P(RuleProtocol, OfAReplacedRuleIsDeclaredAndKeptVerbatim) {
    EXPECT_EQ(VESKCustomizedRuleSet("door", rule), 0);
    EXPECT_EQ(ports(), rulePort("lamp", "tcp", "6514") + rulePort("roof", GetParam().declared, "1514"));
    EXPECT_EQ(rules(), ruleSection(lampRule()) + ruleSection(rule));
}

INSTANTIATE_TEST_SUITE_P(Texts, RuleProtocol,
                         ::testing::Values(ProtocolCase{"Udp", "udp", "udp"}, ProtocolCase{"Tcp", "tcp", "tcp"},
                                           ProtocolCase{"UpperCase", "UDP", "tcp"},
                                           ProtocolCase{"MixedCase", "Udp", "tcp"},
                                           ProtocolCase{"Longer", "udp6", "tcp"},
                                           ProtocolCase{"Shorter", "ud", "tcp"}, ProtocolCase{"Empty", "", "tcp"}),
                         CaseName());

struct RulePortCase {
    std::string name;
    int port;
    std::string stored;
    std::string declared;
};

class RulePort : public RuleTestWith<RulePortCase> {};

TEST_P(RulePort, IsStoredWidenedWithItsSignAndDeclaredAsItIs) {
    Rule rule = newRule();
    rule.port = GetParam().port;
    EXPECT_EQ(VESKCustomizedRuleAdd(rule), 0);
    EXPECT_THAT(platform.calls.linesOf({"VESKServiceComposePortInfo"}),
                ElementsAre("VESKServiceComposePortInfo(1, 0, 2, " + GetParam().declared + ")"));
    Rule read;
    EXPECT_EQ(VESKCustomizedRuleGet("roof", read), 0);
    EXPECT_EQ(platform.calls.linesOf({"VLIBCSzHashSetValue"}), [&] {
        Lines lines = filling(rule, GetParam().stored);
        return Lines(lines.begin() + 1, lines.end());
    }());
}

INSTANTIATE_TEST_SUITE_P(
    Numbers, RulePort,
    ::testing::Values(RulePortCase{"Lowest", 1, "1", "1"}, RulePortCase{"Highest", 65535, "65535", "65535"},
                      RulePortCase{"TooHigh", 65536, "65536", "65536"}, RulePortCase{"None", 0, "0", "0"},
                      RulePortCase{"Negative", -1, "18446744073709551615", "-1"},
                      RulePortCase{"Least", -2147483647 - 1, "18446744071562067968", "-2147483648"}),
    CaseName());

class RuleRefused : public RuleTest {
protected:
    void expectUntouched(const std::string& message) {
        EXPECT_THAT(platform.syslogLines, ElementsAre("err customizerule:" + message));
        EXPECT_EQ(rules(), ruleSection(lampRule()) + other);
        EXPECT_EQ(ports(), rulePort("lamp", "tcp", "6514") + otherPort);
        EXPECT_EQ(platform.calls.count("VLIBServicectlJobStop"), 0);
    }
};

TEST_F(RuleRefused, ANameThatIsTakenCannotBeAdded) {
    Rule taken = newRule();
    taken.name = "lamp";
    EXPECT_EQ(VESKCustomizedRuleAdd(taken), -1);
    expectUntouched("196 Fail create custimized rule config (lamp)[0x0204 section.c:99]");
}

TEST_F(RuleRefused, ANameThatIsTakenCannotBeGivenToAnother) {
    Rule taken = newRule();
    taken.name = "door";
    EXPECT_EQ(VESKCustomizedRuleSet("lamp", taken), -1);
    expectUntouched("244 Fail to set custimized rule config (door)[0x0204 section.c:99]");
}

TEST_F(RuleRefused, ARuleThatIsNotThereCannotBeReplaced) {
    EXPECT_EQ(VESKCustomizedRuleSet("none", newRule()), -1);
    expectUntouched("244 Fail to set custimized rule config (roof)[0x0203 section.c:99]");
}

TEST_F(RuleRefused, ARuleThatIsNotThereCannotBeDeleted) {
    EXPECT_EQ(VESKCustomizedRuleDel("none"), -1);
    expectUntouched("273 Fail to remove custimized rule config (none)[0x0203 section.c:99]");
}

TEST_F(RuleRefused, AValueThatTheFileCannotHoldIsNotWritten) {
    Rule broken = newRule();
    broken.format = "a\nenable=\"no\"";
    EXPECT_EQ(VESKCustomizedRuleAdd(broken), -1);
    expectUntouched("196 Fail create custimized rule config (roof)[0x0202 section.c:99]");
}

TEST_F(RuleRefused, PercentSignsInANameAreNoFormat) {
    EXPECT_EQ(VESKCustomizedRuleDel("%s%n"), -1);
    expectUntouched("273 Fail to remove custimized rule config (%s%n)[0x0203 section.c:99]");
}

}  // namespace

}  // namespace ombrel::test
