// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/vesksyslog/text_finder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>

#include "linux/common/severity_text.h"

namespace ombrel {

namespace {

bool isInByComparing(const std::string& text, const std::string& wanted) {
    return std::search(text.begin(), text.end(), wanted.begin(), wanted.end(),
                       [](char a, char b) { return foldCase(a) == foldCase(b); }) != text.end() ||
           wanted.empty();
}

TEST(TextFinder, FindsWhatAComparisonOfEachPlaceFinds) {
    std::mt19937 random(20240303);
    // Few letters, so that much is found, and what differs from a letter by one bit alone.
    const std::string letters = "aAbBzZ@`[{\xe1\xc1 0P";
    const auto text = [&](std::size_t longest) {
        std::string made(random() % (longest + 1), ' ');
        for (char& c : made)
            c = letters[random() % letters.size()];
        return made;
    };
    int found = 0;
    for (int i = 0; i < 200'000; ++i) {
        const std::string wanted = text(i % 3 == 0 ? 20 : 3);
        std::string within = text(70);
        if (i % 3 == 0) within.insert(random() % (within.size() + 1), wanted);
        const bool expected = isInByComparing(within, wanted);
        found += expected ? 1 : 0;
        ASSERT_EQ(TextFinder(wanted).isIn(within), expected) << wanted << " in " << within;
    }
    EXPECT_GT(found, 60'000);
    EXPECT_LT(found, 190'000);
}

TEST(TextFinder, FindsTheTextAtEachPlaceAndReadsNothingBehindTheEnd) {
    const TextFinder finder("NeedLe!");
    for (std::size_t size = 7; size < 80; ++size) {
        for (std::size_t place = 0; place + 7 <= size; ++place) {
            // On the heap and of exactly that size: a sanitizer sees what is read beside it.
            std::unique_ptr<char[]> text(new char[size]);
            std::fill_n(text.get(), size, 'n');
            std::copy_n("nEEdlE!", 7, text.get() + place);
            EXPECT_TRUE(finder.isIn({text.get(), size})) << size << " " << place;
            text[place + 3] = 'x';
            EXPECT_FALSE(finder.isIn({text.get(), size})) << size << " " << place;
        }
    }
}

TEST(TextFinder, TakesNoByteForALetterThatIsNone) {
    EXPECT_FALSE(TextFinder("@").isIn("`"));
    EXPECT_FALSE(TextFinder("[").isIn("{"));
    EXPECT_FALSE(TextFinder("\xc3\xa4").isIn("\xc3\x84"));
    EXPECT_TRUE(TextFinder(std::string("a\0b", 3)).isIn(std::string("xA\0B", 4)));
    EXPECT_TRUE(TextFinder("").isIn(""));
    EXPECT_FALSE(TextFinder("a").isIn(""));
}

}  // namespace

}  // namespace ombrel
