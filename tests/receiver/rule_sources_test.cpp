// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/rules/rule_sources.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>
#include <string>

namespace ombrel {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Rule = _CUSTOMIZED_RULE_tag;

Rule rule(const std::string& name, const std::string& format, const std::string& protocol, int port,
          bool ssl = false) {
    return {name, format, protocol, port, ssl, true};
}

// rule: transport/port, and how lines are taken.
std::vector<std::string> shown(const RuleSources& chosen) {
    std::vector<std::string> lines;
    for (const Source& source : chosen.sources) {
        const char* const transport = source.kind == SourceKind::kUdp   ? "udp"
                                      : source.kind == SourceKind::kTcp ? "tcp"
                                                                        : "tls";
        lines.push_back(source.rule + ": " + transport + "/" + std::to_string(source.port) +
                        (source.counted ? " counted" : "") + (source.raw ? " raw" : ""));
    }
    return lines;
}

struct RuleSourceCase {
    const char* name;
    Rule given;
    const char* source;  // empty: none
    const char* remark;  // empty: none
};

void PrintTo(const RuleSourceCase& one, std::ostream* out) {
    *out << one.name;
}

class OneRule : public testing::TestWithParam<RuleSourceCase> {};

TEST_P(OneRule, IsServedOrSaidWhyNot) {
    const RuleSources chosen = chooseRuleSources({GetParam().given}, "");
    if (*GetParam().source != '\0') {
        EXPECT_THAT(shown(chosen), ElementsAre(GetParam().source));
    } else {
        EXPECT_THAT(shown(chosen), IsEmpty());
    }
    if (*GetParam().remark != '\0') {
        EXPECT_THAT(chosen.remarks, ElementsAre(GetParam().remark));
    } else {
        EXPECT_THAT(chosen.remarks, IsEmpty());
    }
}

INSTANTIATE_TEST_SUITE_P(
    All, OneRule,
    testing::Values(
        RuleSourceCase{"BsdUdp", rule("r", "BSD", "udp", 514), "r: udp/514", ""},
        RuleSourceCase{"BsdTcp", rule("r", "BSD", "tcp", 514), "r: tcp/514", ""},
        RuleSourceCase{"BsdTls", rule("r", "BSD", "tcp", 514, true), "r: tls/514", ""},
        RuleSourceCase{"IetfUdp", rule("r", "IETF", "udp", 1), "r: udp/1", ""},
        RuleSourceCase{"IetfTcp", rule("r", "IETF", "tcp", 65535), "r: tcp/65535 counted", ""},
        RuleSourceCase{"IetfTls", rule("r", "IETF", "tcp", 6514, true), "r: tls/6514 counted", ""},
        RuleSourceCase{"RawUdp", rule("r", "RAW", "udp", 514), "r: udp/514 raw", ""},
        RuleSourceCase{"RawTcp", rule("r", "RAW", "tcp", 514), "r: tcp/514 raw", ""},
        RuleSourceCase{"RawTls", rule("r", "RAW", "tcp", 514, true), "r: tls/514 raw", ""},
        RuleSourceCase{"AnyLetterCase", rule("r", "iEtF", "tcp", 514), "r: tcp/514 counted", ""},
        RuleSourceCase{"OtherProtocolIsTcp", rule("r", "raw", "UDP", 514), "r: tcp/514 raw",
                       "rule \"r\": protocol=\"UDP\" is taken for tcp; expected udp or tcp"},
        RuleSourceCase{"NoProtocolIsTcp", rule("r", "bsd", "", 514, true), "r: tls/514",
                       "rule \"r\": protocol=\"\" is taken for tcp; expected udp or tcp"},
        RuleSourceCase{"UnknownFormat", rule("r", "XML", "udp", 514), "",
                       "rule \"r\" is left out: format=\"XML\" is unknown; expected BSD, IETF or RAW"},
        RuleSourceCase{"LongerFormat", rule("r", "BSDX", "udp", 514), "",
                       "rule \"r\" is left out: format=\"BSDX\" is unknown; expected BSD, IETF or RAW"},
        RuleSourceCase{"NoFormat", rule("r", "", "udp", 514), "",
                       "rule \"r\" is left out: format=\"\" is unknown; expected BSD, IETF or RAW"},
        RuleSourceCase{"PortZero", rule("r", "BSD", "udp", 0), "",
                       "rule \"r\" is left out: port=\"0\" is no port; expected 1 to 65535"},
        RuleSourceCase{"PortTooLarge", rule("r", "BSD", "udp", 65536), "",
                       "rule \"r\" is left out: port=\"65536\" is no port; expected 1 to 65535"},
        RuleSourceCase{"PortNegative", rule("r", "BSD", "udp", -1), "",
                       "rule \"r\" is left out: port=\"-1\" is no port; expected 1 to 65535"},
        RuleSourceCase{
            "TlsOverDatagrams", rule("r", "BSD", "udp", 514, true), "",
            "rule \"r\" is left out: ssl=\"yes\" needs protocol=\"tcp\", but it is \"udp\": there is no TLS over "
            "datagrams"},
        RuleSourceCase{"SwitchedOff", Rule{"r", "XML", "udp", 0, true, false}, "", ""}),
    [](const auto& one) { return one.param.name; });

TEST(ChooseRuleSources, GivesAPortToTheFirstInFileOrder) {
    const RuleSources chosen = chooseRuleSources(
        {rule("a", "BSD", "tcp", 514), rule("b", "RAW", "udp", 514), rule("c", "IETF", "tcp", 514, true),
         rule("d", "BSD", "udp", 514), rule("e", "BSD", "tcp", 515)},
        "");
    EXPECT_THAT(shown(chosen), ElementsAre("a: tcp/514", "b: udp/514 raw", "e: tcp/515"));
    EXPECT_THAT(chosen.remarks,
                ElementsAre("rule \"c\" is left out: port=\"514\" over tcp is that of rule \"a\", which stands "
                            "before it; each needs its own",
                            "rule \"d\" is left out: port=\"514\" over udp is that of rule \"b\", which stands "
                            "before it; each needs its own"));
}

TEST(ChooseRuleSources, GivesNoPortToOneThatIsOffOrMakesNoSense) {
    const Rule off{"off", "BSD", "udp", 514, false, false};
    const RuleSources chosen =
        chooseRuleSources({off, rule("odd", "XML", "udp", 514), rule("good", "BSD", "udp", 514)}, "");
    EXPECT_THAT(shown(chosen), ElementsAre("good: udp/514"));
}

TEST(ChooseRuleSources, LeavesOutTlsAloneWhereThereIsNone) {
    const RuleSources chosen = chooseRuleSources(
        {rule("a", "BSD", "tcp", 514, true), rule("b", "BSD", "tcp", 515), rule("c", "BSD", "tcp", 514)},
        "no key");
    EXPECT_THAT(shown(chosen), ElementsAre("b: tcp/515")) << "what is meant for TLS is not had without";
    ASSERT_EQ(chosen.remarks.size(), 2U);
    EXPECT_EQ(chosen.remarks[0], "rule \"a\" is left out: no key");
}

TEST(ChooseRuleSources, HasABound) {
    std::vector<Rule> rules;
    for (int i = 0; i < static_cast<int>(kMostServedRules) + 2; ++i)
        rules.push_back(rule("r" + std::to_string(i), "BSD", "udp", 20'000 + i));
    const RuleSources chosen = chooseRuleSources(rules, "");
    EXPECT_EQ(chosen.sources.size(), kMostServedRules);
    EXPECT_THAT(chosen.remarks, ElementsAre("rule \"r10000\" is left out: more than 10000 rules are enabled",
                                            "rule \"r10001\" is left out: more than 10000 rules are enabled"));
}

TEST(ChooseRuleSources, CutsWhatItShows) {
    const RuleSources chosen =
        chooseRuleSources({rule(std::string(255, 'n'), std::string(100'000, 'f'), "udp", 514)}, "");
    EXPECT_THAT(chosen.remarks,
                ElementsAre("rule \"" + std::string(200, 'n') + "...\" is left out: format=\"" +
                            std::string(200, 'f') + "...\" is unknown; expected BSD, IETF or RAW"));
}

}  // namespace
}  // namespace ombrel
