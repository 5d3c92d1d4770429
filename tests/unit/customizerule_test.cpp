// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Reading, listing and naming customized rules.
#include <functional>
#include <new>

#include "tests/unit/rule_file.h"

namespace ombrel::test {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::string onRules(const std::string& call, const std::string& rest) {
    return call + "(\"" + kRules + "\", " + rest + ")";
}

bool operator==(const Rule& a, const Rule& b) {
    return a.name == b.name && a.format == b.format && a.protocol == b.protocol && a.port == b.port &&
           a.ssl == b.ssl && a.enable == b.enable;
}

Rule callersRule() {
    return {"callers", "callers format", "callers protocol", 7, true, true};
}

class RuleGet : public RuleTest {};

TEST_F(RuleGet, ReadsTheKeysOfOneSectionInTheirOrder) {
    Rule rule = callersRule();
    EXPECT_EQ(VESKCustomizedRuleGet("lamp", rule), 0);
    EXPECT_TRUE(rule == lampRule());
    EXPECT_THAT(platform.calls.lines(),
                ElementsAre("VLIBCSzHashAlloc(1024)", onRules("VLIBCFileGetSection", "\"lamp\""),
                            "VLIBCSzHashGetValue(\"format\")", "VLIBCSzHashGetValue(\"protocol\")",
                            "VLIBCSzHashGetValue(\"port\")", "VLIBCSzHashGetValue(\"ssl\")",
                            "VLIBCSzHashGetValue(\"enable\")", "VLIBCSzHashFree()"));
    EXPECT_THAT(platform.syslogLines, IsEmpty());
}

TEST_F(RuleGet, OfANameWithoutASectionSetsTheNameAlone) {
    Rule rule = callersRule();
    Rule expected = callersRule();
    expected.name = "LAMP";
    EXPECT_EQ(VESKCustomizedRuleGet("LAMP", rule), 0);
    EXPECT_TRUE(rule == expected);
    EXPECT_THAT(platform.syslogLines, IsEmpty());
}

TEST_F(RuleGet, TakesTheNameFromTheVeryRuleThatItFills) {
    Rule rule = callersRule();
    rule.name = "lamp";
    EXPECT_EQ(VESKCustomizedRuleGet(rule.name, rule), 0);
    EXPECT_TRUE(rule == lampRule());
}

struct GetFailure {
    std::string name;
    std::string call;
    std::string message;
};

class RuleGetFails : public RuleTestWith<GetFailure> {
protected:
    void expectFailure() {
        platform.failCall(GetParam().call);
        Rule rule = callersRule();
        EXPECT_EQ(VESKCustomizedRuleGet("lamp", rule), -1);
        EXPECT_TRUE(rule == callersRule());
        EXPECT_THAT(platform.syslogLines, ElementsAre("err customizerule:" + GetParam().message));
    }
};

TEST_P(RuleGetFails, WithAMessageAndLeavesTheRule) {
    expectFailure();
}

TEST_P(RuleGetFails, ReleasesWhatTheFailedCallHandedOut) {
    platform.failuresHandOutObjects = true;
    expectFailure();
}

INSTANTIATE_TEST_SUITE_P(Steps, RuleGetFails,
                         ::testing::Values(GetFailure{"Memory", "VLIBCSzHashAlloc", "134 Fail to allocate memory"},
                                           GetFailure{"Reading", "VLIBCFileGetSection",
                                                      "138 Fail to do VLIBCFileGetSection" + kTail}),
                         CaseName());

TEST_F(RuleGet, FailsWithoutARuleFile) {
    platform.removeFile(kRules);
    Rule rule = callersRule();
    EXPECT_EQ(VESKCustomizedRuleGet("lamp", rule), -1);
    EXPECT_TRUE(rule == callersRule());
    EXPECT_THAT(platform.syslogLines, ElementsAre("err customizerule:138 Fail to do VLIBCFileGetSection" + kTail));
}

struct ParseCase {
    std::string name;
    std::string line;
    std::function<void(Rule&)> change;
};

class RuleParse : public RuleTestWith<ParseCase> {};

TEST_P(RuleParse, TakesThatKeyAndLeavesTheOtherFieldsAsTheCallerHadThem) {
    platform.addFile(kRules, "[one]\n" + GetParam().line + "\n[two]\nport=\"9\"\n");
    Rule rule = callersRule();
    Rule expected = callersRule();
    expected.name = "one";
    GetParam().change(expected);
    EXPECT_EQ(VESKCustomizedRuleGet("one", rule), 0);
    EXPECT_TRUE(rule == expected) << rule.format << " " << rule.protocol << " " << rule.port << " " << rule.ssl
                                  << rule.enable;
}

ParseCase port(const std::string& name, const std::string& text, int value) {
    return {"Port" + name, "port=\"" + text + "\"", [value](Rule& rule) { rule.port = value; }};
}

ParseCase tls(const std::string& name, const std::string& text, bool value) {
    return {"Tls" + name, "ssl=\"" + text + "\"", [value](Rule& rule) { rule.ssl = value; }};
}

ParseCase enabled(const std::string& name, const std::string& text, bool value) {
    return {"Enable" + name, "enable=\"" + text + "\"", [value](Rule& rule) { rule.enable = value; }};
}

INSTANTIATE_TEST_SUITE_P(
    Texts, RuleParse,
    ::testing::Values(ParseCase{"Format", "format=\" any Text=1 \"",
                                [](Rule& rule) { rule.format = " any Text=1 "; }},
                      ParseCase{"FormatEmpty", "format=\"\"", [](Rule& rule) { rule.format = ""; }},
                      ParseCase{"Protocol", "protocol=\"UDP\"", [](Rule& rule) { rule.protocol = "UDP"; }},
                      ParseCase{"ProtocolEmpty", "protocol=\"\"", [](Rule& rule) { rule.protocol = ""; }},
                      ParseCase{"OtherKey", "Port=\"9\"", [](Rule&) {}}),
    CaseName());

INSTANTIATE_TEST_SUITE_P(
    Ports, RuleParse,
    ::testing::Values(port("Plain", "514", 514), port("LeadingZero", "0514", 514), port("Hexadecimal", "0x10", 0),
                      port("Blank", " 514", 514), port("Tail", "514udp", 514), port("Letters", "abc", 0),
                      port("Empty", "", 0), port("Negative", "-1", -1), port("TooLarge", "65536", 65536),
                      port("Largest", "2147483647", 2147483647), port("Wrapped", "4294967810", 514),
                      port("Endless", "99999999999999999999", -1)),
    CaseName());

INSTANTIATE_TEST_SUITE_P(Switches, RuleParse,
                         ::testing::Values(tls("Yes", "yes", true), tls("No", "no", false),
                                           tls("UpperCase", "YES", false), tls("Longer", "yes!", false),
                                           tls("Shorter", "ye", false), tls("Blank", "yes ", false),
                                           tls("One", "1", false), tls("Empty", "", false),
                                           enabled("Yes", "yes", true), enabled("No", "no", false),
                                           enabled("UpperCase", "YES", false), enabled("Longer", "yess", false),
                                           enabled("Blank", " yes", false), enabled("One", "1", false),
                                           enabled("Empty", "", false)),
                         CaseName());

// ---- listing

using Names = std::list<std::string>;

/// One of the two forms, with its lines, and what it answers.
struct EnumForm {
    std::string name;
    int noFile;
    int noMemory;
    int notRead;
    std::function<int(Names&)> run;
};

int returningForm(Names& names) {
    names = VESKCustomizedRuleEnum();
    return 0;
}

class RuleEnum : public RuleTestWith<EnumForm> {
protected:
    int run() { return GetParam().run(names); }
    [[nodiscard]] bool returnsList() const { return GetParam().name == "Returning"; }
    /// After a failure.
    void expectNothingListed() {
        const Names kept = {"callers"};
        EXPECT_EQ(run(), returnsList() ? 0 : -1);
        EXPECT_EQ(names, returnsList() ? Names() : kept);
    }

    Names names = {"callers"};
};

TEST_P(RuleEnum, ListsTheSectionsInFileOrderInPlaceOfWhatWasThere) {
    platform.addFile(kRules, "[b]\n[a]\nport=\"1\"\n[ c ]\n[B]\n");
    EXPECT_EQ(run(), 0);
    EXPECT_THAT(names, ElementsAre("b", "a", " c ", "B"));
    EXPECT_THAT(platform.calls.lines(),
                ElementsAre("VLIBCFileExist(\"" + std::string(kRules) + "\")", "VLIBCSzListAlloc(1024)",
                            "VLIBCFileEnumSection(\"" + std::string(kRules) + "\")", "VLIBCSzListGet(0)",
                            "VLIBCSzListGet(1)", "VLIBCSzListGet(2)", "VLIBCSzListGet(3)", "VLIBCSzListFree()"));
    EXPECT_THAT(platform.syslogLines, IsEmpty());
}

TEST_P(RuleEnum, OfAFileWithoutRulesIsEmpty) {
    platform.addFile(kRules, "");
    EXPECT_EQ(run(), 0);
    EXPECT_THAT(names, IsEmpty());
}

TEST_P(RuleEnum, ListsMoreRulesThanTheListHadRoomFor) {
    std::string text;
    for (int i = 0; i < 1100; ++i)
        text += "[" + std::to_string(i) + "]\n";
    platform.addFile(kRules, text);
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(names.size(), 1100U);
    EXPECT_EQ(names.back(), "1099");
}

TEST_P(RuleEnum, NotesAMissingFileAndSucceeds) {
    platform.removeFile(kRules);
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(names, returnsList() ? Names() : Names{"callers"});
    EXPECT_THAT(platform.syslogLines,
                ElementsAre("info customizerule:" + std::to_string(GetParam().noFile) +
                            " /var/packages/Ombrel/target/service/conf/custrule.conf doesn't exist"));
    EXPECT_EQ(platform.calls.count("VLIBCSzListAlloc"), 0);
}

TEST_P(RuleEnum, TakesAFileThatCannotBeToldForThere) {
    platform.existAnswers[kRules] = -1;
    EXPECT_EQ(run(), 0);
    EXPECT_THAT(names, ElementsAre("lamp", "door"));
}

TEST_P(RuleEnum, FailsWithoutMemory) {
    platform.failCall("VLIBCSzListAlloc");
    expectNothingListed();
    EXPECT_THAT(platform.syslogLines, ElementsAre("err customizerule:" + std::to_string(GetParam().noMemory) +
                                                  " Fail to allocate memory"));
    EXPECT_EQ(platform.calls.count("VLIBCFileEnumSection"), 0);
}

TEST_P(RuleEnum, FailsWhenTheFileCannotBeRead) {
    platform.failCall("VLIBCFileEnumSection");
    expectNothingListed();
    EXPECT_THAT(platform.syslogLines, ElementsAre("err customizerule:" + std::to_string(GetParam().notRead) +
                                                  " Fail to enumerate customized rule config" + kTail));
}

TEST_P(RuleEnum, WithoutMemoryForANameFailsAndListsNothing) {
    platform.calls.onFailure = [] { throw std::bad_alloc(); };
    platform.failCall("VLIBCSzListGet", 2);
    expectNothingListed();
}

INSTANTIATE_TEST_SUITE_P(Forms, RuleEnum,
                         ::testing::Values(EnumForm{"Filling", 70, 76, 81,
                                                    [](Names& names) { return VESKCustomizedRuleEnum(names); }},
                                           EnumForm{"Returning", 104, 109, 114, returningForm}),
                         CaseName());

struct RuleNameCase {
    std::string name;
    std::string asked;
    int result;
};

class RuleNameCheck : public RuleTestWith<RuleNameCase> {};

TEST_P(RuleNameCheck, ComparesByteForByte) {
    EXPECT_EQ(VESKCustomizedRuleNameCheck(GetParam().asked), GetParam().result);
    EXPECT_THAT(platform.syslogLines, IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Names, RuleNameCheck,
                         ::testing::Values(RuleNameCase{"First", "lamp", -1}, RuleNameCase{"Last", "door", -1},
                                           RuleNameCase{"OtherCase", "Lamp", 0},
                                           RuleNameCase{"Longer", "lamp1", 0}, RuleNameCase{"Shorter", "lam", 0},
                                           RuleNameCase{"Blank", "lamp ", 0},
                                           RuleNameCase{"Nul", std::string("lamp\0x", 6), 0},
                                           RuleNameCase{"Empty", "", 0}),
                         CaseName());

TEST_F(RuleTest, EveryNameIsFreeWithoutARuleFile) {
    platform.removeFile(kRules);
    EXPECT_EQ(VESKCustomizedRuleNameCheck("lamp"), 0);
    EXPECT_THAT(
        platform.syslogLines,
        ElementsAre("info customizerule:104 /var/packages/Ombrel/target/service/conf/custrule.conf doesn't "
                    "exist"));
}

TEST_F(RuleTest, EveryNameIsFreeWhenTheRuleFileCannotBeRead) {
    platform.failCall("VLIBCFileEnumSection");
    EXPECT_EQ(VESKCustomizedRuleNameCheck("lamp"), 0);
    EXPECT_THAT(platform.syslogLines,
                ElementsAre("err customizerule:114 Fail to enumerate customized rule config" + kTail));
}

}  // namespace

}  // namespace ombrel::test
