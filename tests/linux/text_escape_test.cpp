// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Texts of strangers on one line and in JSON.
#include "linux/common/text_escape.h"

#include <gtest/gtest.h>

#include <string>

namespace ombrel {
namespace {

struct EscapeCase {
    const char* name;
    std::string text;
    std::string line;
    std::string json;
};

class TextEscape : public ::testing::TestWithParam<EscapeCase> {};

TEST_P(TextEscape, MakesOneSafeLine) {
    EXPECT_EQ(escapeForLine(GetParam().text), GetParam().line);
}

TEST_P(TextEscape, MakesAJsonString) {
    EXPECT_EQ(quoteJson(GetParam().text), GetParam().json);
}

INSTANTIATE_TEST_SUITE_P(
    Table, TextEscape,
    ::testing::Values(
        EscapeCase{"Empty", "", "", R"("")"}, EscapeCase{"Plain", "/srv/logs", "/srv/logs", R"("/srv/logs")"},
        EscapeCase{"Quotes", R"(a"b\c)", R"(a"b\c)", R"("a\"b\\c")"},
        EscapeCase{"LineBreak", "a\r\nb", R"(a\x0d\x0ab)", R"("a\u000d\u000ab")"},
        EscapeCase{"Nul", std::string("a\0b", 3), R"(a\x00b)", R"("a\u0000b")"},
        EscapeCase{"TerminalEscape", "\x1b[31m", R"(\x1b[31m)", R"("\u001b[31m")"},
        EscapeCase{"Delete", "\x7f", R"(\x7f)", R"("\u007f")"},
        EscapeCase{"ControlOfTheUpperHalf", "\xc2\x9b", R"(\xc2\x9b)", R"("\u009b")"},
        EscapeCase{"Umlaut", "\xc3\xbc", "\xc3\xbc", R"("\u00fc")"},
        EscapeCase{"Euro", "\xe2\x82\xac", "\xe2\x82\xac", R"("\u20ac")"},
        EscapeCase{"BeyondTheBasicPlane", "\xf0\x9f\x98\x80", "\xf0\x9f\x98\x80", R"("\ud83d\ude00")"},
        EscapeCase{"LastCodePoint", "\xf4\x8f\xbf\xbf", "\xf4\x8f\xbf\xbf", R"("\udbff\udfff")"},
        EscapeCase{"BeyondTheLast", "\xf4\x90\x80\x80", R"(\xf4\x90\x80\x80)", R"("\ufffd\ufffd\ufffd\ufffd")"},
        EscapeCase{"LoneContinuation", "a\x80z", R"(a\x80z)", R"("a\ufffdz")"},
        EscapeCase{"CutSequence", "\xe2\x82", R"(\xe2\x82)", R"("\ufffd\ufffd")"},
        EscapeCase{"OverlongSlash", "\xc0\xaf", R"(\xc0\xaf)", R"("\ufffd\ufffd")"},
        EscapeCase{"OverlongOfThree", "\xe0\x80\xaf", R"(\xe0\x80\xaf)", R"("\ufffd\ufffd\ufffd")"},
        EscapeCase{"Surrogate", "\xed\xa0\x80", R"(\xed\xa0\x80)", R"("\ufffd\ufffd\ufffd")"},
        EscapeCase{"NoUtf8AtAll", "\xff\xfe", R"(\xff\xfe)", R"("\ufffd\ufffd")"}),
    [](const auto& test) { return std::string(test.param.name); });

}  // namespace
}  // namespace ombrel
