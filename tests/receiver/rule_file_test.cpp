// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/rules/rule_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <ostream>
#include <string>

#include "tests/receiver/temp_folder.h"

namespace ombrel {
namespace {

// name|format|protocol|port|ssl|enable
std::string shown(const _CUSTOMIZED_RULE_tag& rule) {
    return rule.name + "|" + rule.format + "|" + rule.protocol + "|" + std::to_string(rule.port) + "|" +
           (rule.ssl ? "yes" : "no") + "|" + (rule.enable ? "yes" : "no");
}

std::vector<std::string> shownRules(std::string_view text) {
    std::vector<std::string> lines;
    for (const auto& rule : parseRules(text))
        lines.push_back(shown(rule));
    return lines;
}

struct RuleFileCase {
    const char* name;
    std::string text;
    std::vector<std::string> rules;
};

void PrintTo(const RuleFileCase& one, std::ostream* out) {
    *out << one.name;
}

class ParseRules : public testing::TestWithParam<RuleFileCase> {};

TEST_P(ParseRules, GivesThem) {
    EXPECT_EQ(shownRules(GetParam().text), GetParam().rules);
}

INSTANTIATE_TEST_SUITE_P(
    All, ParseRules,
    testing::Values(
        RuleFileCase{"Nothing", "", {}},
        RuleFileCase{"Whole",
                     "[a b]\nformat=\"BSD\"\nprotocol=\"udp\"\nport=\"514\"\nssl=\"yes\"\nenable=\"yes\"\n",
                     {"a b|BSD|udp|514|yes|yes"}},
        RuleFileCase{"FileOrder", "[b]\nport=\"1\"\n[a]\nport=\"2\"\n", {"b|||1|no|no", "a|||2|no|no"}},
        RuleFileCase{"WithoutKeys", "[a]\n", {"a|||0|no|no"}},
        RuleFileCase{"WithoutSections", "port=\"514\"\nenable=\"yes\"\n", {}},
        RuleFileCase{"BeforeTheFirst", "port=\"514\"\n[a]\nssl=\"yes\"\n", {"a|||0|yes|no"}},
        RuleFileCase{"OtherWordsThanYes", "[a]\nssl=\"YES\"\nenable=\"1\"\n", {"a|||0|no|no"}},
        RuleFileCase{"FirstSectionCounts",
                     "[a]\nport=\"1\"\n[b]\n[a]\nport=\"2\"\nformat=\"RAW\"\n",
                     {"a|||1|no|no", "b|||0|no|no"}},
        RuleFileCase{"FirstKeyCounts", "[a]\nport=\"1\"\nport=\"2\"\n", {"a|||1|no|no"}},
        RuleFileCase{"KeysOfEachSection", "[a]\nport=\"1\"\n[b]\nport=\"2\"\n", {"a|||1|no|no", "b|||2|no|no"}},
        RuleFileCase{"NegativePort",
                     "[a]\nport=\"18446744073709551615\"\n[b]\nport=\"-1\"\n",
                     {"a|||-1|no|no", "b|||-1|no|no"}},
        RuleFileCase{"PortInThirtyTwoBits", "[a]\nport=\"4294967810\"\n", {"a|||514|no|no"}},
        RuleFileCase{
            "PortWithOtherText", "[a]\nport=\" 514x\"\n[b]\nport=\"x\"\n", {"a|||514|no|no", "b|||0|no|no"}},
        RuleFileCase{"QuotesInAValue", "[\"a\"]\nformat=\"B\"SD\"\n", {"\"a\"|B\"SD||0|no|no"}},
        RuleFileCase{"Junk", std::string("\xff\0\x01=[\n[a]\njunk\n]\n[\nport=\"1\"\n=\n", 27), {"a|||1|no|no"}},
        RuleFileCase{"UntilNul", std::string("[a\0b]\nprotocol=\"udp\0x\"\n", 23), {"a||udp|0|no|no"}}),
    [](const auto& one) { return one.param.name; });

class RuleFile : public testing::Test {
protected:
    int read(const std::string& path) { return readRules(path, rules); }
    TempFolder folder;
    std::vector<_CUSTOMIZED_RULE_tag> rules;
};

TEST_F(RuleFile, ThatIsMissingHasNoRules) {
    rules.resize(1);
    EXPECT_EQ(read(folder / "custrule.conf"), 0);
    EXPECT_TRUE(rules.empty());
}

TEST_F(RuleFile, IsRead) {
    writeText(folder / "custrule.conf", "[a]\n[b]\n");
    EXPECT_EQ(read(folder / "custrule.conf"), 0);
    EXPECT_EQ(rules.size(), 2U);
}

TEST_F(RuleFile, ThatIsNoneLeavesTheRulesAlone) {
    rules.resize(1);
    EXPECT_EQ(read(folder.path()), EISDIR);
    ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);
    EXPECT_EQ(read(folder / "fifo"), EINVAL);
    std::filesystem::resize_file((writeText(folder / "large", ""), folder / "large"), kMostRuleFileBytes + 1);
    EXPECT_EQ(read(folder / "large"), EFBIG);
    EXPECT_EQ(rules.size(), 1U);
}

}  // namespace
}  // namespace ombrel
