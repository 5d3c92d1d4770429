// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The fields of a customized rule as people write them.
#include "tools/ombrel/rule_fields.h"

#include "tests/fake/platform_test.h"
#include "tests/unit/rule_file.h"

namespace ombrel::test {

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

struct ValueCase {
    std::string name;
    std::string key;
    std::string value;
    bool taken;
};

class RuleFieldValue : public ::testing::TestWithParam<ValueCase> {};

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

INSTANTIATE_TEST_SUITE_P(
    Formats, RuleFieldValue,
    ::testing::Values(ValueCase{"Bsd", "format", "BSD", true}, ValueCase{"Ietf", "format", "IETF", true},
                      ValueCase{"Raw", "format", "RAW", true}, ValueCase{"LowerCase", "format", "bsd", true},
                      ValueCase{"MixedCase", "format", "Raw", true}, ValueCase{"NoFormat", "format", "", false},
                      ValueCase{"Other", "format", "JSON", false}, ValueCase{"Longer", "format", "BSD ", false},
                      ValueCase{"Nul", "format", std::string("BSD\0x", 5), false}),
    CaseName());

INSTANTIATE_TEST_SUITE_P(Protocols, RuleFieldValue,
                         ::testing::Values(ValueCase{"Udp", "protocol", "udp", true},
                                           ValueCase{"Tcp", "protocol", "tcp", true},
                                           ValueCase{"UpperCase", "protocol", "UDP", false},
                                           ValueCase{"UpperCaseTcp", "protocol", "TCP", false},
                                           ValueCase{"Tls", "protocol", "tls", false},
                                           ValueCase{"NoProtocol", "protocol", "", false}),
                         CaseName());

INSTANTIATE_TEST_SUITE_P(
    Ports, RuleFieldValue,
    ::testing::Values(ValueCase{"Lowest", "port", "1", true}, ValueCase{"Highest", "port", "65535", true},
                      ValueCase{"Zero", "port", "0", false}, ValueCase{"TooHigh", "port", "65536", false},
                      ValueCase{"Wrapped", "port", "4294967810", false},
                      ValueCase{"Negative", "port", "-1", false}, ValueCase{"Plus", "port", "+1", false},
                      ValueCase{"Tail", "port", "514x", false}, ValueCase{"BlankBefore", "port", " 514", false},
                      ValueCase{"Range", "port", "514-516", false}, ValueCase{"NoPort", "port", "", false}),
    CaseName());

INSTANTIATE_TEST_SUITE_P(
    Switches, RuleFieldValue,
    ::testing::Values(ValueCase{"TlsYes", "ssl", "yes", true}, ValueCase{"TlsNo", "ssl", "no", true},
                      ValueCase{"TlsUpperCase", "ssl", "YES", false}, ValueCase{"TlsOne", "ssl", "1", false},
                      ValueCase{"TlsEmpty", "ssl", "", false}, ValueCase{"EnableYes", "enable", "yes", true},
                      ValueCase{"EnableNo", "enable", "no", true},
                      ValueCase{"EnableTrue", "enable", "true", false},
                      ValueCase{"EnableEmpty", "enable", "", false}),
    CaseName());

TEST(RuleFields, AnUnknownNameHasNoField) {
    for (const char* name : {"", "name", "Port", "port ", "enabled"})
        EXPECT_EQ(findRuleField(name), nullptr) << name;
}

struct WordsCase {
    std::string name;
    Lines words;
    std::string complaint;
};

class RuleWords : public ::testing::TestWithParam<WordsCase> {};

TEST_P(RuleWords, TheFirstWrongOneIsNamed) {
    Rule rule = lampRule();
    EXPECT_EQ(applyTo(GetParam().words, rule), GetParam().complaint);
}

INSTANTIATE_TEST_SUITE_P(
    Wrong, RuleWords,
    ::testing::Values(
        WordsCase{"NoEquals", {"port"}, "\"port\" is not KEY=VALUE"},
        WordsCase{"Empty", {""}, "\"\" is not KEY=VALUE"},
        WordsCase{"NoKey", {"=1"}, "no key \"\"; expected format, protocol, port, ssl or enable"},
        WordsCase{"Name", {"port=1", "name=x"}, "no key \"name\"; expected format, protocol, port, ssl or enable"},
        WordsCase{"Twice", {"port=1", "port=1"}, "port is given twice"},
        WordsCase{"Format", {"format=a=b"}, "format=\"a=b\": expected BSD, IETF or RAW"},
        WordsCase{"Protocol", {"protocol=UDP"}, "protocol=\"UDP\": expected udp or tcp"},
        WordsCase{"Port", {"port="}, "port=\"\": expected a port from 1 to 65535"},
        WordsCase{"Tls", {"ssl=1"}, "ssl=\"1\": expected yes or no"},
        WordsCase{"Enable", {"enable=on", "junk"}, "enable=\"on\": expected yes or no"}),
    CaseName());

TEST(RuleFields, AreShownSafeForATerminal) {
    const Rule rule = {"a\x1b", "\x1b[2J", "p\xff", 1, false, false};
    EXPECT_EQ(nameLine(rule), "name=\"a\\x1b\"");
    EXPECT_EQ(ruleLine(*findRuleField("format"), rule), "format=\"\\x1b[2J\"");
    EXPECT_EQ(ruleLine(*findRuleField("protocol"), rule), "protocol=\"p\\xff\"");
}

}  // namespace

}  // namespace ombrel::test
