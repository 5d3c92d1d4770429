// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The fields of a customized rule as people write them.
#include "tools/ombrel/rule_fields.h"

#include "tests/fake/platform_test.h"
#include "tests/unit/rule_file.h"

namespace ombrel::test::rule_fields {

namespace {

using ::testing::ElementsAre;

std::optional<std::string> applyTo(const Lines& words, Rule& rule) {
    return applyRuleWords(words, rule);
}

Lines printed(const Rule& rule) {
    Lines lines;
    for (const RuleField& field : ruleFields())
        lines.push_back(std::string(field.name) + "=" + field.print(rule));
    return lines;
}

TEST(RuleFields, AreThoseOfTheRuleFileInItsOrderAndWords) {
    EXPECT_THAT(printed(lampRule()),
                ElementsAre("format=IETF", "protocol=tcp", "port=6514", "ssl=yes", "enable=no"));
    EXPECT_THAT(printed(newRule()),
                ElementsAre("format=RAW", "protocol=udp", "port=1514", "ssl=no", "enable=yes"));
}

TEST(RuleFields, WhatIsPrintedIsTakenBack) {
    Rule rule;
    EXPECT_EQ(applyTo(printed(lampRule()), rule), std::nullopt);
    EXPECT_EQ(printed(rule), printed(lampRule()));
    EXPECT_EQ(rule.name, "");
}

TEST(RuleFields, EachChangesItsOwnFieldAlone) {
    for (const RuleField& field : ruleFields()) {
        Rule rule = lampRule();
        ASSERT_TRUE(field.parse(field.print(newRule()), rule)) << field.name;
        int changed = 0;
        for (const RuleField& other : ruleFields())
            changed += other.print(rule) != other.print(lampRule()) ? 1 : 0;
        EXPECT_EQ(changed, 1) << field.name;
        EXPECT_EQ(field.print(rule), field.print(newRule()));
    }
}

struct RuleValueCase {
    std::string name;
    std::string key;
    std::string value;
    bool taken;
};

class RuleFieldValue : public ::testing::TestWithParam<RuleValueCase> {};

TEST_P(RuleFieldValue, IsTakenOrLeavesTheRecordAsItWas) {
    const RuleField* field = findRuleField(GetParam().key);
    ASSERT_NE(field, nullptr);
    Rule rule = lampRule();
    EXPECT_EQ(field->parse(GetParam().value, rule), GetParam().taken);
    if (GetParam().taken) {
        EXPECT_EQ(field->print(rule), GetParam().value);
    } else {
        EXPECT_EQ(printed(rule), printed(lampRule()));
    }
}

INSTANTIATE_TEST_SUITE_P(Formats, RuleFieldValue,
                         ::testing::Values(RuleValueCase{"Bsd", "format", "BSD", true},
                                           RuleValueCase{"Ietf", "format", "IETF", true},
                                           RuleValueCase{"Raw", "format", "RAW", true},
                                           RuleValueCase{"LowerCase", "format", "bsd", true},
                                           RuleValueCase{"MixedCase", "format", "Raw", true},
                                           RuleValueCase{"NoFormat", "format", "", false},
                                           RuleValueCase{"Other", "format", "JSON", false},
                                           RuleValueCase{"Longer", "format", "BSD ", false},
                                           RuleValueCase{"Nul", "format", std::string("BSD\0x", 5), false}),
                         CaseName());

INSTANTIATE_TEST_SUITE_P(Protocols, RuleFieldValue,
                         ::testing::Values(RuleValueCase{"Udp", "protocol", "udp", true},
                                           RuleValueCase{"Tcp", "protocol", "tcp", true},
                                           RuleValueCase{"UpperCase", "protocol", "UDP", false},
                                           RuleValueCase{"UpperCaseTcp", "protocol", "TCP", false},
                                           RuleValueCase{"Tls", "protocol", "tls", false},
                                           RuleValueCase{"NoProtocol", "protocol", "", false}),
                         CaseName());

INSTANTIATE_TEST_SUITE_P(
    Ports, RuleFieldValue,
    ::testing::Values(RuleValueCase{"Lowest", "port", "1", true}, RuleValueCase{"Highest", "port", "65535", true},
                      RuleValueCase{"Zero", "port", "0", false}, RuleValueCase{"TooHigh", "port", "65536", false},
                      RuleValueCase{"Wrapped", "port", "4294967810", false},
                      RuleValueCase{"Negative", "port", "-1", false}, RuleValueCase{"Plus", "port", "+1", false},
                      RuleValueCase{"Tail", "port", "514x", false},
                      RuleValueCase{"BlankBefore", "port", " 514", false},
                      RuleValueCase{"Range", "port", "514-516", false},
                      RuleValueCase{"NoPort", "port", "", false}),
    CaseName());

INSTANTIATE_TEST_SUITE_P(Switches, RuleFieldValue,
                         ::testing::Values(RuleValueCase{"TlsYes", "ssl", "yes", true},
                                           RuleValueCase{"TlsNo", "ssl", "no", true},
                                           RuleValueCase{"TlsUpperCase", "ssl", "YES", false},
                                           RuleValueCase{"TlsOne", "ssl", "1", false},
                                           RuleValueCase{"TlsEmpty", "ssl", "", false},
                                           RuleValueCase{"EnableYes", "enable", "yes", true},
                                           RuleValueCase{"EnableNo", "enable", "no", true},
                                           RuleValueCase{"EnableTrue", "enable", "true", false},
                                           RuleValueCase{"EnableEmpty", "enable", "", false}),
                         CaseName());

TEST(RuleFields, AnUnknownNameHasNoField) {
    for (const char* name : {"", "name", "Port", "port ", "enabled"})
        EXPECT_EQ(findRuleField(name), nullptr) << name;
}

struct RuleWordsCase {
    std::string name;
    Lines words;
    std::string complaint;
};

class RuleWords : public ::testing::TestWithParam<RuleWordsCase> {};

TEST_P(RuleWords, TheFirstWrongOneIsNamed) {
    Rule rule = lampRule();
    EXPECT_EQ(applyTo(GetParam().words, rule), GetParam().complaint);
}

INSTANTIATE_TEST_SUITE_P(
    Wrong, RuleWords,
    ::testing::Values(
        RuleWordsCase{"NoEquals", {"port"}, "\"port\" is not KEY=VALUE"},
        RuleWordsCase{"Empty", {""}, "\"\" is not KEY=VALUE"},
        RuleWordsCase{"NoKey", {"=1"}, "no key \"\"; expected format, protocol, port, ssl or enable"},
        RuleWordsCase{
            "Name", {"port=1", "name=x"}, "no key \"name\"; expected format, protocol, port, ssl or enable"},
        RuleWordsCase{"Twice", {"port=1", "port=1"}, "port is given twice"},
        RuleWordsCase{"Format", {"format=a=b"}, "format=\"a=b\": expected BSD, IETF or RAW"},
        RuleWordsCase{"Protocol", {"protocol=UDP"}, "protocol=\"UDP\": expected udp or tcp"},
        RuleWordsCase{"Port", {"port="}, "port=\"\": expected a port from 1 to 65535"},
        RuleWordsCase{"Tls", {"ssl=1"}, "ssl=\"1\": expected yes or no"},
        RuleWordsCase{"Enable", {"enable=on", "junk"}, "enable=\"on\": expected yes or no"}),
    CaseName());

TEST(RuleFields, AreShownSafeForATerminal) {
    const Rule rule = {"a\x1b", "\x1b[2J", "p\xff", 1, false, false};
    EXPECT_EQ(nameLine(rule), "name=\"a\\x1b\"");
    EXPECT_EQ(ruleLine(*findRuleField("format"), rule), "format=\"\\x1b[2J\"");
    EXPECT_EQ(ruleLine(*findRuleField("protocol"), rule), "protocol=\"p\\xff\"");
}

}  // namespace

}  // namespace ombrel::test::rule_fields
