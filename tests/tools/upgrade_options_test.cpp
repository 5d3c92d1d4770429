// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel-upgrade/upgrade_options.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace ombrel {
namespace {

using ::testing::HasSubstr;

std::string read(std::vector<std::string> words, UpgradeOptions& options) {
    words.insert(words.begin(), "ombrel-upgrade");
    std::vector<char*> pointers;
    pointers.reserve(words.size() + 1);
    for (std::string& word : words)
        pointers.push_back(word.data());
    pointers.push_back(nullptr);
    return readUpgradeOptions(static_cast<int>(words.size()), pointers.data(), options);
}

TEST(UpgradeOptions, TakesTheWordsInAnyOrder) {
    UpgradeOptions options;
    EXPECT_EQ(read({"--zip", "--all", "--remove-old", "--dry-run"}, options), "");
    EXPECT_TRUE(options.all && options.zip && options.removeOld && options.dryRun && options.paths.empty());
    UpgradeOptions named;
    EXPECT_EQ(read({"a.DB", "--zip", "b.DB", "--", "--all"}, named), "");
    EXPECT_TRUE(named.zip && !named.all && !named.removeOld && !named.dryRun);
    EXPECT_EQ(named.paths, (std::vector<std::string>{"a.DB", "b.DB", "--all"}));
    EXPECT_FALSE(named.json);
    UpgradeOptions json;
    EXPECT_EQ(read({"--json", "--all"}, json), "");
    EXPECT_TRUE(json.json);
    UpgradeOptions help;
    EXPECT_EQ(read({"--help"}, help), "") << "whatever else is missing";
    EXPECT_TRUE(help.help);
}

TEST(UpgradeOptions, SaysWhatIsExpected) {
    const struct {
        std::vector<std::string> words;
        const char* said;
    } kCases[] = {
        {{}, "expected --all or the paths"}, {{"--zip", "--dry-run"}, "expected --all or the paths"},
        {{"--all", "a.DB"}, "not both"},     {{"a.DB", "--all"}, "not both"},
        {{"--al1"}, "no such option"},       {{"-x", "a.DB"}, "no such option"},
        {{"--all=yes"}, "takes no value"},   {{"a.DB", ""}, "a path is empty"},
    };
    for (const auto& one : kCases) {
        UpgradeOptions options;
        EXPECT_THAT(read(one.words, options), HasSubstr(one.said)) << ::testing::PrintToString(one.words);
    }
}

}  // namespace
}  // namespace ombrel
