// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/common/progress_bar.h"

#include <gtest/gtest.h>

namespace ombrel {
namespace {

TEST(ProgressBar, IsFullWhenAllIsDoneAndNotBefore) {
    EXPECT_EQ(progressBar(0, 4), "[....]   0 %");
    EXPECT_EQ(progressBar(0.5, 4), "[##..]  50 %");
    EXPECT_EQ(progressBar(0.9999, 4), "[###.]  99 %");
    EXPECT_EQ(progressBar(1, 4), "[####] 100 %");
    EXPECT_EQ(progressBar(7, 4), "[####] 100 %");
    EXPECT_EQ(shareDone(1, 4), 0.25);
    EXPECT_EQ(shareDone(5, 4), 1) << "more than there was in the beginning";
    EXPECT_EQ(shareDone(5, 0), 0);
}

TEST(ProgressBar, NumbersCanBeRead) {
    EXPECT_EQ(groupedNumber(0), "0");
    EXPECT_EQ(groupedNumber(999), "999");
    EXPECT_EQ(groupedNumber(1000), "1,000");
    EXPECT_EQ(groupedNumber(18'446'744'073'709'551'615ULL), "18,446,744,073,709,551,615");
    EXPECT_EQ(sizeText(0), "0.0 MB");
    EXPECT_EQ(sizeText(12'345'678), "12.3 MB");
    EXPECT_EQ(sizeText(999'900'000), "999.9 MB");
    EXPECT_EQ(sizeText(999'990'000), "1.0 GB");
    EXPECT_EQ(durationText(0.4), "0:00");
    EXPECT_EQ(durationText(59.6), "1:00");
    EXPECT_EQ(durationText(3599), "59:59");
    EXPECT_EQ(durationText(3600 + 61), "1:01:01");
    EXPECT_EQ(durationText(1e300), "99:59:59");
    EXPECT_EQ(durationText(-1), "0:00");
}

TEST(ProgressBar, CutsBetweenCharacters) {
    EXPECT_EQ(mostColumns("ab"), 2U);
    EXPECT_EQ(mostColumns("a\xc3\xbc"), 3U) << "what is not ASCII may take two";
    EXPECT_EQ(cutToColumns("abc", 3), "abc");
    EXPECT_EQ(cutToColumns("abc", 2), "ab");
    EXPECT_EQ(cutToColumns("a\xe6\x97\xa5z", 2), "a");
    EXPECT_EQ(cutToColumns("a\xe6\x97\xa5z", 3), "a\xe6\x97\xa5");
    EXPECT_EQ(shortenMiddle("abcdefgh", 8), "abcdefgh");
    EXPECT_EQ(shortenMiddle("abcdefgh", 7), "ab..fgh");
    EXPECT_EQ(shortenMiddle("\xe6\x97\xa5\xe6\x97\xa5\xe6\x97\xa5", 5), "..\xe6\x97\xa5");
    EXPECT_EQ(shortenMiddle("abcdefgh", 1), "a");
    EXPECT_EQ(shortenMiddle("abcdefgh", 0), "");
}

}  // namespace
}  // namespace ombrel
