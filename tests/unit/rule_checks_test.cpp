// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What a customized rule tells of itself: its faults, and its line in the table.
#include "tools/ombrel/rule_checks.h"

#include "tests/fake/platform_test.h"
#include "tests/unit/rule_file.h"
#include "tools/ombrel/rule_table.h"

namespace ombrel::test::rule_checks {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

struct CheckedName {
    std::string name;
    std::string text;
    bool allowed;
};

class RuleName : public ::testing::TestWithParam<CheckedName> {};

TEST_P(RuleName, IsAllowedOrNamedWithWhatIs) {
    const auto why = whyNoRuleName(GetParam().text);
    if (GetParam().allowed) {
        EXPECT_EQ(why, std::nullopt);
    } else {
        EXPECT_EQ(why, "a rule cannot be named \"" + GetParam().text +
                           "\": expected 1 to 255 bytes of UTF-8 without control characters, without \"]\" and "
                           "without blanks at either end");
    }
}

INSTANTIATE_TEST_SUITE_P(
    Texts, RuleName,
    ::testing::Values(CheckedName{"Plain", "printers", true}, CheckedName{"One", "x", true},
                      CheckedName{"Blank", "edge firewall", true}, CheckedName{"Umlaut", "T\xc3\xbcr", true},
                      CheckedName{"OpenBracket", "a[b", true}, CheckedName{"Equals", "a=b", true},
                      CheckedName{"Hash", "#1", true}, CheckedName{"Quote", "\"a\"", true},
                      CheckedName{"Percent", "%s", true}, CheckedName{"Dots", "../x", true},
                      CheckedName{"AlmostReserved", "Syslog_server", true},
                      CheckedName{"Longest", std::string(255, 'n'), true}, CheckedName{"Empty", "", false},
                      CheckedName{"TooLong", std::string(256, 'n'), false},
                      CheckedName{"CloseBracket", "a]b", false}, CheckedName{"Newline", "a\nb", false},
                      CheckedName{"Tab", "a\tb", false}, CheckedName{"Escape", "a\x1b[2J", false},
                      CheckedName{"Delete", "a\x7f", false}, CheckedName{"ControlOfUnicode", "a\xc2\x85", false},
                      CheckedName{"NoUtf8", "a\xff", false}, CheckedName{"CutUtf8", "a\xc3", false},
                      CheckedName{"Overlong", "a\xc0\xaf", false}, CheckedName{"BlankBefore", " a", false},
                      CheckedName{"BlankBehind", "a ", false}, CheckedName{"OnlyBlank", " ", false}),
    CaseName());

TEST(RuleName, OfAReceiversOwnDeclarationIsRefused) {
    EXPECT_EQ(whyNoRuleName("syslog_server"),
              "a rule cannot be named \"syslog_server\": a receiver declares its own port under that name");
    EXPECT_EQ(whyNoRuleName("syslog_server_ietf"),
              "a rule cannot be named \"syslog_server_ietf\": a receiver declares its own port under that name");
}

TEST(RuleFaults, OfAGoodRuleAreNone) {
    EXPECT_THAT(ruleFaults(lampRule()), IsEmpty());
    EXPECT_THAT(ruleFaults(newRule()), IsEmpty());
    EXPECT_THAT(ruleFaults({"x", "ietf", "udp", 65535, false, true}), IsEmpty());
}

TEST(RuleFaults, NameEachValueAndWhatIsExpected) {
    EXPECT_THAT(ruleFaults(Rule{}),
                ElementsAre("format=\"\": expected BSD, IETF or RAW", "protocol=\"\": expected udp or tcp",
                            "port=\"0\": expected a port from 1 to 65535"));
    EXPECT_THAT(ruleFaults({"x", "JSON", "UDP", -1, true, true}),
                ElementsAre("format=\"JSON\": expected BSD, IETF or RAW", "protocol=\"UDP\": expected udp or tcp",
                            "port=\"-1\": expected a port from 1 to 65535"));
}

TEST(RuleFaults, TellThatTlsNeedsTcp) {
    EXPECT_THAT(ruleFaults({"x", "BSD", "udp", 1, true, true}),
                ElementsAre("ssl=yes needs protocol=tcp: TLS runs over TCP"));
}

TEST(RulePorts, AreThoseThatTheLibraryDeclares) {
    EXPECT_EQ(portText(newRule()), "1514/udp");
    EXPECT_EQ(portText(lampRule()), "6514/tcp");
    EXPECT_EQ(transportOf({"x", "", "UDP", 1, false, false}), "tcp");
    EXPECT_TRUE(hasPort(newRule()));
    for (const int port : {0, -1, 65536})
        EXPECT_FALSE(hasPort({"x", "", "", port, false, false})) << port;
}

TEST(RulePorts, AreSharedOverTheSameTransportByAnotherRule) {
    const std::vector<Rule> rules = {{"a", "BSD", "udp", 1, false, true},
                                     {"b", "BSD", "tcp", 1, false, true},
                                     {"c", "BSD", "udp", 2, false, true},
                                     {"d", "BSD", "tcp", 1, true, false}};
    EXPECT_EQ(findWithSamePort(rules, rules[0]), nullptr);
    EXPECT_EQ(findWithSamePort(rules, rules[1]), &rules[3]);
    EXPECT_EQ(findWithSamePort(rules, rules[2]), nullptr);
    EXPECT_EQ(findWithSamePort(rules, rules[3]), &rules[1]);
}

constexpr Terminal kScreen = {true, false, 80, 24};

TEST(RuleTable, HasAColumnForEachValue) {
    const std::vector<Rule> rules = {lampRule(), {"edge firewall", "BSD", "udp", 514, false, true}};
    EXPECT_EQ(ruleTable(rules).text(kScreen),
              "NAME           STATE  FORMAT  PROTOCOL  PORT\n"
              "lamp           off    IETF    tcp+TLS   6514\n"
              "edge firewall  on     BSD     udp        514\n");
}

TEST(RuleTable, CountsCharactersAndShowsWhatIsEmpty) {
    const std::vector<Rule> rules = {{"T\xc3\xbcr", "", "", 0, true, false},
                                     {"Tor", "RAW", "udp", 1, false, true}};
    EXPECT_EQ(ruleTable(rules).text({}), "T\xc3\xbcr\toff\t-\t-+TLS\t0\nTor\ton\tRAW\tudp\t1\n");
}

TEST(RuleTable, IsSafeForATerminal) {
    const std::vector<Rule> rules = {{"a\x1b", "\x1b[2J", "x\ny", 1, false, true}};
    EXPECT_EQ(ruleTable(rules).text({}), "a\\x1b\ton\t\\x1b[2J\tx\\x0ay\t1\n");
}

TEST(RuleTable, OfNoRulesIsEmpty) {
    EXPECT_EQ(ruleTable({}).text(kScreen), "");
}

}  // namespace

}  // namespace ombrel::test::rule_checks
