// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Settings texts as people and other programs leave them behind.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "linux/common/error_record.h"
#include "linux/veskcore/settings_text.h"

namespace ombrel {
namespace {

using ::testing::ElementsAre;

const LineFormat kTextFormat = LineFormat::parse("%s=\"%s\"\n").value();

VLIBSZHASH keysOf(std::initializer_list<std::pair<const char*, const char*>> pairs) {
    VLIBSZHASH keys;
    for (const auto& [key, value] : pairs)
        keys.set(key, value);
    return keys;
}

std::string merge(const std::string& text, std::initializer_list<std::pair<const char*, const char*>> pairs) {
    const Edited edited = withKeys(text, keysOf(pairs), kTextFormat);
    EXPECT_EQ(edited.error, 0);
    return edited.text;
}

std::vector<std::string> namesOf(const std::string& text) {
    std::vector<std::string> names;
    for (const Section& section : sectionsOf(text))
        names.emplace_back(section.name);
    return names;
}

/// One line, and the value of "key" in it; null when it holds none.
struct Line {
    const char* name;
    const char* line;
    const char* value;
};
class SettingsLine : public ::testing::TestWithParam<Line> {};

TEST_P(SettingsLine, IsReadAsMeant) {
    const std::string text = std::string("other=\"x\"\n") + GetParam().line + "\nlast=\"y\"\n";
    const auto value = valueOf(text, "key");
    if (GetParam().value == nullptr) {
        EXPECT_FALSE(value) << *value;
    } else {
        ASSERT_TRUE(value);
        EXPECT_EQ(*value, GetParam().value);
    }
    EXPECT_EQ(valueOf(text, "last"), "y");
}

INSTANTIATE_TEST_SUITE_P(
    Lines, SettingsLine,
    ::testing::Values(Line{"Plain", "key=\"v\"", "v"}, Line{"BlanksAroundEquals", "key = \"v\"", "v"},
                      Line{"TabsAroundEquals", "\tkey\t=\t\"v\"\t", "v"}, Line{"NoQuotes", "key=v", "v"},
                      Line{"NoQuotesWithBlanks", "key =  two words  ", "two words"},
                      Line{"QuoteNotClosed", "key=\"v", "v"}, Line{"QuoteNotOpened", "key=v\"", "v\""},
                      Line{"LoneQuote", "key=\"", ""}, Line{"Empty", "key=", ""},
                      Line{"EmptyQuotes", "key=\"\"", ""}, Line{"QuotesInside", "key=\"a\"b\"", "a\"b"},
                      Line{"EqualsInside", "key=a=b", "a=b"}, Line{"BlanksInQuotes", "key=\" v \"", " v "},
                      Line{"Crlf", "key=\"v\"\r", "v"}, Line{"CrlfNoQuotes", "key=v\r", "v"},
                      Line{"ByteOrderMark", "\xEF\xBB\xBFkey=\"v\"", "v"}, Line{"Comment", "#key=\"v\"", nullptr},
                      Line{"IndentedComment", "  # key=\"v\"", nullptr}, Line{"HashInValue", "key=\"#v\"", "#v"},
                      Line{"LongerKey", "keys=\"v\"", nullptr}, Line{"ShorterKey", "ke=\"v\"", nullptr},
                      Line{"OtherCase", "Key=\"v\"", nullptr}, Line{"NoEquals", "key \"v\"", nullptr},
                      Line{"NoKey", "=\"v\"", nullptr}, Line{"Header", "[key=v]", nullptr},
                      Line{"Junk", "\x01\xff\x80\x7f", nullptr}),
    [](const auto& test) { return test.param.name; });

TEST(SettingsText, TheFirstOfTwoLinesOfAKeyCountsForReadersAndChanges) {
    const std::string text = "key=\"first\"\nother=\"x\"\nkey=\"second\"\n";
    EXPECT_EQ(valueOf(text, "key"), "first");
    const std::string changed = merge(text, {{"key", "new"}});
    EXPECT_EQ(changed, "key=\"new\"\nother=\"x\"\nkey=\"second\"\n");
    EXPECT_EQ(valueOf(changed, "key"), "new");
}

TEST(SettingsText, KeepsLineEndsOfOthersAndEndsALastLineThatHasNone) {
    EXPECT_EQ(merge("a=\"1\"\r\nb=\"2\"\r\n", {{"a", "new"}}), "a=\"new\"\nb=\"2\"\r\n");
    EXPECT_EQ(merge("a=\"1\"\nb=\"2\"", {{"a", "new"}}), "a=\"new\"\nb=\"2\"");
    EXPECT_EQ(merge("a=\"1\"", {{"b", "new"}}), "a=\"1\"\nb=\"new\"\n");
    EXPECT_EQ(merge("a=\"1\"", {{"a", "new"}}), "a=\"new\"\n");
    EXPECT_EQ(merge("", {{"b", "new"}, {"a", "new"}}), "b=\"new\"\na=\"new\"\n");
}

TEST(SettingsText, KeepsBinaryJunkByteForByte) {
    std::string junk;
    for (int i = 0; i < 256; ++i)
        junk += static_cast<char>(i);
    const std::string before = junk + "\nkey=\"old\"\n" + junk;
    EXPECT_EQ(merge(before, {{"key", "new"}}), junk + "\nkey=\"new\"\n" + junk);
}

TEST(SettingsText, ReadsLinesOfManyMegabytes) {
    const std::string text = "key=\"" + std::string(8 << 20, 'x') + "\"\nbehind=\"ok\"\n";
    EXPECT_EQ(valueOf(text, "behind"), "ok");
    EXPECT_EQ(valueOf(text, "key")->size(), std::size_t{8} << 20);
}

TEST(SettingsText, RefusesAPairThatWouldReadBackDifferently) {
    const LineFormat bare = LineFormat::parse("%s=%s\n").value();
    EXPECT_EQ(withKeys("", keysOf({{"key", "v"}}), bare).text, "key=v\n");
    for (const char* value : {" v", "v ", "\"v\"", "\"v"}) {
        EXPECT_EQ(withKeys("", keysOf({{"key", value}}), bare).error, kErrorForbiddenText) << value;
    }
    for (const char* key : {" key", "key ", "#key", "\xEF\xBB\xBFkey"}) {
        EXPECT_EQ(withKeys("", keysOf({{key, "v"}}), kTextFormat).error, kErrorForbiddenText) << key;
    }
    EXPECT_EQ(withKeys("", keysOf({{"[a", "]"}}), bare).error, kErrorForbiddenText);  // would be a header
}

TEST(SettingsText, TheFormatDecidesWhatALineLooksLike) {
    EXPECT_EQ(LineFormat::parse("%s = %s")->render("a", "1"), "a = 1\n");
    EXPECT_EQ(LineFormat::parse("%%%s=\"%s\"%%\n")->render("a", "1"), "%a=\"1\"%\n");
    EXPECT_FALSE(LineFormat::parse("%s=\n%s\n"));
    EXPECT_FALSE(LineFormat::parse("%s=%s\n\n"));
    EXPECT_FALSE(LineFormat::parse("%s=%10s\n"));
    EXPECT_FALSE(LineFormat::parse(""));
}

TEST(SettingsText, ReadsHeadersWithBlanksAndCommentsBehindThem) {
    EXPECT_THAT(namesOf("  [a]  \r\n[b] # note\n[c]x\n[d\n[e]=1\n[f]"), ElementsAre("a", "b", "f"));
    EXPECT_EQ(bodyOf("[a]\r\nk=\"1\"\r\n[b]\n", "a"), "k=\"1\"\r\n");
}

TEST(SettingsText, AHeaderIsNoKeyWhateverItsName) {
    const std::string text = "[a=b]\nk=\"1\"\n";
    EXPECT_FALSE(valueOf(text, "[a"));
    EXPECT_EQ(merge(text, {{"[a", "]"}}), text + "[a=\"]\"\n");
    EXPECT_THAT(namesOf(text + "[a=\"]\"\n"), ElementsAre("a=b"));
}

TEST(SettingsText, LinesBeforeTheFirstHeaderBelongToNoSection) {
    const std::string text = "key=\"none\"\n[a]\nkey=\"1\"\n";
    EXPECT_EQ(valueOf(bodyOf(text, "a").value(), "key"), "1");
    EXPECT_EQ(withoutSection(text, "a").text, "key=\"none\"\n");
}

TEST(SettingsText, RemovingASectionKeepsTheCommentsBehindItsKeys) {
    const std::string text = "# rules\n\n[a]\n# inside a\nk=\"1\"\n\n# about b\n[b]\nk=\"2\"\n# the end\n";
    EXPECT_EQ(withoutSection(text, "a").text, "# rules\n\n\n# about b\n[b]\nk=\"2\"\n# the end\n");
    EXPECT_EQ(withoutSection(text, "b").text, "# rules\n\n[a]\n# inside a\nk=\"1\"\n\n# about b\n# the end\n");
}

TEST(SettingsText, ANewKeyStandsBehindTheKeysOfItsSection) {
    const std::string text = "[a]\nk=\"1\"\n\n# about b\n[b]\nk=\"2\"";
    EXPECT_EQ(withSectionKeys(text, "a", keysOf({{"n", "3"}}), kTextFormat).text,
              "[a]\nk=\"1\"\nn=\"3\"\n\n# about b\n[b]\nk=\"2\"");
    EXPECT_EQ(withSectionKeys(text, "b", keysOf({{"n", "3"}}), kTextFormat).text,
              "[a]\nk=\"1\"\n\n# about b\n[b]\nk=\"2\"\nn=\"3\"\n");
    EXPECT_EQ(withSectionKeys("[a]", "a", keysOf({{"n", "3"}}), kTextFormat).text, "[a]\nn=\"3\"\n");
}

TEST(SettingsText, ReplacingASectionKeepsItsCommentsAndDropsItsOtherKeys) {
    const std::string text = "[a]\n# port\nport=\"1\"\nssl=\"no\"\nport=\"2\"\n[b]\n";
    EXPECT_EQ(withSectionReplaced(text, "a", "a", keysOf({{"port", "9"}, {"new", "x"}}), kTextFormat).text,
              "[a]\n# port\nport=\"9\"\nnew=\"x\"\n[b]\n");
}

TEST(SettingsText, ASectionThatStandsTwiceIsOneForReadersAndGoneAtOnce) {
    const std::string text = "[a]\nk=\"1\"\n[b]\nk=\"2\"\n[a]\nk=\"3\"\n[c]\n";
    EXPECT_EQ(bodyOf(text, "a"), "k=\"1\"\n");
    EXPECT_EQ(withoutSection(text, "a").text, "[b]\nk=\"2\"\n[c]\n");
    EXPECT_EQ(withSectionReplaced(text, "a", "d", keysOf({{"k", "9"}}), kTextFormat).text,
              "[d]\nk=\"9\"\n[b]\nk=\"2\"\n[c]\n");
    EXPECT_EQ(withSection(text, "a", keysOf({}), kTextFormat).error, kErrorExists);
}

TEST(SettingsText, SaysWhyAChangeIsRefused) {
    const std::string text = "[a]\n[b]\n";
    EXPECT_EQ(withoutSection(text, "c").error, kErrorNotFound);
    EXPECT_EQ(withSectionReplaced(text, "c", "d", keysOf({}), kTextFormat).error, kErrorNotFound);
    EXPECT_EQ(withSectionReplaced(text, "a", "b", keysOf({}), kTextFormat).error, kErrorExists);
    EXPECT_EQ(withSectionReplaced(text, "a", "]", keysOf({}), kTextFormat).error, kErrorForbiddenText);
    EXPECT_EQ(withSectionKeys(text, "a", keysOf({{"k", "1\n"}}), kTextFormat).error, kErrorForbiddenText);
    EXPECT_EQ(withSectionKeys(text, "c]", keysOf({{"k", "1"}}), kTextFormat).error, kErrorForbiddenText);
}

}  // namespace
}  // namespace ombrel
